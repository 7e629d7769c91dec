#include "MvSvcAppCtrlModel.h"

#include <stdlib.h>
#include <string.h>

#include <map>

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

std::map<uintptr_t, MvSvcAppCtrlModel*>& liveModels() {
  static std::map<uintptr_t, MvSvcAppCtrlModel*> models;
  return models;
}

uintptr_t g_lastSerial = 0;

}  // namespace

MvSvcAppCtrlModel::MvSvcAppCtrlModel(const char* pkgId,
                                     const char* svcId,
                                     unsigned storeReplyTimeoutMs)
    : _appControl(nullptr),
      _packageId(pkgId ? pkgId : ""),
      _serviceId(svcId ? svcId : ""),
      _replyLoop(nullptr),
      _isReplySucceeded(false),
      _serial(++g_lastSerial),
      _storeReplyTimeoutMs(storeReplyTimeoutMs) {
  liveModels()[_serial] = this;
  if (app_control_create(&_appControl) != APP_CONTROL_ERROR_NONE) {
    MVSVC_LOGE("app_control_create() failed");
    _appControl = nullptr;
    return;
  }
  app_control_set_app_id(_appControl, _serviceId.c_str());
}

MvSvcAppCtrlModel::~MvSvcAppCtrlModel() {
  liveModels().erase(_serial);
  // Only a model that never sent its request still holds the handle.
  if (_appControl)
    app_control_destroy(_appControl);
}

void MvSvcAppCtrlModel::setOnAppCtrlRequestReplyCb(MvSvcCompletionCb callback) {
  _onAppCtrlRequestReply = std::move(callback);
}

void MvSvcAppCtrlModel::requestBackup() {
  app_control_set_operation(_appControl, kOperationBackup);
  if (!_sendAppRequest(_backupAppCtrlReplyCb)) {
    MVSVC_LOGE("Failed to launch %s app", _serviceId.c_str());
    _reply(false);
  }
}

void MvSvcAppCtrlModel::requestRestore(const char* xml) {
  app_control_set_operation(_appControl, kOperationRestore);
  app_control_add_extra_data(_appControl, kKeyResultXml, xml);
  if (!_sendAppRequest(_restoreAppCtrlReplyCb)) {
    MVSVC_LOGE("Failed to launch %s app", _serviceId.c_str());
    _reply(false);
  }
}

void MvSvcAppCtrlModel::requestPrepareInstall() {
  if (app_control_add_extra_data(_appControl, kKeyReqType, "prepare-install-by-GUID") !=
      APP_CONTROL_ERROR_NONE) {
    MVSVC_LOGE("app_control_add_extra_data() failed");
    _destroyAppControl();
    _reply(false);
    return;
  }
  _requestStore(__func__, _prepareInstallReplyCb);
}

void MvSvcAppCtrlModel::requestWatchInstall() {
  if (app_control_add_extra_data(_appControl, kKeyReqType, "install-by-GUID") !=
          APP_CONTROL_ERROR_NONE ||
      app_control_add_extra_data(_appControl, kKeyGuid, _packageId.c_str()) !=
          APP_CONTROL_ERROR_NONE) {
    MVSVC_LOGE("app_control_add_extra_data() failed");
    _destroyAppControl();
    _reply(false);
    return;
  }
  _requestStore(__func__, _watchInstallReplyCb);
}

// The handle goes in every case, before the caller reports, which may destroy this model.
bool MvSvcAppCtrlModel::_sendAppRequest(app_control_reply_cb callback) {
  const int result =
      app_control_send_launch_request(_appControl, callback, reinterpret_cast<void*>(_serial));
  _destroyAppControl();
  return result == APP_CONTROL_ERROR_NONE;
}

// Sends a prepared store request, waits for the verdict and reports it; failures are logged as
// the requesting member's.
void MvSvcAppCtrlModel::_requestStore(const char* caller, app_control_reply_cb callback) {
  if (app_control_send_launch_request(_appControl, callback, reinterpret_cast<void*>(_serial)) !=
      APP_CONTROL_ERROR_NONE) {
    MVSVC_LOGE_FOR(caller, "app_control_send_launch_request() failed");
    _destroyAppControl();
    _reply(false);
    return;
  }
  const int destroyed = app_control_destroy(_appControl);
  _appControl = nullptr;
  if (destroyed != APP_CONTROL_ERROR_NONE) {
    MVSVC_LOGE_FOR(caller, "app_control_destroy() failed");
    _reply(false);
    return;
  }
  _waitForStoreReply();
  _reply(_isReplySucceeded);
}

void MvSvcAppCtrlModel::_waitForStoreReply() {
  _isReplySucceeded = false;
  _replyLoop = g_main_loop_new(nullptr, FALSE);
  GSource* timeout = g_timeout_source_new(_storeReplyTimeoutMs);
  g_source_set_callback(timeout, _storeReplyTimeoutCb, this, nullptr);
  g_source_attach(timeout, nullptr);
  g_main_loop_run(_replyLoop);
  g_source_destroy(timeout);
  g_source_unref(timeout);
  g_main_loop_unref(_replyLoop);
  _replyLoop = nullptr;
}

gboolean MvSvcAppCtrlModel::_storeReplyTimeoutCb(gpointer data) {
  auto* model = static_cast<MvSvcAppCtrlModel*>(data);
  // A reply dispatched in the same iteration has already given its verdict.
  if (g_main_loop_is_running(model->_replyLoop)) {
    MVSVC_LOGE("No reply from %s in %u ms", model->_serviceId.c_str(), model->_storeReplyTimeoutMs);
    model->_isReplySucceeded = false;
    g_main_loop_quit(model->_replyLoop);
  }
  return G_SOURCE_REMOVE;
}

void MvSvcAppCtrlModel::_destroyAppControl() {
  if (_appControl)
    app_control_destroy(_appControl);
  _appControl = nullptr;
}

void MvSvcAppCtrlModel::_reply(bool success) {
  if (!_onAppCtrlRequestReply)
    return;
  // The receiver may destroy this model, and with it the stored callback.
  MvSvcCompletionCb callback = _onAppCtrlRequestReply;
  callback(success, this);
}

MvSvcAppCtrlModel* MvSvcAppCtrlModel::_liveModel(void* userData) {
  auto found = liveModels().find(reinterpret_cast<uintptr_t>(userData));
  return found == liveModels().end() ? nullptr : found->second;
}

void MvSvcAppCtrlModel::_backupAppCtrlReplyCb(app_control_h,
                                              app_control_h reply,
                                              app_control_result_e,
                                              void* userData) {
  MvSvcAppCtrlModel* model = _liveModel(userData);
  if (!model)
    return;
  char* xml = nullptr;
  if (app_control_get_extra_data(reply, kKeyResultXml, &xml) == APP_CONTROL_ERROR_NONE && xml)
    model->_resultXml = xml;
  free(xml);
  model->_reply(true);
}

void MvSvcAppCtrlModel::_restoreAppCtrlReplyCb(app_control_h,
                                               app_control_h,
                                               app_control_result_e,
                                               void* userData) {
  MvSvcAppCtrlModel* model = _liveModel(userData);
  if (model)
    model->_reply(true);
}

void MvSvcAppCtrlModel::_prepareInstallReplyCb(app_control_h,
                                               app_control_h reply,
                                               app_control_result_e result,
                                               void* userData) {
  MvSvcAppCtrlModel* model = _liveModel(userData);
  if (!model)
    return;
  model->_isReplySucceeded = false;
  char* errorMsg = nullptr;
  if (app_control_get_extra_data(reply, kKeyErrorMsg, &errorMsg) != APP_CONTROL_ERROR_NONE)
    MVSVC_LOGE("app_control_get_extra_data() failed");
  if (result == APP_CONTROL_RESULT_SUCCEEDED)
    model->_isReplySucceeded = true;
  else
    MVSVC_LOGE("result failed! errorMsg (%s)", errorMsg ? errorMsg : "");
  free(errorMsg);
  if (model->_replyLoop)
    g_main_loop_quit(model->_replyLoop);
}

void MvSvcAppCtrlModel::_watchInstallReplyCb(app_control_h request,
                                             app_control_h reply,
                                             app_control_result_e result,
                                             void* userData) {
  MvSvcAppCtrlModel* model = _liveModel(userData);
  if (!model)
    return;
  model->_isReplySucceeded = false;
  char* guid = nullptr;
  if (app_control_get_extra_data(request, kKeyGuid, &guid) != APP_CONTROL_ERROR_NONE)
    MVSVC_LOGE("app_control_get_extra_data() failed");
  char* errorMsg = nullptr;
  if (app_control_get_extra_data(reply, kKeyErrorMsg, &errorMsg) != APP_CONTROL_ERROR_NONE)
    MVSVC_LOGE("app_control_get_extra_data() failed");
  if (result == APP_CONTROL_RESULT_SUCCEEDED) {
    if (guid)
      model->_isReplySucceeded = true;
    else
      MVSVC_LOGE("GUID is empty");
  } else if (errorMsg) {
    for (const char* accepted : kAcceptedStoreErrors) {
      if (strncmp(errorMsg, accepted, strlen(accepted)) == 0)
        model->_isReplySucceeded = true;
    }
    if (!model->_isReplySucceeded)
      MVSVC_LOGE("request GUID = %s, result failed! errorMsg (%s)", guid ? guid : "", errorMsg);
  }
  free(guid);
  free(errorMsg);
  if (model->_replyLoop)
    g_main_loop_quit(model->_replyLoop);
}
