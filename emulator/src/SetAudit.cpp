#include "emu/SetAudit.h"

#include <glib.h>
#include <glib/gstdio.h>

#include <algorithm>
#include <optional>

#include "emu/SampleWatch.h"
#include "emu/StoreService.h"

namespace emu {

namespace {

using Kind = host::BoundaryEvent::Kind;

const char* const kDownloaded = "downloaded";

std::optional<std::string> photoBytes(const std::string& deviceDir, const BackgroundImage& image) {
  return readDeviceFile(deviceDir, image.path);
}

std::string base64(const std::string& bytes) {
  g_autofree char* text =
      g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size());
  return text;
}

// What the service writes for a photo's data: whatever g_base64_decode makes of it.
std::string decoded(const std::string& data) {
  gsize length = 0;
  g_autofree guchar* bytes = g_base64_decode(data.c_str(), &length);
  return std::string(reinterpret_cast<const char*>(bytes), length);
}

std::string config(const DeviceProfile& watch, const char* key) {
  auto it = watch.config.find(key);
  return it == watch.config.end() ? std::string() : it->second;
}

const BackupDocument::Entry* findEntry(const BackupDocument& document,
                                       const std::string& svcId,
                                       const std::string& pkgId) {
  for (const BackupDocument::Entry& entry : document.entries) {
    if (entry.svcId == svcId && entry.pkgId == pkgId && entry.result != kDownloaded)
      return &entry;
  }
  return nullptr;
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
  const std::string mainKey = config(watch, kIdleClockKey);
  if (document.mainKey != mainKey)
    left.push_back({"idle clock", "the backup holds \"" + document.mainKey + "\""});
  else if (mainKey == kWatchfaceAppId && document.subKey != config(watch, kWatchfaceNameKey))
    left.push_back({"idle face", "the backup holds \"" + document.subKey + "\""});

  for (const FaceEntry& face : watch.faces) {
    const BackupDocument::Entry* entry = findEntry(document, kWatchfaceServiceAppId, face.pkgId);
    if (!entry)
      left.push_back({"face " + face.pkgId, "the watch face service's entry is missing"});
    else if (entry->result != face.settings)
      left.push_back({"face " + face.pkgId, "its settings differ"});
  }
  for (const WatchAppState& app : watch.watchApps) {
    const BackupDocument::Entry* entry = findEntry(document, app.appId, app.pkgId);
    if (!entry)
      left.push_back({"watch app " + app.appId, whyNoAnswer(record, app.appId)});
    else if (entry->result != app.resultXml)
      left.push_back({"watch app " + app.appId, "its settings differ"});
  }
  for (const BackgroundImage& image : watch.images) {
    auto photo = std::find_if(document.photos.begin(), document.photos.end(),
                              [&](const BackupDocument::Photo& candidate) {
                                return candidate.fileName == image.fileName;
                              });
    const std::optional<std::string> bytes = photoBytes(deviceDir, image);
    if (photo == document.photos.end())
      left.push_back({"photo " + image.fileName, whyNoPhoto(deviceDir, image)});
    else if (photo->bgType != image.bgType)
      left.push_back({"photo " + image.fileName, "its bg_type differs"});
    else if (bytes && photo->data.empty() && !bytes->empty())
      left.push_back({"photo " + image.fileName, "its file could not be read"});
    else if (bytes && photo->data != base64(*bytes))
      left.push_back({"photo " + image.fileName, "its bytes differ"});
  }
  for (const host::PackageInfo& info : watch.packages) {
    if (info.preload || info.component != "watchapp")
      continue;
    const bool listed = std::any_of(
        document.entries.begin(), document.entries.end(), [&](const BackupDocument::Entry& entry) {
          return entry.result == kDownloaded && entry.pkgId == info.pkgId;
        });
    if (!listed)
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
  for (const BackupDocument::Entry& entry : document.entries) {
    if (entry.result == kDownloaded) {
      const bool installed =
          std::any_of(watch.packages.begin(), watch.packages.end(),
                      [&](const host::PackageInfo& info) { return info.pkgId == entry.pkgId; });
      if (installed)
        continue;
      auto answer = store.find(entry.pkgId);
      missing.push_back({"app " + appIdOf(watch, entry.pkgId),
                         answer == store.end() ? "the store got no install request for it"
                         : answer->second == StoreService::kNoReply
                             ? "the store never replied"
                             : "the store answered " + answer->second});
    } else if (entry.svcId == kWatchfaceServiceAppId) {
      const bool restored =
          std::any_of(watch.faces.begin(), watch.faces.end(), [&](const FaceEntry& face) {
            return face.pkgId == entry.pkgId && face.settings == entry.result;
          });
      if (!restored)
        missing.push_back(
            {"face " + entry.pkgId,
             document.repaired && entry.result.find("\xEF\xBF\xBD") != std::string::npos
                 ? "the stored document holds its settings in bytes that are not UTF-8"
                 : "the watch face service did not get it"});
    } else {
      const bool restored = std::any_of(
          watch.watchApps.begin(), watch.watchApps.end(), [&](const WatchAppState& app) {
            return app.appId == entry.svcId && app.resultXml == entry.result;
          });
      if (!restored) {
        std::string reason = "the watch app did not get it";
        for (const host::BoundaryEvent& event : record.ofKind(Kind::kAppControlSent)) {
          if (event.peer == entry.svcId && event.code != 0)
            reason = "its app could not be launched (error " + std::to_string(event.code) + ")";
        }
        missing.push_back({"watch app " + entry.svcId, reason});
      }
    }
  }
  for (const BackupDocument::Photo& photo : document.photos) {
    auto image = std::find_if(
        watch.images.begin(), watch.images.end(),
        [&](const BackgroundImage& candidate) { return candidate.fileName == photo.fileName; });
    std::optional<std::string> bytes;
    if (image != watch.images.end())
      bytes = photoBytes(deviceDir, *image);
    if (!bytes || image->bgType != photo.bgType || *bytes != decoded(photo.data))
      missing.push_back({"photo " + photo.fileName, "the watch face service did not get it"});
  }
  if (!document.mainKey.empty()) {
    const bool byFace = document.mainKey == kWatchfaceAppId;
    if (config(watch, kIdleClockKey) != document.mainKey && !(byFace && document.subKey.empty()))
      missing.push_back({"idle clock", "it was not set to \"" + document.mainKey + "\""});
    else if (byFace && !document.subKey.empty() &&
             config(watch, kWatchfaceNameKey) != document.subKey)
      missing.push_back({"idle face", "it was not set to \"" + document.subKey + "\""});
  }
  return missing;
}

}  // namespace emu
