#include "MvSvcAppCtrlModel.h"

#include <stdlib.h>
#include <string.h>

#include "MvHandles.h"
#include "MvSvcLog.h"

namespace {

const char* const kOperationBackup = "talvoro_cloud_backup";
const char* const kOperationRestore = "talvoro_cloud_restore";
const char* const kKeyResultXml = "result_xml";
const char* const kKeyReqType = "req_type";
const char* const kKeyGuid = "GUID";
const char* const kKeyErrorMsg = "errorMsg";

// Store answers that end an install as well as a success does: nothing to install here.
const char* const kAcceptedStoreErrors[] = {
    "VENDARO_MESSAGE_RES_ERROR_CAN_NOT_FIND_CONTENT",
    "VENDARO_MESSAGE_RES_ERROR_NOT_SUPPORT_IN_THIS_DEVICE",
};

// An extra of `handle`, or null; a failed read is logged as `caller`'s.
MvCharPtr readExtra(app_control_h handle, const char* key, const MvSvcSourceLocation& caller) {
  char* value = nullptr;
  if (app_control_get_extra_data(handle, key, &value) != APP_CONTROL_ERROR_NONE) {
    MVSVC_LOGE_AT(caller, "app_control_get_extra_data() failed");
    return MvCharPtr();
  }
  return MvCharPtr(value);
}

}  // namespace

MvSvcAppCtrlModel::MvSvcAppCtrlModel(const char* pkgId,
                                     const char* svcId,
                                     unsigned storeReplyTimeoutMs)
    : _appControl(mvCreateAppControl()),
      _packageId(pkgId ? pkgId : ""),
      _serviceId(svcId ? svcId : ""),
      _replyLoop(nullptr),
      _isReplySucceeded(false),
      _storeReplyTimeoutMs(storeReplyTimeoutMs),
      _liveness(this) {
  if (!_appControl) {
    MVSVC_LOGE("app_control_create() failed");
    return;
  }
  app_control_set_app_id(_appControl.get(), _serviceId.c_str());
}

MvSvcAppCtrlModel::~MvSvcAppCtrlModel() = default;

void MvSvcAppCtrlModel::setOnAppCtrlRequestReplyCb(MvSvcCompletionCb callback) {
  _onAppCtrlRequestReply = std::move(callback);
}

void MvSvcAppCtrlModel::requestBackup() {
  app_control_set_operation(_appControl.get(), kOperationBackup);
  if (!_sendAppRequest(_backupAppCtrlReplyCb)) {
    MVSVC_LOGE("Failed to launch %s app", _serviceId.c_str());
    _reply(false);
  }
}

void MvSvcAppCtrlModel::requestRestore(const char* xml) {
  app_control_set_operation(_appControl.get(), kOperationRestore);
  app_control_add_extra_data(_appControl.get(), kKeyResultXml, xml);
  if (!_sendAppRequest(_restoreAppCtrlReplyCb)) {
    MVSVC_LOGE("Failed to launch %s app", _serviceId.c_str());
    _reply(false);
  }
}

void MvSvcAppCtrlModel::requestPrepareInstall() {
  if (app_control_add_extra_data(_appControl.get(), kKeyReqType, "prepare-install-by-GUID") !=
      APP_CONTROL_ERROR_NONE) {
    MVSVC_LOGE("app_control_add_extra_data() failed");
    _appControl.reset();
    _reply(false);
    return;
  }
  _requestStore(_prepareInstallReplyCb, MVSVC_HERE);
}

void MvSvcAppCtrlModel::requestWatchInstall() {
  if (app_control_add_extra_data(_appControl.get(), kKeyReqType, "install-by-GUID") !=
          APP_CONTROL_ERROR_NONE ||
      app_control_add_extra_data(_appControl.get(), kKeyGuid, _packageId.c_str()) !=
          APP_CONTROL_ERROR_NONE) {
    MVSVC_LOGE("app_control_add_extra_data() failed");
    _appControl.reset();
    _reply(false);
    return;
  }
  _requestStore(_watchInstallReplyCb, MVSVC_HERE);
}

// The handle goes in every case, before the caller reports, which may destroy this model.
bool MvSvcAppCtrlModel::_sendAppRequest(app_control_reply_cb callback) {
  const int result =
      app_control_send_launch_request(_appControl.get(), callback, _liveness.token());
  _appControl.reset();
  return result == APP_CONTROL_ERROR_NONE;
}

// Sends a prepared store request, waits for the verdict and reports it; failures are logged as
// `caller`'s, the requesting member's.
void MvSvcAppCtrlModel::_requestStore(app_control_reply_cb callback,
                                      const MvSvcSourceLocation& caller) {
  if (app_control_send_launch_request(_appControl.get(), callback, _liveness.token()) !=
      APP_CONTROL_ERROR_NONE) {
    MVSVC_LOGE_AT(caller, "app_control_send_launch_request() failed");
    _appControl.reset();
    _reply(false);
    return;
  }
  // The store request reports a failed release.
  const int destroyed = mvReleaseNow(_appControl);
  if (destroyed != APP_CONTROL_ERROR_NONE) {
    MVSVC_LOGE_AT(caller, "app_control_destroy() failed");
    _reply(false);
    return;
  }
  _waitForStoreReply(callback == _watchInstallReplyCb);
  _reply(_isReplySucceeded);
}

void MvSvcAppCtrlModel::_waitForStoreReply(bool install) {
  _isReplySucceeded = false;
  g_autoptr(GMainLoop) loop = g_main_loop_new(nullptr, FALSE);
  MvGSourcePtr timeout(g_timeout_source_new(_storeReplyTimeoutMs));
  _awaitedInstall = install;
  // Carries `this`: a registration undone in the destructor of `timeout`, before this call
  // returns.
  g_source_set_callback(timeout.get(), _storeReplyTimeoutCb, this, nullptr);
  g_source_attach(timeout.get(), nullptr);
  _replyLoop = loop;
  g_main_loop_run(loop);
  _replyLoop = nullptr;
}

gboolean MvSvcAppCtrlModel::_storeReplyTimeoutCb(gpointer data) {
  auto* model = static_cast<MvSvcAppCtrlModel*>(data);
  // A reply dispatched in the same iteration has already given its verdict.
  if (g_main_loop_is_running(model->_replyLoop)) {
    if (model->_awaitedInstall)
      MVSVC_LOGE("No reply from %s to the install of GUID %s in %u ms", model->_serviceId.c_str(),
                 model->_packageId.c_str(), model->_storeReplyTimeoutMs);
    else
      MVSVC_LOGE("No reply from %s in %u ms", model->_serviceId.c_str(),
                 model->_storeReplyTimeoutMs);
    model->_isReplySucceeded = false;
    g_main_loop_quit(model->_replyLoop);
  }
  return G_SOURCE_REMOVE;
}

void MvSvcAppCtrlModel::_reply(bool success) {
  if (!_onAppCtrlRequestReply)
    return;
  // The receiver may destroy this model, and with it the stored callback.
  MvSvcCompletionCb callback = _onAppCtrlRequestReply;
  callback(success, this);
}

// The live model a store reply is for, its verdict reset to false; null once it is gone.
MvSvcAppCtrlModel* MvSvcAppCtrlModel::_waitingModel(void* userData) {
  MvSvcAppCtrlModel* model = MvLiveness<MvSvcAppCtrlModel>::find(userData);
  if (model)
    model->_isReplySucceeded = false;
  return model;
}

void MvSvcAppCtrlModel::_quitReplyLoop() {
  if (_replyLoop)
    g_main_loop_quit(_replyLoop);
}

void MvSvcAppCtrlModel::_backupAppCtrlReplyCb(app_control_h,
                                              app_control_h reply,
                                              app_control_result_e,
                                              void* userData) {
  MvSvcAppCtrlModel* model = MvLiveness<MvSvcAppCtrlModel>::find(userData);
  if (!model)
    return;
  char* xml = nullptr;
  app_control_get_extra_data(reply, kKeyResultXml, &xml);
  MvCharPtr owned(xml);
  if (owned)
    model->_resultXml = owned.get();
  model->_reply(true);
}

void MvSvcAppCtrlModel::_restoreAppCtrlReplyCb(app_control_h,
                                               app_control_h,
                                               app_control_result_e,
                                               void* userData) {
  MvSvcAppCtrlModel* model = MvLiveness<MvSvcAppCtrlModel>::find(userData);
  if (model)
    model->_reply(true);
}

void MvSvcAppCtrlModel::_prepareInstallReplyCb(app_control_h,
                                               app_control_h reply,
                                               app_control_result_e result,
                                               void* userData) {
  MvSvcAppCtrlModel* model = _waitingModel(userData);
  if (!model)
    return;
  MvCharPtr errorMsg = readExtra(reply, kKeyErrorMsg, MVSVC_HERE);
  if (result == APP_CONTROL_RESULT_SUCCEEDED)
    model->_isReplySucceeded = true;
  else
    MVSVC_LOGE("result failed! errorMsg (%s)", errorMsg ? errorMsg.get() : "");
  model->_quitReplyLoop();
}

void MvSvcAppCtrlModel::_watchInstallReplyCb(app_control_h request,
                                             app_control_h reply,
                                             app_control_result_e result,
                                             void* userData) {
  MvSvcAppCtrlModel* model = _waitingModel(userData);
  if (!model)
    return;
  MvCharPtr guid = readExtra(request, kKeyGuid, MVSVC_HERE);
  MvCharPtr errorMsg = readExtra(reply, kKeyErrorMsg, MVSVC_HERE);
  if (result == APP_CONTROL_RESULT_SUCCEEDED) {
    if (guid)
      model->_isReplySucceeded = true;
    else
      MVSVC_LOGE("GUID is empty");
  } else if (errorMsg) {
    for (const char* accepted : kAcceptedStoreErrors) {
      if (strncmp(errorMsg.get(), accepted, strlen(accepted)) == 0)
        model->_isReplySucceeded = true;
    }
    if (!model->_isReplySucceeded)
      MVSVC_LOGE("request GUID = %s, result failed! errorMsg (%s)", guid ? guid.get() : "",
                 errorMsg.get());
  }
  model->_quitReplyLoop();
}
