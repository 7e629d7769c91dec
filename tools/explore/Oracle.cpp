#include "Oracle.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <set>
#include <string>

#include "DeviceLimits.h"
#include "ResultJson.h"
#include "emu/PlatformSwitches.h"

namespace explore {

namespace {

const char* const kInvariant = "outcomes as the rules predict";
// Events of one dispatch share their simulated time; timers are set in whole milliseconds.
const double kSameTime = 0.0015;
const double kCollectionLimitSeconds = 30;  // the wait for "backup_finished"
const double kExitDelaySeconds = 2.0;       // the retail-mode exit timer
const char* const kStoreAppId = "com.talvoro.vendarosvc";
const double kNever = std::numeric_limits<double>::infinity();

// The platform rules, each a function of its switch's value.

// cloud-registration: the service never registers a second exchange of a kind that runs, so a
// later request of that kind is refused whether the library refuses or replaces.
bool laterRequestOfARunningKindIsRefused(const std::string&) {
  return true;
}

// port-reregistration: a collection begun while a transfer holds the local port registers the
// same name again. Under new-id it keeps its own ID when the transfer unregisters; under
// same-id the transfer's unregistration takes the port from it.
bool collectionBegunInATransferKeepsItsPort(const std::string& value) {
  return value == "new-id";
}

struct Event {
  double at = 0;
  std::string kind, peer, name, message;
  gint64 code = 0;
  unsigned launch = 0;
};

std::vector<Event> eventsOf(JsonObject* result) {
  std::vector<Event> events;
  forEachObject(array(object(result, "schedule"), "events"), [&](JsonObject* entry) {
    Event event;
    event.at = number(entry, "at", 0);
    event.kind = member(entry, "kind");
    event.peer = member(entry, "peer");
    event.name = member(entry, "name");
    event.message = member(entry, "message");
    event.code = integer(entry, "code", 0);
    event.launch = static_cast<unsigned>(integer(entry, "launch", 0));
    events.push_back(event);
  });
  return events;
}

// The oracle's own words for a reply's result, not the launcher's: a launcher that names a
// result wrongly must disagree with it.
std::string resultName(gint64 code) {
  switch (code) {
    case 0:
      return "succeeded";
    case -1:
      return "failed";
    case -2:
      return "canceled";
    default:
      return "other";
  }
}

std::string seconds(double at) {
  char text[32];
  g_snprintf(text, sizeof text, "%.3f s", at);
  return text;
}

// What the rules say of one launch request, and what the trace shows of it.
struct Request {
  std::string operation;  // backup, restore, info or none
  bool retailMode = false;
  bool delivered = false;
  double deliveredAt = 0;
  std::string due;  // the answer due now, empty when none is
  double dueAt = 0;
  std::string answer;  // the answer the trace shows, empty when none
  size_t answerIndex = 0;
  bool mayStayUnanswered = false;  // its collection could not finish
};

class Model {
 public:
  Model(const Scenario& scenario, JsonObject* result, const RunItems& items, Violations& violations)
      : scenario_(scenario),
        result_(result),
        items_(items),
        violations_(violations),
        events_(eventsOf(result)),
        portRule_(scenario.platformValue("port-reregistration")) {
    for (const ScenarioRequest& each : scenario.requests) {
      Request request;
      request.operation = each.operation;
      request.retailMode = each.retailMode;
      requests_.push_back(request);
    }
  }

  void judge() {
    walk();
    judgeEnd();
    judgeExchanges();
    judgeAudit();
    judgeStatus();
  }

 private:
  void violation(unsigned request, const std::string& field, const std::string& text) {
    violations_.push_back(Violation{kInvariant, request, field, text});
  }

  Request* requestFor(unsigned launch) {
    return launch >= 1 && launch <= requests_.size() ? &requests_[launch - 1] : nullptr;
  }

  void expect(unsigned launch, const std::string& answer, double at) {
    Request* request = requestFor(launch);
    if (!request)
      return;
    if (!request->due.empty())
      violation(
          launch, "requests.reply",
          "answer " + request->due + " was due at " + seconds(request->dueAt) + " and never came");
    request->due = answer;
    request->dueAt = at;
  }

  // The deliveries in trace order, with the answers each one makes due.
  void walk() {
    bool backupKindRuns = false, restoreRuns = false;
    bool collecting = false, portLost = false, begunInTransfer = false, transfer = false;
    double collectionAt = 0;
    unsigned waiting = 0;  // the backup request the running collection will answer
    for (size_t index = 0; index < events_.size(); ++index) {
      const Event& event = events_[index];
      if (collecting && event.at > collectionAt + kCollectionLimitSeconds + kSameTime) {
        collecting = false;
        requests_[waiting - 1].mayStayUnanswered = true;
      }
      if (event.kind == "launch-request") {
        Request* request = requestFor(event.launch);
        if (!request)
          continue;
        request->delivered = true;
        request->deliveredAt = event.at;
        if (request->operation == "restore") {
          expect(event.launch,
                 restoreRuns && laterRequestOfARunningKindIsRefused(
                                    scenario_.platformValue("cloud-registration"))
                     ? "failed"
                     : "succeeded",
                 event.at);
        } else if (request->operation == "info") {
          expect(event.launch,
                 backupKindRuns && laterRequestOfARunningKindIsRefused(
                                       scenario_.platformValue("cloud-registration"))
                     ? "failed"
                     : "succeeded",
                 event.at);
        } else if (request->operation == "backup") {
          if (collecting) {
            expect(waiting, "canceled", event.at);
          } else {
            collecting = true;
            collectionAt = event.at;
            portLost = false;
            begunInTransfer = transfer;
          }
          waiting = event.launch;
        }
      } else if (event.kind == "reply-to-launcher") {
        answered(event, index, backupKindRuns, restoreRuns);
      } else if (event.kind == "message-delivered" && event.message == "backup_finished") {
        if (!DeviceLimits(scenario_).backupConversationFits())
          violation(0, "schedule.events",
                    "\"backup_finished\" reached the service at " + seconds(event.at) +
                        ", though the message-size-limit keeps the backup conversation from "
                        "fitting");
        if (collecting && !portLost) {
          collecting = false;
          collected_.push_back(index);
          expect(waiting, backupKindRuns ? "failed" : "succeeded", event.at);
        }
      } else if (event.kind == "cloud-callback" && event.name == "restoration") {
        transfer = true;
        // The transferer registers the local port: the running collection loses what comes.
        if (collecting && !begunInTransfer)
          portLost = true;
      } else if (event.kind == "cloud-answer" && event.name == "record list") {
        transfer = false;
        if (collecting && begunInTransfer && !collectionBegunInATransferKeepsItsPort(portRule_))
          portLost = true;
        begunInTransfer = false;
      } else if (event.kind == "cloud-callback" && event.name == "backup completed") {
        backupKindRuns = false;
      } else if (event.kind == "cloud-callback" && event.name == "restore completed") {
        restoreRuns = false;
      }
    }
    if (collecting && waiting)
      requests_[waiting - 1].mayStayUnanswered = true;
    for (size_t i = 0; i < requests_.size(); ++i) {
      if (!requests_[i].due.empty())
        violation(static_cast<unsigned>(i + 1), "requests.reply",
                  "answer " + requests_[i].due + " was due at " + seconds(requests_[i].dueAt) +
                      " and never came");
    }
  }

  void answered(const Event& event, size_t index, bool& backupKindRuns, bool& restoreRuns) {
    Request* request = requestFor(event.launch);
    if (!request)
      return;
    const std::string answer = resultName(event.code);
    if (!request->answer.empty())
      return;  // a second answer is a failure of its own
    request->answer = answer;
    request->answerIndex = index;
    if (request->due.empty()) {
      violation(event.launch, "requests.reply",
                "answered " + answer + " at " + seconds(event.at) + " when no answer was due");
    } else {
      if (request->due != answer)
        violation(event.launch, "requests.reply.result",
                  "predicted " + request->due + ", the run answered " + answer);
      if (std::fabs(request->dueAt - event.at) > kSameTime)
        violation(event.launch, "requests.reply.at",
                  "due at " + seconds(request->dueAt) + ", answered at " + seconds(event.at));
      request->due.clear();
    }
    if (answer == "succeeded") {
      if (request->operation == "restore")
        restoreRuns = true;
      else
        backupKindRuns = true;
    }
  }

  // The service ends at the first completion of an exchange, or 2 s after the last retail-mode
  // request before that; otherwise the deadline ends the run.
  void judgeEnd() {
    double completion = kNever;
    for (const Event& event : events_) {
      if (event.kind == "cloud-callback" &&
          (event.name == "backup completed" || event.name == "restore completed")) {
        completion = event.at;
        break;
      }
    }
    double exitTimer = kNever;
    for (const Request& request : requests_) {
      if (request.delivered && request.retailMode && request.deliveredAt < exitTimer &&
          request.deliveredAt < completion)
        exitTimer = request.deliveredAt + kExitDelaySeconds;
    }
    predictedEnd_ = std::min({completion, exitTimer, scenario_.deadlineSeconds});
    predictedBy_ = predictedEnd_ == scenario_.deadlineSeconds ? "deadline" : "service";
    JsonObject* ended = object(result_, "ended");
    const std::string by = member(ended, "by");
    endedAt_ = number(ended, "at", 0);
    if (by == "signal")
      return;
    if (by != predictedBy_)
      violation(0, "ended.by",
                "predicted " + predictedBy_ + " at " + seconds(predictedEnd_) + ", the run says " +
                    by + " at " + seconds(endedAt_));
    else if (endedAt_ < predictedEnd_ - kSameTime ||
             (endedAt_ > predictedEnd_ + kSameTime && !storeWaitAt(predictedEnd_)))
      violation(0, "ended.at",
                "predicted " + seconds(predictedEnd_) + ", the run ended at " + seconds(endedAt_));
    for (size_t i = 0; i < requests_.size(); ++i) {
      const double at = scheduledAt(i);
      if (requests_[i].delivered != (at <= endedAt_ + kSameTime) &&
          std::fabs(at - endedAt_) > kSameTime)
        violation(static_cast<unsigned>(i + 1), "requests",
                  std::string(requests_[i].delivered ? "delivered" : "not delivered") +
                      ", due at " + seconds(at) + " in a run that ended at " + seconds(endedAt_));
    }
  }

  double scheduledAt(size_t index) const {
    double at = 0;
    for (size_t i = 0; i <= index; ++i)
      at += scenario_.requests[i].gapSeconds;
    return at;
  }

  // A store request was still unanswered at `at`: the service waited in a nested loop, where
  // its exit takes effect only once the wait is over.
  bool storeWaitAt(double at) const {
    int open = 0;
    for (const Event& event : events_) {
      if (event.at > at + kSameTime)
        break;
      if (event.kind == "app-control-sent" && event.peer == kStoreAppId && event.code == 0)
        ++open;
      else if (event.kind == "app-control-reply" && event.peer == kStoreAppId)
        --open;
    }
    return open > 0;
  }

  static const char* typeOf(const std::string& operation) {
    if (operation == "backup")
      return "backup";
    if (operation == "info")
      return "backup information";
    if (operation == "restore")
      return "restore";
    return nullptr;
  }

  // The outcomes (with their failed step) that an exchange answered with success may end in,
  // once the cloud completed it.
  std::set<std::string> completedOutcomes(const std::string& operation) const {
    if (operation != "restore")
      return completedOutcomes(operation, false);
    if (scenario_.seededCloud)
      return completedOutcomes(operation, true);
    // A backup of the same run may have stored a set before the restore looked.
    std::set<std::string> outcomes = completedOutcomes(operation, false);
    if (anyBackupStored()) {
      const std::set<std::string> withSet = completedOutcomes(operation, true);
      outcomes.insert(withSet.begin(), withSet.end());
    }
    return outcomes;
  }

  std::set<std::string> completedOutcomes(const std::string& operation, bool setThere) const {
    std::vector<std::string> steps;
    if (operation == "backup")
      steps = {"prepare", "keys", "upload", "complete"};
    else if (operation == "info")
      steps = {"prepare", "keys", "complete"};
    else if (setThere)
      steps = {"prepare", "download", "complete"};
    else
      steps = {"prepare", "download"};
    auto fault = scenario_.faults.find("cloud-fail");
    if (fault != scenario_.faults.end()) {
      for (const std::string& step : steps) {
        if (step == fault->second)
          return {"failed at " + step};
      }
    }
    std::set<std::string> outcomes = {"succeeded"};
    if (operation == "restore" && setThere) {
      // The early completion races the restoration's own answer.
      if (scenario_.faults.count("cloud-complete-early"))
        outcomes.insert("failed at restore");
    }
    return outcomes;
  }

  bool anyBackupStored() const {
    bool stored = false;
    forEachObject(array(result_, "exchanges"), [&](JsonObject* exchange) {
      stored = stored || (member(exchange, "type") == "backup" && integer(exchange, "set", 0) > 0);
    });
    return stored;
  }

  // The first completion of `kind` after the trace event `from`, if any.
  bool completedAfter(size_t from, const char* kind) const {
    for (size_t i = from + 1; i < events_.size(); ++i) {
      if (events_[i].kind == "cloud-callback" && events_[i].name == kind)
        return true;
    }
    return false;
  }

  void judgeExchanges() {
    std::map<unsigned, JsonObject*> exchanges;
    forEachObject(array(result_, "exchanges"), [&](JsonObject* exchange) {
      exchanges[static_cast<unsigned>(integer(exchange, "request", 0))] = exchange;
    });
    for (size_t i = 0; i < requests_.size(); ++i) {
      const unsigned launch = static_cast<unsigned>(i + 1);
      const Request& request = requests_[i];
      const char* type = typeOf(request.operation);
      if (!type)
        continue;
      auto found = exchanges.find(launch);
      if (found == exchanges.end()) {
        violation(launch, "exchanges", std::string("no entry for the ") + type + " request");
        continue;
      }
      JsonObject* exchange = found->second;
      if (member(exchange, "type") != type)
        violation(launch, "exchanges.type",
                  std::string("predicted ") + type + ", the run says " + member(exchange, "type"));
      const std::string outcome = member(exchange, "outcome");
      const std::string shown =
          outcome == "failed" ? "failed at " + member(exchange, "step") : outcome;
      std::set<std::string> predicted;
      if (!request.delivered)
        predicted = {"undelivered"};
      else if (request.answer == "canceled")
        predicted = {"superseded"};
      else if (request.answer == "failed")
        predicted = {"refused"};
      else if (request.answer.empty())
        predicted = {"unanswered"};
      else if (completedAfter(request.answerIndex, request.operation == "restore"
                                                       ? "restore completed"
                                                       : "backup completed"))
        predicted = completedOutcomes(request.operation);
      else
        predicted = {"unfinished"};
      if (request.delivered && request.answer.empty() && !request.mayStayUnanswered &&
          request.operation == "backup" && member(object(result_, "ended"), "by") != "signal" &&
          !scenario_.faults.count("watchface-silent"))
        violation(launch, "requests.reply", "never answered, though its collection could finish");
      if (outcome == "unfinished" && member(object(result_, "ended"), "by") == "deadline")
        violation(launch, "exchanges.outcome",
                  "unfinished at the deadline: the cloud ends every exchange long before it");
      if (!predicted.count(shown)) {
        std::string list;
        for (const std::string& each : predicted)
          list += (list.empty() ? "" : " or ") + each;
        violation(launch, "exchanges.outcome", "predicted " + list + ", the run says " + shown);
      }
      failing_[launch] = outcome != "succeeded" && outcome != "superseded";
    }
  }

  // What a backup may leave out and a restore may fail to put back, and what they must. The
  // device's limits lose exactly their items, for their reasons, from every set a backup stored
  // or a restore put back; a fault or an overlap may explain the other findings.
  void judgeAudit() {
    const auto& faults = scenario_.faults;
    bool restoreRan = false, backupRan = false, backupStored = false;
    for (const Request& request : requests_) {
      restoreRan = restoreRan || (request.delivered && request.operation == "restore");
      backupRan = backupRan || (request.delivered && request.operation == "backup");
    }
    const DeviceLimits limits(scenario_);
    std::map<gint64, ItemLosses> leftOutByLimits, notRestoredByLimits;
    forEachObject(array(result_, "exchanges"), [&](JsonObject* exchange) {
      const std::string type = member(exchange, "type");
      const gint64 set = integer(exchange, "set", 0);
      backupStored = backupStored || (type == "backup" && set > 0);
      if (set <= 0 || member(exchange, "outcome") != "succeeded")
        return;
      auto document = items_.sets.find(static_cast<unsigned long long>(set));
      if (type == "backup")
        leftOutByLimits[set] = withoutTheUnreadablePhoto(limits.backupLosses(items_));
      else if (type == "restore" && document != items_.sets.end())
        notRestoredByLimits[set] = limits.restoreLosses(document->second, items_);
    });
    const guint leftOut = json_array_get_length(array(result_, "left_out"));
    const guint notRestored = json_array_get_length(array(result_, "not_restored"));
    const bool faultMayLeaveOut = faults.count("watchapp-missing") ||
                                  faults.count("watchapp-late") ||
                                  faults.count("image-unreadable") || restoreRan;
    // A watch app that answered too late, or never, is left out for that.
    judgeFindings("left_out", "left out", "is in the set", leftOutByLimits,
                  [&](const std::string& item, const std::string& reason) {
                    const std::string watchApp = "watch app ";
                    return faultMayLeaveOut || (item.rfind(watchApp, 0) == 0 &&
                                                (reason.rfind("it did not answer", 0) == 0 ||
                                                 reason.rfind("it answered after", 0) == 0) &&
                                                !answeredInTime(item.substr(watchApp.size())));
                  });
    const bool mustLeaveOut =
        backupStored && scenario_.sampleWatch && !restoreRan &&
        (faults.count("watchapp-missing") || faults.count("image-unreadable"));
    if (leftOut == 0 && mustLeaveOut)
      violation(0, "left_out", "empty, though a fault kept part of the watch from the backup");
    const bool mayNotRestore = faults.count("store-silent") || faults.count("store-error") ||
                               faults.count("watchapp-missing") ||
                               faults.count("watchface-silent") ||
                               faults.count("watchface-finish-early") || backupRan;
    judgeFindings("not_restored", "not restored", "was restored", notRestoredByLimits,
                  [&](const std::string&, const std::string&) { return mayNotRestore; });
    for (const std::string& file : limits.misplacedFiles(items_))
      violation(0, "watch",
                "the service's file " + file +
                    " lies beside its trusted directory, though the trusted-path-slash rule "
                    "keeps its files inside");
    auditFailed_ = leftOut > 0 || notRestored > 0;
  }

  // The photo a FIFO stands for is the fault's to explain, whatever its message's size.
  ItemLosses withoutTheUnreadablePhoto(ItemLosses losses) const {
    if (!scenario_.faults.count("image-unreadable") || items_.watch.images.empty())
      return losses;
    const std::string photo = "photo " + items_.watch.images.front().fileName;
    losses.erase(std::remove_if(losses.begin(), losses.end(),
                                [&](const ItemLoss& loss) { return loss.item == photo; }),
                 losses.end());
    return losses;
  }

  // Each finding of `field` that a limit predicts gives the limit's reason (or the reason of a
  // fault that touches the same item), every predicted one is found, and any other is one that
  // `explained` allows.
  void judgeFindings(
      const char* field,
      const char* lost,
      const char* kept,
      const std::map<gint64, ItemLosses>& byLimits,
      const std::function<bool(const std::string& item, const std::string& reason)>& explained) {
    std::map<gint64, std::set<std::string>> found;
    forEachObject(array(result_, field), [&](JsonObject* finding) {
      const gint64 set = integer(finding, "set", 0);
      const std::string item = member(finding, "item");
      const std::string reason = member(finding, "reason");
      const std::string where = "set " + std::to_string(set) + ": " + item + " " + lost;
      found[set].insert(item);
      const ItemLoss* loss = nullptr;
      auto predicted = byLimits.find(set);
      for (size_t i = 0; predicted != byLimits.end() && i < predicted->second.size(); ++i) {
        if (predicted->second[i].item == item)
          loss = &predicted->second[i];
      }
      if (loss && loss->reason != reason && !faultTouches(item))
        violation(0, field,
                  where + " (" + reason + "), though the " + loss->rule + " rule loses it as \"" +
                      loss->reason + "\"");
      else if (!loss && !explained(item, reason))
        violation(0, field,
                  where + " (" + reason + "), and no fault, overlap or limit explains it");
    });
    for (const auto& set : byLimits) {
      for (const ItemLoss& loss : set.second) {
        if (!found[set.first].count(loss.item))
          violation(0, field,
                    "set " + std::to_string(set.first) + ": " + loss.item + " " + kept +
                        ", though the " + loss.rule + " rule loses it as \"" + loss.reason + "\"");
      }
    }
  }

  // A fault that keeps a watch app from launching gives its own launch error.
  bool faultTouches(const std::string& item) const {
    return scenario_.faults.count("watchapp-missing") && item.rfind("watch app ", 0) == 0;
  }

  // Whether `appId` answered before the first collection ended: the one whose set is stored, as
  // a later collection's backup finds the first one's exchange running and is refused.
  bool answeredInTime(const std::string& appId) const {
    if (collected_.empty())
      return false;
    for (size_t i = 0; i < collected_.front(); ++i) {
      if (events_[i].kind == "app-control-reply" && events_[i].peer == appId)
        return true;
    }
    return false;
  }

  void judgeStatus() {
    bool failed = auditFailed_;
    std::vector<std::string> failures;
    for (guint i = 0; i < json_array_get_length(array(result_, "failures")); ++i)
      failures.push_back(json_array_get_string_element(array(result_, "failures"), i));
    for (const auto& request : failing_) {
      const std::string prefix = "cloud: request " + std::to_string(request.first) + ", ";
      bool listed = false;
      for (const std::string& failure : failures)
        listed = listed || failure.rfind(prefix, 0) == 0;
      if (listed != request.second)
        violation(request.first, "failures",
                  request.second ? "its exchange failed, but no failure names it"
                                 : "a failure names it, but its exchange did not fail");
      failed = failed || request.second;
    }
    forEachObject(array(result_, "leftovers"), [&](JsonObject* leftover) {
      JsonNode* deliberate = json_object_get_member(leftover, "deliberate");
      failed = failed || !(deliberate && json_node_get_boolean(deliberate));
    });
    JsonNode* saved = json_object_get_member(object(result_, "watch"), "saved");
    failed = failed || !(saved && json_node_get_boolean(saved));
    const std::string by = member(object(result_, "ended"), "by");
    if (by == "signal")
      return;
    const gint64 predicted = predictedBy_ == "deadline" ? 3 : failed ? 4 : 0;
    if (integer(result_, "status") != predicted)
      violation(0, "status",
                "predicted " + std::to_string(predicted) + ", the run says " +
                    std::to_string(integer(result_, "status")));
  }

  const Scenario& scenario_;
  JsonObject* result_;
  const RunItems& items_;
  Violations& violations_;
  std::vector<Event> events_;
  std::string portRule_;
  std::vector<Request> requests_;
  double predictedEnd_ = 0;
  std::string predictedBy_;
  double endedAt_ = 0;
  std::map<unsigned, bool> failing_;
  std::vector<size_t> collected_;  // the trace index of each collection's end
  bool auditFailed_ = false;
};

}  // namespace

const std::vector<PlatformRule>& platformRules() {
  static const std::vector<PlatformRule> rules = {
      {"cloud-registration",
       "either value: the service refuses a request of a kind that runs before it registers, so "
       "the library never sees a second registrant"},
      {"cloud-initialization",
       "either value: a model whose run() failed stays until the service ends, so no "
       "deinitialise runs under an exchange; no outcome changes"},
      {"port-reregistration",
       "a collection begun while a transfer holds the local port keeps it under new-id and "
       "loses it when the transfer ends under same-id"},
      {"vconf-value-limit",
       "a restored idle clock longer than the limit is refused: the idle clock (or the idle face, "
       "when the watch face service writes it) keeps its value, and nothing else is lost"},
      {"message-size-limit",
       "a message over the limit (keys and values with a NUL each) is refused at the send: the "
       "face or photo it carries is left out of the backup or not restored, the idle face not "
       "set; a backup whose start message or \"backup_finished\" is over it never collects"},
      {"other-package-service",
       "refuse: a launch of another package's service app is rejected, so the preloaded watch "
       "apps are left out of a backup and not restored, and a restore requests no install; "
       "faces, photos and the idle clock are untouched"},
      {"trusted-path-slash",
       "either value: the service adds the '/' a trusted path lacks, so restored photos land "
       "where their messages say and nothing is lost"},
  };
  return rules;
}

Violations judgeRun(const Scenario& scenario, JsonObject* result, const RunItems& items) {
  Violations violations;
  for (const emu::PlatformSwitch& entry : emu::platformSwitches()) {
    bool ruled = false;
    for (const PlatformRule& rule : platformRules())
      ruled = ruled || entry.name == std::string(rule.switchName);
    if (!ruled)
      violations.push_back(Violation{kInvariant, 0, "platform",
                                     std::string("no rule for the switch ") + entry.name});
  }
  Model model(scenario, result, items, violations);
  model.judge();
  return violations;
}

}  // namespace explore
