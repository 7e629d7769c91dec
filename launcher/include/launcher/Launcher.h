#ifndef LAUNCHER_LAUNCHER_H
#define LAUNCHER_LAUNCHER_H

#include <memory>
#include <string>

#include "host/AppLauncher.h"

namespace launcher {

// The emulated watch's launcher: reads the command line, admits the run on the watch it names,
// brings up the platform and the main loop, lets the registered DeviceHooks boot the watch,
// drives the app's life cycle with the launch requests asked for, and reports the run with its
// exit status. Main thread only.
class Launcher : public host::AppLauncher {
 public:
  // Launches the app `appId`, as the watch knows it.
  explicit Launcher(std::string appId);
  ~Launcher() override;

  Launcher(const Launcher&) = delete;
  Launcher& operator=(const Launcher&) = delete;

  int launch(int argc,
             char* argv[],
             host::AppLifeCycle& app,
             std::unique_ptr<host::LaunchedApp>& launched) override;

 private:
  const std::string appId_;
};

}  // namespace launcher

#endif
