#include <Ecore.h>
#include <glib.h>
#include <message_port.h>
#include <service_app.h>

#include <gtest/gtest.h>

#include <memory>

#include "FakeApp.h"
#include "PlatformFixture.h"

namespace {

using morvik_test::FakeApp;

class MainLoopTest : public morvik_test::PlatformFixture {};

gboolean quitNestedLoop(gpointer loop) {
  g_main_loop_quit(static_cast<GMainLoop*>(loop));
  return G_SOURCE_REMOVE;
}

struct NestedWait {
  GMainLoop* loop = nullptr;
  bool replied = false;
  bool messaged = false;
  void quitWhenBothArrived() {
    if (replied && messaged)
      g_main_loop_quit(loop);
  }
};

TEST_F(MainLoopTest, NestedGlibLoopDispatchesRepliesAndMessages) {
  const char* peerId = "com.example.store";
  platform().packages().install({peerId, peerId, "svcapp", true});
  platform().registerApp(peerId, std::make_shared<FakeApp>());

  NestedWait wait;
  int port = message_port_register_trusted_local_port(
      "test::localport",
      [](int, const char*, const char*, bool, bundle*, void* data) {
        auto* w = static_cast<NestedWait*>(data);
        w->messaged = true;
        w->quitWhenBothArrived();
      },
      &wait);
  ASSERT_GT(port, 0);

  bool nestedReturned = false;
  bool bothSeenInside = false;
  // The way a store request waits: from a main-loop callback, in a nested loop of its own.
  platform().post([&] {
    app_control_h request = nullptr;
    app_control_create(&request);
    app_control_set_app_id(request, peerId);
    app_control_send_launch_request(
        request,
        [](app_control_h, app_control_h, app_control_result_e, void* data) {
          auto* w = static_cast<NestedWait*>(data);
          w->replied = true;
          w->quitWhenBothArrived();
        },
        &wait);
    app_control_destroy(request);
    platform().sendToApp(peerId, "store::port", "test::localport", {{"message", "hello"}});

    wait.loop = g_main_loop_new(nullptr, FALSE);
    guint guard = g_timeout_add(5000, quitNestedLoop, wait.loop);
    g_main_loop_run(wait.loop);
    bothSeenInside = wait.replied && wait.messaged;
    if (bothSeenInside)
      g_source_remove(guard);
    g_main_loop_unref(wait.loop);
    nestedReturned = true;
  });

  ASSERT_TRUE(runLoopUntil([&] { return nestedReturned; }, 10));
  EXPECT_TRUE(bothSeenInside);
}

// Ecore timers and GLib sources share one loop, and service_app_exit ends it before later work.
TEST_F(MainLoopTest, EcoreTimersAndGlibSourcesRunInOneLoopUntilTheServiceExits) {
  bool ecoreFired = false;
  bool stillRunning = true;
  ecore_timer_add(
      0.05,
      [](void* data) -> Eina_Bool {
        *static_cast<bool*>(data) = true;
        return ECORE_CALLBACK_CANCEL;
      },
      &ecoreFired);
  platform().post([] { service_app_exit(); }, 80);
  platform().post([&] { stillRunning = false; }, 3000);
  EXPECT_TRUE(runLoopUntil([&] { return platform().exitRequested(); }, 5));
  EXPECT_TRUE(ecoreFired);
  EXPECT_TRUE(stillRunning);
}

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
