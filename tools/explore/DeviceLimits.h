#ifndef MORVIK_EXPLORE_DEVICE_LIMITS_H
#define MORVIK_EXPLORE_DEVICE_LIMITS_H

#include <map>
#include <string>
#include <vector>

#include "Scenario.h"
#include "emu/BackupDocument.h"
#include "emu/DeviceProfile.h"

namespace explore {

// The items a run began with, the sets its cloud held at the end and where the service's files
// lay: what the device's limits are weighed against.
struct RunItems {
  emu::DeviceProfile watch;                   // as the run began
  std::map<std::string, std::string> photos;  // each photo's bytes, by file name
  std::string deviceDir;                      // as the service was given it
  std::string resolvedDeviceDir;              // its links resolved, as photo entries name it
  std::map<unsigned long long, emu::BackupDocument> sets;  // each set's records, merged
  std::vector<std::string> serviceShared;  // the names in the service's shared directory
};

// An item a limit keeps from a backup or a restore, named and explained as the emulated watch's
// audit names and explains it.
struct ItemLoss {
  std::string item;
  std::string reason;
  const char* rule;  // the platform switch that loses it
};
using ItemLosses = std::vector<ItemLoss>;

// The documented limits of a run's platform, as its personality sets them. Each switch has one
// rule: a value, message or launch over its limit is refused at once, and only the item it
// carries is lost.
class DeviceLimits {
 public:
  explicit DeviceLimits(const Scenario& scenario);

  // Whether the backup's start message reaches the watch face service and its
  // "backup_finished" comes back: otherwise no collection can finish.
  bool backupConversationFits() const;
  // What a backup of `items.watch` loses.
  ItemLosses backupLosses(const RunItems& items) const;
  // What a restore of `set` onto `items.watch` loses, leaving out what the watch already held.
  ItemLosses restoreLosses(const emu::BackupDocument& set, const RunItems& items) const;
  // The service's files that lie beside its trusted directory, where none may.
  std::vector<std::string> misplacedFiles(const RunItems& items) const;

 private:
  size_t vconfValueBytes_ = 0;  // 0: none
  size_t messageBytes_ = 0;     // 0: none
  std::string otherPackageService_;
  std::string trustedPathSlash_;
};

}  // namespace explore

#endif
