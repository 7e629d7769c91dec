#include "RestoreModel.h"

#include <Ecore_File.h>
#include <app_common.h>
#include <talvoro_cloud.h>

#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "MvSvcLog.h"

namespace {

const char* const kRecordFileName = "restore.dat";

}  // namespace

RestoreModel::RestoreModel(app_control_h request)
    : _request(request), _isInitialized(false), _filePath(), _onRestoreCompleted() {
  _init();

  char* sharedPath = app_get_shared_trusted_path();
  if (!sharedPath) {
    MVSVC_LOGE("get path failed");
    return;
  }
  char path[512] = {0};
  snprintf(path, sizeof(path), "%s%s", sharedPath, kRecordFileName);
  _filePath = path;
  free(sharedPath);
}

RestoreModel::~RestoreModel() {
  _fini();
}

bool RestoreModel::run() {
  if (!_isInitialized) {
    MVSVC_LOGE("talvoro_cloud is not initialized.");
    return false;
  }

  bool success = false;
  int ret = talvoro_cloud_restore_record_set_preparation_cb(_restorePreparedCb, this);
  if (ret != TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_restore_record_set_preparation_cb() failed.(%d)", ret);
  } else if ((ret = talvoro_cloud_restore_record_set_sending_restoration_path_cb(
                  _restoreGetPathCb, this)) != TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_restore_record_set_sending_restoration_path_cb() failed.(%d)", ret);
  } else if ((ret = talvoro_cloud_restore_record_set_restoration_cb(_restoreRecordCb, this)) !=
             TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_restore_record_set_restoration_cb() failed.(%d)", ret);
  } else if ((ret = talvoro_cloud_restore_record_set_completed_cb(_restoreCompleteCb, this)) !=
             TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_restore_record_set_completed_cb() failed.(%d)", ret);
  } else {
    success = true;
  }

  app_control_h reply = nullptr;
  app_control_create(&reply);
  app_control_reply_to_launch_request(
      reply, _request, success ? APP_CONTROL_RESULT_SUCCEEDED : APP_CONTROL_RESULT_FAILED);
  app_control_destroy(reply);
  return success;
}

void RestoreModel::setOnRestoreCompleted(const MvSvcCompletionCb& callback) {
  _onRestoreCompleted = callback;
}

void RestoreModel::_init() {
  int ret = talvoro_cloud_initialize();
  if (ret != TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_initialize failed.(%d)", ret);
    return;
  }
  _isInitialized = true;
}

void RestoreModel::_fini() {
  int ret = talvoro_cloud_deinitialize();
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_deinitialize failed.(%d)", ret);
  _isInitialized = false;
}

void RestoreModel::_removeFile() {
  if (ecore_file_exists(_filePath.c_str()) != EINA_TRUE) {
    MVSVC_LOGE("file is not exist!");
    return;
  }
  if (ecore_file_remove(_filePath.c_str()) != EINA_TRUE)
    MVSVC_LOGE("file remove failed.");
}

void RestoreModel::_restorePreparedCb(void*) {
  int ret = talvoro_cloud_restore_record_send_preparation_completed_response(true);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_restore_record_send_preparation_completed_response failed.(%d)", ret);
}

void RestoreModel::_restoreGetPathCb(void* userData) {
  RestoreModel* model = static_cast<RestoreModel*>(userData);
  int ret = talvoro_cloud_restore_record_send_restoration_path(model->_filePath.c_str(), true);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_restore_record_send_restoration_path() failed.(%d)", ret);
}

void RestoreModel::_restoreRecordCb(const char* path, void* userData) {
  RestoreModel* model = static_cast<RestoreModel*>(userData);
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
}

void RestoreModel::_restoreCompleteCb(bool success, void* userData) {
  RestoreModel* model = static_cast<RestoreModel*>(userData);
  if (model->_onRestoreCompleted)
    model->_onRestoreCompleted(success, userData);
}
