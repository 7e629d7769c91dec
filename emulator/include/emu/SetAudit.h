#ifndef EMU_SET_AUDIT_H
#define EMU_SET_AUDIT_H

#include <map>
#include <string>
#include <vector>

#include "emu/BackupDocument.h"
#include "emu/DeviceProfile.h"
#include "host/BoundaryRecord.h"

namespace emu {

// One item of a watch's setup that a backup left out or a restore did not put back, named as
// `morvik-emu diff` names it ("face P", "watch app A", "photo N", "app A", "idle clock"), with
// the reason the run's record gives.
struct AuditFinding {
  std::string item;
  std::string reason;
};

// What the store answered each install request, by GUID: see StoreService::answers().
using StoreAnswers = std::map<std::string, std::string>;

// What of `watch` (its profile when the run began, its photos in `deviceDir`) the backup
// `document` leaves out.
std::vector<AuditFinding> auditBackup(const DeviceProfile& watch,
                                      const std::string& deviceDir,
                                      const BackupDocument& document,
                                      const host::BoundaryRecord& record);

// What of the restored `document` the watch (its profile after the run) does not hold.
std::vector<AuditFinding> auditRestore(const DeviceProfile& watch,
                                       const std::string& deviceDir,
                                       const BackupDocument& document,
                                       const host::BoundaryRecord& record,
                                       const StoreAnswers& store);

}  // namespace emu

#endif
