#include "BackupModel.h"

#include <talvoro_cloud.h>

#include <stdio.h>
#include <string.h>
#include <sys/time.h>

#include "MvHandles.h"
#include "MvSvcCloudSteps.h"
#include "MvSvcLog.h"
#include "MvWatchNames.h"

namespace {

const char* const kRecordFileName = "backup.dat";
// The watch formats the record file's path into a buffer of this size.
const size_t kRecordPathBufferSize = 128;

// The model whose exchange holds the library's backup callbacks, from its run() to its
// completion. The library may refuse a second registrant or let it take the callbacks over;
// either way only one exchange of a kind can run, so the service never tries a second.
const BackupModel* g_runningExchange = nullptr;

}  // namespace

BackupModel::BackupModel(app_control_h request, unsigned int size)
    : _size(size),
      _isInitialized(false),
      _filePath(),
      _request(request),
      _onBackupCompleted(),
      _liveness(this) {
  _init();
  _filePath = mvsvcRecordFilePath(kRecordFileName, kRecordPathBufferSize, nullptr, MVSVC_HERE);
}

BackupModel::~BackupModel() {
  if (g_runningExchange == this)
    g_runningExchange = nullptr;
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
  if (g_runningExchange) {
    MVSVC_LOGE("A backup exchange is already running: refused");
    mvsvcReplyToLaunchRequest(_request, false);
    return false;
  }

  bool success = false;
  int ret = talvoro_cloud_backup_record_set_preparation_cb(_backupPreparedCb, _liveness.token());
  if (ret != TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_backup_record_set_preparation_cb failed.(%d)", ret);
  } else if ((ret = talvoro_cloud_backup_record_set_sending_keys_and_dates_cb(
                  _backupSetKeysDatesCb, _liveness.token())) != TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_backup_record_set_sending_keys_and_dates_cb failed.(%d)", ret);
  } else if (operation && strcmp(operation, MV_OPERATION_BACKUP) == 0 &&
             (ret = talvoro_cloud_backup_record_set_backup_cb(
                  _backupRecordCb, _liveness.token())) != TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_backup_record_set_backup_cb failed.(%d)", ret);
  } else if ((ret = talvoro_cloud_backup_record_set_completed_cb(
                  _backupCompleteCb, _liveness.token())) != TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_backup_record_set_completed_cb failed.(%d)", ret);
  } else {
    success = true;
  }

  if (success)
    g_runningExchange = this;
  mvsvcReplyToLaunchRequest(_request, success);
  return success;
}

void BackupModel::lendJsonText(unsigned int index,
                               const std::function<void(const char* text)>& use) {
  use(getJsonStr(index).c_str());
}

void BackupModel::setOnBackupCompleted(MvSvcCompletionCb callback) {
  _onBackupCompleted = std::move(callback);
}

void BackupModel::_init() {
  _isInitialized = mvsvcCloudInitialize(MVSVC_HERE);
}

void BackupModel::_fini() {
  mvsvcCloudDeinitialize(MVSVC_HERE);
  _isInitialized = false;
}

void BackupModel::_removeFile() {
  mvsvcRemoveRecordFile(_filePath, MVSVC_HERE);
}

uint64_t BackupModel::_getCurrentDeviceMilliSecTime() {
  struct timeval now;
  gettimeofday(&now, nullptr);
  return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000;
}

void BackupModel::_backupPreparedCb(void* userData) {
  if (!MvLiveness<BackupModel>::find(userData))
    return;
  int ret = talvoro_cloud_backup_record_send_preparation_completed_response(true);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_backup_record_send_preparation_completed_response failed.(%d)", ret);
}

void BackupModel::_backupSetKeysDatesCb(void* userData) {
  BackupModel* model = MvLiveness<BackupModel>::find(userData);
  if (!model)
    return;

  talvoro_cloud_list_h createdList = nullptr;
  int ret = talvoro_cloud_list_create(&createdList);
  if (ret != TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE("talvoro_cloud_list_create failed.(%d)", ret);
    return;
  }
  MvCloudListPtr list(createdList);

  bool success = true;
  for (unsigned int index = 0; index < model->_size && success; ++index) {
    talvoro_cloud_record_h created = nullptr;
    ret = talvoro_cloud_record_create(&created);
    if (ret != TALVORO_CLOUD_ERROR_NONE) {
      MVSVC_LOGE("talvoro_cloud_record_create failed.(%d)", ret);
      success = false;
      break;
    }
    // Ours until the list takes it.
    MvCloudRecordPtr record(created);
    char date[128] = {0};
    snprintf(date, sizeof(date), "%llu",
             static_cast<unsigned long long>(model->_getCurrentDeviceMilliSecTime()));
    if ((ret = talvoro_cloud_record_set_key(record.get(), MV_RECORD_KEY)) !=
        TALVORO_CLOUD_ERROR_NONE) {
      MVSVC_LOGE("talvoro_cloud_record_set_key failed.(%d)", ret);
      success = false;
    } else if ((ret = talvoro_cloud_record_set_date(record.get(), date)) !=
               TALVORO_CLOUD_ERROR_NONE) {
      MVSVC_LOGE("talvoro_cloud_record_set_date failed.(%d)", ret);
      success = false;
    } else if ((ret = talvoro_cloud_list_add(list.get(), record.get())) !=
               TALVORO_CLOUD_ERROR_NONE) {
      MVSVC_LOGE("talvoro_cloud_list_add failed.(%d)", ret);
      success = false;
    } else {
      record.release();
      MVSVC_LOGI("Setting key and date for cloud upload [key=%s, date=%s]", MV_RECORD_KEY, date);
    }
  }

  ret = talvoro_cloud_backup_record_send_keys_and_dates(list.get(), success);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_backup_record_send_keys_and_dates failed.(%d)", ret);

  ret = mvReleaseNow(list);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_list_destroy failed.(%d)", ret);
}

void BackupModel::_backupRecordCb(void* list, void* userData) {
  BackupModel* model = MvLiveness<BackupModel>::find(userData);
  // The list is ours in every case; when the model is gone nobody is left to fill it.
  MvCloudListPtr records(static_cast<talvoro_cloud_list_h>(list));
  if (!records) {
    if (model)
      _sendBackupPath(nullptr, false, MVSVC_HERE);
    return;
  }
  if (model) {
    if (model->_fillRecords(records.get(), MVSVC_HERE)) {
      int ret = talvoro_cloud_file_create_file(records.get(), model->_filePath.c_str());
      if (ret != TALVORO_CLOUD_ERROR_NONE)
        MVSVC_LOGE("talvoro_cloud_file_create_file failed.(%d)", ret);
      _sendBackupPath(model->_filePath.c_str(), true, MVSVC_HERE);
    } else {
      _sendBackupPath(nullptr, false, MVSVC_HERE);
    }
  }
  const int ret = mvReleaseNow(records);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE("talvoro_cloud_list_destroy failed.(%d)", ret);
}

// Fills the values of the first `_size` records; false when the list has no first record.
// Failures are logged as `caller`'s.
bool BackupModel::_fillRecords(talvoro_cloud_list_h records, const MvSvcSourceLocation& caller) {
  int count = 0;
  int ret = talvoro_cloud_list_get_record_count(records, &count);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE_AT(caller, "talvoro_cloud_list_get_record_count failed.(%d)", ret);
  if (count == 0)
    return false;
  ret = talvoro_cloud_list_move_to_first(records);
  if (ret != TALVORO_CLOUD_ERROR_NONE) {
    MVSVC_LOGE_AT(caller, "talvoro_cloud_list_move_to_first failed.(%d)", ret);
    return false;
  }

  for (unsigned int index = 0; index < _size; ++index) {
    talvoro_cloud_record_h record = nullptr;
    const char* key = nullptr;
    const char* date = nullptr;
    ret = talvoro_cloud_list_get_current_record(records, &record);
    if (ret != TALVORO_CLOUD_ERROR_NONE)
      MVSVC_LOGE_AT(caller, "talvoro_cloud_list_get_current_record failed.(%d)", ret);

    if (record) {
      ret = talvoro_cloud_record_get_key(record, &key);
      if (ret != TALVORO_CLOUD_ERROR_NONE)
        MVSVC_LOGE_AT(caller, "talvoro_cloud_record_get_key failed.(%d)", ret);
      if (!key)
        MVSVC_LOGE_AT(caller, "talvoro_cloud_record_get_key - key is nullptr.");

      ret = talvoro_cloud_record_get_date(record, &date);
      if (ret != TALVORO_CLOUD_ERROR_NONE)
        MVSVC_LOGE_AT(caller, "talvoro_cloud_record_get_date failed.(%d)", ret);
      if (!date)
        MVSVC_LOGE_AT(caller, "talvoro_cloud_record_get_date - date is nullptr.");

      lendJsonText(index, [record, &caller](const char* jsonStr) {
        MVSVC_LOGI_AT(caller, "backup jsonStr : %s", jsonStr);
        const int set = talvoro_cloud_record_set_value(record, jsonStr);
        if (set != TALVORO_CLOUD_ERROR_NONE)
          MVSVC_LOGE_AT(caller, "talvoro_cloud_record_set_value failed.(%d)", set);
      });
    }

    ret = talvoro_cloud_list_move_to_next(records);
    if (ret != TALVORO_CLOUD_ERROR_NONE)
      MVSVC_LOGE_AT(caller, "talvoro_cloud_list_move_to_next failed.(%d)", ret);
  }
  return true;
}

void BackupModel::_sendBackupPath(const char* path,
                                  bool success,
                                  const MvSvcSourceLocation& caller) {
  const int ret = talvoro_cloud_backup_record_send_backup_path(path, success);
  if (ret != TALVORO_CLOUD_ERROR_NONE)
    MVSVC_LOGE_AT(caller, "talvoro_cloud_backup_record_send_backup_path failed.(%d)", ret);
}

void BackupModel::_backupCompleteCb(bool success, void* userData) {
  BackupModel* model = MvLiveness<BackupModel>::find(userData);
  if (!model)
    return;
  if (g_runningExchange == model)
    g_runningExchange = nullptr;
  if (!model->_onBackupCompleted)
    return;
  // The receiver may destroy the model, and with it the stored callback.
  MvSvcCompletionCb callback = model->_onBackupCompleted;
  callback(success, model);
}
