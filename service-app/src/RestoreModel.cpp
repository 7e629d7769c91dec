#include "RestoreModel.h"

#include <talvoro_cloud.h>

#include <stdio.h>
#include <time.h>

#include "MvSvcCloudSteps.h"
#include "MvSvcLog.h"

namespace {

const char* const kRecordFileName = "restore.dat";
// The watch formats the record file's path into a buffer of this size.
const size_t kRecordPathBufferSize = 512;

// The model whose exchange holds the library's restore callbacks; see BackupModel.cpp.
const RestoreModel* g_runningExchange = nullptr;

}  // namespace

RestoreModel::RestoreModel(app_control_h request)
    : _request(request),
      _isInitialized(false),
      _filePath(),
      _onRestoreCompleted(),
      _liveness(this) {
  _init();
  _filePath =
      mvsvcRecordFilePath(kRecordFileName, kRecordPathBufferSize, "get path failed", MVSVC_HERE);
}

RestoreModel::~RestoreModel() {
  if (g_runningExchange == this)
    g_runningExchange = nullptr;
  _fini();
}

bool RestoreModel::run() {
  if (!_isInitialized) {
    MVSVC_LOGE("talvoro_cloud is not initialized.");
    return false;
  }
  if (g_runningExchange) {
    MVSVC_LOGE("A restore exchange is already running: refused");
    mvsvcReplyToLaunchRequest(_request, false);
    return false;
  }

  bool success = false;
  int ret = talvoro_cloud_restore_record_set_preparation_cb(_restorePreparedCb, _liveness.token());
  if (ret != TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_restore_record_set_preparation_cb() failed.(%d)", ret);
  } else if ((ret = talvoro_cloud_restore_record_set_sending_restoration_path_cb(
                  _restoreGetPathCb, _liveness.token())) != TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_restore_record_set_sending_restoration_path_cb() failed.(%d)", ret);
  } else if ((ret = talvoro_cloud_restore_record_set_restoration_cb(
                  _restoreRecordCb, _liveness.token())) != TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_restore_record_set_restoration_cb() failed.(%d)", ret);
  } else if ((ret = talvoro_cloud_restore_record_set_completed_cb(
                  _restoreCompleteCb, _liveness.token())) != TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_restore_record_set_completed_cb() failed.(%d)", ret);
  } else {
    success = true;
  }

  if (success)
    g_runningExchange = this;
  mvsvcReplyToLaunchRequest(_request, success);
  return success;
}

void RestoreModel::setOnRestoreCompleted(const MvSvcCompletionCb& callback) {
  _onRestoreCompleted = callback;
}

void RestoreModel::_init() {
  _isInitialized = mvsvcCloudInitialize(MVSVC_HERE);
}

void RestoreModel::_fini() {
  mvsvcCloudDeinitialize(MVSVC_HERE);
  _isInitialized = false;
}

void RestoreModel::_removeFile() {
  mvsvcRemoveRecordFile(_filePath, MVSVC_HERE);
}

void RestoreModel::_restorePreparedCb(void* userData) {
  if (!MvLiveness<RestoreModel>::find(userData))
    return;
  int ret = talvoro_cloud_restore_record_send_preparation_completed_response(true);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_restore_record_send_preparation_completed_response failed.(%d)", ret);
}

void RestoreModel::_restoreGetPathCb(void* userData) {
  RestoreModel* model = MvLiveness<RestoreModel>::find(userData);
  if (!model)
    return;
  int ret = talvoro_cloud_restore_record_send_restoration_path(model->_filePath.c_str(), true);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_restore_record_send_restoration_path() failed.(%d)", ret);
}

void RestoreModel::_restoreRecordCb(const char* path, void* userData) {
  RestoreModel* model = MvLiveness<RestoreModel>::find(userData);
  if (!model)
    return;
  // Entered again from a nested loop of its own transfer: a second walk would replace the
  // transferer that the outer one still runs.
  if (model->_inRestoration) {
    MVSVC_LOGE("Restoration asked for again while one runs: refused");
    const int ret = talvoro_cloud_restore_record_send_record_list(nullptr, false);
    if (ret != TALVORO_CLOUD_ERROR_NONE)
      MVSVC_LOGE("talvoro_cloud_restore_record_send_record_list() failed, errCode = [%d]", ret);
    return;
  }
  model->_inRestoration = true;
  talvoro_cloud_list_h list = nullptr;
  int count = 0;

  int ret = talvoro_cloud_file_create_record_list(path, &list);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_file_create_record_list() failed, errCode = [%d]", ret);

  ret = talvoro_cloud_list_get_record_count(list, &count);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_list_get_record_count() failed, errCode = [%d]", ret);

  if (count == 0) {
    ret = talvoro_cloud_restore_record_send_record_list(nullptr, false);
    if (ret != TALVORO_CLOUD_ERROR_NONE)
      MVSVC_LOGE("talvoro_cloud_restore_record_send_record_list() failed, errCode = [%d]", ret);
    model->_endRestoration();
    return;
  }

  ret = talvoro_cloud_list_move_to_first(list);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_list_move_to_first() failed, errCode = [%d]", ret);

  for (int index = 0; index < count; ++index) {
    talvoro_cloud_record_h record = nullptr;
    ret = talvoro_cloud_list_get_current_record(list, &record);
    if (ret != TALVORO_CLOUD_ERROR_NONE)
      MVSVC_LOGE("talvoro_cloud_list_get_current_record() failed, errCode = [%d]", ret);

    const char* value = nullptr;
    if (record) {
      ret = talvoro_cloud_record_get_value(record, &value);
      if (ret != TALVORO_CLOUD_ERROR_NONE)
        MVSVC_LOGE("talvoro_cloud_record_get_value() failed, errCode = [%d]", ret);
      else if (!value)
        MVSVC_LOGE("talvoro_cloud_record_get_value - value is nullptr.");
    }

    // A record without a readable value is not restored, but goes back with its key and date
    // like the others; the walk goes on.
    if (record) {
      if (value)
        MVSVC_LOGI("value : %s", value);
      std::string key = model->restoreRecord(index, value);

      ret = talvoro_cloud_record_set_key(record, key.c_str());
      if (ret != TALVORO_CLOUD_ERROR_NONE)
        MVSVC_LOGE("talvoro_cloud_record_set_key() failed, errCode = [%d]", ret);

      char date[256] = {0};
      snprintf(date, sizeof(date), "%ld", static_cast<long>(time(nullptr)));
      ret = talvoro_cloud_record_set_date(record, date);
      if (ret != TALVORO_CLOUD_ERROR_NONE)
        MVSVC_LOGE("talvoro_cloud_record_set_date() failed, errCode = [%d]", ret);
    }

    ret = talvoro_cloud_list_move_to_next(list);
    if (ret != TALVORO_CLOUD_ERROR_NONE)
      MVSVC_LOGE("talvoro_cloud_list_move_to_next() failed, errCode = [%d]", ret);
  }

  ret = talvoro_cloud_restore_record_send_record_list(list, true);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_restore_record_send_record_list() failed, errCode = [%d]", ret);
  model->_endRestoration();
}

void RestoreModel::_restoreCompleteCb(bool success, void* userData) {
  RestoreModel* model = MvLiveness<RestoreModel>::find(userData);
  if (!model)
    return;
  if (g_runningExchange == model)
    g_runningExchange = nullptr;
  if (model->_inRestoration) {
    model->_heldCompletion = success;
    return;
  }
  model->_complete(success);
}

// The model's last act when a completion was held: its receiver may destroy the model.
void RestoreModel::_endRestoration() {
  _inRestoration = false;
  if (!_heldCompletion)
    return;
  const bool success = *_heldCompletion;
  _heldCompletion.reset();
  _complete(success);
}

void RestoreModel::_complete(bool success) {
  if (!_onRestoreCompleted)
    return;
  // The receiver may destroy the model, and with it the stored callback.
  MvSvcCompletionCb callback = _onRestoreCompleted;
  callback(success, this);
}
