#include "emu/CloudAgent.h"

#include <glib.h>
#include <json-glib/json-glib.h>
#include <time.h>

#include <cstdlib>
#include <optional>

#include "emu/FaultSwitches.h"
#include "host/LaunchOptions.h"

namespace emu {

using host::CloudRecord;
using host::cloud::Answer;

namespace {

// What a backup document holds, for the summary: faces, watch apps, downloaded apps, photos.
std::string describeDocument(const std::string& document) {
  g_autoptr(JsonParser) parser = json_parser_new();
  if (!json_parser_load_from_data(parser, document.data(), static_cast<gssize>(document.size()),
                                  nullptr))
    return "not a JSON document";
  JsonNode* root = json_parser_get_root(parser);
  if (!root || !JSON_NODE_HOLDS_OBJECT(root))
    return "not a JSON object";
  JsonObject* object = json_node_get_object(root);
  int faces = 0;
  int watchApps = 0;
  int downloaded = 0;
  int photos = 0;
  JsonNode* items = json_object_get_member(object, "watch_items");
  if (items && JSON_NODE_HOLDS_ARRAY(items)) {
    JsonArray* array = json_node_get_array(items);
    for (guint i = 0; i < json_array_get_length(array); ++i) {
      JsonNode* item = json_array_get_element(array, i);
      if (!JSON_NODE_HOLDS_OBJECT(item))
        continue;
      JsonObject* entry = json_node_get_object(item);
      const char* svcId = json_object_get_string_member_with_default(entry, "svcid", "");
      const char* result = json_object_get_string_member_with_default(entry, "result", "");
      if (g_strcmp0(result, "downloaded") == 0)
        ++downloaded;
      else if (g_strcmp0(svcId, "com.talvoro.watchface-service") == 0)
        ++faces;
      else
        ++watchApps;
    }
  }
  JsonNode* images = json_object_get_member(object, "watch_custom_bg");
  if (images && JSON_NODE_HOLDS_ARRAY(images))
    photos = static_cast<int>(json_array_get_length(json_node_get_array(images)));
  return std::to_string(faces) + " faces, " + std::to_string(watchApps) + " watch apps, " +
         std::to_string(downloaded) + " downloaded apps, " + std::to_string(photos) + " photos";
}

// The vendor's app gives up on an answer after this long.
const unsigned kAnswerTimeoutMs = 10000;
// How far a record's date may be from the agent's clock and still count as "now".
const long long kDateSlackSeconds = 24 * 60 * 60;
const char* const kRestoredKey = "key";

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

bool sameValue(const CloudRecord& record, const host::RecordOutline& outline) {
  if (!record.value || !outline.valueBytes)
    return !record.value && !outline.valueBytes;
  return record.value->size() == *outline.valueBytes &&
         host::valueCrc(*record.value) == outline.valueCrc;
}

std::string records(size_t count) {
  return std::to_string(count) + (count == 1 ? " record" : " records");
}

}  // namespace

struct CloudAgent::Exchange {
  enum class Type { kBackup, kInfo, kRestore };

  Type type;
  unsigned launchId;
  const char* step = "prepare";
  bool done = false;
  std::string outcome;
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

  const char* name() const {
    switch (type) {
      case Type::kBackup:
        return "backup";
      case Type::kInfo:
        return "backup information";
      case Type::kRestore:
        return "restore";
    }
    return "?";
  }
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
      operations_(std::move(operations)),
      previousHandler_(platform.launcherReplyHandler()) {
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

std::vector<std::string> CloudAgent::summary() const {
  std::vector<std::string> lines;
  for (const auto& exchange : exchanges_) {
    if (exchange->done) {
      lines.push_back(exchange->outcome);
      // Described now, not while the exchange ran: a document can take as long to parse as the
      // backup took.
      if (exchange->type == Exchange::Type::kBackup && exchange->setId != 0)
        describeSet(exchange->setId, lines);
      continue;
    }
    std::string line =
        std::string("cloud     ") + exchange->name() + " UNFINISHED at " + exchange->step;
    if (exchange->awaiting)
      line += std::string(", waiting for the ") + host::cloud::answerName(*exchange->awaiting);
    lines.push_back(line);
  }
  return lines;
}

void CloudAgent::describeSet(unsigned long long id, std::vector<std::string>& lines) const {
  std::vector<CloudRecord> stored;
  std::string error;
  if (!store_.read(id, stored, error)) {
    lines.push_back("cloud     document: " + error);
    return;
  }
  for (const CloudRecord& record : stored)
    lines.push_back("cloud     document: " + describeDocument(record.value.value_or("")));
}

void CloudAgent::onLaunchReply(unsigned launchId, app_control_result_e result) {
  if (launchId == 0 || launchId > operations_.size())
    return;
  const std::string& operation = operations_[launchId - 1];
  auto exchange = std::make_shared<Exchange>();
  exchange->launchId = launchId;
  if (operation == host::expandOperation("backup"))
    exchange->type = Exchange::Type::kBackup;
  else if (operation == host::expandOperation("info"))
    exchange->type = Exchange::Type::kInfo;
  else if (operation == host::expandOperation("restore"))
    exchange->type = Exchange::Type::kRestore;
  else
    return;
  exchanges_.push_back(exchange);
  if (result != APP_CONTROL_RESULT_SUCCEEDED) {
    exchange->done = true;
    exchange->outcome = std::string("cloud     ") + exchange->name() +
                        " refused: the service answered the launch request with failure";
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
  std::weak_ptr<Exchange> weak;
  for (const auto& held : exchanges_) {
    if (held.get() == &exchange)
      weak = held;
  }
  platform_.post(
      [this, weak, step] {
        if (auto held = weak.lock()) {
          if (!held->done)
            (this->*step)(*held);
        }
      },
      delayMs_);
}

void CloudAgent::await(Exchange& exchange, Answer::Kind kind, AnswerStep next) {
  exchange.awaiting = kind;
  exchange.next = next;
  const unsigned awaitCount = ++exchange.awaitCount;
  std::weak_ptr<Exchange> weak;
  for (const auto& held : exchanges_) {
    if (held.get() == &exchange)
      weak = held;
  }
  platform_.post(
      [this, weak, awaitCount, kind] {
        auto held = weak.lock();
        if (held && !held->done && held->awaitCount == awaitCount && held->awaiting)
          fail(*held, std::string("no ") + host::cloud::answerName(kind) + " within " +
                          std::to_string(kAnswerTimeoutMs / 1000) + " s");
      },
      kAnswerTimeoutMs);
}

bool CloudAgent::faulted(Exchange& exchange, const char* step) {
  exchange.step = step;
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
  exchange.outcome =
      std::string("cloud     ") + exchange.name() + " FAILED at " + exchange.step + ": " + reason;
  if (!exchange.completes(false))
    exchange.outcome += " (no completion callback to tell)";
}

void CloudAgent::succeed(Exchange& exchange, const std::string& outcome) {
  exchange.done = true;
  exchange.outcome = "cloud     " + outcome;
  if (!exchange.completes(true))
    exchange.outcome = std::string("cloud     ") + exchange.name() + " FAILED at " + exchange.step +
                       ": the service registered no completion callback";
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
    succeed(exchange, "backup information: " + records(exchange.declared.size()) +
                          " declared, nothing stored");
    return;
  }
  std::string error;
  unsigned long long id = 0;
  if (!store_.addCopyOf(exchange.uploadedPath, id, error)) {
    fail(exchange, error);
    return;
  }
  exchange.setId = id;
  succeed(exchange, "backup stored as set " + std::to_string(id) + " (" +
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
  if (ids.empty()) {
    succeed(exchange, "restore: the cloud holds no backup set, nothing restored");
    return;
  }
  exchange.setId = ids.back();
  if (!store_.outline(exchange.setId, exchange.downloaded, error) ||
      !host::copyRecordFile(store_.setPath(exchange.setId), exchange.restorePath, error)) {
    fail(exchange, error);
    return;
  }
  schedule(exchange, &CloudAgent::restoreRestoration);
}

void CloudAgent::restoreRestoration(Exchange& exchange) {
  exchange.step = "restore";
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
    if (record.key != std::optional<std::string>(kRestoredKey) || !isRecentSeconds(record.date) ||
        !sameValue(record, exchange.downloaded[i])) {
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
  succeed(exchange, "restore of set " + std::to_string(exchange.setId) + ": " +
                        records(exchange.downloaded.size()) + " restored");
}

}  // namespace emu
