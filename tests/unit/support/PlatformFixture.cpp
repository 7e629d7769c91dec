#include "PlatformFixture.h"

#include <Ecore.h>
#include <glib.h>

namespace morvik_test {

namespace {

struct LoopWatch {
  const std::function<bool()>* done;
  gint64 deadline;
};

gboolean checkLoop(gpointer data) {
  auto* watch = static_cast<LoopWatch*>(data);
  if ((*watch->done)() || g_get_monotonic_time() >= watch->deadline) {
    ecore_main_loop_quit();
    return G_SOURCE_REMOVE;
  }
  return G_SOURCE_CONTINUE;
}

}  // namespace

void PlatformFixture::SetUp() {
  deviceDir_ = std::make_unique<TempDir>();
  loop_ = std::make_unique<host::MainLoop>();
  platform_ = std::make_unique<host::Platform>(deviceDir_->path(), kSelfAppId);
  platform_->log().setEchoToStderr(false);
}

void PlatformFixture::TearDown() {
  platform_.reset();
  loop_.reset();
  deviceDir_.reset();
}

bool PlatformFixture::runLoopUntil(const std::function<bool()>& done, double timeoutSeconds) {
  const gint64 deadline =
      g_get_monotonic_time() + static_cast<gint64>(timeoutSeconds * G_USEC_PER_SEC);
  while (!done() && g_get_monotonic_time() < deadline) {
    LoopWatch watch{&done, deadline};
    g_timeout_add(5, checkLoop, &watch);
    loop_->run();
    // The loop may have ended for another reason (service_app_exit) with the watch still on.
    g_source_remove_by_user_data(&watch);
  }
  return done();
}

void PlatformFixture::runLoopFor(double seconds) {
  runLoopUntil([] { return false; }, seconds);
}

}  // namespace morvik_test
