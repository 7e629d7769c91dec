#include "MvHandles.h"

#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <utility>

#include "MvLiveness.h"

namespace {

bool sourceExists(guint id) {
  return g_main_context_find_source_by_id(nullptr, id) != nullptr;
}

guint idleSource() {
  return g_idle_add([](gpointer) { return G_SOURCE_REMOVE; }, nullptr);
}

// A source's ID is removed exactly once, by whichever owner holds it last; release() leaves it to
// the callback that ends it. A second removal would be a GLib critical, or another's source.
TEST(HandlesTest, ASourceIdIsRemovedOnceByItsLastOwner) {
  MvGSourceId first(idleSource());
  const guint id = first.get();
  MvGSourceId moved(std::move(first));
  EXPECT_FALSE(first);
  first.reset();
  EXPECT_TRUE(sourceExists(id));
  MvGSourceId assigned;
  assigned = std::move(moved);
  moved.reset();
  EXPECT_TRUE(sourceExists(id));
  assigned.reset(idleSource());
  EXPECT_FALSE(sourceExists(id));

  const guint kept = assigned.release();
  assigned.reset();
  EXPECT_TRUE(sourceExists(kept));
  assigned.reset(kept);
}

// A descriptor has one owner; mvReleaseNow() reports what close() said.
TEST(HandlesTest, ADescriptorClosesOnceAndTellsHowItClosed) {
  MvFd held(open("/dev/null", O_RDONLY | O_CLOEXEC));
  ASSERT_GE(held.get(), 0);
  const int fd = held.get();
  MvFd taken(std::move(held));
  held.reset();
  EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(mvReleaseNow(taken), 0);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  EXPECT_EQ(mvReleaseNow(taken), -1);
}

struct Target {
  MvLiveness<Target> liveness{this};
};

// A token outlives its target harmlessly, and never finds a newer one.
TEST(HandlesTest, ALateCallbackFindsNoTargetNotEvenANewOne) {
  int ran = 0;
  auto target = std::make_unique<Target>();
  void* token = target->liveness.token();
  std::function<void()> task = target->liveness.whileAlive([&ran] { ++ran; });
  task();
  EXPECT_EQ(MvLiveness<Target>::find(token), target.get());
  target.reset();
  target = std::make_unique<Target>();
  task();
  EXPECT_EQ(ran, 1);
  EXPECT_EQ(MvLiveness<Target>::find(token), nullptr);
  EXPECT_NE(target->liveness.token(), token);
}

}  // namespace
