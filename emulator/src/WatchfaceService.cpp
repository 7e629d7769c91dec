#include "emu/WatchfaceService.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdint.h>
#include <stdlib.h>

#include <algorithm>

#include "PeerReply.h"
#include "emu/EmuLog.h"
#include "emu/FaultSwitches.h"
#include "emu/SampleWatch.h"
#include "host/AtomicFile.h"
#include "host/Platform.h"
#include "host/RecordFile.h"
#include "host/WatchDirs.h"

namespace emu {

namespace {

const char* const kUnreadableDir = "apps/com.talvoro.watchface-service/data/unreadable";

bool isPlainName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

}  // namespace

WatchfaceService::WatchfaceService(host::Platform& platform,
                                   std::string deviceDir,
                                   std::vector<FaceEntry> faces,
                                   std::vector<BackgroundImage> images,
                                   std::map<std::string, std::string> faults,
                                   std::shared_ptr<RunJournal> journal)
    : platform_(platform),
      deviceDir_(std::move(deviceDir)),
      faces_(std::move(faces)),
      images_(std::move(images)),
      faults_(std::move(faults)),
      journal_(std::move(journal)) {
  // The first of a name counts, as a search from the front would find it.
  for (size_t i = 0; i < faces_.size(); ++i)
    faceAt_.emplace(faces_[i].pkgId, i);
  for (size_t i = 0; i < images_.size(); ++i)
    imageAt_.emplace(images_[i].fileName, i);
}

WatchfaceService::~WatchfaceService() {
  if (!fifoPath_.empty())
    g_unlink(fifoPath_.c_str());
}

void WatchfaceService::onLaunchRequest(app_control_h, std::shared_ptr<host::PendingReply> reply) {
  // It talks over message ports only.
  host::logWarn(kLogTagWatchface, "launch request refused: it talks over message ports only");
  answerRequest(platform_, std::move(reply), APP_CONTROL_RESULT_FAILED, {});
}

void WatchfaceService::onMessage(const std::string& port, const std::string&, bundle* message) {
  if (port != MV_WATCHFACE_SERVICE_PORT)
    return;
  std::string operation, type, notice;
  messageValue(message, "operation", operation);
  messageValue(message, "type", type);
  messageValue(message, "message", notice);

  if (operation == "talvoro_cloud_backup") {
    if (faultValue(faults_, "watchface-silent").empty())
      answerBackup();
    else
      host::logWarn(kLogTagWatchface, "backup request left unanswered (fault watchface-silent)");
  } else if (operation == "talvoro_cloud_restore") {
    if (type == "watch")
      restoreSettings(message);
    else if (type == "image")
      restoreImage(message);
    else if (type == "watch-idle-changed")
      changeIdleClock(message);
    else
      host::logWarn(kLogTagWatchface, "restore message of unknown type '%s' ignored", type.c_str());
  } else if (notice == "restore_start") {
    host::logInfo(kLogTagWatchface, "the service starts a restore");
  } else if (notice == "restore_finished") {
    host::logInfo(kLogTagWatchface, "the service finished its restore");
    ++activity_.restoresFinished;
  } else {
    host::logWarn(kLogTagWatchface, "message without a known operation ignored");
  }
}

void WatchfaceService::sendRestoreFinished() {
  host::logWarn(kLogTagWatchface,
                "restore_finished sent out of turn (fault watchface-finish-early)");
  sendToService({{"message", "restore_finished"}}, "restore_finished");
}

void WatchfaceService::answerBackup() {
  host::logInfo(kLogTagWatchface, "backup request: sending %zu faces and %zu photos", faces_.size(),
                images_.size());
  for (const FaceEntry& face : faces_) {
    if (sendToService({{"type", "watch"}, {"pkgid", face.pkgId}, {"result_xml", face.settings}},
                      "the entry of face " + face.pkgId))
      ++activity_.facesSent;
  }
  for (size_t i = 0; i < images_.size(); ++i) {
    const BackgroundImage& image = images_[i];
    std::string path = photoPath(image);
    if (i == 0 && !faultValue(faults_, "image-unreadable").empty()) {
      path = unreadablePath(image);
      host::logWarn(kLogTagWatchface, "photo %s announced at a FIFO (fault image-unreadable)",
                    image.fileName.c_str());
    }
    if (sendToService({{"type", "image"},
                       {"file_name", image.fileName},
                       {"file_path", path},
                       {"bg_type", image.bgType}},
                      "the entry of photo " + image.fileName))
      ++activity_.imagesSent;
  }
  sendToService({{"message", "backup_finished"}}, "backup_finished");
}

std::string WatchfaceService::photoPath(const BackgroundImage& image) {
  // The watch face service hands out only its own photos: a regular file inside the device
  // directory, reached through no link that leads out of it. Anything else goes as a path
  // nobody can read, and is reported.
  const std::string path = deviceDir_ + "/" + image.path;
  g_autofree char* device = realpath(deviceDir_.c_str(), nullptr);
  g_autofree char* resolved = realpath(path.c_str(), nullptr);
  g_autofree char* parent = g_path_get_dirname(image.path.c_str());
  struct stat info;
  std::string problem, linked;
  if (!device || !resolved || stat(resolved, &info) != 0)
    problem = "cannot be read";
  else if (!g_str_has_prefix(resolved, (std::string(device) + "/").c_str()))
    problem = "lies outside the device directory";
  else if (!host::checkWatchDirectory(deviceDir_, parent, false, linked))
    problem = "is reached through a link: " + linked;
  else if (!S_ISREG(info.st_mode))
    problem = "is not a regular file";
  if (!problem.empty()) {
    activity_.photoProblems.push_back("photo " + image.fileName + " (" + image.path + ") " +
                                      problem + ": sent as unreadable");
    return std::string();
  }
  if (info.st_size >= INT32_MAX)
    activity_.photoProblems.push_back("photo " + image.fileName + " is too large to back up (" +
                                      std::to_string(info.st_size) + " bytes)");
  return resolved;
}

void WatchfaceService::restoreSettings(bundle* message) {
  std::string pkgId, settings;
  if (!messageValue(message, "pkgid", pkgId) || !messageValue(message, "result_xml", settings)) {
    host::logError(kLogTagWatchface, "settings message without pkgid or result_xml ignored");
    return;
  }
  auto face = faceAt_.emplace(pkgId, faces_.size());
  if (face.second)
    faces_.push_back({pkgId, settings});
  else
    faces_[face.first->second].settings = settings;
  journal_->face({pkgId, settings});
  host::logInfo(kLogTagWatchface, "settings of %s kept (%zu bytes)", pkgId.c_str(),
                settings.size());
  ++activity_.settingsReceived;
}

bool WatchfaceService::linkPhoto(const std::string& from,
                                 const std::string& to,
                                 const std::string& temporary,
                                 size_t& length) {
  // The service writes a photo it restores as a file of its own name and never rewrites one that
  // another name shares, so the two names may share the bytes.
  host::LockedTempFile linked;
  struct stat info;
  std::string reason;
  if (!linked.createLinkTo(from, temporary) || fstat(linked.fd(), &info) != 0 ||
      !linked.renameTo(to, reason))
    return false;
  length = static_cast<size_t>(info.st_size);
  return true;
}

bool WatchfaceService::copyPhoto(const std::string& from,
                                 const std::string& to,
                                 const std::string& temporary,
                                 size_t& length,
                                 std::string& failure) {
  host::LockedTempFile copy;
  struct stat info;
  if (!copy.create(temporary, failure) || !host::copyFileInto(from, copy.fd(), failure) ||
      fstat(copy.fd(), &info) != 0 || !copy.renameTo(to, failure))
    return false;
  length = static_cast<size_t>(info.st_size);
  return true;
}

void WatchfaceService::restoreImage(bundle* message) {
  std::string fileName, filePath, bgType;
  if (!messageValue(message, "file_name", fileName) ||
      !messageValue(message, "file_path", filePath) || !messageValue(message, "bg_type", bgType)) {
    host::logError(kLogTagWatchface, "photo message without file_name, file_path or bg_type");
    return;
  }
  if (!isPlainName(fileName) || !g_file_test(filePath.c_str(), G_FILE_TEST_IS_REGULAR)) {
    host::logError(kLogTagWatchface, "photo '%s' refused: not a plain name, or '%s' is no file",
                   fileName.c_str(), filePath.c_str());
    return;
  }
  const std::string relative = std::string(kBackgroundDir) + "/" + fileName;
  g_autofree char* dir = g_build_filename(deviceDir_.c_str(), kBackgroundDir, nullptr);
  g_autofree char* target = g_build_filename(dir, fileName.c_str(), nullptr);
  std::string failure;
  if (!host::checkWatchDirectory(deviceDir_, kBackgroundDir, true, failure)) {
    host::logError(kLogTagWatchface, "photo %s not copied: %s", fileName.c_str(), failure.c_str());
    activity_.photoProblems.push_back("photo " + fileName + " not kept: " + failure);
    return;
  }
  // A name of its own length would leave no room for a temporary suffix within the file
  // system's limit: the temporary name is short and unrelated.
  const std::string temporary = std::string(dir) + "/.photo-XXXXXX";
  size_t length = 0;
  if (!linkPhoto(filePath, target, temporary, length) &&
      !copyPhoto(filePath, target, temporary, length, failure)) {
    host::logError(kLogTagWatchface, "photo %s not copied: %s", fileName.c_str(), failure.c_str());
    activity_.photoProblems.push_back("photo " + fileName + " not kept: " + failure);
    return;
  }
  auto image = imageAt_.emplace(fileName, images_.size());
  if (image.second)
    images_.push_back({fileName, relative, bgType});
  else
    images_[image.first->second] = {fileName, relative, bgType};
  journal_->photo({fileName, relative, bgType});
  host::logInfo(kLogTagWatchface, "photo %s copied to %s (%zu bytes)", fileName.c_str(),
                relative.c_str(), length);
  ++activity_.imagesReceived;
}

void WatchfaceService::changeIdleClock(bundle* message) {
  std::string pkgId;
  if (!messageValue(message, "pkgid", pkgId)) {
    host::logError(kLogTagWatchface, "idle-change message without pkgid ignored");
    return;
  }
  // Messages arrive in the order they were sent: this is the n-th idle change the record holds.
  const size_t nth = ++idleChangesReceived_;
  size_t seen = 0;
  const auto& events = platform_.record().events();
  for (size_t i = 0; i < events.size(); ++i) {
    const host::BoundaryEvent& event = events[i];
    if (event.kind != host::BoundaryEvent::Kind::kMessageSent ||
        event.name != MV_WATCHFACE_SERVICE_PORT)
      continue;
    for (const auto& entry : event.data) {
      if (entry.first == "type" && entry.second == "watch-idle-changed" && ++seen == nth &&
          idleClockWrittenAt_ > i) {
        host::logWarn(kLogTagWatchface,
                      "idle change to %s ignored: the idle clock was set after it was sent",
                      pkgId.c_str());
        return;
      }
    }
  }
  // Two writes, as on the watch: the platform may refuse either.
  if (!platform_.writeConfig(MV_IDLE_CLOCK_KEY, MV_WATCHFACE_APP_ID) ||
      !platform_.writeConfig(MV_WATCHFACE_NAME_KEY, pkgId)) {
    host::logError(kLogTagWatchface, "idle clock not set to %s: the configuration refused it",
                   pkgId.c_str());
    return;
  }
  activity_.idleFace = pkgId;
  host::logInfo(kLogTagWatchface, "idle clock set to %s", pkgId.c_str());
}

bool WatchfaceService::sendToService(const host::KeyValues& message, const std::string& what) {
  const int refused = platform_.sendToApp(MV_WATCHFACE_SERVICE_APP_ID, MV_WATCHFACE_SERVICE_PORT,
                                          MV_SERVICE_PORT, message);
  if (refused != 0)
    host::logError(kLogTagWatchface, "%s not sent: the message port refused it (error %d)",
                   what.c_str(), refused);
  return refused == 0;
}

std::string WatchfaceService::unreadablePath(const BackgroundImage& image) {
  if (fifoPath_.empty()) {
    g_autofree char* dir = g_build_filename(deviceDir_.c_str(), kUnreadableDir, nullptr);
    g_autofree char* path = g_build_filename(dir, image.fileName.c_str(), nullptr);
    g_mkdir_with_parents(dir, 0755);
    g_unlink(path);
    if (mkfifo(path, 0644) == 0)
      fifoPath_ = path;
  }
  return fifoPath_;
}

}  // namespace emu
