#ifndef EMU_EMULATED_WATCH_H
#define EMU_EMULATED_WATCH_H

#include <memory>

#include "emu/CloudAgent.h"
#include "emu/DeviceProfile.h"
#include "emu/RunJournal.h"
#include "emu/StoreService.h"
#include "emu/StoredSet.h"
#include "emu/WatchApp.h"
#include "emu/WatchfaceService.h"
#include "launcher/DeviceHooks.h"

namespace emu {

// Turns the bare host platform into the watch of a device directory: loads its profile into the
// platform before the app starts, and writes back what the run changed.
class EmulatedWatch : public launcher::DeviceHooks {
 public:
  bool boot(host::Platform& platform,
            const launcher::LaunchOptions& options,
            std::string& error) override;
  void finish(host::Platform& platform,
              const launcher::RunOutcome& outcome,
              launcher::RunReport& report) override;

  const DeviceProfile& profile() const { return profile_; }

 private:
  // The watch face service, the preloaded watch apps and the store, registered with `platform`.
  void bootPeers(host::Platform& platform);
  // Takes back into the profile what the peers changed, and describes what they saw.
  void finishPeers(host::Platform& platform, launcher::RunReport& report);
  void releasePeers();
  // What the run's backups left out of the watch and its restores did not put back.
  void audit(host::Platform& platform,
             const std::vector<StoredSet>& stored,
             const std::vector<StoredSet>& restored,
             launcher::RunReport& report);

  std::string deviceDir_;
  std::string cloudDir_;
  DeviceProfile profile_;
  DeviceProfile booted_;  // the watch as it was when the run began
  // The vendor's backup app, from boot() to finish().
  std::unique_ptr<CloudAgent> cloud_;
  // Shares of the peers that the platform owns, held from boot() to finish().
  std::shared_ptr<WatchfaceService> watchface_;
  std::vector<std::shared_ptr<WatchApp>> watchApps_;
  std::shared_ptr<StoreService> store_;
  // What the run applies, as it applies it; shared with the peers, from boot() to finish().
  std::shared_ptr<RunJournal> journal_;
  // Packages that a fault keeps out of the package database; they stay on the watch's disk.
  std::vector<host::PackageInfo> withheld_;
};

}  // namespace emu

#endif
