#ifndef MVSVC_APP_CTRL_MODEL_H
#define MVSVC_APP_CTRL_MODEL_H

#include <app_control.h>
#include <glib.h>

#include <cstdint>
#include <string>

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
  // The live model that a reply's user data names, or null once that model is gone.
  static MvSvcAppCtrlModel* _liveModel(void* userData);

  bool _sendAppRequest(app_control_reply_cb callback);
  void _requestStore(const char* caller, app_control_reply_cb callback);
  void _waitForStoreReply();
  void _destroyAppControl();
  void _reply(bool success);

  app_control_h _appControl;  // owned until the request is sent
  std::string _packageId;
  std::string _serviceId;
  std::string _resultXml;
  MvSvcCompletionCb _onAppCtrlRequestReply;
  GMainLoop* _replyLoop;  // owned while a store request waits
  bool _isReplySucceeded;
  // Replies carry this serial rather than the model's address: a late reply then finds neither
  // a freed model nor a newer one allocated at the same address.
  uintptr_t _serial;
  unsigned _storeReplyTimeoutMs;
};

#endif
