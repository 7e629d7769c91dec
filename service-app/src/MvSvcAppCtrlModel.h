#ifndef MVSVC_APP_CTRL_MODEL_H
#define MVSVC_APP_CTRL_MODEL_H

#include <app_control.h>
#include <glib.h>

#include <string>

#include "MvHandles.h"
#include "MvLiveness.h"
#include "MvSvcLog.h"
#include "MvSvcTypes.h"

// One app-control launch request to a watch app or to the store, and the verdict on its reply.
// The reply callback is the model's last act on itself, so its receiver may destroy the model
// there. Store requests wait for the verdict in a nested main loop on the default context.
class MvSvcAppCtrlModel {
 public:
  // A silent store must not hold the restore forever; the wait then ends with a false verdict.
  static constexpr unsigned kStoreReplyTimeoutMs = 20000;

  MvSvcAppCtrlModel(const char* pkgId,
                    const char* svcId,
                    unsigned storeReplyTimeoutMs = kStoreReplyTimeoutMs);
  virtual ~MvSvcAppCtrlModel();

  MvSvcAppCtrlModel(const MvSvcAppCtrlModel&) = delete;
  MvSvcAppCtrlModel& operator=(const MvSvcAppCtrlModel&) = delete;

  void setOnAppCtrlRequestReplyCb(MvSvcCompletionCb callback);

  const std::string& getPackageId() const { return _packageId; }
  const std::string& getServiceId() const { return _serviceId; }
  const std::string& getResultXml() const { return _resultXml; }

  void requestBackup();
  void requestRestore(const char* xml);
  void requestPrepareInstall();
  void requestWatchInstall();

 private:
  static void _backupAppCtrlReplyCb(app_control_h request,
                                    app_control_h reply,
                                    app_control_result_e result,
                                    void* userData);
  static void _restoreAppCtrlReplyCb(app_control_h request,
                                     app_control_h reply,
                                     app_control_result_e result,
                                     void* userData);
  static void _prepareInstallReplyCb(app_control_h request,
                                     app_control_h reply,
                                     app_control_result_e result,
                                     void* userData);
  static void _watchInstallReplyCb(app_control_h request,
                                   app_control_h reply,
                                   app_control_result_e result,
                                   void* userData);
  static gboolean _storeReplyTimeoutCb(gpointer data);

  bool _sendAppRequest(app_control_reply_cb callback);
  void _requestStore(app_control_reply_cb callback, const MvSvcSourceLocation& caller);
  void _waitForStoreReply(bool install);
  void _reply(bool success);
  static MvSvcAppCtrlModel* _waitingModel(void* userData);
  void _quitReplyLoop();

  MvAppControlPtr _appControl;  // until the request is sent
  std::string _packageId;
  std::string _serviceId;
  std::string _resultXml;
  MvSvcCompletionCb _onAppCtrlRequestReply;
  GMainLoop* _replyLoop;  // borrowed from the waiting frame while a store request waits
  bool _isReplySucceeded;
  bool _awaitedInstall = false;  // what the running store wait waits for, for its log line
  unsigned _storeReplyTimeoutMs;
  // Replies carry this token rather than the model's address.
  MvLiveness<MvSvcAppCtrlModel> _liveness;
};

#endif
