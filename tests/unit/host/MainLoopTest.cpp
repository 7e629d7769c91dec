#include <glib.h>
#include <gtest/gtest.h>

#include "host/Platform.h"

namespace {

// A task must never run against a platform that is gone.
TEST(PlatformLifetimeTest, TasksPendingWhenThePlatformGoesAreDropped) {
  bool ran = false;
  {
    host::Platform platform("", "com.example.self");
    platform.post([&ran] { ran = true; });
    platform.post([&ran] { ran = true; }, 10);
  }
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
  g_usleep(20000);
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
  EXPECT_FALSE(ran);
}

}  // namespace
