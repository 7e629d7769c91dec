// The emulated cloud library's state, shared by its C API (talvoro_cloud.cpp) and the backup
// app's side of it (CloudLibrary.cpp). Internal to the host platform.
#ifndef HOST_CLOUD_LIBRARY_STATE_H
#define HOST_CLOUD_LIBRARY_STATE_H

#include <talvoro_cloud.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/CloudLibrary.h"
#include "host/Personality.h"

struct talvoro_cloud_record_s {
  talvoro_cloud_record_s();
  ~talvoro_cloud_record_s();
  talvoro_cloud_record_s(const talvoro_cloud_record_s&) = delete;
  talvoro_cloud_record_s& operator=(const talvoro_cloud_record_s&) = delete;

  host::CloudRecord data;
  // The value's CRC-32, from the copy that set it or the record file that gave it.
  std::optional<uint32_t> valueCrc;
  bool inList = false;
};

struct talvoro_cloud_list_s {
  talvoro_cloud_list_s();
  ~talvoro_cloud_list_s();
  talvoro_cloud_list_s(const talvoro_cloud_list_s&) = delete;
  talvoro_cloud_list_s& operator=(const talvoro_cloud_list_s&) = delete;

  std::vector<std::unique_ptr<talvoro_cloud_record_s>> records;
  size_t cursor = 0;  // records.size(): past the end
};

namespace host {
namespace cloud {

template <typename Callback>
struct Registration {
  Callback callback = nullptr;
  void* userData = nullptr;
};

// One kind of exchange (backup or restore). It belongs to the first registrant's user data from
// its first registration until its completion is delivered or the library is deinitialised.
// Meanwhile a registration with other user data is refused, or, under the "replace"
// personality, takes the slot it names over; no slot outlives its exchange.
struct ExchangeSlots {
  void* owner = nullptr;
  Registration<talvoro_cloud_request_cb> preparation;
  Registration<talvoro_cloud_request_cb> request;  // keys and dates, or the restoration path
  Registration<talvoro_cloud_backup_record_cb> backupRecords;
  Registration<talvoro_cloud_restoration_cb> restoration;
  Registration<talvoro_cloud_completed_cb> completed;
};

struct Failure {
  int code;
  int times;
};

struct Library {
  int initCount = 0;
  int initFailure = 0;
  ExchangeSlots backup;
  ExchangeSlots restore;
  std::vector<Answer> answers;
  std::function<void(const Answer&)> listener;
  std::map<std::string, Failure> failures;
  // Lists read from record files that nobody has sent back or destroyed yet: the library
  // frees them at the last deinitialise, as an app answering with a NULL list never does.
  std::set<talvoro_cloud_list_s*> fileLists;
  int liveLists = 0;
  int liveRecords = 0;
};

Library& library();

// The running platform's personality, or the default one without a platform.
const Personality& personality();

// The code a test injected for the C call `operation`, or 0.
int injectedFailure(const char* operation);

template <typename Callback>
int registerCallback(ExchangeSlots& exchange,
                     Registration<Callback>& slot,
                     Callback callback,
                     void* userData) {
  if (library().initCount == 0)
    return TALVORO_CLOUD_ERROR_NOT_INITIALIZED;
  if (!callback)
    return TALVORO_CLOUD_ERROR_INVALID_PARAMETER;
  if (exchange.owner && exchange.owner != userData &&
      personality().cloudRegistration == Personality::CloudRegistration::kRefuse)
    return TALVORO_CLOUD_ERROR_INVALID_STATE;
  exchange.owner = userData;
  slot = Registration<Callback>{callback, userData};
  return TALVORO_CLOUD_ERROR_NONE;
}

// Every slot of both exchanges and every list read from a file, at the last deinitialise.
void forgetEverything();

// Hands an answer of the app to the listener, later on the loop, or keeps it in answers().
void deliver(Answer answer);

std::vector<CloudRecord> copyRecords(const talvoro_cloud_list_s& list);
// For a list the library owns and is about to free.
// The records' data, moved out, and what is known of their values' CRC-32 (see Answer).
std::vector<CloudRecord> takeRecords(talvoro_cloud_list_s& list,
                                     std::vector<std::optional<uint32_t>>* valueCrcs = nullptr);
// `valueCrcs`, when given, holds each record's value CRC-32 as read from a record file.
talvoro_cloud_list_s* newList(std::vector<CloudRecord> records,
                              const std::vector<uint32_t>* valueCrcs = nullptr);

}  // namespace cloud
}  // namespace host

#endif
