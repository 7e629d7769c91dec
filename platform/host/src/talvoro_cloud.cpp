// The vendor's cloud library on the emulated watch: its C API. The backup app's half of each
// exchange is in host/CloudLibrary.h.
#include <dlog.h>
#include <talvoro_cloud.h>

#include <memory>
#include <utility>

#include "CloudLibraryState.h"
#include "host/RecordFile.h"

using host::cloud::Answer;

namespace {

int setField(talvoro_cloud_record_h record,
             const char* text,
             std::optional<std::string> host::CloudRecord::*field) {
  if (!record || !text)
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  record->data.*field = std::string(text);
  return TALVORO_CLOUD_ERROR_NONE;
}

int getField(talvoro_cloud_record_h record,
             const char** text,
             std::optional<std::string> host::CloudRecord::*field) {
  if (!record || !text)
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  const std::optional<std::string>& value = record->data.*field;
  *text = value ? value->c_str() : nullptr;
  return TALVORO_CLOUD_ERROR_NONE;
}

}  // namespace
using host::cloud::library;

// Every call first answers with a failure that a test has injected for it.
#define TALVORO_INJECTED_FAILURE()                             \
  do {                                                         \
    if (int injected = host::cloud::injectedFailure(__func__)) \
      return injected;                                         \
  } while (0)

extern "C" {

int talvoro_cloud_initialize(void) {
  TALVORO_INJECTED_FAILURE();
  if (library().initFailure != 0)
    return library().initFailure;
  // Flat: initialising again changes nothing, so the first deinitialise releases for everyone.
  const bool nested = host::cloud::personality().cloudInitialization ==
                      host::Personality::CloudInitialization::kNested;
  if (nested || library().initCount == 0)
    ++library().initCount;
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_deinitialize(void) {
  TALVORO_INJECTED_FAILURE();
  if (library().initCount == 0)
    return TALVORO_CLOUD_ERROR_NOT_INITIALIZED;
  if (--library().initCount == 0) {
    host::cloud::forgetEverything();
  }
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_backup_record_set_preparation_cb(talvoro_cloud_request_cb callback,
                                                   void* user_data) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::registerCallback(library().backup, library().backup.preparation, callback,
                                       user_data);
}

int talvoro_cloud_backup_record_set_sending_keys_and_dates_cb(talvoro_cloud_request_cb callback,
                                                              void* user_data) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::registerCallback(library().backup, library().backup.request, callback,
                                       user_data);
}

int talvoro_cloud_backup_record_set_backup_cb(talvoro_cloud_backup_record_cb callback,
                                              void* user_data) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::registerCallback(library().backup, library().backup.backupRecords, callback,
                                       user_data);
}

int talvoro_cloud_backup_record_set_completed_cb(talvoro_cloud_completed_cb callback,
                                                 void* user_data) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::registerCallback(library().backup, library().backup.completed, callback,
                                       user_data);
}

int talvoro_cloud_backup_record_send_preparation_completed_response(bool success) {
  TALVORO_INJECTED_FAILURE();
  if (!host::cloud::initialized())
    return TALVORO_CLOUD_ERROR_NOT_INITIALIZED;
  Answer answer{Answer::Kind::kBackupPreparation, success, {}, std::nullopt, false, {}};
  host::cloud::deliver(std::move(answer));
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_backup_record_send_keys_and_dates(talvoro_cloud_list_h list, bool success) {
  TALVORO_INJECTED_FAILURE();
  if (!host::cloud::initialized())
    return TALVORO_CLOUD_ERROR_NOT_INITIALIZED;
  if (!list)
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  Answer answer{Answer::Kind::kKeysAndDates,
                success,
                host::cloud::copyRecords(*list),
                std::nullopt,
                true,
                {}};
  host::cloud::deliver(std::move(answer));
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_backup_record_send_backup_path(const char* path, bool success) {
  TALVORO_INJECTED_FAILURE();
  if (!host::cloud::initialized())
    return TALVORO_CLOUD_ERROR_NOT_INITIALIZED;
  Answer answer{Answer::Kind::kBackupPath,
                success,
                {},
                path ? std::optional<std::string>(path) : std::nullopt,
                false,
                {}};
  host::cloud::deliver(std::move(answer));
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_restore_record_set_preparation_cb(talvoro_cloud_request_cb callback,
                                                    void* user_data) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::registerCallback(library().restore, library().restore.preparation, callback,
                                       user_data);
}

int talvoro_cloud_restore_record_set_sending_restoration_path_cb(talvoro_cloud_request_cb callback,
                                                                 void* user_data) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::registerCallback(library().restore, library().restore.request, callback,
                                       user_data);
}

int talvoro_cloud_restore_record_set_restoration_cb(talvoro_cloud_restoration_cb callback,
                                                    void* user_data) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::registerCallback(library().restore, library().restore.restoration, callback,
                                       user_data);
}

int talvoro_cloud_restore_record_set_completed_cb(talvoro_cloud_completed_cb callback,
                                                  void* user_data) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::registerCallback(library().restore, library().restore.completed, callback,
                                       user_data);
}

int talvoro_cloud_restore_record_send_preparation_completed_response(bool success) {
  TALVORO_INJECTED_FAILURE();
  if (!host::cloud::initialized())
    return TALVORO_CLOUD_ERROR_NOT_INITIALIZED;
  Answer answer{Answer::Kind::kRestorePreparation, success, {}, std::nullopt, false, {}};
  host::cloud::deliver(std::move(answer));
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_restore_record_send_restoration_path(const char* path, bool success) {
  TALVORO_INJECTED_FAILURE();
  if (!host::cloud::initialized())
    return TALVORO_CLOUD_ERROR_NOT_INITIALIZED;
  Answer answer{Answer::Kind::kRestorationPath,
                success,
                {},
                path ? std::optional<std::string>(path) : std::nullopt,
                false,
                {}};
  host::cloud::deliver(std::move(answer));
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_restore_record_send_record_list(talvoro_cloud_list_h list, bool success) {
  std::unique_ptr<talvoro_cloud_list_s> owned(list);
  library().fileLists.erase(list);
  TALVORO_INJECTED_FAILURE();
  if (!host::cloud::initialized())
    return TALVORO_CLOUD_ERROR_NOT_INITIALIZED;
  Answer answer{Answer::Kind::kRecordList, success, {}, std::nullopt, owned != nullptr, {}};
  if (owned)
    answer.records = host::cloud::takeRecords(*owned, &answer.valueCrcs);
  host::cloud::deliver(std::move(answer));
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_list_create(talvoro_cloud_list_h* list) {
  TALVORO_INJECTED_FAILURE();
  if (!list)
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  *list = new talvoro_cloud_list_s;
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_list_destroy(talvoro_cloud_list_h list) {
  TALVORO_INJECTED_FAILURE();
  if (!list)
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  library().fileLists.erase(list);
  delete list;
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_list_add(talvoro_cloud_list_h list, talvoro_cloud_record_h record) {
  TALVORO_INJECTED_FAILURE();
  if (!list || !record)
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  if (record->inList)
    return TALVORO_CLOUD_ERROR_INVALID_STATE;
  record->inList = true;
  list->records.emplace_back(record);
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_list_get_record_count(talvoro_cloud_list_h list, int* count) {
  TALVORO_INJECTED_FAILURE();
  if (!list || !count)
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  *count = static_cast<int>(list->records.size());
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_list_move_to_first(talvoro_cloud_list_h list) {
  TALVORO_INJECTED_FAILURE();
  if (!list)
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  if (list->records.empty())
    return TALVORO_CLOUD_ERROR_NO_DATA;
  list->cursor = 0;
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_list_move_to_next(talvoro_cloud_list_h list) {
  TALVORO_INJECTED_FAILURE();
  if (!list)
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  if (list->cursor >= list->records.size())
    return TALVORO_CLOUD_ERROR_NO_DATA;
  ++list->cursor;
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_list_get_current_record(talvoro_cloud_list_h list,
                                          talvoro_cloud_record_h* record) {
  TALVORO_INJECTED_FAILURE();
  if (!list || !record)
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  if (list->cursor >= list->records.size())
    return TALVORO_CLOUD_ERROR_NO_DATA;
  *record = list->records[list->cursor].get();
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_record_create(talvoro_cloud_record_h* record) {
  TALVORO_INJECTED_FAILURE();
  if (!record)
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  *record = new talvoro_cloud_record_s;
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_record_destroy(talvoro_cloud_record_h record) {
  TALVORO_INJECTED_FAILURE();
  if (!record)
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  if (record->inList)
    return TALVORO_CLOUD_ERROR_INVALID_STATE;
  delete record;
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_record_set_key(talvoro_cloud_record_h record, const char* key) {
  TALVORO_INJECTED_FAILURE();
  return setField(record, key, &host::CloudRecord::key);
}

int talvoro_cloud_record_set_date(talvoro_cloud_record_h record, const char* date) {
  TALVORO_INJECTED_FAILURE();
  return setField(record, date, &host::CloudRecord::date);
}

int talvoro_cloud_record_set_value(talvoro_cloud_record_h record, const char* value) {
  TALVORO_INJECTED_FAILURE();
  if (!record || !value)
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  // The copy is the library's by contract; summed on the way, a record file needs no other pass.
  record->valueCrc = host::copySummed(value, record->data.value);
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_record_get_key(talvoro_cloud_record_h record, const char** key) {
  TALVORO_INJECTED_FAILURE();
  return getField(record, key, &host::CloudRecord::key);
}

int talvoro_cloud_record_get_date(talvoro_cloud_record_h record, const char** date) {
  TALVORO_INJECTED_FAILURE();
  return getField(record, date, &host::CloudRecord::date);
}

int talvoro_cloud_record_get_value(talvoro_cloud_record_h record, const char** value) {
  TALVORO_INJECTED_FAILURE();
  return getField(record, value, &host::CloudRecord::value);
}

int talvoro_cloud_file_create_file(talvoro_cloud_list_h list, const char* path) {
  TALVORO_INJECTED_FAILURE();
  if (!list || !path || path[0] == '\0')
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  std::string reason;
  host::RecordRefs records;
  host::ValueCrcs valueCrcs;
  for (const auto& record : list->records) {
    records.push_back(&record->data);
    valueCrcs.push_back(record->valueCrc);
  }
  if (!host::writeRecordFile(path, records, reason, &valueCrcs)) {
    // The error code alone would leave the reason (a value too long for the format) unknown.
    dlog_print(DLOG_ERROR, "talvoro-cloud", "%s", reason.c_str());
    return TALVORO_CLOUD_ERROR_IO_ERROR;
  }
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_file_create_record_list(const char* path, talvoro_cloud_list_h* list) {
  TALVORO_INJECTED_FAILURE();
  if (!path || !list)
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  std::vector<host::CloudRecord> records;
  std::vector<uint32_t> valueCrcs;
  std::string reason;
  bool corrupt = false;
  if (!host::readRecordFile(path, records, reason, &corrupt, &valueCrcs))
    return corrupt ? TALVORO_CLOUD_ERROR_FILE_CORRUPT : TALVORO_CLOUD_ERROR_IO_ERROR;
  *list = host::cloud::newList(std::move(records), &valueCrcs);
  library().fileLists.insert(*list);
  return TALVORO_CLOUD_ERROR_NONE;
}

}  // extern "C"
