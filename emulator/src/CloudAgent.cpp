#include "emu/CloudAgent.h"

#include <glib.h>
#include <time.h>

#include <algorithm>
#include <cstdlib>
#include <optional>

#include "MvText.h"
#include "MvWatchNames.h"
#include "emu/EmuLog.h"
#include "emu/FaultSwitches.h"
#include "emu/OutsideText.h"
#include "launcher/LaunchOptions.h"

namespace emu {

using host::CloudRecord;
using host::cloud::Answer;

namespace {

// The vendor's app gives up on an answer after this long.
const unsigned kAnswerTimeoutMs = 10000;
// How far a record's date may be from the agent's clock and still count as "now".
const long long kDateSlackSeconds = 24 * 60 * 60;

bool parseDecimal(const std::optional<std::string>& text, long long& value) {
  if (!text || text->empty() || text->size() > 18)
    return false;
  for (char c : *text) {
    if (!g_ascii_isdigit(c))
      return false;
  }
  value = std::strtoll(text->c_str(), nullptr, 10);
  return true;
}

bool isRecentMilliseconds(const std::optional<std::string>& date) {
  long long value = 0;
  const long long now = g_get_real_time() / 1000;
  return parseDecimal(date, value) && std::llabs(value - now) <= kDateSlackSeconds * 1000;
}

bool isRecentSeconds(const std::optional<std::string>& date) {
  long long value = 0;
  const long long now = static_cast<long long>(time(nullptr));
  return parseDecimal(date, value) && std::llabs(value - now) <= kDateSlackSeconds;
}

std::string shown(const std::optional<std::string>& text) {
  return text ? "\"" + *text + "\"" : std::string("(none)");
}

// `knownCrc`: the value's CRC-32 when the library knows it without reading the value again.
bool sameValue(const CloudRecord& record,
               std::optional<uint32_t> knownCrc,
               const host::RecordOutline& outline) {
  if (!record.value || !outline.valueBytes)
    return !record.value && !outline.valueBytes;
  return record.value->size() == *outline.valueBytes &&
         (knownCrc ? *knownCrc : host::valueCrc(*record.value)) == outline.valueCrc;
}

std::string records(size_t count) {
  return std::to_string(count) + (count == 1 ? " record" : " records");
}

}  // namespace

struct CloudAgent::Exchange {
  enum class Type { kBackup, kInfo, kRestore };
  enum class Outcome { kRunning, kSucceeded, kFailed, kRefused, kSuperseded };

  Type type;
  unsigned launchId;
  const char* step = "prepare";
  bool done = false;
  Outcome outcome = Outcome::kRunning;
  std::string detail;  // what it did, or why it failed
  std::optional<Answer::Kind> awaiting;
  AnswerStep next = nullptr;
  unsigned awaitCount = 0;
  std::vector<CloudRecord> declared;
  // The service's record file, checked; it is copied into the cloud as it is.
  std::string uploadedPath;
  size_t uploadedRecords = 0;
  size_t uploadedBytes = 0;
  std::string restorePath;
  // The set stored by a backup, or read by a restore; 0 for none.
  unsigned long long setId = 0;
  // A restore's downloaded records, by outline: the service must send the values back unchanged.
  std::vector<host::RecordOutline> downloaded;

  bool completes(bool success) const {
    return type == Type::kRestore ? host::cloud::callRestoreCompleted(success)
                                  : host::cloud::callBackupCompleted(success);
  }
};

CloudAgent::CloudAgent(host::Platform& platform,
                       std::string cloudDir,
                       const std::map<std::string, std::string>& faults,
                       std::vector<std::string> operations)
    : platform_(platform),
      store_(std::move(cloudDir)),
      failStep_(faultValue(faults, "cloud-fail")),
      delayMs_(static_cast<unsigned>(
          std::strtoul(faultValue(faults, "cloud-delay", "0").c_str(), nullptr, 10))),
      completeEarly_(!faultValue(faults, "cloud-complete-early").empty()),
      operations_(std::move(operations)),
      previousHandler_(platform.launcherReplyHandler()) {
  // Both carry `this`: registrations undone in the destructor.
  platform_.setLauncherReplyHandler(
      [this](unsigned launchId, const host::KeyValues& extras, app_control_result_e result) {
        if (previousHandler_)
          previousHandler_(launchId, extras, result);
        onLaunchReply(launchId, result);
      });
  host::cloud::setAnswerListener([this](const Answer& answer) { onAnswer(answer); });
}

CloudAgent::~CloudAgent() {
  host::cloud::setAnswerListener(nullptr);
  platform_.setLauncherReplyHandler(previousHandler_);
}

bool CloudAgent::idle() const {
  for (const auto& exchange : exchanges_) {
    if (!exchange->done)
      return false;
  }
  return true;
}

std::vector<unsigned long long> CloudAgent::sets(bool restored) const {
  std::vector<unsigned long long> ids;
  for (const auto& exchange : exchanges_) {
    const bool isRestore = exchange->type == Exchange::Type::kRestore;
    if (exchange->outcome == Exchange::Outcome::kSucceeded && exchange->setId != 0 &&
        isRestore == restored)
      ids.push_back(exchange->setId);
  }
  return ids;
}

void CloudAgent::report(launcher::RunReport& report, const DescribeSet& describeSet) const {
  JsonArray* list = json_array_new();
  for (size_t i = 0; i < operations_.size(); ++i) {
    const unsigned launchId = static_cast<unsigned>(i + 1);
    const char* type = typeName(operations_[i]);
    if (!type)
      continue;
    const std::string who = "request " + std::to_string(launchId) + ", " + type + ": ";
    JsonObject* entry = json_object_new();
    json_object_set_int_member(entry, "request", launchId);
    json_object_set_string_member(entry, "type", type);
    auto exchange =
        std::find_if(exchanges_.begin(), exchanges_.end(),
                     [launchId](const auto& held) { return held->launchId == launchId; });
    if (exchange == exchanges_.end()) {
      const bool wasDelivered = delivered(launchId);
      // Unanswered, the request waited on a flow the run ended first: say how it ended.
      const bool exited =
          !platform_.record().ofKind(host::BoundaryEvent::Kind::kExitRequested).empty();
      const std::string why =
          !wasDelivered ? "not delivered: the run had ended"
          : exited      ? "the service never answered the launch request: it ended first"
                        : "the service never answered the launch request before the run was cut "
                          "short";
      report.failure("cloud", who + why);
      json_object_set_string_member(entry, "outcome", wasDelivered ? "unanswered" : "undelivered");
      json_object_set_string_member(entry, "detail", why.c_str());
      json_array_add_object_element(list, entry);
      continue;
    }
    const Exchange& held = **exchange;
    std::string outcome;
    switch (held.outcome) {
      case Exchange::Outcome::kSucceeded:
        outcome = "succeeded";
        report.line("cloud", who + held.detail);
        break;
      case Exchange::Outcome::kSuperseded:
        outcome = "superseded";
        report.line("cloud", who + held.detail);
        break;
      case Exchange::Outcome::kRefused:
        outcome = "refused";
        report.failure("cloud", who + held.detail);
        break;
      case Exchange::Outcome::kFailed:
        outcome = "failed";
        report.failure("cloud", who + "FAILED at " + held.step + ": " + held.detail);
        break;
      case Exchange::Outcome::kRunning:
        outcome = "unfinished";
        report.failure("cloud", who + "UNFINISHED at " + held.step +
                                    (held.awaiting ? std::string(", waiting for the ") +
                                                         host::cloud::answerName(*held.awaiting)
                                                   : std::string()));
        break;
    }
    json_object_set_string_member(entry, "outcome", outcome.c_str());
    json_object_set_string_member(entry, "step", held.step);
    mvJsonSetText(entry, "detail", held.detail);
    if (held.setId != 0)
      json_object_set_int_member(entry, "set", static_cast<gint64>(held.setId));
    if (held.type == Exchange::Type::kBackup && held.uploadedRecords > 0) {
      json_object_set_int_member(entry, "records", static_cast<gint64>(held.uploadedRecords));
      json_object_set_int_member(entry, "value_bytes", static_cast<gint64>(held.uploadedBytes));
    }
    json_array_add_object_element(list, entry);
    // Described at the end, not while the exchange ran: a document can take as long to parse
    // as the backup took, and the end of the run reads each set once for every check.
    if (held.type == Exchange::Type::kBackup && held.setId != 0 && describeSet)
      report.line("cloud", who + "document: " + describeSet(held.setId));
  }
  JsonNode* node = json_node_new(JSON_NODE_ARRAY);
  json_node_take_array(node, list);
  report.set("exchanges", node);
}

bool CloudAgent::delivered(unsigned launchId) const {
  for (const host::BoundaryEvent& event :
       platform_.record().ofKind(host::BoundaryEvent::Kind::kLaunchRequest)) {
    if (event.launchId == launchId)
      return true;
  }
  return false;
}

const char* CloudAgent::typeName(const std::string& operation) {
  if (operation == MV_OPERATION_BACKUP)
    return "backup";
  if (operation == MV_OPERATION_GET_BACKUP_INFO)
    return "backup information";
  if (operation == MV_OPERATION_RESTORE)
    return "restore";
  return nullptr;
}

void CloudAgent::onLaunchReply(unsigned launchId, app_control_result_e result) {
  if (launchId == 0 || launchId > operations_.size())
    return;
  const char* type = typeName(operations_[launchId - 1]);
  if (!type)
    return;
  exchanges_.push_back(std::make_unique<Exchange>());
  Exchange* exchange = exchanges_.back().get();
  exchange->launchId = launchId;
  exchange->type = std::string(type) == "backup"    ? Exchange::Type::kBackup
                   : std::string(type) == "restore" ? Exchange::Type::kRestore
                                                    : Exchange::Type::kInfo;
  host::logInfo(emu::kLogTagCloud, "request %u: %s answered with result %d", launchId, type,
                static_cast<int>(result));
  if (result != APP_CONTROL_RESULT_SUCCEEDED) {
    exchange->done = true;
    const bool canceled = result == APP_CONTROL_RESULT_CANCELED;
    exchange->outcome = canceled ? Exchange::Outcome::kSuperseded : Exchange::Outcome::kRefused;
    exchange->detail = canceled ? "superseded: the service answered the launch request as canceled"
                                : "refused: the service answered the launch request with failure";
    return;
  }
  schedule(*exchange, exchange->type == Exchange::Type::kRestore ? &CloudAgent::restorePrepare
                                                                 : &CloudAgent::backupPrepare);
}

void CloudAgent::onAnswer(const Answer& answer) {
  for (const auto& exchange : exchanges_) {
    if (exchange->done || exchange->awaiting != answer.kind)
      continue;
    exchange->awaiting.reset();
    (this->*exchange->next)(*exchange, answer);
    return;
  }
}

void CloudAgent::schedule(Exchange& exchange, Step step) {
  auto next = liveness_.whileAlive([this, &exchange, step] {
    if (!exchange.done)
      (this->*step)(exchange);
  });
  platform_.post(std::move(next), delayMs_);
}

void CloudAgent::await(Exchange& exchange, Answer::Kind kind, AnswerStep next) {
  exchange.awaiting = kind;
  exchange.next = next;
  const unsigned awaitCount = ++exchange.awaitCount;
  auto timeout = liveness_.whileAlive([this, &exchange, awaitCount, kind] {
    if (!exchange.done && exchange.awaitCount == awaitCount && exchange.awaiting)
      fail(exchange, std::string("no ") + host::cloud::answerName(kind) + " within " +
                         std::to_string(kAnswerTimeoutMs / 1000) + " s");
  });
  platform_.post(std::move(timeout), kAnswerTimeoutMs);
}

bool CloudAgent::faulted(Exchange& exchange, const char* step) {
  exchange.step = step;
  host::logInfo(emu::kLogTagCloud, "request %u: step %s", exchange.launchId, step);
  if (failStep_ != step)
    return false;
  fail(exchange, std::string("cloud-fail=") + step);
  return true;
}

void CloudAgent::fail(Exchange& exchange, const std::string& reason) {
  if (exchange.done)
    return;
  exchange.done = true;
  exchange.awaiting.reset();
  exchange.outcome = Exchange::Outcome::kFailed;
  exchange.detail = reason;
  host::logError(emu::kLogTagCloud, "request %u: %s failed at %s: %s", exchange.launchId,
                 typeName(operations_[exchange.launchId - 1]), exchange.step, reason.c_str());
  if (!exchange.completes(false))
    exchange.detail += " (no completion callback to tell)";
}

void CloudAgent::succeed(Exchange& exchange, const std::string& outcome) {
  exchange.done = true;
  if (!exchange.completes(true)) {
    exchange.outcome = Exchange::Outcome::kFailed;
    exchange.detail = "the service registered no completion callback";
    return;
  }
  exchange.outcome = Exchange::Outcome::kSucceeded;
  exchange.detail = outcome;
  host::logInfo(emu::kLogTagCloud, "request %u: %s done: %s", exchange.launchId,
                typeName(operations_[exchange.launchId - 1]), outcome.c_str());
}

void CloudAgent::backupPrepare(Exchange& exchange) {
  if (faulted(exchange, "prepare"))
    return;
  if (!host::cloud::callBackupPreparation()) {
    fail(exchange, "the service registered no preparation callback");
    return;
  }
  await(exchange, Answer::Kind::kBackupPreparation, &CloudAgent::backupPrepared);
}

void CloudAgent::backupPrepared(Exchange& exchange, const Answer& answer) {
  if (!answer.success) {
    fail(exchange, "the service's preparation failed");
    return;
  }
  schedule(exchange, &CloudAgent::backupKeys);
}

void CloudAgent::backupKeys(Exchange& exchange) {
  if (faulted(exchange, "keys"))
    return;
  if (!host::cloud::callBackupKeysAndDates()) {
    fail(exchange, "the service registered no keys-and-dates callback");
    return;
  }
  await(exchange, Answer::Kind::kKeysAndDates, &CloudAgent::backupKeysGiven);
}

void CloudAgent::backupKeysGiven(Exchange& exchange, const Answer& answer) {
  if (!answer.success || answer.records.empty()) {
    fail(exchange, "the service declared no records (" + records(answer.records.size()) +
                       (answer.success ? ")" : ", failed)"));
    return;
  }
  for (const CloudRecord& record : answer.records) {
    if (!record.key || record.key->empty() || !isRecentMilliseconds(record.date)) {
      fail(exchange, "a declared record has key " + shown(record.key) + " and date " +
                         shown(record.date) + ", not a key and the time in milliseconds");
      return;
    }
  }
  exchange.declared = answer.records;
  schedule(exchange, exchange.type == Exchange::Type::kBackup ? &CloudAgent::backupUpload
                                                              : &CloudAgent::backupComplete);
}

void CloudAgent::backupUpload(Exchange& exchange) {
  if (faulted(exchange, "upload"))
    return;
  if (!host::cloud::callBackupRecords(exchange.declared)) {
    fail(exchange, "the service registered no record callback");
    return;
  }
  await(exchange, Answer::Kind::kBackupPath, &CloudAgent::backupPathGiven);
}

void CloudAgent::backupPathGiven(Exchange& exchange, const Answer& answer) {
  if (!answer.success || !answer.path || answer.path->empty()) {
    fail(exchange, "the service gave no record file (path " + shown(answer.path) + ")");
    return;
  }
  std::vector<host::RecordOutline> uploaded;
  std::string error;
  if (!host::outlineRecordFile(*answer.path, uploaded, error)) {
    fail(exchange, error);
    return;
  }
  if (uploaded.size() > kMaxSetRecords) {
    fail(exchange, "the record file holds " + records(uploaded.size()) + ", more than the " +
                       std::to_string(kMaxSetRecords) + " the cloud keeps in a set");
    return;
  }
  if (uploaded.size() != exchange.declared.size()) {
    fail(exchange, "the record file holds " + records(uploaded.size()) + ", " +
                       std::to_string(exchange.declared.size()) + " were declared");
    return;
  }
  for (size_t i = 0; i < uploaded.size(); ++i) {
    if (uploaded[i].key != exchange.declared[i].key ||
        uploaded[i].date != exchange.declared[i].date || uploaded[i].valueBytes.value_or(0) == 0) {
      fail(exchange, "record " + std::to_string(i) +
                         " of the record file is not the declared "
                         "record with a value");
      return;
    }
  }
  exchange.uploadedPath = *answer.path;
  exchange.uploadedRecords = uploaded.size();
  for (const host::RecordOutline& record : uploaded)
    exchange.uploadedBytes += *record.valueBytes;
  schedule(exchange, &CloudAgent::backupComplete);
}

void CloudAgent::backupComplete(Exchange& exchange) {
  if (faulted(exchange, "complete"))
    return;
  if (exchange.type == Exchange::Type::kInfo) {
    succeed(exchange, records(exchange.declared.size()) + " declared, nothing stored");
    return;
  }
  std::string error;
  unsigned long long id = 0;
  if (!store_.addCopyOf(exchange.uploadedPath, id, error)) {
    fail(exchange, error);
    return;
  }
  exchange.setId = id;
  succeed(exchange, "stored as set " + std::to_string(id) + " (" +
                        records(exchange.uploadedRecords) + ", " +
                        std::to_string(exchange.uploadedBytes) + " bytes of value)");
}

void CloudAgent::restorePrepare(Exchange& exchange) {
  if (faulted(exchange, "prepare"))
    return;
  if (!host::cloud::callRestorePreparation()) {
    fail(exchange, "the service registered no preparation callback");
    return;
  }
  await(exchange, Answer::Kind::kRestorePreparation, &CloudAgent::restorePrepared);
}

void CloudAgent::restorePrepared(Exchange& exchange, const Answer& answer) {
  if (!answer.success) {
    fail(exchange, "the service's preparation failed");
    return;
  }
  schedule(exchange, &CloudAgent::restorePath);
}

void CloudAgent::restorePath(Exchange& exchange) {
  exchange.step = "path";
  host::logInfo(emu::kLogTagCloud, "request %u: step path", exchange.launchId);
  if (!host::cloud::callRestorationPath()) {
    fail(exchange, "the service registered no restoration path callback");
    return;
  }
  await(exchange, Answer::Kind::kRestorationPath, &CloudAgent::restorePathGiven);
}

void CloudAgent::restorePathGiven(Exchange& exchange, const Answer& answer) {
  if (!answer.success || !answer.path || answer.path->empty()) {
    fail(exchange, "the service gave no restoration path (" + shown(answer.path) + ")");
    return;
  }
  exchange.restorePath = *answer.path;
  schedule(exchange, &CloudAgent::restoreDownload);
}

void CloudAgent::restoreDownload(Exchange& exchange) {
  if (faulted(exchange, "download"))
    return;
  std::vector<unsigned long long> ids;
  std::string error;
  if (!store_.list(ids, error)) {
    fail(exchange, error);
    return;
  }
  auto chosen = chosenSets_.find(exchange.launchId);
  if (chosen != chosenSets_.end()) {
    if (std::find(ids.begin(), ids.end(), chosen->second) == ids.end()) {
      fail(exchange, "the cloud has no set " + std::to_string(chosen->second));
      return;
    }
    exchange.setId = chosen->second;
  } else if (ids.empty()) {
    succeed(exchange, "the cloud holds no backup set, nothing restored");
    return;
  } else {
    exchange.setId = ids.back();
  }
  if (!store_.outline(exchange.setId, exchange.downloaded, error)) {
    fail(exchange, error);
    return;
  }
  if (exchange.downloaded.size() > kMaxSetRecords) {
    fail(exchange, "set " + std::to_string(exchange.setId) + " holds " +
                       records(exchange.downloaded.size()) + ", more than the " +
                       std::to_string(kMaxSetRecords) + " the cloud hands out");
    return;
  }
  if (!host::shareRecordFile(store_.setPath(exchange.setId), exchange.restorePath, error)) {
    fail(exchange, error);
    return;
  }
  schedule(exchange, &CloudAgent::restoreRestoration);
}

void CloudAgent::restoreRestoration(Exchange& exchange) {
  exchange.step = "restore";
  host::logInfo(emu::kLogTagCloud, "request %u: step restore", exchange.launchId);
  if (completeEarly_) {
    // Due while the service still restores, if it waits on the store by then.
    platform_.post(
        liveness_.whileAlive([this, &exchange] { fail(exchange, "cloud-complete-early"); }), 1);
  }
  if (!host::cloud::callRestoration(exchange.restorePath)) {
    fail(exchange, "the service registered no restoration callback");
    return;
  }
  await(exchange, Answer::Kind::kRecordList, &CloudAgent::restoreListGiven);
}

void CloudAgent::restoreListGiven(Exchange& exchange, const Answer& answer) {
  if (!answer.success || !answer.hadList) {
    fail(exchange, "the service sent no record list back");
    return;
  }
  if (answer.records.size() != exchange.downloaded.size()) {
    fail(exchange, "the service sent " + records(answer.records.size()) + " back, the set has " +
                       std::to_string(exchange.downloaded.size()));
    return;
  }
  for (size_t i = 0; i < answer.records.size(); ++i) {
    const CloudRecord& record = answer.records[i];
    if (record.key != std::optional<std::string>(MV_RECORD_KEY) || !isRecentSeconds(record.date) ||
        !sameValue(record, i < answer.valueCrcs.size() ? answer.valueCrcs[i] : std::nullopt,
                   exchange.downloaded[i])) {
      fail(exchange, "record " + std::to_string(i) + " came back with key " + shown(record.key) +
                         " and date " + shown(record.date) +
                         ", not key \"key\" and the time in seconds with its value");
      return;
    }
  }
  schedule(exchange, &CloudAgent::restoreComplete);
}

void CloudAgent::restoreComplete(Exchange& exchange) {
  if (faulted(exchange, "complete"))
    return;
  succeed(exchange, "set " + std::to_string(exchange.setId) + ": " +
                        records(exchange.downloaded.size()) + " restored");
}

}  // namespace emu
