#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ProcessRun.h"
#include "TempDir.h"

namespace {

using morvik_test::ProcessResult;
using morvik_test::runEmu;
using morvik_test::runProcess;

struct FaultCase {
  const char* fault;
  const char* operation;  // "backup" on a sample watch, "restore" onto a blank one
  int status;             // 0: the service ends itself; 3: the deadline ends it
  int newSets;            // backup sets added by the run
};

void PrintTo(const FaultCase& c, std::ostream* os) {
  *os << c.fault << " on " << c.operation;
}

int setCount(const std::string& cloud) {
  ProcessResult sets = runEmu({"sets", cloud});
  return sets.out.rfind("no backup sets", 0) == 0
             ? 0
             : static_cast<int>(morvik_test::linesOf(sets.out).size());
}

// Every fault switch with a backup and with a restore: the service ends where the design says
// it does, writes no half backup, leaves a readable watch, and the sanitizers stay silent.
class FaultSwitchesCliTest : public ::testing::TestWithParam<FaultCase> {
 protected:
  morvik_test::TempDir temp_;
  const std::string watch_ = temp_.path() + "/watch";
  const std::string cloud_ = temp_.path() + "/cloud";
};

TEST_P(FaultSwitchesCliTest, EndsAsDesignedAndLeavesNothingHalfDone) {
  const FaultCase& c = GetParam();
  const bool backup = std::string(c.operation) == "backup";
  if (!backup) {
    const std::string sample = temp_.path() + "/sample";
    ASSERT_EQ(runEmu({"init", sample, "--sample"}).status, 0);
    ASSERT_EQ(runProcess({MORVIK_SERVICE_BIN, "--device", sample, "--cloud", cloud_,
                          "--operation", "backup", "--deadline", "30"})
                  .status,
              0);
  }
  ASSERT_EQ(runEmu({"init", watch_, backup ? "--sample" : "--blank"}).status, 0);
  ProcessResult set = runEmu({"fault", watch_, c.fault});
  ASSERT_EQ(set.status, 0) << set.err;
  const int setsBefore = setCount(cloud_);

  ProcessResult run =
      runProcess({MORVIK_SERVICE_BIN, "--device", watch_, "--cloud", cloud_, "--operation",
                  c.operation, "--deadline", c.status == 3 ? "3" : "30"});
  EXPECT_EQ(run.status, c.status) << run.out;
  for (const std::string& line : morvik_test::linesOf(run.err)) {
    EXPECT_EQ(line.find("Sanitizer"), std::string::npos) << line;
    EXPECT_EQ(line.find("runtime error:"), std::string::npos) << line;
  }
  EXPECT_EQ(setCount(cloud_), setsBefore + c.newSets);
  ProcessResult shown = runEmu({"show", watch_});
  EXPECT_EQ(shown.status, 0) << shown.err;
}

INSTANTIATE_TEST_SUITE_P(
    EveryFault, FaultSwitchesCliTest,
    ::testing::Values(FaultCase{"cloud-fail=prepare", "backup", 0, 0},
                      FaultCase{"cloud-fail=keys", "backup", 0, 0},
                      FaultCase{"cloud-fail=upload", "backup", 0, 0},
                      FaultCase{"cloud-fail=complete", "backup", 0, 0},
                      FaultCase{"cloud-delay=50", "backup", 0, 1},
                      FaultCase{"watchface-silent", "backup", 3, 0},
                      FaultCase{"watchface-finish-early", "backup", 0, 1},
                      FaultCase{"watchapp-late=300", "backup", 0, 1},
                      FaultCase{"watchapp-missing", "backup", 0, 1},
                      FaultCase{"store-silent", "backup", 0, 1},
                      FaultCase{"store-error=VENDARO_MESSAGE_RES_ERROR_NETWORK", "backup", 0, 1},
                      FaultCase{"image-unreadable", "backup", 0, 1},
                      FaultCase{"cloud-fail=prepare", "restore", 0, 0},
                      FaultCase{"cloud-fail=download", "restore", 0, 0},
                      FaultCase{"cloud-fail=complete", "restore", 0, 0},
                      FaultCase{"cloud-delay=50", "restore", 0, 0},
                      FaultCase{"watchface-silent", "restore", 0, 0},
                      FaultCase{"watchface-finish-early", "restore", 0, 0},
                      FaultCase{"watchapp-late=300", "restore", 0, 0},
                      FaultCase{"watchapp-missing", "restore", 0, 0},
                      FaultCase{"store-silent", "restore", 3, 0},
                      FaultCase{"store-error=VENDARO_MESSAGE_RES_ERROR_NETWORK", "restore", 0, 0},
                      FaultCase{"image-unreadable", "restore", 0, 0}));

}  // namespace
