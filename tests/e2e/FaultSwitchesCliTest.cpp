#include <glib.h>
#include <gtest/gtest.h>
#include <json-glib/json-glib.h>

#include <string>

#include "ProcessRun.h"

namespace {

using morvik_test::ProcessResult;
using morvik_test::runEmu;

// One fault switch on one flow, and what the run's JSON result must come to: "STATUS ENDED-BY:
// each exchange; the sets in the cloud; the items the audit found left out, and not restored".
struct FaultCase {
  const char* fault;
  const char* operation;  // "backup" of a sample watch, "restore" of it onto a blank one
  const char* outcome;
};

void PrintTo(const FaultCase& c, std::ostream* os) {
  *os << c.fault << " on " << c.operation;
}

// On the simulated clock of one schedule: the silent peers' 20 s and 30 s waits take no time.
class FaultSwitchesCliTest : public morvik_test::CliFixture,
                             public ::testing::WithParamInterface<FaultCase> {
 protected:
  ProcessResult run(const std::string& watch, const char* operation) {
    return service(watch, {"--operation", operation, "--schedule", "1", "--json", "-"});
  }
};

TEST_P(FaultSwitchesCliTest, EndsAsDesignedAndLeavesNothingHalfDone) {
  const FaultCase& c = GetParam();
  const bool backup = std::string(c.operation) == "backup";
  if (!backup) {
    ASSERT_EQ(run(watch("sample", "--sample"), "backup").status, 0);
  }
  const std::string device = watch("watch", backup ? "--sample" : "--blank");
  ProcessResult set = runEmu({"fault", device, c.fault});
  ASSERT_EQ(set.status, 0) << set.err;

  ProcessResult ran = run(device, c.operation);
  EXPECT_EQ(morvik_test::outcomeOf(ran, cloud_), c.outcome);
  g_autoptr(JsonParser) parser = json_parser_new();
  JsonObject* result = morvik_test::jsonObject(parser, ran.out);
  ASSERT_NE(result, nullptr);
  EXPECT_TRUE(
      json_object_get_boolean_member(json_object_get_object_member(result, "watch"), "saved"));
  EXPECT_EQ(runEmu({"show", device}).status, 0);
}

INSTANTIATE_TEST_SUITE_P(
    EveryFault,
    FaultSwitchesCliTest,
    ::testing::Values(
        FaultCase{"cloud-fail=keys", "backup",
                  "4 service: backup failed at keys; sets 0; left out []; not restored []"},
        FaultCase{"cloud-fail=download", "restore",
                  "4 service: restore failed at download; sets 1; left out []; not restored []"},
        FaultCase{"cloud-delay=50", "backup",
                  "0 service: backup succeeded; sets 1; left out []; not restored []"},
        FaultCase{"watchface-silent", "backup",
                  "3 deadline: backup unanswered; sets 0; left out []; not restored []"},
        // An early "restore_finished" must not cut the store installs short.
        FaultCase{"watchface-finish-early", "restore",
                  "0 service: restore succeeded; sets 1; left out []; not restored []"},
        FaultCase{"watchapp-late=300", "backup",
                  "0 service: backup succeeded; sets 1; left out []; not restored []"},
        FaultCase{"watchapp-missing", "backup",
                  "4 service: backup succeeded; sets 1; left out [watch app "
                  "com.talvoro.clock-orbitline.service; watch app "
                  "com.talvoro.clock-pacetrail.service]; not restored []"},
        FaultCase{"store-silent", "restore",
                  "4 service: restore succeeded; sets 1; left out []; not restored [app "
                  "com.indie.clock-tidal; app com.indie.clock-ember]"},
        FaultCase{"store-error=VENDARO_MESSAGE_RES_ERROR_NETWORK", "restore",
                  "4 service: restore succeeded; sets 1; left out []; not restored [app "
                  "com.indie.clock-tidal; app com.indie.clock-ember]"},
        // The FIFO's photo is stored with empty data.
        FaultCase{"image-unreadable", "backup",
                  "4 service: backup succeeded; sets 1; left out [photo bg-aurora.jpg]; not "
                  "restored []"}));

}  // namespace
