// The backup app's side of the emulated cloud library, and the state its C API shares.
#include "host/CloudLibrary.h"

#include "CloudLibraryState.h"
#include "host/Platform.h"

talvoro_cloud_record_s::talvoro_cloud_record_s() {
  ++host::cloud::library().liveRecords;
}

talvoro_cloud_record_s::~talvoro_cloud_record_s() {
  --host::cloud::library().liveRecords;
}

talvoro_cloud_list_s::talvoro_cloud_list_s() {
  ++host::cloud::library().liveLists;
}

talvoro_cloud_list_s::~talvoro_cloud_list_s() {
  --host::cloud::library().liveLists;
}

namespace host {
namespace cloud {

namespace {

// A crossing of the library boundary, in the running platform's record.
void note(BoundaryEvent::Kind kind, const char* name, bool success = true) {
  if (Platform* platform = Platform::current())
    platform->addEvent(kind, std::string(), name, {}, success ? 1 : 0);
}

void freeFileLists() {
  std::set<talvoro_cloud_list_s*> lists;
  lists.swap(library().fileLists);
  for (talvoro_cloud_list_s* list : lists)
    delete list;
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

// The exchange ends with its completion: its slots go before the app hears of it.
bool callCompleted(ExchangeSlots& exchange, const char* name, bool success) {
  const Registration<talvoro_cloud_completed_cb> copy = exchange.completed;
  if (!copy.callback)
    return false;
  exchange = ExchangeSlots();
  note(BoundaryEvent::Kind::kCloudCallback, name, success);
  copy.callback(success, copy.userData);
  return true;
}

}  // namespace

Library& library() {
  static Library instance;
  return instance;
}

const Personality& personality() {
  static const Personality fallback;
  Platform* platform = Platform::current();
  return platform ? platform->personality() : fallback;
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

void forgetEverything() {
  library().backup = ExchangeSlots();
  library().restore = ExchangeSlots();
  freeFileLists();
}

void deliver(Answer answer) {
  note(BoundaryEvent::Kind::kCloudAnswer, answerName(answer.kind), answer.success);
  Platform* platform = Platform::current();
  if (!platform || !library().listener) {
    library().answers.push_back(std::move(answer));
    return;
  }
  // Shared, not copied: a record list holds whole backup documents. The backup app is another
  // app: an answer reaches it even when the service ends first.
  auto shared = std::make_shared<const Answer>(std::move(answer));
  platform->postToPeer(
      [shared] {
        if (library().listener)
          library().listener(*shared);
      },
      "cloud-answers");
}

std::vector<CloudRecord> copyRecords(const talvoro_cloud_list_s& list) {
  std::vector<CloudRecord> records;
  for (const auto& record : list.records)
    records.push_back(record->data);
  return records;
}

std::vector<CloudRecord> takeRecords(talvoro_cloud_list_s& list,
                                     std::vector<std::optional<uint32_t>>* valueCrcs) {
  std::vector<CloudRecord> records;
  for (const auto& record : list.records) {
    records.push_back(std::move(record->data));
    if (valueCrcs)
      valueCrcs->push_back(record->valueCrc);
  }
  return records;
}

talvoro_cloud_list_s* newList(std::vector<CloudRecord> records,
                              const std::vector<uint32_t>* valueCrcs) {
  auto* list = new talvoro_cloud_list_s;
  for (size_t i = 0; i < records.size(); ++i) {
    auto record = std::make_unique<talvoro_cloud_record_s>();
    record->data = std::move(records[i]);
    if (valueCrcs && i < valueCrcs->size())
      record->valueCrc = (*valueCrcs)[i];
    record->inList = true;
    list->records.push_back(std::move(record));
  }
  return list;
}

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
  return callRequest(library().backup.preparation, "backup preparation");
}

bool callBackupKeysAndDates() {
  return callRequest(library().backup.request, "keys and dates");
}

bool callBackupRecords(const std::vector<CloudRecord>& records) {
  const Registration<talvoro_cloud_backup_record_cb> copy = library().backup.backupRecords;
  if (!copy.callback)
    return false;
  note(BoundaryEvent::Kind::kCloudCallback, "backup records");
  copy.callback(newList(records), copy.userData);
  return true;
}

bool callBackupRecordsWithoutList() {
  const Registration<talvoro_cloud_backup_record_cb> copy = library().backup.backupRecords;
  if (!copy.callback)
    return false;
  note(BoundaryEvent::Kind::kCloudCallback, "backup records");
  copy.callback(nullptr, copy.userData);
  return true;
}

bool callBackupCompleted(bool success) {
  return callCompleted(library().backup, "backup completed", success);
}

bool callRestorePreparation() {
  return callRequest(library().restore.preparation, "restore preparation");
}

bool callRestorationPath() {
  return callRequest(library().restore.request, "restoration path");
}

bool callRestoration(const std::string& path) {
  const Registration<talvoro_cloud_restoration_cb> copy = library().restore.restoration;
  if (!copy.callback)
    return false;
  note(BoundaryEvent::Kind::kCloudCallback, "restoration");
  copy.callback(path.c_str(), copy.userData);
  return true;
}

bool callRestoreCompleted(bool success) {
  return callCompleted(library().restore, "restore completed", success);
}

bool backupRecordCallbackRegistered() {
  return library().backup.backupRecords.callback != nullptr;
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
  forgetEverything();
  lib.initCount = 0;
  lib.initFailure = 0;
  lib.answers.clear();
  lib.listener = nullptr;
  lib.failures.clear();
}

int liveLists() {
  return library().liveLists;
}

int liveRecords() {
  return library().liveRecords;
}

}  // namespace cloud
}  // namespace host
