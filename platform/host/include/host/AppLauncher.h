#ifndef HOST_APP_LAUNCHER_H
#define HOST_APP_LAUNCHER_H

#include <app_control.h>

#include <memory>

namespace host {

// A service app's life cycle hooks, as the launcher calls them on the main loop thread.
class AppLifeCycle {
 public:
  virtual void start(int argc, char* argv[]) = 0;
  virtual bool create() = 0;
  // `request` belongs to the launcher and lives for the call.
  virtual void appControl(app_control_h request, bool firstLaunch) = 0;
  virtual void terminate() = 0;

 protected:
  ~AppLifeCycle() = default;
};

// What a launch brought up for the app (its platform and main loop above all). The app object
// holds it, so that the app can still release what it holds on the platform after start().
class LaunchedApp {
 public:
  virtual ~LaunchedApp() = default;
};

// What turns app_assist::WServiceApp::start() into a run: the command line, the watch the app
// runs on, the loop, and the report at the end. The host has none of its own; one registers.
class AppLauncher {
 public:
  virtual ~AppLauncher() = default;

  // Runs `app`'s life cycle as `argv` asks and returns the process's exit status. What must
  // outlive the call goes to `launched`.
  virtual int launch(int argc,
                     char* argv[],
                     AppLifeCycle& app,
                     std::unique_ptr<LaunchedApp>& launched) = 0;
};

// The launcher start() hands over to; set once, before start().
void setAppLauncher(AppLauncher* launcher);
AppLauncher* appLauncher();

}  // namespace host

#endif
