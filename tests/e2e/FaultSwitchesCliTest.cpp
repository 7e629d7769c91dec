#include <app_control.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <json-glib/json-glib.h>

#include <string>
#include <vector>

#include "LogLineMatcher.h"
#include "ProcessRun.h"
#include "emu/DeviceProfile.h"

namespace {

using morvik_test::ProcessResult;
using morvik_test::runEmu;

// One fault switch, or one documented limit of the device ("platform:NAME=VALUE"), on one flow,
// and what the run's JSON result must come to (see outcomeOf(), with reasons).
struct FaultCase {
  const char* fault;
  const char* operation;    // "backup" of a sample watch, "restore" of its backup onto a blank one
  size_t faceBytes;         // the sample's first face's settings, when set
  const char* serviceLine;  // an error line the service logs for the item lost, when set
  std::string document;     // restored instead of the sample's backup, when set
  std::string outcome;
};

const char* text(JsonObject* object, const char* member) {
  return json_object_has_member(object, member) ? json_object_get_string_member(object, member)
                                                : "";
}

std::string items(JsonObject* result, const char* member) {
  std::string joined;
  JsonArray* list = json_object_get_array_member(result, member);
  for (guint i = 0; i < json_array_get_length(list); ++i) {
    JsonObject* item = json_array_get_object_element(list, i);
    joined += (i ? "; " : "") + std::string(text(item, "item")) + ": " + text(item, "reason");
  }
  return "[" + joined + "]";
}

int setsIn(const std::string& cloud) {
  int count = 0;
  while (g_file_test((cloud + "/set-00000" + std::to_string(count + 1) + ".dat").c_str(),
                     G_FILE_TEST_EXISTS))
    ++count;
  return count;
}

// How a run with "--json -" ended, from its result: "STATUS ENDED-BY: each exchange (and its
// failed step); the sets in `cloud`; the items left out, and not restored, each with its reason".
std::string outcomeOf(const ProcessResult& run, const std::string& cloud) {
  g_autoptr(JsonParser) parser = json_parser_new();
  JsonObject* result = morvik_test::jsonObject(parser, run.out);
  if (!result)
    return "no result: " + run.err;
  std::string outcome = std::to_string(run.status) + " " +
                        text(json_object_get_object_member(result, "ended"), "by") + ":";
  JsonArray* exchanges = json_object_get_array_member(result, "exchanges");
  for (guint i = 0; i < json_array_get_length(exchanges); ++i) {
    JsonObject* exchange = json_array_get_object_element(exchanges, i);
    outcome += std::string(" ") + text(exchange, "type") + " " + text(exchange, "outcome");
    if (std::string(text(exchange, "outcome")) == "failed")
      outcome += std::string(" at ") + text(exchange, "step");
  }
  return outcome + "; sets " + std::to_string(setsIn(cloud)) + "; left out " +
         items(result, "left_out") + "; not restored " + items(result, "not_restored");
}

void PrintTo(const FaultCase& c, std::ostream* os) {
  *os << c.fault << " on " << c.operation;
}

// On the simulated clock of one schedule: the silent peers' 20 s and 30 s waits take no time.
class FaultSwitchesCliTest : public morvik_test::CliFixture,
                             public ::testing::WithParamInterface<FaultCase> {
 protected:
  // Every line the service logs names the member that logs it, as the source shows it.
  ProcessResult run(const std::string& watch, const char* operation) {
    ProcessResult ran =
        service(watch, {"--operation", operation, "--schedule", "1", "--json", "-"});
    EXPECT_EQ(morvik_test::linesTheSourceDoesNotLog(ran.err), std::vector<std::string>());
    return ran;
  }
  // A new watch `name` with the case's first face's settings, and its platform switch if `target`.
  std::string device(const std::string& name, const char* kind, const FaultCase& c, bool target) {
    const std::string dir = watch(name, kind);
    emu::DeviceProfile profile;
    std::string error;
    EXPECT_TRUE(profile.load(dir, error)) << error;
    const std::string fault = c.fault;
    if (target && fault.rfind("platform:", 0) == 0)
      profile.platform[fault.substr(9, fault.find('=') - 9)] = fault.substr(fault.find('=') + 1);
    if (c.faceBytes && !profile.faces.empty())
      profile.faces[0].settings = "<face>" + std::string(c.faceBytes - 13, 'x') + "</face>";
    EXPECT_TRUE(profile.save(dir, error)) << error;
    return dir;
  }
};

// The run ends truthfully, loses no more than the item the fault or the limit touches, and leaves
// a watch that reads back and files only where they belong.
TEST_P(FaultSwitchesCliTest, EndsAsDesignedAndLeavesNothingHalfDone) {
  const FaultCase& c = GetParam();
  const bool backup = std::string(c.operation) == "backup";
  if (!backup && !c.document.empty()) {
    ASSERT_EQ(runEmu({"import", cloud_, file("document.json", c.document)}).status, 0);
  } else if (!backup) {
    ASSERT_EQ(run(device("sample", "--sample", c, false), "backup").status, 0);
  }
  const std::string target = device("watch", backup ? "--sample" : "--blank", c, true);
  if (std::string(c.fault).rfind("platform:", 0) != 0) {
    ProcessResult set = runEmu({"fault", target, c.fault});
    ASSERT_EQ(set.status, 0) << set.err;
  }

  ProcessResult ran = run(target, c.operation);
  EXPECT_EQ(outcomeOf(ran, cloud_), c.outcome);
  if (c.serviceLine) {
    EXPECT_TRUE(morvik_test::hasLine(ran.err, std::string("* Critical * ") + c.serviceLine))
        << ran.err;
  }
  g_autoptr(JsonParser) parser = json_parser_new();
  JsonObject* result = morvik_test::jsonObject(parser, ran.out);
  ASSERT_NE(result, nullptr);
  EXPECT_TRUE(
      json_object_get_boolean_member(json_object_get_object_member(result, "watch"), "saved"));
  EXPECT_EQ(runEmu({"show", target}).status, 0);
  // The service's files stay in its trusted directory, with or without the platform's '/'.
  g_autoptr(GDir) shared =
      g_dir_open((target + "/apps/com.talvoro.morvik.service/shared").c_str(), 0, nullptr);
  while (const char* name = shared ? g_dir_read_name(shared) : nullptr)
    EXPECT_STREQ(name, "trusted");
}

std::string notLaunched(int error) {
  return "its app could not be launched (error " + std::to_string(error) + ")";
}
const std::string kNotFound = notLaunched(APP_CONTROL_ERROR_APP_NOT_FOUND);
const std::string kRejected = notLaunched(APP_CONTROL_ERROR_LAUNCH_REJECTED);

INSTANTIATE_TEST_SUITE_P(
    EveryFault,
    FaultSwitchesCliTest,
    ::testing::Values(
        FaultCase{"cloud-fail=keys", "backup", 0, nullptr, "",
                  "4 service: backup failed at keys; sets 0; left out []; not restored []"},
        FaultCase{"cloud-fail=download", "restore", 0, nullptr, "",
                  "4 service: restore failed at download; sets 1; left out []; not restored []"},
        FaultCase{"cloud-delay=50", "backup", 0, nullptr, "",
                  "0 service: backup succeeded; sets 1; left out []; not restored []"},
        FaultCase{"watchface-silent", "backup", 0, nullptr, "",
                  "3 deadline: backup unanswered; sets 0; left out []; not restored []"},
        // An early "restore_finished" must not cut the store installs short.
        FaultCase{"watchface-finish-early", "restore", 0, nullptr, "",
                  "0 service: restore succeeded; sets 1; left out []; not restored []"},
        FaultCase{"watchapp-late=300", "backup", 0, nullptr, "",
                  "0 service: backup succeeded; sets 1; left out []; not restored []"},
        FaultCase{"watchapp-missing", "backup", 0, nullptr, "",
                  "4 service: backup succeeded; sets 1; left out [watch app "
                  "com.talvoro.clock-orbitline.service: " +
                      kNotFound + "; watch app com.talvoro.clock-pacetrail.service: " + kNotFound +
                      "]; not restored []"},
        FaultCase{"store-silent", "restore", 0, nullptr, "",
                  "4 service: restore succeeded; sets 1; left out []; not restored [app "
                  "com.indie.clock-tidal: the store never replied; app com.indie.clock-ember: the "
                  "store never replied]"},
        FaultCase{
            "store-error=VENDARO_MESSAGE_RES_ERROR_NETWORK", "restore", 0, nullptr, "",
            "4 service: restore succeeded; sets 1; left out []; not restored [app "
            "com.indie.clock-tidal: the store answered VENDARO_MESSAGE_RES_ERROR_NETWORK; app "
            "com.indie.clock-ember: the store answered VENDARO_MESSAGE_RES_ERROR_NETWORK]"},
        // The FIFO's photo is stored with empty data.
        FaultCase{"image-unreadable", "backup", 0, nullptr, "",
                  "4 service: backup succeeded; sets 1; left out [photo bg-aurora.jpg: its file "
                  "could not be read]; not restored []"},
        // A value, a message or a launch over a documented limit loses its item alone.
        // The rest of the document restores as designed: a real U+FFFD, URL-safe base64 decoded
        // as g_base64_decode does, an unknown member 600 deep.
        FaultCase{
            "platform:vconf-value-limit=4096", "restore", 0, "Failed to write main vconf key",
            "{\"watch_main_key\":\"" + std::string(4097, 'k') +
                "\",\"watch_sub_key\":\"\",\"watch_items\":[{\"pkgid\":\"com.talvoro.face."
                "mono\",\"svcid\":\"com.talvoro.watchface-service\",\"result\":\"\xEF\xBF\xBD\"}],"
                "\"watch_custom_bg\":[{\"file_name\":\"u.png\",\"bg_type\":\"T\",\"data\":\"-_8A\"}"
                "],"
                "\"x\":" +
                std::string(600, '[') + std::string(600, ']') + "}",
            "4 service: restore succeeded; sets 1; left out []; not restored [idle clock: "
            "it was not set to \"" +
                std::string(4097, 'k') + "\"]"},
        FaultCase{"platform:message-size-limit=4096", "backup", 5000, nullptr, "",
                  "4 service: backup succeeded; sets 1; left out [face com.talvoro.face.aurora: "
                  "the watch face service's entry is missing]; not restored []"},
        FaultCase{"platform:message-size-limit=4096", "restore", 5000,
                  "Failed to send message port message", "",
                  "4 service: restore succeeded; sets 1; left out []; not restored [face "
                  "com.talvoro.face.aurora: the watch face service did not get it]"},
        FaultCase{"platform:other-package-service=refuse", "backup", 0,
                  "Failed to launch com.talvoro.clock-orbitline.service app", "",
                  "4 service: backup succeeded; sets 1; left out [watch app "
                  "com.talvoro.clock-orbitline.service: " +
                      kRejected + "; watch app com.talvoro.clock-pacetrail.service: " + kRejected +
                      "]; not restored []"},
        FaultCase{"platform:other-package-service=refuse", "restore", 0,
                  "app_control_send_launch_request() failed", "",
                  "4 service: restore succeeded; sets 1; left out []; not restored [app "
                  "com.indie.clock-tidal: the store got no install request for it; app "
                  "com.indie.clock-ember: the store got no install request for it; watch app "
                  "com.talvoro.clock-pacetrail.service: " +
                      kRejected + "; watch app com.talvoro.clock-orbitline.service: " + kRejected +
                      "]"},
        FaultCase{"platform:trusted-path-slash=no", "restore", 0, nullptr, "",
                  "0 service: restore succeeded; sets 1; left out []; not restored []"}));

}  // namespace
