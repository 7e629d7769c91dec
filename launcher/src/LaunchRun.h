// One launched run on the emulated watch, between onCreate and onTerminate. Internal to the
// launcher.
#ifndef LAUNCHER_LAUNCH_RUN_H
#define LAUNCHER_LAUNCH_RUN_H

#include <app_control.h>
#include <glib.h>
#include <signal.h>

#include <functional>
#include <utility>
#include <vector>

#include "MvHandles.h"
#include "MvLiveness.h"
#include "launcher/DeviceHooks.h"
#include "launcher/LaunchOptions.h"

namespace host {
class MainLoop;
class Platform;
}  // namespace host

namespace launcher {

// Delivers the launch requests at their times, and ends the run when the app exits, at the
// deadline, or on any signal whose default action would end the process (SIGPIPE only when
// another process sends it: a write of our own to a closed pipe fails instead). A deadline or a
// signal that comes while the app waits in a nested main loop cannot return to the main loop: the
// run is then reported at once and the process ends, as the platform's watchdog ends a hung app.
// Main loop thread only.
class LaunchRun {
 public:
  // Delivers one launch request; `request` lives for the call.
  using Deliver = std::function<void(app_control_h request, bool firstLaunch)>;

  LaunchRun(host::Platform& platform, const LaunchOptions& options, DeviceHooks& hooks);
  ~LaunchRun();

  LaunchRun(const LaunchRun&) = delete;
  LaunchRun& operator=(const LaunchRun&) = delete;

  // Runs `loop` until the run ends; returns how it ended.
  const RunOutcome& run(host::MainLoop& loop, Deliver deliver);

 private:
  void scheduleRequests();
  void armDeadline();
  void watchSignals();
  // The deadline or a signal: back to the main loop, or the end of the process.
  void end();
  static gboolean onSignal(gint fd, GIOCondition condition, gpointer data);

  host::Platform& platform_;
  const LaunchOptions& options_;
  DeviceHooks& hooks_;
  Deliver deliver_;
  RunOutcome outcome_;
  MvGSourceId signalSource_;
  // What each signal did before the run, put back when it ends.
  std::vector<std::pair<int, struct sigaction>> previousActions_;
  MvLiveness<LaunchRun> liveness_{this};  // for the tasks it posts
};

}  // namespace launcher

#endif
