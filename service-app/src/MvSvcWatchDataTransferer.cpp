#include "MvSvcWatchDataTransferer.h"

#include <app_manager.h>
#include <fcntl.h>
#include <glib.h>
#include <message_port.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "MvHandles.h"
#include "MvSvcBase64Decoder.h"
#include "MvSvcLog.h"
#include "MvSvcTrustedPath.h"
#include "MvSvcWatchAppList.h"
#include "MvWatchNames.h"

namespace {

const char* const kOperationRestore = "talvoro_cloud_restore";

// A name that stays inside the directory it is joined to.
bool isPlainFileName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

}  // namespace

MvSvcWatchDataTransferer::MvSvcWatchDataTransferer(std::vector<WatchResultData>& resultRestoreList,
                                                   std::vector<WatchImageData>& imageRestoreList,
                                                   std::vector<WatchResultData>& downloadList,
                                                   unsigned storeReplyTimeoutMs)
    : _localPortId(0),
      _storeReplyTimeoutMs(storeReplyTimeoutMs),
      _running(false),
      _completed(false) {
  _localPortId = _registerMessagePort();
  _resultRestoreList = std::move(resultRestoreList);
  _imageRestoreList = std::move(imageRestoreList);
  _downloadList = std::move(downloadList);
  resultRestoreList.clear();
  imageRestoreList.clear();
  downloadList.clear();
}

MvSvcWatchDataTransferer::~MvSvcWatchDataTransferer() {
  if (_localPortId > 0)
    message_port_unregister_trusted_local_port(_localPortId);
}

void MvSvcWatchDataTransferer::setOnTransferCompleted(MvSvcCompletionCb callback) {
  _onTransferCompleted = std::move(callback);
}

void MvSvcWatchDataTransferer::run() {
  _running = true;
  if (_downloadList.empty()) {
    MVSVC_LOGE("Downloaded watch list is empty");
  } else {
    _getInstalledWatchList();
    _sendPrepareInstallRequest();
    for (WatchResultData& entry : _downloadList)
      _sendWatchInstallRequest(entry);
  }

  _sendMessagePortMessage("message", "restore_start");

  if (_resultRestoreList.empty()) {
    MVSVC_LOGE("Result restore list is empty");
  } else {
    for (WatchResultData& entry : _resultRestoreList) {
      if (entry.svcId == MV_WATCHFACE_SERVICE_APP_ID)
        _sendRestoreRequestMessagePort(entry);
      else
        _sendRestoreRequestAppCtrl(entry);
    }
  }

  if (_imageRestoreList.empty()) {
    MVSVC_LOGE("Image restore list is empty");
  } else {
    for (WatchImageData& image : _imageRestoreList) {
      std::string filePath;
      if (_decodeBase64ToImage(image, filePath))
        _sendRestoreRequestMessagePort(image, filePath);
      else
        MVSVC_LOGE("Failed to decode image file [%s]", image.fileName.c_str());
    }
  }

  _sendMessagePortMessage("message", "restore_finished");
  _running = false;
  if (!_completed)
    _complete();
}

void MvSvcWatchDataTransferer::sendWatchIdleChangeMessage(const char* pkgId) {
  _sendMessage({{"operation", kOperationRestore}, {"type", "watch-idle-changed"}, {"pkgid", pkgId}},
               MVSVC_HERE);
}

// Carries `this`: a registration undone in the destructor.
int MvSvcWatchDataTransferer::_registerMessagePort() {
  return message_port_register_trusted_local_port(MV_SERVICE_PORT, _watchDataMessageCb, this);
}

void MvSvcWatchDataTransferer::_watchDataMessageCb(int,
                                                   const char*,
                                                   const char*,
                                                   bool,
                                                   bundle* message,
                                                   void* userData) {
  auto* transferer = static_cast<MvSvcWatchDataTransferer*>(userData);
  if (!message) {
    MVSVC_LOGE("bundle is null. Return");
    return;
  }
  char* type = nullptr;
  char* notice = nullptr;
  bundle_get_str(message, "type", &type);
  bundle_get_str(message, "message", &notice);
  if (type && (strcmp(type, "watch") == 0 || strcmp(type, "image") == 0))
    return;
  if (notice && strcmp(notice, "restore_finished") == 0) {
    MVSVC_LOGI("Restore from watchface finished");
    // Inside run() (a store wait) the report at its end is the one that counts: reporting
    // here would let the receiver destroy the transferer under the running run().
    if (!transferer->_running && !transferer->_completed)
      transferer->_complete();
  }
}

void MvSvcWatchDataTransferer::_getInstalledWatchList() {
  mvsvcForeachWatchApp(_foreach_pkginfo_app_list_cb, this, MVSVC_HERE);
}

int MvSvcWatchDataTransferer::_foreach_pkginfo_app_list_cb(const pkgmgrinfo_appinfo_h handle,
                                                           void* userData) {
  char* pkgId = nullptr;
  bool preload = false;
  if (!mvsvcReadWatchApp(handle, userData, &pkgId, &preload, MVSVC_HERE))
    return -1;
  if (preload) {
    MVSVC_LOGI("%s is preload. Skip push into list", pkgId);
    return 0;
  }
  auto* transferer = static_cast<MvSvcWatchDataTransferer*>(userData);
  transferer->_installedWatchList.push_back(pkgId);
  return 0;
}

void MvSvcWatchDataTransferer::_sendPrepareInstallRequest() {
  MvSvcAppCtrlModel* request = _pendingModels.add(
      std::make_unique<MvSvcAppCtrlModel>(MV_STORE_APP_ID, MV_STORE_APP_ID, _storeReplyTimeoutMs));
  request->setOnAppCtrlRequestReplyCb([this](bool, void* data) { _pendingModels.release(data); });
  request->requestPrepareInstall();
}

void MvSvcWatchDataTransferer::_sendWatchInstallRequest(WatchResultData& entry) {
  if (std::find(_installedWatchList.begin(), _installedWatchList.end(), entry.pkgId) !=
      _installedWatchList.end()) {
    MVSVC_LOGE("%s package is already installed. Skip install", entry.pkgId.c_str());
    return;
  }
  MvSvcAppCtrlModel* request = _pendingModels.add(std::make_unique<MvSvcAppCtrlModel>(
      entry.pkgId.c_str(), MV_STORE_APP_ID, _storeReplyTimeoutMs));
  request->setOnAppCtrlRequestReplyCb([this](bool, void* data) { _pendingModels.release(data); });
  request->requestWatchInstall();
}

void MvSvcWatchDataTransferer::_sendRestoreRequestAppCtrl(WatchResultData& entry) {
  MvSvcAppCtrlModel* request = _pendingModels.add(
      std::make_unique<MvSvcAppCtrlModel>(entry.pkgId.c_str(), entry.svcId.c_str()));
  request->setOnAppCtrlRequestReplyCb([this](bool success, void* data) {
    if (!success)
      MVSVC_LOGE("Failed to request restore app control");
    _pendingModels.release(data);
  });
  request->requestRestore(entry.result.c_str());
}

bool MvSvcWatchDataTransferer::_decodeBase64ToImage(WatchImageData& image, std::string& filePath) {
  char* path = nullptr;
  const int found = app_manager_get_shared_trusted_path(MV_SERVICE_APP_ID, &path);
  MvCharPtr trusted(path);
  if (found != APP_MANAGER_ERROR_NONE || !trusted) {
    MVSVC_LOGE("app_manager_get_shared_trusted_path() failed!");
    return false;
  }
  if (!isPlainFileName(image.fileName)) {
    MVSVC_LOGE("Image file name is not a plain name");
    return false;
  }
  filePath = mvsvcInTrustedDirectory(trusted.get(), image.fileName);

  gsize length = 0;
  MvGBytesPtr decoded = MvSvcBase64Decoder::decode(image.data, length);
  if (!decoded) {
    MVSVC_LOGE("Failed to decode base64 string");
    return false;
  }
  MvFd fd(_openImageFile(filePath));
  MvFilePtr file;
  if (fd.get() >= 0)
    file.reset(fdopen(fd.get(), "wb"));
  if (!file) {
    MVSVC_LOGE("Failed to open file");
    return false;
  }
  fd.release();
  const bool written = fwrite(decoded.get(), 1, length, file.get()) == length;
  decoded.reset();
  // Closing flushes: its result tells whether the bytes are on the disk.
  if (mvReleaseNow(file) != 0 || !written) {
    MVSVC_LOGE("Failed to write file from base64 string");
    return false;
  }
  return true;
}

int MvSvcWatchDataTransferer::_openImageFile(const std::string& filePath) {
  // A symlink planted at the target must not redirect the write, and a FIFO there must not block.
  const int flags = O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  MvFd fd(open(filePath.c_str(), flags, 0644));
  struct stat info;
  if (fd.get() < 0 || fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode))
    return -1;
  // Nor may a hard link: a file that another name shares (the watch face service may link the
  // photos it takes) is replaced by a file of this name's own, not rewritten under both.
  if (info.st_nlink > 1) {
    fd.reset(unlink(filePath.c_str()) == 0 ? open(filePath.c_str(), flags | O_EXCL, 0644) : -1);
    if (fd.get() < 0 || fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode))
      return -1;
  }
  if (ftruncate(fd.get(), 0) != 0)
    return -1;
  return fd.release();
}

void MvSvcWatchDataTransferer::_sendMessagePortMessage(const char* key, const char* value) {
  _sendMessage({{key, value}}, MVSVC_HERE);
}

void MvSvcWatchDataTransferer::_sendRestoreRequestMessagePort(WatchResultData& entry) {
  _sendMessage({{"operation", kOperationRestore},
                {"type", "watch"},
                {"pkgid", entry.pkgId.c_str()},
                {"result_xml", entry.result.c_str()}},
               MVSVC_HERE);
}

void MvSvcWatchDataTransferer::_sendRestoreRequestMessagePort(WatchImageData& image,
                                                              std::string& filePath) {
  _sendMessage({{"operation", kOperationRestore},
                {"type", "image"},
                {"bg_type", image.bgType.c_str()},
                {"file_path", filePath.c_str()},
                {"file_name", image.fileName.c_str()}},
               MVSVC_HERE);
}

void MvSvcWatchDataTransferer::_sendMessage(
    std::initializer_list<std::pair<const char*, const char*>> entries,
    const MvSvcSourceLocation& caller) {
  MvBundlePtr message(bundle_create());
  if (!message) {
    MVSVC_LOGE_AT(caller, "Failed to create bundle");
    return;
  }
  for (const auto& entry : entries)
    bundle_add_str(message.get(), entry.first, entry.second);
  if (message_port_send_trusted_message(MV_WATCHFACE_SERVICE_APP_ID, MV_WATCHFACE_SERVICE_PORT,
                                        message.get()) != MESSAGE_PORT_ERROR_NONE)
    MVSVC_LOGE_AT(caller, "Failed to send message port message");
}

void MvSvcWatchDataTransferer::_complete() {
  _completed = true;
  if (!_onTransferCompleted)
    return;
  // The receiver may destroy this transferer, and with it the stored callback.
  MvSvcCompletionCb callback = _onTransferCompleted;
  callback(true, this);
}
