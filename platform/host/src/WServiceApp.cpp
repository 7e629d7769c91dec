// app_assist::WServiceApp on the host: the life cycle is run by whichever launcher the binary
// links in.
#include <WServiceApp.h>

#include <glib.h>

#include <cstdio>

#include "host/AppLauncher.h"

namespace {

// The status a launch that cannot begin ends with: the app did not start.
const int kNoLauncherStatus = 1;

}  // namespace

namespace app_assist {

struct WServiceApp::Runtime {
  std::unique_ptr<host::LaunchedApp> launched;
};

WServiceApp::WServiceApp() = default;

WServiceApp::~WServiceApp() = default;

void WServiceApp::onStart(int, char*[]) {}

bool WServiceApp::onCreate() {
  return true;
}

void WServiceApp::onTerminate() {}

void WServiceApp::onAppControl(app_control_h, bool) {}

int WServiceApp::start(int argc, char* argv[]) {
  // The protected hooks, reached from here on the launcher's behalf.
  class LifeCycle : public host::AppLifeCycle {
   public:
    explicit LifeCycle(WServiceApp& app) : app_(app) {}
    void start(int argc, char* argv[]) override { app_.onStart(argc, argv); }
    bool create() override { return app_.onCreate(); }
    void appControl(app_control_h request, bool firstLaunch) override {
      app_.onAppControl(request, firstLaunch);
    }
    void terminate() override { app_.onTerminate(); }

   private:
    WServiceApp& app_;
  };

  host::AppLauncher* launcher = host::appLauncher();
  if (!launcher) {
    g_autofree char* name = g_path_get_basename(argc > 0 ? argv[0] : "service");
    fprintf(stderr, "%s: no launcher is linked into this binary\n", name);
    return kNoLauncherStatus;
  }
  runtime_ = std::make_unique<Runtime>();
  LifeCycle lifeCycle(*this);
  return launcher->launch(argc, argv, lifeCycle, runtime_->launched);
}

}  // namespace app_assist
