#include "MvSvcWatchDataCollector.h"

#include <Ecore_File.h>
#include <errno.h>
#include <fcntl.h>
#include <message_port.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>

#include "MvHandles.h"
#include "MvSvcLog.h"
#include "MvSvcWatchAppList.h"
#include "MvWatchNames.h"

namespace {

const char* const kWatchListRwDir =
    "/opt/usr/home/owner/apps_rw/com.talvoro.watchface/shared/data/watchlist";
const char* const kWatchListRoDir = "/usr/apps/com.talvoro.watchface/shared/res/watchlist";
// A photo is read and encoded this many bytes at a time: a multiple of 3, so that each chunk
// encodes whole.
const size_t kImageChunkBytes = 3 * 16 * 1024;

// The value of `key`, or null when the message lacks it.
const char* messageValue(bundle* message, const char* key) {
  char* value = nullptr;
  if (bundle_get_str(message, key, &value) != BUNDLE_ERROR_NONE)
    return nullptr;
  return value;
}

}  // namespace

MvSvcWatchDataCollector::MvSvcWatchDataCollector(unsigned backupFinishedTimeoutMs)
    : _localPortId(0),
      _backupFinishedTimeoutMs(backupFinishedTimeoutMs),
      _backupFinishedTimer(),
      _completed(false) {
  _localPortId = _registerMessagePort();
}

MvSvcWatchDataCollector::~MvSvcWatchDataCollector() {
  MVSVC_LOGI("Unregister message port");
  if (_localPortId > 0)
    message_port_unregister_trusted_local_port(_localPortId);
}

void MvSvcWatchDataCollector::setOnCollectCompleted(MvSvcCompletionCb callback) {
  _onCollectCompleted = std::move(callback);
}

void MvSvcWatchDataCollector::run() {
  _sendBackupRequestAppCtrl("com.talvoro.clock-orbitline", "com.talvoro.clock-orbitline.service");
  _sendBackupRequestAppCtrl("com.talvoro.clock-pacetrail", "com.talvoro.clock-pacetrail.service");

  MvBundlePtr message(bundle_create());
  if (!message) {
    MVSVC_LOGE("Failed to create bundle");
  } else {
    bundle_add_str(message.get(), "operation", "talvoro_cloud_backup");
    if (message_port_send_trusted_message(MV_WATCHFACE_SERVICE_APP_ID, MV_WATCHFACE_SERVICE_PORT,
                                          message.get()) != MESSAGE_PORT_ERROR_NONE)
      MVSVC_LOGE("Failed to send message port message");
    else
      MVSVC_LOGI("Start watchface backup procedure");
  }
  // Carries `this`: a registration undone in the destructor (the owner of the timer's ID).
  _backupFinishedTimer.reset(
      g_timeout_add(_backupFinishedTimeoutMs, _backupFinishedTimeoutCb, this));

  _get3rdWatchAppPackageInfo();
}

// Carries `this`: a registration undone in the destructor.
int MvSvcWatchDataCollector::_registerMessagePort() {
  return message_port_register_trusted_local_port(MV_SERVICE_PORT, _watchDataMessageCb, this);
}

void MvSvcWatchDataCollector::_watchDataMessageCb(int,
                                                  const char*,
                                                  const char*,
                                                  bool,
                                                  bundle* message,
                                                  void* userData) {
  auto* collector = static_cast<MvSvcWatchDataCollector*>(userData);
  if (!message) {
    MVSVC_LOGE("bundle is null. Return");
    return;
  }
  const char* type = messageValue(message, "type");
  const char* notice = messageValue(message, "message");
  if (type && strcmp(type, "watch") == 0) {
    collector->_addWatchEntry(message);
    return;
  }
  if (type && strcmp(type, "image") == 0) {
    collector->_addImageEntry(message);
    return;
  }
  if (notice && strcmp(notice, "backup_finished") == 0) {
    MVSVC_LOGI("Backup from watchface finished");
    if (!collector->_completed)
      collector->_complete(true);
  }
}

void MvSvcWatchDataCollector::_addWatchEntry(bundle* message) {
  const char* pkgId = messageValue(message, "pkgid");
  const char* resultXml = messageValue(message, "result_xml");
  const char* missing = !pkgId ? "pkgid" : !resultXml ? "result_xml" : nullptr;
  if (missing) {
    MVSVC_LOGE("Watch message without %s. Skip", missing);
    return;
  }
  _resultDataList.push_back({pkgId, MV_WATCHFACE_SERVICE_APP_ID, resultXml});
}

void MvSvcWatchDataCollector::_addImageEntry(bundle* message) {
  const char* fileName = messageValue(message, "file_name");
  const char* filePath = messageValue(message, "file_path");
  const char* bgType = messageValue(message, "bg_type");
  const char* missing = !fileName   ? "file_name"
                        : !filePath ? "file_path"
                        : !bgType   ? "bg_type"
                                    : nullptr;
  if (missing) {
    MVSVC_LOGE("Image message without %s. Skip", missing);
    return;
  }
  // A photo's size is counted in an int, as the design's whole-file reader counts it, and the
  // chunked encoder keeps that limit: a photo beyond it is left out with an error, not sent empty.
  struct stat info;
  if (stat(filePath, &info) == 0 && S_ISREG(info.st_mode) && info.st_size >= INT32_MAX) {
    MVSVC_LOGE("Photo [%s] is too large to back up (%lld bytes)", fileName,
               static_cast<long long>(info.st_size));
    return;
  }
  WatchImageData image{fileName, bgType, std::string()};
  _encodeImageToBase64(filePath, image.data);
  _imageDataList.push_back(std::move(image));
}

void MvSvcWatchDataCollector::_sendBackupRequestAppCtrl(const char* pkgId, const char* svcId) {
  MvSvcAppCtrlModel* request =
      _pendingModels.add(std::make_unique<MvSvcAppCtrlModel>(pkgId, svcId));
  request->setOnAppCtrlRequestReplyCb([this](bool success, void* data) {
    auto* replied = static_cast<MvSvcAppCtrlModel*>(data);
    if (success)
      _resultDataList.push_back(
          {replied->getPackageId(), replied->getServiceId(), replied->getResultXml()});
    else
      MVSVC_LOGE("Failed to request backup app control");
    _pendingModels.release(replied);
  });
  request->requestBackup();
}

void MvSvcWatchDataCollector::_get3rdWatchAppPackageInfo() {
  mvsvcForeachWatchApp(_foreach_pkginfo_app_list_cb, this, MVSVC_HERE);
}

int MvSvcWatchDataCollector::_foreach_pkginfo_app_list_cb(const pkgmgrinfo_appinfo_h handle,
                                                          void* userData) {
  char* pkgId = nullptr;
  bool preload = false;
  if (!mvsvcReadWatchApp(handle, userData, &pkgId, &preload, MVSVC_HERE))
    return -1;
  if (preload) {
    MVSVC_LOGI("%s is preload. Skip backup", pkgId);
    return 0;
  }
  auto* collector = static_cast<MvSvcWatchDataCollector*>(userData);
  collector->_resultDataList.push_back({pkgId, pkgId, "downloaded"});
  return 0;
}

char* MvSvcWatchDataCollector::_readXmlFile(const char* path, int* size) {
  // Only a regular file is read: opening a FIFO or a device could block or never end.
  MvFd fd(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat info;
  if (fd.get() < 0 || fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode))
    return nullptr;
  MvFilePtr file(fdopen(fd.get(), "r"));
  if (!file)
    return nullptr;
  fd.release();
  long length = -1;
  if (fseek(file.get(), 0, SEEK_END) == 0)
    length = ftell(file.get());
  if (length < 0 || length >= INT32_MAX || fseek(file.get(), 0, SEEK_SET) != 0)
    return nullptr;
  MvCharPtr buffer(static_cast<char*>(calloc(static_cast<size_t>(length) + 1, 1)));
  if (!buffer || fread(buffer.get(), static_cast<size_t>(length), 1, file.get()) == 0) {
    *size = 0;
    return nullptr;
  }
  *size = static_cast<int>(length);
  return buffer.release();
}

char* MvSvcWatchDataCollector::_encodeImageToBase64(const char* path) {
  std::string text;
  _encodeImageToBase64(path, text);
  return g_strndup(text.data(), text.size());
}

void MvSvcWatchDataCollector::_encodeImageToBase64(const char* path, std::string& text) {
  text.clear();
  // Only a regular file is read: opening a FIFO or a device could block or never end.
  MvFd fd(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat info;
  if (fd.get() < 0 || fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size <= 0 ||
      info.st_size >= INT32_MAX)
    return;
  size_t left = static_cast<size_t>(info.st_size);
  // The text's room at once, with what a step may write beyond what it keeps.
  text.reserve((left + 2) / 3 * 4 + 16);
  std::unique_ptr<guchar[]> chunk(new guchar[kImageChunkBytes]);
  gint state = 0;
  gint save = 0;
  while (left > 0) {
    const ssize_t got = read(fd.get(), chunk.get(), std::min(left, kImageChunkBytes));
    if (got < 0 && errno == EINTR)
      continue;
    // A file cut short while it was read counts as unreadable, as a whole-file read would.
    if (got <= 0) {
      text.clear();
      return;
    }
    const size_t at = text.size();
    const size_t bytes = static_cast<size_t>(got);
    text.resize(at + (bytes / 3 + 1) * 4 + 4);
    text.resize(at + g_base64_encode_step(chunk.get(), bytes, FALSE, &text[at], &state, &save));
    left -= bytes;
  }
  const size_t at = text.size();
  text.resize(at + 4);
  text.resize(at + g_base64_encode_close(FALSE, &text[at], &state, &save));
}

void MvSvcWatchDataCollector::_directGetResultXml(const char* pkgId) {
  const std::string relative = std::string("/") + pkgId + "/" + pkgId + "_result.xml";
  std::string path = kWatchListRwDir + relative;
  if (!ecore_file_exists(path.c_str()))
    path = kWatchListRoDir + relative;
  int size = 0;
  MvCharPtr buffer(_readXmlFile(path.c_str(), &size));
  if (!buffer) {
    MVSVC_LOGE("Failed to read %s", path.c_str());
    return;
  }
  _resultDataList.push_back({pkgId, MV_WATCHFACE_SERVICE_APP_ID, buffer.get()});
}

gboolean MvSvcWatchDataCollector::_backupFinishedTimeoutCb(gpointer data) {
  auto* collector = static_cast<MvSvcWatchDataCollector*>(data);
  // The source ends itself by its return.
  collector->_backupFinishedTimer.release();
  MVSVC_LOGE("No backup_finished from watchface in %u ms", collector->_backupFinishedTimeoutMs);
  collector->_complete(false);
  return G_SOURCE_REMOVE;
}

void MvSvcWatchDataCollector::_complete(bool success) {
  _completed = true;
  _backupFinishedTimer.reset();
  if (!_onCollectCompleted)
    return;
  // The receiver may destroy this collector, and with it the stored callback.
  MvSvcCompletionCb callback = _onCollectCompleted;
  callback(success, this);
}
