#include "explore/Oracle.h"

#include <gtest/gtest.h>
#include <json-glib/json-glib.h>

#include <string>
#include <vector>

namespace {

using explore::Scenario;

// A run's JSON result as the launcher writes it, reduced to what the model reads.
struct ResultJson {
  std::string events;     // the trace's events, as JSON objects joined by commas
  std::string exchanges;  // likewise
  std::string by = "service";
  double endedAt = 0.5;
  int status = 0;
  std::string failures;
  std::string leftOut, notRestored;  // findings, as JSON objects joined by commas

  std::string json() const {
    return "{\"status\":" + std::to_string(status) + ",\"ended\":{\"by\":\"" + by +
           "\",\"at\":" + std::to_string(endedAt) + "},\"exchanges\":[" + exchanges +
           "],\"left_out\":[" + leftOut + "],\"not_restored\":[" + notRestored +
           "],\"leftovers\":[],\"watch\":{\"saved\":true},\"failures\":[" + failures +
           "],\"schedule\":{\"events\":[" + events + "]}}";
  }
};

std::string event(double at, const char* kind, const char* name, int code, unsigned launch) {
  return "{\"at\":" + std::to_string(at) + ",\"kind\":\"" + kind + "\",\"name\":\"" + name +
         "\",\"code\":" + std::to_string(code) +
         (launch ? ",\"launch\":" + std::to_string(launch) : std::string()) + "}";
}

// Two restores at once: the first runs to its completion, the second is refused.
ResultJson twoRestores() {
  ResultJson run;
  run.events = event(0, "launch-request", "restore", 0, 1) + "," +
               event(0, "reply-to-launcher", "", 0, 1) + "," +
               event(0, "launch-request", "restore", 0, 2) + "," +
               event(0, "reply-to-launcher", "", -1, 2) + "," +
               event(0.5, "cloud-callback", "restore completed", 1, 0) + "," +
               event(0.5, "exit-requested", "", 0, 0);
  run.exchanges =
      "{\"request\":1,\"type\":\"restore\",\"outcome\":\"succeeded\",\"step\":\"complete\"},"
      "{\"request\":2,\"type\":\"restore\",\"outcome\":\"refused\",\"step\":\"prepare\"}";
  run.status = 4;
  run.failures = "\"cloud: request 2, restore: refused\"";
  return run;
}

std::vector<std::string> judged(const Scenario& scenario,
                                const ResultJson& run,
                                const explore::RunItems& items = {}) {
  g_autoptr(JsonParser) parser = json_parser_new();
  EXPECT_TRUE(json_parser_load_from_data(parser, run.json().c_str(), -1, nullptr)) << run.json();
  std::vector<std::string> found;
  for (const explore::Violation& violation :
       explore::judgeRun(scenario, json_node_get_object(json_parser_get_root(parser)), items))
    found.push_back(violation.describe());
  return found;
}

// The model agrees with a run that follows the rules, and names the request and field of each
// thing a faulty service or launcher would get wrong.
TEST(OracleTest, ARunTheRulesAllowPassesAndEachWrongFieldIsNamed) {
  Scenario scenario;
  scenario.seededCloud = true;
  scenario.requests = {{"restore"}, {"restore"}};
  EXPECT_EQ(judged(scenario, twoRestores()), std::vector<std::string>{});

  const std::string prefix = "outcomes as the rules predict: ";
  ResultJson run = twoRestores();
  run.status = 0;
  run.failures.clear();
  EXPECT_EQ(judged(scenario, run),
            (std::vector<std::string>{
                prefix + "request 2, field failures: its exchange failed, but no failure names it",
                prefix + "field status: predicted 4, the run says 0"}));

  run = twoRestores();
  run.events.replace(run.events.find("\"code\":-1"), 9, "\"code\":0");
  EXPECT_EQ(judged(scenario, run).front(),
            prefix +
                "request 2, field requests.reply.result: predicted failed, the run "
                "answered succeeded");

  run = twoRestores();
  run.endedAt = 2.5;
  EXPECT_EQ(judged(scenario, run),
            (std::vector<std::string>{
                prefix + "field ended.at: predicted 0.500 s, the run ended at 2.500 s"}));

  scenario.faults["cloud-fail"] = "download";
  EXPECT_EQ(judged(scenario, twoRestores()),
            (std::vector<std::string>{prefix + "request 1, field exchanges.outcome: predicted "
                                               "failed at download, the run says succeeded"}));
}

// A retail-mode request ends the run 2 s after it, a second one 2 s after the second; the model
// also has a rule for every platform switch, or it would name the switch it lacks.
TEST(OracleTest, RetailModeEndsTheRunTwoSecondsAfterTheLastRequest) {
  Scenario scenario;
  scenario.requests = {{"none", true}, {"none", true, 1}};
  ResultJson run;
  run.events = event(0, "launch-request", "", 0, 1) + "," + event(1, "launch-request", "", 0, 2) +
               "," + event(3, "exit-requested", "", 0, 0);
  run.endedAt = 3;
  EXPECT_EQ(judged(scenario, run), std::vector<std::string>{});
  run.endedAt = 2;
  EXPECT_EQ(judged(scenario, run),
            (std::vector<std::string>{"outcomes as the rules predict: field ended.at: predicted "
                                      "3.000 s, the run ended at 2.000 s"}));
}

// A backup of a watch with a face over the message limit and a watch app of another package,
// on a platform that refuses to launch it.
explore::RunItems limitedWatch() {
  explore::RunItems items;
  items.watch.faces = {{"com.face.small", "<s/>"}, {"com.face.big", std::string(300, 'b')}};
  items.watch.watchApps = {{"com.clock.service", "com.clock", ""}};
  items.watch.packages = {{"com.clock", "com.clock.service", "svcapp", true},
                          {"com.talvoro.morvik.service", "com.talvoro.morvik.service", "svcapp"}};
  return items;
}

std::string finding(const char* item, const std::string& reason) {
  return std::string("{\"set\":1,\"item\":\"") + item + "\",\"reason\":\"" + reason + "\"}";
}

ResultJson limitedBackup(const std::string& leftOut) {
  ResultJson run;
  run.events = event(0, "launch-request", "backup", 0, 1) +
               ",{\"at\":0.1,\"kind\":\"message-delivered\",\"message\":\"backup_finished\"}," +
               event(0.1, "reply-to-launcher", "", 0, 1) + "," +
               event(0.5, "cloud-callback", "backup completed", 1, 0);
  run.exchanges =
      "{\"request\":1,\"type\":\"backup\",\"outcome\":\"succeeded\",\"step\":\"complete\","
      "\"set\":1}";
  run.leftOut = leftOut;
  run.status = leftOut.empty() ? 0 : 4;
  return run;
}

// Each device limit loses exactly the items over it, for its own reason: an item kept, lost for
// another reason, or lost under the limit is named; a conversation that cannot fit must not end.
TEST(OracleTest, EachLimitLosesExactlyItsItemsForItsReason) {
  Scenario scenario;
  scenario.requests = {{"backup"}};
  scenario.platform = {{"message-size-limit", "100"}, {"other-package-service", "refuse"}};
  const std::string missing = "the watch face service's entry is missing";
  const std::string big = finding("face com.face.big", missing);
  const std::string app =
      finding("watch app com.clock.service", "its app could not be launched (error -17825757)");
  const std::string prefix = "outcomes as the rules predict: field left_out: set 1: ";
  EXPECT_EQ(judged(scenario, limitedBackup(big + "," + app), limitedWatch()),
            std::vector<std::string>{});
  EXPECT_EQ(judged(scenario, limitedBackup(app), limitedWatch()),
            std::vector<std::string>{prefix +
                                     "face com.face.big is in the set, though the "
                                     "message-size-limit rule loses it as \"" +
                                     missing + "\""});
  EXPECT_EQ(
      judged(scenario,
             limitedBackup(finding("face com.face.big", "its settings differ") + "," + app + "," +
                           finding("face com.face.small", missing)),
             limitedWatch()),
      (std::vector<std::string>{prefix +
                                    "face com.face.big left out (its settings differ), though the "
                                    "message-size-limit rule loses it as \"" +
                                    missing + "\"",
                                prefix + "face com.face.small left out (" + missing +
                                    "), and no fault, overlap or limit explains it"}));
  scenario.platform["other-package-service"] = "allow";
  EXPECT_EQ(judged(scenario, limitedBackup(big + "," + app), limitedWatch()),
            std::vector<std::string>{prefix +
                                     "watch app com.clock.service left out (its app could not be "
                                     "launched (error -17825757)), and no fault, overlap or limit "
                                     "explains it"});

  // Below the backup's start message nothing can end a collection.
  scenario.platform["message-size-limit"] = "30";
  EXPECT_EQ(judged(scenario, limitedBackup(big), limitedWatch()).front(),
            "outcomes as the rules predict: field schedule.events: \"backup_finished\" reached "
            "the service at 0.100 s, though the message-size-limit keeps the backup conversation "
            "from fitting");

  // A restored idle clock over the vconf limit is not set; under no limit it must be.
  scenario.requests = {{"restore"}};
  scenario.seededCloud = true;
  scenario.platform = {{"vconf-value-limit", "16"}};
  explore::RunItems items;
  items.sets[1].mainKey = "com.clock.service";
  ResultJson restore;
  restore.events = event(0, "launch-request", "restore", 0, 1) + "," +
                   event(0, "reply-to-launcher", "", 0, 1) + "," +
                   event(0.5, "cloud-callback", "restore completed", 1, 0);
  restore.exchanges =
      "{\"request\":1,\"type\":\"restore\",\"outcome\":\"succeeded\",\"step\":\"complete\","
      "\"set\":1}";
  restore.notRestored = finding("idle clock", "it was not set to \\\"com.clock.service\\\"");
  restore.status = 4;
  EXPECT_EQ(judged(scenario, restore, items), std::vector<std::string>{});
  scenario.platform["vconf-value-limit"] = "off";
  EXPECT_EQ(judged(scenario, restore, items),
            std::vector<std::string>{"outcomes as the rules predict: field not_restored: set 1: "
                                     "idle clock not restored (it was not set to "
                                     "\"com.clock.service\"), and no fault, overlap or limit "
                                     "explains it"});
}

}  // namespace
