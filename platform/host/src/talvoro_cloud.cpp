// The vendor's cloud library on the emulated watch. The backup app's half of each exchange is
// in host/CloudLibrary.h.
#include <dlog.h>
#include <talvoro_cloud.h>

#include <map>
#include <memory>
#include <set>
#include <utility>

#include "host/CloudLibrary.h"
#include "host/Platform.h"

namespace {

int g_liveLists = 0;
int g_liveRecords = 0;

}  // namespace

struct talvoro_cloud_record_s {
  talvoro_cloud_record_s() { ++g_liveRecords; }
  ~talvoro_cloud_record_s() { --g_liveRecords; }
  talvoro_cloud_record_s(const talvoro_cloud_record_s&) = delete;
  talvoro_cloud_record_s& operator=(const talvoro_cloud_record_s&) = delete;

  host::CloudRecord data;
  bool inList = false;
};

struct talvoro_cloud_list_s {
  talvoro_cloud_list_s() { ++g_liveLists; }
  ~talvoro_cloud_list_s() { --g_liveLists; }
  talvoro_cloud_list_s(const talvoro_cloud_list_s&) = delete;
  talvoro_cloud_list_s& operator=(const talvoro_cloud_list_s&) = delete;

  std::vector<std::unique_ptr<talvoro_cloud_record_s>> records;
  size_t cursor = 0;  // records.size(): past the end
};

namespace host {
namespace cloud {

namespace {

template <typename Callback>
struct Registration {
  Callback callback = nullptr;
  void* userData = nullptr;
};

struct Failure {
  int code;
  int times;
};

struct Library {
  int initCount = 0;
  int initFailure = 0;
  Registration<talvoro_cloud_request_cb> backupPreparation;
  Registration<talvoro_cloud_request_cb> keysAndDates;
  Registration<talvoro_cloud_backup_record_cb> backupRecords;
  Registration<talvoro_cloud_completed_cb> backupCompleted;
  Registration<talvoro_cloud_request_cb> restorePreparation;
  Registration<talvoro_cloud_request_cb> restorationPath;
  Registration<talvoro_cloud_restoration_cb> restoration;
  Registration<talvoro_cloud_completed_cb> restoreCompleted;
  std::vector<Answer> answers;
  std::function<void(const Answer&)> listener;
  std::map<std::string, Failure> failures;
  // Lists read from record files that nobody has sent back or destroyed yet: the library
  // frees them at the last deinitialise, as an app answering with a NULL list never does.
  std::set<talvoro_cloud_list_s*> fileLists;
};

Library& library() {
  static Library instance;
  return instance;
}

void freeFileLists() {
  std::set<talvoro_cloud_list_s*> lists;
  lists.swap(library().fileLists);
  for (talvoro_cloud_list_s* list : lists)
    delete list;
}

void forgetCallbacks() {
  Library& lib = library();
  lib.backupPreparation = {};
  lib.keysAndDates = {};
  lib.backupRecords = {};
  lib.backupCompleted = {};
  lib.restorePreparation = {};
  lib.restorationPath = {};
  lib.restoration = {};
  lib.restoreCompleted = {};
}

int injectedFailure(const char* operation) {
  auto& failures = library().failures;
  auto it = failures.find(operation);
  if (it == failures.end())
    return TALVORO_CLOUD_ERROR_NONE;
  const int code = it->second.code;
  if (it->second.times > 0 && --it->second.times == 0)
    failures.erase(it);
  return code;
}

// A crossing of the library boundary, in the running platform's record.
void note(BoundaryEvent::Kind kind, const char* name, bool success = true) {
  if (Platform* platform = Platform::current())
    platform->addEvent(kind, std::string(), name, {}, success ? 1 : 0);
}

void deliver(Answer answer) {
  note(BoundaryEvent::Kind::kCloudAnswer, answerName(answer.kind), answer.success);
  Platform* platform = Platform::current();
  if (!platform || !library().listener) {
    library().answers.push_back(std::move(answer));
    return;
  }
  // Shared, not copied: a record list holds whole backup documents.
  auto shared = std::make_shared<const Answer>(std::move(answer));
  platform->post([shared] {
    if (library().listener)
      library().listener(*shared);
  });
}

std::vector<CloudRecord> copyRecords(const talvoro_cloud_list_s& list) {
  std::vector<CloudRecord> records;
  for (const auto& record : list.records)
    records.push_back(record->data);
  return records;
}

// For a list the library owns and is about to free.
std::vector<CloudRecord> takeRecords(talvoro_cloud_list_s& list) {
  std::vector<CloudRecord> records;
  for (const auto& record : list.records)
    records.push_back(std::move(record->data));
  return records;
}

talvoro_cloud_list_s* newList(std::vector<CloudRecord> records) {
  auto* list = new talvoro_cloud_list_s;
  for (CloudRecord& data : records) {
    auto record = std::make_unique<talvoro_cloud_record_s>();
    record->data = std::move(data);
    record->inList = true;
    list->records.push_back(std::move(record));
  }
  return list;
}

template <typename Callback>
int registerCallback(Registration<Callback>& slot, Callback callback, void* userData) {
  if (library().initCount == 0)
    return TALVORO_CLOUD_ERROR_NOT_INITIALIZED;
  if (!callback)
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  slot = Registration<Callback>{callback, userData};
  return TALVORO_CLOUD_ERROR_NONE;
}

// The app may deinitialise inside its callback, which clears the slot: call from a copy.
bool callRequest(const Registration<talvoro_cloud_request_cb>& slot, const char* name) {
  const Registration<talvoro_cloud_request_cb> copy = slot;
  if (!copy.callback)
    return false;
  note(BoundaryEvent::Kind::kCloudCallback, name);
  copy.callback(copy.userData);
  return true;
}

bool callCompleted(const Registration<talvoro_cloud_completed_cb>& slot,
                   const char* name,
                   bool success) {
  const Registration<talvoro_cloud_completed_cb> copy = slot;
  if (!copy.callback)
    return false;
  note(BoundaryEvent::Kind::kCloudCallback, name, success);
  copy.callback(success, copy.userData);
  return true;
}

int setField(talvoro_cloud_record_h record,
             const char* text,
             std::optional<std::string> CloudRecord::*field) {
  if (!record || !text)
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  record->data.*field = std::string(text);
  return TALVORO_CLOUD_ERROR_NONE;
}

int getField(talvoro_cloud_record_h record,
             const char** text,
             std::optional<std::string> CloudRecord::*field) {
  if (!record || !text)
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  const std::optional<std::string>& value = record->data.*field;
  *text = value ? value->c_str() : nullptr;
  return TALVORO_CLOUD_ERROR_NONE;
}

}  // namespace

const char* answerName(Answer::Kind kind) {
  switch (kind) {
    case Answer::Kind::kBackupPreparation:
      return "backup preparation";
    case Answer::Kind::kKeysAndDates:
      return "keys and dates";
    case Answer::Kind::kBackupPath:
      return "backup path";
    case Answer::Kind::kRestorePreparation:
      return "restore preparation";
    case Answer::Kind::kRestorationPath:
      return "restoration path";
    case Answer::Kind::kRecordList:
      return "record list";
  }
  return "?";
}

bool initialized() {
  return library().initCount > 0;
}

bool callBackupPreparation() {
  return callRequest(library().backupPreparation, "backup preparation");
}

bool callBackupKeysAndDates() {
  return callRequest(library().keysAndDates, "keys and dates");
}

bool callBackupRecords(const std::vector<CloudRecord>& records) {
  const Registration<talvoro_cloud_backup_record_cb> copy = library().backupRecords;
  if (!copy.callback)
    return false;
  note(BoundaryEvent::Kind::kCloudCallback, "backup records");
  copy.callback(newList(records), copy.userData);
  return true;
}

bool callBackupRecordsWithoutList() {
  const Registration<talvoro_cloud_backup_record_cb> copy = library().backupRecords;
  if (!copy.callback)
    return false;
  note(BoundaryEvent::Kind::kCloudCallback, "backup records");
  copy.callback(nullptr, copy.userData);
  return true;
}

bool callBackupCompleted(bool success) {
  return callCompleted(library().backupCompleted, "backup completed", success);
}

bool callRestorePreparation() {
  return callRequest(library().restorePreparation, "restore preparation");
}

bool callRestorationPath() {
  return callRequest(library().restorationPath, "restoration path");
}

bool callRestoration(const std::string& path) {
  const Registration<talvoro_cloud_restoration_cb> copy = library().restoration;
  if (!copy.callback)
    return false;
  note(BoundaryEvent::Kind::kCloudCallback, "restoration");
  copy.callback(path.c_str(), copy.userData);
  return true;
}

bool callRestoreCompleted(bool success) {
  return callCompleted(library().restoreCompleted, "restore completed", success);
}

bool backupRecordCallbackRegistered() {
  return library().backupRecords.callback != nullptr;
}

const std::vector<Answer>& answers() {
  return library().answers;
}

std::vector<Answer> takeAnswers() {
  std::vector<Answer> taken;
  taken.swap(library().answers);
  return taken;
}

void setAnswerListener(std::function<void(const Answer&)> listener) {
  library().listener = std::move(listener);
}

void setInitializeFailure(int code) {
  library().initFailure = code;
}

void failOperation(const std::string& operation, int code, int times) {
  library().failures[operation] = Failure{code, times};
}

void reset() {
  Library& lib = library();
  forgetCallbacks();
  lib.initCount = 0;
  lib.initFailure = 0;
  lib.answers.clear();
  lib.listener = nullptr;
  lib.failures.clear();
  freeFileLists();
}

int liveLists() {
  return g_liveLists;
}

int liveRecords() {
  return g_liveRecords;
}

}  // namespace cloud
}  // namespace host

using host::cloud::Answer;
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
  ++library().initCount;
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_deinitialize(void) {
  TALVORO_INJECTED_FAILURE();
  if (library().initCount == 0)
    return TALVORO_CLOUD_ERROR_NOT_INITIALIZED;
  if (--library().initCount == 0) {
    host::cloud::forgetCallbacks();
    host::cloud::freeFileLists();
  }
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_backup_record_set_preparation_cb(talvoro_cloud_request_cb callback,
                                                   void* user_data) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::registerCallback(library().backupPreparation, callback, user_data);
}

int talvoro_cloud_backup_record_set_sending_keys_and_dates_cb(talvoro_cloud_request_cb callback,
                                                              void* user_data) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::registerCallback(library().keysAndDates, callback, user_data);
}

int talvoro_cloud_backup_record_set_backup_cb(talvoro_cloud_backup_record_cb callback,
                                              void* user_data) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::registerCallback(library().backupRecords, callback, user_data);
}

int talvoro_cloud_backup_record_set_completed_cb(talvoro_cloud_completed_cb callback,
                                                 void* user_data) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::registerCallback(library().backupCompleted, callback, user_data);
}

int talvoro_cloud_backup_record_send_preparation_completed_response(bool success) {
  TALVORO_INJECTED_FAILURE();
  if (!host::cloud::initialized())
    return TALVORO_CLOUD_ERROR_NOT_INITIALIZED;
  Answer answer{Answer::Kind::kBackupPreparation, success, {}, std::nullopt, false};
  host::cloud::deliver(std::move(answer));
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_backup_record_send_keys_and_dates(talvoro_cloud_list_h list, bool success) {
  TALVORO_INJECTED_FAILURE();
  if (!host::cloud::initialized())
    return TALVORO_CLOUD_ERROR_NOT_INITIALIZED;
  if (!list)
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  Answer answer{Answer::Kind::kKeysAndDates, success, host::cloud::copyRecords(*list), std::nullopt,
                true};
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
                false};
  host::cloud::deliver(std::move(answer));
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_restore_record_set_preparation_cb(talvoro_cloud_request_cb callback,
                                                    void* user_data) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::registerCallback(library().restorePreparation, callback, user_data);
}

int talvoro_cloud_restore_record_set_sending_restoration_path_cb(talvoro_cloud_request_cb callback,
                                                                 void* user_data) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::registerCallback(library().restorationPath, callback, user_data);
}

int talvoro_cloud_restore_record_set_restoration_cb(talvoro_cloud_restoration_cb callback,
                                                    void* user_data) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::registerCallback(library().restoration, callback, user_data);
}

int talvoro_cloud_restore_record_set_completed_cb(talvoro_cloud_completed_cb callback,
                                                  void* user_data) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::registerCallback(library().restoreCompleted, callback, user_data);
}

int talvoro_cloud_restore_record_send_preparation_completed_response(bool success) {
  TALVORO_INJECTED_FAILURE();
  if (!host::cloud::initialized())
    return TALVORO_CLOUD_ERROR_NOT_INITIALIZED;
  Answer answer{Answer::Kind::kRestorePreparation, success, {}, std::nullopt, false};
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
                false};
  host::cloud::deliver(std::move(answer));
  return TALVORO_CLOUD_ERROR_NONE;
}

int talvoro_cloud_restore_record_send_record_list(talvoro_cloud_list_h list, bool success) {
  std::unique_ptr<talvoro_cloud_list_s> owned(list);
  library().fileLists.erase(list);
  TALVORO_INJECTED_FAILURE();
  if (!host::cloud::initialized())
    return TALVORO_CLOUD_ERROR_NOT_INITIALIZED;
  Answer answer{Answer::Kind::kRecordList, success,
                owned ? host::cloud::takeRecords(*owned) : std::vector<host::CloudRecord>(),
                std::nullopt, owned != nullptr};
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
  return host::cloud::setField(record, key, &host::CloudRecord::key);
}

int talvoro_cloud_record_set_date(talvoro_cloud_record_h record, const char* date) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::setField(record, date, &host::CloudRecord::date);
}

int talvoro_cloud_record_set_value(talvoro_cloud_record_h record, const char* value) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::setField(record, value, &host::CloudRecord::value);
}

int talvoro_cloud_record_get_key(talvoro_cloud_record_h record, const char** key) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::getField(record, key, &host::CloudRecord::key);
}

int talvoro_cloud_record_get_date(talvoro_cloud_record_h record, const char** date) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::getField(record, date, &host::CloudRecord::date);
}

int talvoro_cloud_record_get_value(talvoro_cloud_record_h record, const char** value) {
  TALVORO_INJECTED_FAILURE();
  return host::cloud::getField(record, value, &host::CloudRecord::value);
}

int talvoro_cloud_file_create_file(talvoro_cloud_list_h list, const char* path) {
  TALVORO_INJECTED_FAILURE();
  if (!list || !path || path[0] == '\0')
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  std::string reason;
  host::RecordRefs records;
  for (const auto& record : list->records)
    records.push_back(&record->data);
  if (!host::writeRecordFile(path, records, reason)) {
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
  std::string reason;
  bool corrupt = false;
  if (!host::readRecordFile(path, records, reason, &corrupt))
    return corrupt ? TALVORO_CLOUD_ERROR_FILE_CORRUPT : TALVORO_CLOUD_ERROR_IO_ERROR;
  *list = host::cloud::newList(std::move(records));
  library().fileLists.insert(*list);
  return TALVORO_CLOUD_ERROR_NONE;
}

}  // extern "C"
