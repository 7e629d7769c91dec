#include "BackupModel.h"

#include <Ecore_File.h>
#include <app_common.h>
#include <talvoro_cloud.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>

#include "MvSvcLog.h"

namespace {

const char* const kRecordFileName = "backup.dat";
const char* const kRecordKey = "key";

}  // namespace

BackupModel::BackupModel(app_control_h request, unsigned int size)
    : _size(size), _isInitialized(false), _filePath(), _request(request), _onBackupCompleted() {
  _init();

  char* sharedPath = app_get_shared_trusted_path();
  if (sharedPath) {
    char path[128] = {0};
    // A cut path could name a file outside the trusted directory: no path is better.
    const int needed = snprintf(path, sizeof(path), "%s%s", sharedPath, kRecordFileName);
    if (needed < 0 || static_cast<size_t>(needed) >= sizeof(path))
      MVSVC_LOGE("Record file path is too long: %s%s", sharedPath, kRecordFileName);
    else
      _filePath = path;
    free(sharedPath);
  }
}

BackupModel::~BackupModel() {
  _fini();
}

bool BackupModel::run(const char* operation) {
  if (!_isInitialized) {
    MVSVC_LOGE("talvoro_cloud is not initialized.");
    return false;
  }
  if (_size == 0) {
    MVSVC_LOGE("size is 0");
    return false;
  }

  bool success = false;
  int ret = talvoro_cloud_backup_record_set_preparation_cb(_backupPreparedCb, this);
  if (ret != TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_backup_record_set_preparation_cb failed.(%d)", ret);
  } else if ((ret = talvoro_cloud_backup_record_set_sending_keys_and_dates_cb(
                  _backupSetKeysDatesCb, this)) != TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_backup_record_set_sending_keys_and_dates_cb failed.(%d)", ret);
  } else if (operation && strcmp(operation, MVSVC_OPERATION_BACKUP) == 0 &&
             (ret = talvoro_cloud_backup_record_set_backup_cb(_backupRecordCb, this)) !=
                 TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_backup_record_set_backup_cb failed.(%d)", ret);
  } else if ((ret = talvoro_cloud_backup_record_set_completed_cb(_backupCompleteCb, this)) !=
             TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_backup_record_set_completed_cb failed.(%d)", ret);
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

void BackupModel::setOnBackupCompleted(MvSvcCompletionCb callback) {
  _onBackupCompleted = std::move(callback);
}

void BackupModel::_init() {
  int ret = talvoro_cloud_initialize();
  if (ret != TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_initialize failed.(%d)", ret);
    return;
  }
  _isInitialized = true;
}

void BackupModel::_fini() {
  int ret = talvoro_cloud_deinitialize();
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_deinitialize failed.(%d)", ret);
  _isInitialized = false;
}

void BackupModel::_removeFile() {
  if (ecore_file_exists(_filePath.c_str()) != EINA_TRUE) {
    MVSVC_LOGE("file is not exist!");
    return;
  }
  if (ecore_file_remove(_filePath.c_str()) != EINA_TRUE)
    MVSVC_LOGE("file remove failed.");
}

uint64_t BackupModel::_getCurrentDeviceMilliSecTime() {
  struct timeval now;
  gettimeofday(&now, nullptr);
  return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000;
}

void BackupModel::_backupPreparedCb(void*) {
  int ret = talvoro_cloud_backup_record_send_preparation_completed_response(true);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_backup_record_send_preparation_completed_response failed.(%d)", ret);
}

void BackupModel::_backupSetKeysDatesCb(void* userData) {
  BackupModel* model = static_cast<BackupModel*>(userData);

  talvoro_cloud_list_h list = nullptr;
  int ret = talvoro_cloud_list_create(&list);
  if (ret != TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_list_create failed.(%d)", ret);
    return;
  }

  bool success = true;
  for (unsigned int index = 0; index < model->_size; ++index) {
    talvoro_cloud_record_h record = nullptr;
    ret = talvoro_cloud_record_create(&record);
    if (ret != TALVORO_CLOUD_ERROR_NONE) {
      MVSVC_LOGE("talvoro_cloud_record_create failed.(%d)", ret);
      success = false;
      break;
    }
    ret = talvoro_cloud_record_set_key(record, kRecordKey);
    if (ret != TALVORO_CLOUD_ERROR_NONE) {
      MVSVC_LOGE("talvoro_cloud_record_set_key failed.(%d)", ret);
      talvoro_cloud_record_destroy(record);
      success = false;
      break;
    }
    char date[128] = {0};
    snprintf(date, sizeof(date), "%llu",
             static_cast<unsigned long long>(model->_getCurrentDeviceMilliSecTime()));
    ret = talvoro_cloud_record_set_date(record, date);
    if (ret != TALVORO_CLOUD_ERROR_NONE) {
      MVSVC_LOGE("talvoro_cloud_record_set_date failed.(%d)", ret);
      talvoro_cloud_record_destroy(record);
      success = false;
      break;
    }
    ret = talvoro_cloud_list_add(list, record);
    if (ret != TALVORO_CLOUD_ERROR_NONE) {
      MVSVC_LOGE("talvoro_cloud_list_add failed.(%d)", ret);
      talvoro_cloud_record_destroy(record);
      success = false;
      break;
    }
    MVSVC_LOGI("Setting key and date for cloud upload [key=%s, date=%s]", kRecordKey, date);
  }

  ret = talvoro_cloud_backup_record_send_keys_and_dates(list, success);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_backup_record_send_keys_and_dates failed.(%d)", ret);

  ret = talvoro_cloud_list_destroy(list);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_list_destroy failed.(%d)", ret);
}

void BackupModel::_backupRecordCb(void* list, void* userData) {
  BackupModel* model = static_cast<BackupModel*>(userData);
  talvoro_cloud_list_h records = static_cast<talvoro_cloud_list_h>(list);

  if (!records) {
    int ret = talvoro_cloud_backup_record_send_backup_path(nullptr, false);
    if (ret != TALVORO_CLOUD_ERROR_NONE)
      MVSVC_LOGE("talvoro_cloud_backup_record_send_backup_path failed.(%d)", ret);
    return;
  }

  int count = 0;
  int ret = talvoro_cloud_list_get_record_count(records, &count);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_list_get_record_count failed.(%d)", ret);

  // Without a first record there is nothing to upload: answer as for an empty list.
  bool walkable = count != 0;
  if (walkable) {
    ret = talvoro_cloud_list_move_to_first(records);
    if (ret != TALVORO_CLOUD_ERROR_NONE) {
      MVSVC_LOGE("talvoro_cloud_list_move_to_first failed.(%d)", ret);
      walkable = false;
    }
  }
  if (!walkable) {
    ret = talvoro_cloud_backup_record_send_backup_path(nullptr, false);
    if (ret != TALVORO_CLOUD_ERROR_NONE)
      MVSVC_LOGE("talvoro_cloud_backup_record_send_backup_path failed.(%d)", ret);
    ret = talvoro_cloud_list_destroy(records);
    if (ret != TALVORO_CLOUD_ERROR_NONE)
      MVSVC_LOGE("talvoro_cloud_list_destroy failed.(%d)", ret);
    return;
  }

  for (unsigned int index = 0; index < model->_size; ++index) {
    talvoro_cloud_record_h record = nullptr;
    const char* key = nullptr;
    const char* date = nullptr;
    ret = talvoro_cloud_list_get_current_record(records, &record);
    if (ret != TALVORO_CLOUD_ERROR_NONE)
      MVSVC_LOGE("talvoro_cloud_list_get_current_record failed.(%d)", ret);

    if (record) {
      ret = talvoro_cloud_record_get_key(record, &key);
      if (ret != TALVORO_CLOUD_ERROR_NONE)
        MVSVC_LOGE("talvoro_cloud_record_get_key failed.(%d)", ret);
      if (!key)
        MVSVC_LOGE("talvoro_cloud_record_get_key - key is nullptr.");

      ret = talvoro_cloud_record_get_date(record, &date);
      if (ret != TALVORO_CLOUD_ERROR_NONE)
        MVSVC_LOGE("talvoro_cloud_record_get_date failed.(%d)", ret);
      if (!date)
        MVSVC_LOGE("talvoro_cloud_record_get_date - date is nullptr.");

      std::string jsonStr = model->getJsonStr(index);
      MVSVC_LOGI("backup jsonStr : %s", jsonStr.c_str());

      ret = talvoro_cloud_record_set_value(record, jsonStr.c_str());
      if (ret != TALVORO_CLOUD_ERROR_NONE)
        MVSVC_LOGE("talvoro_cloud_record_set_value failed.(%d)", ret);
    }

    ret = talvoro_cloud_list_move_to_next(records);
    if (ret != TALVORO_CLOUD_ERROR_NONE)
      MVSVC_LOGE("talvoro_cloud_list_move_to_next failed.(%d)", ret);
  }

  ret = talvoro_cloud_file_create_file(records, model->_filePath.c_str());
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_file_create_file failed.(%d)", ret);

  ret = talvoro_cloud_backup_record_send_backup_path(model->_filePath.c_str(), true);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_backup_record_send_backup_path failed.(%d)", ret);

  ret = talvoro_cloud_list_destroy(records);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_list_destroy failed.(%d)", ret);
}

void BackupModel::_backupCompleteCb(bool success, void* userData) {
  BackupModel* model = static_cast<BackupModel*>(userData);
  if (model->_onBackupCompleted)
    model->_onBackupCompleted(success, userData);
}
