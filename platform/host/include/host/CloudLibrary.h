#ifndef HOST_CLOUD_LIBRARY_H
#define HOST_CLOUD_LIBRARY_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/RecordFile.h"

namespace host {

// The backup app's side of the cloud library (talvoro_cloud_*): what the emulated cloud agent
// and the tests use to drive an exchange. There is one library per process, as on the watch;
// main loop thread only.
namespace cloud {

// An answer the app gave through one of the talvoro_cloud_*_send_* calls, copied out of the
// handles it came with.
struct Answer {
  enum class Kind {
    kBackupPreparation,   // success
    kKeysAndDates,        // success, records
    kBackupPath,          // success, path (absent for NULL)
    kRestorePreparation,  // success
    kRestorationPath,     // success, path
    kRecordList,          // success, records, hadList (false for a NULL list)
  };
  Kind kind;
  bool success = false;
  std::vector<CloudRecord> records;
  std::optional<std::string> path;
  bool hadList = false;
  // For a record list: per record, its value's CRC-32 (as host::valueCrc gives it) when the
  // library knows it without reading the value again: it summed the value as it read the record
  // file or as it copied the value in.
  std::vector<std::optional<uint32_t>> valueCrcs;
};

const char* answerName(Answer::Kind kind);

bool initialized();

// Call the app's registered callback, with the user data it registered. Each returns false,
// calling nothing, when no such callback is registered. Call them from a posted task, never
// from inside one of the app's calls into the library.
bool callBackupPreparation();
bool callBackupKeysAndDates();
// Hands the app a new list holding `records`; the app owns and destroys it.
bool callBackupRecords(const std::vector<CloudRecord>& records);
// Hands the app a NULL list.
bool callBackupRecordsWithoutList();
bool callBackupCompleted(bool success);
bool callRestorePreparation();
bool callRestorationPath();
bool callRestoration(const std::string& path);
bool callRestoreCompleted(bool success);

bool backupRecordCallbackRegistered();

// Every answer that no listener took since the last takeAnswers() or reset(), in order.
const std::vector<Answer>& answers();
std::vector<Answer> takeAnswers();

// Takes each answer instead of answers(), called later from a task posted on the current
// host::Platform; cleared by reset(). Answers given while no platform exists are kept in
// answers().
void setAnswerListener(std::function<void(const Answer&)> listener);

// Test seams. Makes talvoro_cloud_initialize() fail with `code` (0: succeed again).
void setInitializeFailure(int code);
// Makes the talvoro_cloud_* call named `operation` return `code` without acting, the next
// `times` calls (negative: until reset()).
void failOperation(const std::string& operation, int code, int times = -1);
// Back to a fresh, uninitialised library: no callbacks, answers, listener or failures.
void reset();

// Lists and records alive now (lists count their records too), to prove releases.
int liveLists();
int liveRecords();

}  // namespace cloud

}  // namespace host

#endif
