#ifndef EMU_EMULATED_WATCH_H
#define EMU_EMULATED_WATCH_H

#include "emu/DeviceProfile.h"
#include "host/DeviceHooks.h"

namespace emu {

// Turns the bare host platform into the watch of a device directory: loads its profile into the
// platform before the app starts, and writes back what the run changed.
class EmulatedWatch : public host::DeviceHooks {
 public:
  bool boot(host::Platform& platform, const host::LaunchOptions& options,
            std::string& error) override;
  std::vector<std::string> finish(host::Platform& platform,
                                  const host::RunOutcome& outcome) override;

  const DeviceProfile& profile() const { return profile_; }

 private:
  std::string deviceDir_;
  DeviceProfile profile_;
};

}  // namespace emu

#endif
