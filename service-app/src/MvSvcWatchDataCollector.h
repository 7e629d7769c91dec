#ifndef MVSVC_WATCH_DATA_COLLECTOR_H
#define MVSVC_WATCH_DATA_COLLECTOR_H

#include <bundle.h>
#include <glib.h>
#include <pkgmgr-info.h>

#include <memory>
#include <vector>

#include "MvHandles.h"
#include "MvSvcAppCtrlModel.h"
#include "MvSvcAppCtrlRequests.h"
#include "MvSvcTypes.h"

// Gathers the watch data of one backup: the watch face service's entries and images, the two
// preloaded watch apps' settings and the downloaded watch apps. Completes once, on
// "backup_finished" (success) or when that notice does not come in time (failure); the
// receiver of the completion may destroy the collector inside the callback.
class MvSvcWatchDataCollector {
 public:
  // A watch face service that never finishes must not leave the backup open.
  static constexpr unsigned kBackupFinishedTimeoutMs = 30000;

  explicit MvSvcWatchDataCollector(unsigned backupFinishedTimeoutMs = kBackupFinishedTimeoutMs);
  virtual ~MvSvcWatchDataCollector();

  MvSvcWatchDataCollector(const MvSvcWatchDataCollector&) = delete;
  MvSvcWatchDataCollector& operator=(const MvSvcWatchDataCollector&) = delete;

  void setOnCollectCompleted(MvSvcCompletionCb callback);
  std::vector<WatchResultData>& getResultDataList() { return _resultDataList; }
  std::vector<WatchImageData>& getImageDataList() { return _imageDataList; }

  void run();

 private:
  int _registerMessagePort();
  static void _watchDataMessageCb(int localPortId,
                                  const char* remoteAppId,
                                  const char* remotePort,
                                  bool trustedRemotePort,
                                  bundle* message,
                                  void* userData);
  void _sendBackupRequestAppCtrl(const char* pkgId, const char* svcId);
  void _get3rdWatchAppPackageInfo();
  static int _foreach_pkginfo_app_list_cb(const pkgmgrinfo_appinfo_h handle, void* userData);
  // The direct reads: a watch face's result document from the watch face app's own files, and a
  // photo as one buffer. The design keeps them though run() reaches none of them; the backup
  // takes documents from the messages and photos a chunk at a time (below).
  char* _readXmlFile(const char* path, int* size);
  // Newly allocated (g_free); "" for an unreadable or empty file.
  char* _encodeImageToBase64(const char* path);
  // The same text into `text`, read and encoded a chunk at a time, so that neither the whole
  // file nor a second copy of the text is held beside it.
  void _encodeImageToBase64(const char* path, std::string& text);
  // One of the direct reads above.
  void _directGetResultXml(const char* pkgId);

  void _addWatchEntry(bundle* message);
  void _addImageEntry(bundle* message);
  static gboolean _backupFinishedTimeoutCb(gpointer data);
  void _complete(bool success);

  MvSvcCompletionCb _onCollectCompleted;
  int _localPortId;  // carries `this`; the destructor unregisters it
  std::vector<WatchResultData> _resultDataList;
  std::vector<WatchImageData> _imageDataList;
  // Backup requests still waiting for their reply; going with the collector silences them.
  MvSvcAppCtrlRequests _pendingModels;
  unsigned _backupFinishedTimeoutMs;
  MvGSourceId _backupFinishedTimer;  // unset when not armed
  bool _completed;
};

#endif
