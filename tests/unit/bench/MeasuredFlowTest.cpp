#include "MeasuredFlow.h"

#include <glib/gstdio.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TempDir.h"
#include "emu/SampleWatch.h"
#include "host/CloudLibrary.h"

namespace {

// The kernel updates its counters lazily: a peak a few pages under the baseline happens.
void expectPhasesAddUp(const bench::Measurement& result, const std::vector<const char*>& phases) {
  double sum = 0;
  for (const char* phase : phases) {
    const std::string name = std::string(phase) + "_ms";
    EXPECT_TRUE(result.has(name) && result.get(name) >= 0) << name;
    sum += result.get(name);
  }
  EXPECT_NEAR(sum, result.get("total_ms"), 1e-6);
  EXPECT_TRUE(result.get("total_ms") > 0 && result.get("peak_kb") > 0 && result.get("cpu_ms") > 0);
}

// The child's side of the benchmark, in this process: the flows run through the launcher on
// the sample watch and their phases come back from what the platform recorded. An empty cloud
// ends a restore before the restoration callback: no measurement.
TEST(MeasuredFlowTest, BackupAndRestoreReportTheirPhases) {
  morvik_test::TempDir temp;
  const std::string sample = temp.path() + "/sample", blank = temp.path() + "/blank",
                    cloud = temp.path() + "/cloud";
  std::string error;
  ASSERT_TRUE(emu::createSampleWatch(sample, error) && emu::createBlankWatch(blank, error))
      << error;
  ASSERT_EQ(g_mkdir(cloud.c_str(), 0755), 0);
  host::cloud::reset();
  // Runs a measured flow and reads back its result line; false when it reported failure.
  auto measure = [&](const std::string& kind, const std::string& device,
                     bench::Measurement& result) {
    testing::internal::CaptureStdout();
    const int status =
        bench::runMeasuredFlow(kind, {"--device", device, "--cloud", cloud, "--operation", kind});
    const std::string output = testing::internal::GetCapturedStdout();
    return status == 0 && bench::Measurement::parse(output, result, error);
  };
  bench::Measurement backup, restore;
  EXPECT_FALSE(measure("restore", blank, restore));
  EXPECT_FALSE(restore.has("total_ms"));
  ASSERT_TRUE(measure("backup", sample, backup));
  expectPhasesAddUp(backup, {"collect", "build", "upload"});
  ASSERT_TRUE(measure("restore", blank, restore));
  expectPhasesAddUp(restore, {"download", "parse", "transfer"});
  host::cloud::reset();
}

}  // namespace
