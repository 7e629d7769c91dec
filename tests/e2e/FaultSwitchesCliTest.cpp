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
  int status;             // 0: all went well; 4: a flow failed; 3: the deadline ends it
  int newSets;            // backup sets added by the run
  // `morvik-emu diff` of a fresh `init REFERENCE` against where the data ended up (after a
  // backup, a blank watch restored from the new set; after a restore, the watch), with the
  // reference's directory written as REF; nullptr when there is nothing to compare.
  const char* reference;
  const char* diff;
};

const char* const kSame = "same setup\n";
const char* const kNoWatchAppSettings =
    "watch app com.talvoro.clock-orbitline.service: settings differ\n"
    "watch app com.talvoro.clock-pacetrail.service: settings differ\n";

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
    ASSERT_EQ(runProcess({MORVIK_SERVICE_BIN, "--device", sample, "--cloud", cloud_, "--operation",
                          "backup", "--deadline", "30"})
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
  if (c.diff == nullptr)
    return;

  // Ending with status 0 is not enough: the data must also have arrived, whole.
  std::string restored = watch_;
  if (backup) {
    restored = temp_.path() + "/restored";
    ASSERT_EQ(runEmu({"init", restored, "--blank"}).status, 0);
    ProcessResult back = runProcess({MORVIK_SERVICE_BIN, "--device", restored, "--cloud", cloud_,
                                     "--operation", "restore", "--deadline", "30"});
    ASSERT_EQ(back.status, 0) << back.out;
  }
  const std::string reference = temp_.path() + "/reference";
  ASSERT_EQ(runEmu({"init", reference, c.reference}).status, 0);
  std::string diff = runEmu({"diff", reference, restored}).out;
  for (size_t at = diff.find(reference); at != std::string::npos; at = diff.find(reference, at))
    diff.replace(at, reference.size(), "REF");
  EXPECT_EQ(diff, c.diff);
}

INSTANTIATE_TEST_SUITE_P(
    EveryFault,
    FaultSwitchesCliTest,
    ::testing::Values(
        FaultCase{"cloud-fail=prepare", "backup", 4, 0, nullptr, nullptr},
        FaultCase{"cloud-fail=keys", "backup", 4, 0, nullptr, nullptr},
        FaultCase{"cloud-fail=upload", "backup", 4, 0, nullptr, nullptr},
        FaultCase{"cloud-fail=complete", "backup", 4, 0, nullptr, nullptr},
        FaultCase{"cloud-delay=50", "backup", 0, 1, "--sample", kSame},
        FaultCase{"watchface-silent", "backup", 3, 0, nullptr, nullptr},
        FaultCase{"watchface-finish-early", "backup", 0, 1, "--sample", kSame},
        // Replies after "backup_finished" are not collected.
        FaultCase{"watchapp-late=300", "backup", 4, 1, "--sample", kNoWatchAppSettings},
        FaultCase{"watchapp-missing", "backup", 4, 1, "--sample", kNoWatchAppSettings},
        FaultCase{"store-silent", "backup", 0, 1, "--sample", kSame},
        FaultCase{"store-error=VENDARO_MESSAGE_RES_ERROR_NETWORK", "backup", 0, 1, "--sample",
                  kSame},
        // The FIFO's photo is stored with empty data.
        FaultCase{"image-unreadable", "backup", 4, 1, "--sample",
                  "photo bg-aurora.jpg: bytes differ\n"},
        FaultCase{"cloud-fail=prepare", "restore", 4, 0, "--blank", kSame},
        FaultCase{"cloud-fail=download", "restore", 4, 0, "--blank", kSame},
        // The setup is applied before the closing step fails.
        FaultCase{"cloud-fail=complete", "restore", 4, 0, "--sample", kSame},
        FaultCase{"cloud-delay=50", "restore", 0, 0, "--sample", kSame},
        FaultCase{"watchface-silent", "restore", 0, 0, "--sample", kSame},
        // An early "restore_finished" must not cut the store installs short.
        FaultCase{"watchface-finish-early", "restore", 0, 0, "--sample", kSame},
        FaultCase{"watchapp-late=300", "restore", 0, 0, "--sample", kSame},
        FaultCase{"watchapp-missing", "restore", 4, 0, "--sample", kNoWatchAppSettings},
        FaultCase{"store-silent", "restore", 3, 0, nullptr, nullptr},
        FaultCase{
            "store-error=VENDARO_MESSAGE_RES_ERROR_NETWORK", "restore", 4, 0, "--sample",
            "app com.indie.clock-ember: only on REF\napp com.indie.clock-tidal: only on REF\n"},
        FaultCase{"image-unreadable", "restore", 0, 0, "--sample", kSame}));

}  // namespace
