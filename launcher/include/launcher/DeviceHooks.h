#ifndef LAUNCHER_DEVICE_HOOKS_H
#define LAUNCHER_DEVICE_HOOKS_H

#include <string>

#include "launcher/LaunchOptions.h"
#include "launcher/RunReport.h"

namespace host {
class Platform;
}  // namespace host

namespace launcher {

// How a launched run ended.
struct RunOutcome {
  bool endedBySelf = false;  // the app called service_app_exit()
  bool deadlinePassed = false;
  int signal = 0;  // the signal that ended the run, or 0
  // The run ended inside a nested main loop of the app: the process ends there, without
  // onTerminate, as the platform's watchdog ends a hung app.
  bool insideNestedLoop = false;
  double endedAt = 0;  // seconds since start
};

// What makes the bare platform a particular watch: the emulated watch registers one of these.
// Called by the launcher on the main thread.
class DeviceHooks {
 public:
  virtual ~DeviceHooks() = default;

  // Loads the device into `platform` (configuration, packages, peer apps) before the app starts.
  // Returns false with a one-line reason when the device cannot be used.
  virtual bool boot(host::Platform& platform, const LaunchOptions& options, std::string& error) = 0;

  // After the run: persists what changed on the device and reports what the watch saw, every
  // failure by name.
  virtual void finish(host::Platform& platform, const RunOutcome& outcome, RunReport& report) = 0;
};

// The hooks the launcher uses; set once, before start().
void setDeviceHooks(DeviceHooks* hooks);
DeviceHooks* deviceHooks();

}  // namespace launcher

#endif
