#include "emu/EmulatedWatch.h"

#include "emu/SampleWatch.h"
#include "host/Platform.h"

namespace emu {

bool EmulatedWatch::boot(host::Platform& platform,
                         const host::LaunchOptions& options,
                         std::string& error) {
  deviceDir_ = options.deviceDir;
  if (!profile_.load(deviceDir_, error))
    return false;
  for (const auto& entry : profile_.config)
    platform.config().set(entry.first, entry.second);
  for (const host::PackageInfo& info : profile_.packages)
    platform.packages().install(info);
  std::vector<std::string> operations;
  for (const host::LaunchRequest& request : options.requests)
    operations.push_back(request.operation);
  cloud_ = std::make_unique<CloudAgent>(platform, options.cloudDir, profile_.faults, operations);
  bootPeers(platform);
  return true;
}

std::vector<std::string> EmulatedWatch::finish(host::Platform& platform, const host::RunOutcome&) {
  std::vector<std::string> lines;
  if (cloud_) {
    lines = cloud_->summary();
    cloud_.reset();
  }
  profile_.config = platform.config().values();
  profile_.packages = platform.packages().apps();
  finishPeers(platform, lines);
  std::string error;
  if (!profile_.save(deviceDir_, error))
    lines.push_back("watch     NOT SAVED: " + error);

  auto idle = profile_.config.find(kIdleClockKey);
  lines.push_back("watch     " + profile_.name + ", idle clock " +
                  (idle == profile_.config.end() ? std::string("(none)") : idle->second));
  return lines;
}

}  // namespace emu
