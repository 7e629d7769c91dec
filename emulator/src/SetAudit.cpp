#include "emu/SetAudit.h"

#include <glib.h>
#include <glib/gstdio.h>

#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "emu/SampleWatch.h"
#include "emu/StoreService.h"

namespace emu {

namespace {

using Kind = host::BoundaryEvent::Kind;

const char* const kDownloaded = "downloaded";

std::optional<std::string> photoBytes(const std::string& deviceDir, const BackgroundImage& image) {
  return readDeviceFile(deviceDir, image.path);
}

std::string config(const DeviceProfile& watch, const char* key) {
  auto it = watch.config.find(key);
  return it == watch.config.end() ? std::string() : it->second;
}

// Why the app-control request to `appId` brought nothing back, as the record tells it.
std::string whyNoAnswer(const host::BoundaryRecord& record, const std::string& appId) {
  const auto& events = record.events();
  size_t finished = events.size();
  for (size_t i = 0; i < events.size(); ++i) {
    const host::BoundaryEvent& event = events[i];
    if (event.kind == Kind::kMessageDelivered && finished == events.size()) {
      for (const auto& entry : event.data) {
        if (entry.first == "message" && entry.second == "backup_finished")
          finished = i;
      }
    }
    if (event.kind == Kind::kAppControlSent && event.peer == appId && event.code != 0)
      return "its app could not be launched (error " + std::to_string(event.code) + ")";
    if (event.kind == Kind::kAppControlReply && event.peer == appId && i > finished)
      return "it answered after the watch face service had finished";
  }
  return "it did not answer before the watch face service had finished";
}

// Why a photo has no entry: the service leaves out one too large for its reader to count.
std::string whyNoPhoto(const std::string& deviceDir, const BackgroundImage& image) {
  g_autofree char* path = g_build_filename(deviceDir.c_str(), image.path.c_str(), nullptr);
  GStatBuf info;
  if (g_stat(path, &info) == 0 && info.st_size >= G_MAXINT32)
    return "its file is too large to back up (" +
           std::to_string(static_cast<long long>(info.st_size)) + " bytes)";
  return "the watch face service's entry is missing";
}

std::string appIdOf(const DeviceProfile& watch, const std::string& pkgId) {
  for (const host::PackageInfo& info : watch.packages) {
    if (info.pkgId == pkgId)
      return info.appId;
  }
  for (const CatalogueItem& item : watch.catalogue) {
    if (item.pkgId == pkgId || item.guid == pkgId)
      return item.appId;
  }
  return pkgId;
}

}  // namespace

std::vector<AuditFinding> auditBackup(const DeviceProfile& watch,
                                      const std::string& deviceDir,
                                      const BackupDocument& document,
                                      const host::BoundaryRecord& record) {
  std::vector<AuditFinding> left;
  const std::string mainKey = config(watch, MV_IDLE_CLOCK_KEY);
  if (document.mainKey != mainKey)
    left.push_back({"idle clock", "the backup holds \"" + document.mainKey + "\""});
  else if (mainKey == MV_WATCHFACE_APP_ID &&
           document.subKey != config(watch, MV_WATCHFACE_NAME_KEY))
    left.push_back({"idle face", "the backup holds \"" + document.subKey + "\""});

  // Indexed once: a watch may have tens of thousands of items.
  std::unordered_map<std::string, const BackupDocument::Entry*> settings;
  std::unordered_set<std::string> downloaded;
  for (const BackupDocument::Entry& entry : document.entries) {
    if (entry.result == kDownloaded)
      downloaded.insert(entry.pkgId);
    else
      settings.emplace(entry.svcId + '\0' + entry.pkgId, &entry);
  }
  std::unordered_map<std::string, const BackupDocument::Photo*> photos;
  for (const BackupDocument::Photo& photo : document.photos)
    photos.emplace(photo.fileName, &photo);
  auto findEntry = [&](const std::string& svcId,
                       const std::string& pkgId) -> const BackupDocument::Entry* {
    auto found = settings.find(svcId + '\0' + pkgId);
    return found == settings.end() ? nullptr : found->second;
  };

  for (const FaceEntry& face : watch.faces) {
    const BackupDocument::Entry* entry = findEntry(MV_WATCHFACE_SERVICE_APP_ID, face.pkgId);
    if (!entry)
      left.push_back({"face " + face.pkgId, "the watch face service's entry is missing"});
    else if (entry->result != face.settings)
      left.push_back({"face " + face.pkgId, "its settings differ"});
  }
  for (const WatchAppState& app : watch.watchApps) {
    const BackupDocument::Entry* entry = findEntry(app.appId, app.pkgId);
    if (!entry)
      left.push_back({"watch app " + app.appId, whyNoAnswer(record, app.appId)});
    else if (entry->result != app.resultXml)
      left.push_back({"watch app " + app.appId, "its settings differ"});
  }
  for (const BackgroundImage& image : watch.images) {
    auto found = photos.find(image.fileName);
    if (found == photos.end()) {
      left.push_back({"photo " + image.fileName, whyNoPhoto(deviceDir, image)});
      continue;
    }
    const BackupDocument::Photo& photo = *found->second;
    const std::optional<std::string> bytes = photoBytes(deviceDir, image);
    if (photo.bgType != image.bgType)
      left.push_back({"photo " + image.fileName, "its bg_type differs"});
    else if (bytes && photo.noData && !bytes->empty())
      left.push_back({"photo " + image.fileName, "its file could not be read"});
    else if (bytes && !photoHolds(photo, *bytes))
      left.push_back({"photo " + image.fileName, "its bytes differ"});
  }
  for (const host::PackageInfo& info : watch.packages) {
    if (info.preload || info.component != "watchapp")
      continue;
    if (downloaded.count(info.pkgId) == 0)
      left.push_back({"app " + info.appId, "it is not listed as downloaded"});
  }
  return left;
}

std::vector<AuditFinding> auditRestore(const DeviceProfile& watch,
                                       const std::string& deviceDir,
                                       const BackupDocument& document,
                                       const host::BoundaryRecord& record,
                                       const StoreAnswers& store) {
  std::vector<AuditFinding> missing;
  std::unordered_set<std::string> installed;
  for (const host::PackageInfo& info : watch.packages)
    installed.insert(info.pkgId);
  std::unordered_multimap<std::string, const std::string*> faces;
  for (const FaceEntry& face : watch.faces)
    faces.emplace(face.pkgId, &face.settings);
  std::unordered_multimap<std::string, const std::string*> watchApps;
  for (const WatchAppState& app : watch.watchApps)
    watchApps.emplace(app.appId, &app.resultXml);
  std::unordered_map<std::string, const BackgroundImage*> images;
  for (const BackgroundImage& image : watch.images)
    images.emplace(image.fileName, &image);
  std::unordered_map<std::string, int> launchErrors;
  for (const host::BoundaryEvent& event : record.ofKind(Kind::kAppControlSent)) {
    if (event.code != 0)
      launchErrors[event.peer] = event.code;
  }
  auto holds = [](const std::unordered_multimap<std::string, const std::string*>& items,
                  const std::string& key, const std::string& value) {
    auto range = items.equal_range(key);
    for (auto it = range.first; it != range.second; ++it) {
      if (*it->second == value)
        return true;
    }
    return false;
  };

  for (const BackupDocument::Entry& entry : document.entries) {
    if (entry.result == kDownloaded) {
      if (installed.count(entry.pkgId) > 0)
        continue;
      auto answer = store.find(entry.pkgId);
      missing.push_back({"app " + appIdOf(watch, entry.pkgId),
                         answer == store.end() ? "the store got no install request for it"
                         : answer->second == StoreService::kNoReply
                             ? "the store never replied"
                             : "the store answered " + answer->second});
    } else if (entry.svcId == MV_WATCHFACE_SERVICE_APP_ID) {
      if (!holds(faces, entry.pkgId, entry.result))
        missing.push_back(
            {"face " + entry.pkgId,
             document.repaired && entry.result.find("\xEF\xBF\xBD") != std::string::npos
                 ? "the stored document holds its settings in bytes that are not UTF-8"
                 : "the watch face service did not get it"});
    } else if (!holds(watchApps, entry.svcId, entry.result)) {
      auto error = launchErrors.find(entry.svcId);
      missing.push_back({"watch app " + entry.svcId,
                         error == launchErrors.end() ? "the watch app did not get it"
                                                     : "its app could not be launched (error " +
                                                           std::to_string(error->second) + ")"});
    }
  }
  for (const BackupDocument::Photo& photo : document.photos) {
    auto image = images.find(photo.fileName);
    std::optional<std::string> bytes;
    if (image != images.end())
      bytes = photoBytes(deviceDir, *image->second);
    if (!bytes || image->second->bgType != photo.bgType || !photoHolds(photo, *bytes))
      missing.push_back({"photo " + photo.fileName, "the watch face service did not get it"});
  }
  if (!document.mainKey.empty()) {
    const bool byFace = document.mainKey == MV_WATCHFACE_APP_ID;
    if (config(watch, MV_IDLE_CLOCK_KEY) != document.mainKey &&
        !(byFace && document.subKey.empty()))
      missing.push_back({"idle clock", "it was not set to \"" + document.mainKey + "\""});
    else if (byFace && !document.subKey.empty() &&
             config(watch, MV_WATCHFACE_NAME_KEY) != document.subKey)
      missing.push_back({"idle face", "it was not set to \"" + document.subKey + "\""});
  }
  return missing;
}

}  // namespace emu
