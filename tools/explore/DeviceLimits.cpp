#include "DeviceLimits.h"

#include <app_control.h>
#include <glib.h>

#include <cstring>
#include <utility>

#include "MvWatchLayout.h"
#include "emu/SampleWatch.h"

namespace explore {

namespace {

const char* const kVconfRule = "vconf-value-limit";
const char* const kMessageRule = "message-size-limit";
const char* const kLaunchRule = "other-package-service";
const char* const kDownloaded = "downloaded";

// A message-port message: its keys and values, as the protocol gives them.
using Message = std::vector<std::pair<const char*, std::string>>;

size_t bytesOf(const std::string& text) {
  if (text == "off")
    return 0;
  return static_cast<size_t>(g_ascii_strtoull(text.c_str(), nullptr, 10));
}

// The platform rules, one per switch.

// message-size-limit: a message counts its keys and values with a NUL each; one over the limit
// is refused at the send, so only the item it carries is lost.
bool overTheMessageLimit(size_t limit, const Message& message) {
  size_t bytes = 0;
  for (const auto& entry : message)
    bytes += strlen(entry.first) + 1 + entry.second.size() + 1;
  return limit != 0 && bytes > limit;
}

// vconf-value-limit: vconf refuses a longer string value; the key keeps the value it had.
bool overTheVconfLimit(size_t limit, const std::string& value) {
  return limit != 0 && value.size() > limit;
}

// other-package-service: under refuse, a launch request to a service app of a package other than
// the service's own is rejected; an app that is not installed is not found first.
bool launchRejected(const std::string& value,
                    const emu::DeviceProfile& watch,
                    const std::string& appId) {
  if (value != "refuse")
    return false;
  const host::PackageInfo* target = nullptr;
  const host::PackageInfo* self = nullptr;
  for (const host::PackageInfo& info : watch.packages) {
    if (info.appId == appId)
      target = &info;
    if (info.appId == MV_SERVICE_APP_ID)
      self = &info;
  }
  return target && target->component == "svcapp" &&
         target->pkgId != (self ? self->pkgId : std::string(MV_SERVICE_APP_ID));
}

// trusted-path-slash: either value: the service adds the '/' a trusted path may lack, so its
// files lie in its trusted directory, and a restored photo's message names its file there.
bool liesInTheTrustedDirectory(const std::string&, const std::string& sharedEntry) {
  return sharedEntry == "trusted";
}

std::string restoredPhotoPath(const std::string&,
                              const std::string& deviceDir,
                              const std::string& fileName) {
  g_autofree char* trusted =
      g_build_filename(deviceDir.c_str(), mvSharedTrustedDir(MV_SERVICE_APP_ID).c_str(), nullptr);
  return std::string(trusted) + "/" + fileName;
}

std::string launchError() {
  return "its app could not be launched (error " +
         std::to_string(APP_CONTROL_ERROR_LAUNCH_REJECTED) + ")";
}

std::string configOf(const emu::DeviceProfile& watch, const char* key) {
  auto found = watch.config.find(key);
  return found == watch.config.end() ? std::string() : found->second;
}

// The app ID the audit names a downloaded package by.
std::string appIdOf(const emu::DeviceProfile& watch, const std::string& pkgId) {
  for (const host::PackageInfo& info : watch.packages) {
    if (info.pkgId == pkgId)
      return info.appId;
  }
  for (const emu::CatalogueItem& item : watch.catalogue) {
    if (item.pkgId == pkgId || item.guid == pkgId)
      return item.appId;
  }
  return pkgId;
}

bool installed(const emu::DeviceProfile& watch, const std::string& pkgId) {
  for (const host::PackageInfo& info : watch.packages) {
    if (info.pkgId == pkgId)
      return true;
  }
  return false;
}

bool holdsFace(const emu::DeviceProfile& watch, const emu::BackupDocument::Entry& entry) {
  for (const emu::FaceEntry& face : watch.faces) {
    if (face.pkgId == entry.pkgId && face.settings == entry.result)
      return true;
  }
  return false;
}

bool holdsWatchApp(const emu::DeviceProfile& watch, const emu::BackupDocument::Entry& entry) {
  for (const emu::WatchAppState& app : watch.watchApps) {
    if (app.appId == entry.svcId && app.resultXml == entry.result)
      return true;
  }
  return false;
}

bool holdsPhoto(const RunItems& items, const emu::BackupDocument::Photo& photo) {
  auto bytes = items.photos.find(photo.fileName);
  if (bytes == items.photos.end() || !emu::photoHolds(photo, bytes->second))
    return false;
  for (const emu::BackgroundImage& image : items.watch.images) {
    if (image.fileName == photo.fileName && image.bgType == photo.bgType)
      return true;
  }
  return false;
}

}  // namespace

DeviceLimits::DeviceLimits(const Scenario& scenario)
    : vconfValueBytes_(bytesOf(scenario.platformValue(kVconfRule))),
      messageBytes_(bytesOf(scenario.platformValue(kMessageRule))),
      otherPackageService_(scenario.platformValue(kLaunchRule)),
      trustedPathSlash_(scenario.platformValue("trusted-path-slash")) {}

bool DeviceLimits::backupConversationFits() const {
  return !overTheMessageLimit(messageBytes_, {{"operation", "talvoro_cloud_backup"}}) &&
         !overTheMessageLimit(messageBytes_, {{"message", "backup_finished"}});
}

ItemLosses DeviceLimits::backupLosses(const RunItems& items) const {
  ItemLosses lost;
  const emu::DeviceProfile& watch = items.watch;
  for (const emu::FaceEntry& face : watch.faces) {
    if (overTheMessageLimit(
            messageBytes_,
            {{"type", "watch"}, {"pkgid", face.pkgId}, {"result_xml", face.settings}}))
      lost.push_back(
          {"face " + face.pkgId, "the watch face service's entry is missing", kMessageRule});
  }
  for (const emu::BackgroundImage& image : watch.images) {
    if (overTheMessageLimit(messageBytes_,
                            {{"type", "image"},
                             {"file_name", image.fileName},
                             {"file_path", items.resolvedDeviceDir + "/" + image.path},
                             {"bg_type", image.bgType}}))
      lost.push_back(
          {"photo " + image.fileName, "the watch face service's entry is missing", kMessageRule});
  }
  for (const emu::WatchAppState& app : watch.watchApps) {
    if (launchRejected(otherPackageService_, watch, app.appId))
      lost.push_back({"watch app " + app.appId, launchError(), kLaunchRule});
  }
  return lost;
}

ItemLosses DeviceLimits::restoreLosses(const emu::BackupDocument& set,
                                       const RunItems& items) const {
  ItemLosses lost;
  const emu::DeviceProfile& watch = items.watch;
  for (const emu::BackupDocument::Entry& entry : set.entries) {
    if (entry.result == kDownloaded) {
      if (!installed(watch, entry.pkgId) &&
          launchRejected(otherPackageService_, watch, MV_STORE_APP_ID))
        lost.push_back({"app " + appIdOf(watch, entry.pkgId),
                        "the store got no install request for it", kLaunchRule});
    } else if (entry.svcId == MV_WATCHFACE_SERVICE_APP_ID) {
      if (!holdsFace(watch, entry) &&
          overTheMessageLimit(messageBytes_, {{"operation", "talvoro_cloud_restore"},
                                              {"type", "watch"},
                                              {"pkgid", entry.pkgId},
                                              {"result_xml", entry.result}}))
        lost.push_back(
            {"face " + entry.pkgId, "the watch face service did not get it", kMessageRule});
    } else if (!holdsWatchApp(watch, entry) &&
               launchRejected(otherPackageService_, watch, entry.svcId)) {
      lost.push_back({"watch app " + entry.svcId, launchError(), kLaunchRule});
    }
  }
  for (const emu::BackupDocument::Photo& photo : set.photos) {
    const std::string path = restoredPhotoPath(trustedPathSlash_, items.deviceDir, photo.fileName);
    if (!holdsPhoto(items, photo) &&
        overTheMessageLimit(messageBytes_, {{"operation", "talvoro_cloud_restore"},
                                            {"type", "image"},
                                            {"bg_type", photo.bgType},
                                            {"file_path", path},
                                            {"file_name", photo.fileName}}))
      lost.push_back(
          {"photo " + photo.fileName, "the watch face service did not get it", kMessageRule});
  }
  // The idle clock: the service writes a main key of its own, or sends the watch face's to the
  // watch face service, which writes it and then the sub key.
  const std::string idle = configOf(watch, MV_IDLE_CLOCK_KEY);
  const std::string face = configOf(watch, MV_WATCHFACE_NAME_KEY);
  auto notSet = [&](const char* item, const std::string& value, const char* rule) {
    lost.push_back({item, "it was not set to \"" + value + "\"", rule});
  };
  if (set.mainKey.empty())
    return lost;
  if (set.mainKey != MV_WATCHFACE_APP_ID) {
    if (idle != set.mainKey && overTheVconfLimit(vconfValueBytes_, set.mainKey))
      notSet("idle clock", set.mainKey, kVconfRule);
  } else if (!set.subKey.empty()) {
    const char* nothingWritten =
        overTheMessageLimit(messageBytes_, {{"operation", "talvoro_cloud_restore"},
                                            {"type", "watch-idle-changed"},
                                            {"pkgid", set.subKey}})
            ? kMessageRule
        : overTheVconfLimit(vconfValueBytes_, set.mainKey) ? kVconfRule
                                                           : nullptr;
    if (nothingWritten && idle != set.mainKey)
      notSet("idle clock", set.mainKey, nothingWritten);
    else if (nothingWritten && face != set.subKey)
      notSet("idle face", set.subKey, nothingWritten);
    else if (overTheVconfLimit(vconfValueBytes_, set.subKey) && face != set.subKey)
      notSet("idle face", set.subKey, kVconfRule);
  }
  return lost;
}

std::vector<std::string> DeviceLimits::misplacedFiles(const RunItems& items) const {
  std::vector<std::string> misplaced;
  for (const std::string& entry : items.serviceShared) {
    if (!liesInTheTrustedDirectory(trustedPathSlash_, entry))
      misplaced.push_back(entry);
  }
  return misplaced;
}

}  // namespace explore
