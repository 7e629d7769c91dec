#ifndef MVSVC_WATCH_DATA_TRANSFERER_H
#define MVSVC_WATCH_DATA_TRANSFERER_H

#include <bundle.h>
#include <pkgmgr-info.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "MvSvcAppCtrlModel.h"
#include "MvSvcAppCtrlRequests.h"
#include "MvSvcLog.h"
#include "MvSvcTypes.h"

// Puts the watch data of a restored backup back onto the watch in one call of run(): store
// installs, settings documents, images, then completion. Completion is reported once, at the
// end of run(); the receiver may destroy the transferer inside the callback.
class MvSvcWatchDataTransferer {
 public:
  MvSvcWatchDataTransferer(std::vector<WatchResultData>& resultRestoreList,
                           std::vector<WatchImageData>& imageRestoreList,
                           std::vector<WatchResultData>& downloadList,
                           unsigned storeReplyTimeoutMs = MvSvcAppCtrlModel::kStoreReplyTimeoutMs);
  virtual ~MvSvcWatchDataTransferer();

  MvSvcWatchDataTransferer(const MvSvcWatchDataTransferer&) = delete;
  MvSvcWatchDataTransferer& operator=(const MvSvcWatchDataTransferer&) = delete;

  void setOnTransferCompleted(MvSvcCompletionCb callback);
  void run();
  void sendWatchIdleChangeMessage(const char* pkgId);

 private:
  int _registerMessagePort();
  static void _watchDataMessageCb(int localPortId,
                                  const char* remoteAppId,
                                  const char* remotePort,
                                  bool trustedRemotePort,
                                  bundle* message,
                                  void* userData);
  void _getInstalledWatchList();
  static int _foreach_pkginfo_app_list_cb(const pkgmgrinfo_appinfo_h handle, void* userData);
  void _sendPrepareInstallRequest();
  void _sendWatchInstallRequest(WatchResultData& entry);
  void _sendRestoreRequestAppCtrl(WatchResultData& entry);
  bool _decodeBase64ToImage(WatchImageData& image, std::string& filePath);
  // `filePath` emptied for writing, as a file of its own (owned by the caller), or -1.
  static int _openImageFile(const std::string& filePath);
  void _sendMessagePortMessage(const char* key, const char* value);
  void _sendRestoreRequestMessagePort(WatchResultData& entry);
  void _sendRestoreRequestMessagePort(WatchImageData& image, std::string& filePath);

  // Sends one message to the watch face service, its keys in the given order; failures are
  // logged as `caller`'s, the sending member's.
  void _sendMessage(std::initializer_list<std::pair<const char*, const char*>> entries,
                    const MvSvcSourceLocation& caller);
  void _complete();

  MvSvcCompletionCb _onTransferCompleted;
  int _localPortId;  // carries `this`; the destructor unregisters it
  std::vector<WatchResultData> _resultRestoreList;
  std::vector<WatchImageData> _imageRestoreList;
  std::vector<WatchResultData> _downloadList;
  std::vector<std::string> _installedWatchList;
  // Restore requests still waiting for their reply; going with the transferer silences them.
  MvSvcAppCtrlRequests _pendingModels;
  unsigned _storeReplyTimeoutMs;
  bool _running;
  bool _completed;
};

#endif
