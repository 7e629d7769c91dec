#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ProcessRun.h"
#include "TempDir.h"

namespace {

using morvik_test::linesOf;
using morvik_test::runProcess;

// The measured runs themselves are covered in-process (tests/unit/bench); here only what a
// user types: bad input ends at once with one line, before any watch is built.
TEST(BenchCliTest, BadOptionsEndWithOneLineAndStatusTwo) {
  morvik_test::TempDir temp;
  const std::vector<std::vector<std::string>> cases = {
      {"--runs"}, {"--runs", "0"}, {"--runs", "7x"}, {"--bogus"}, {"--work", temp.path()}};
  for (const std::vector<std::string>& arguments : cases) {
    std::vector<std::string> args = {MORVIK_BENCH_BIN};
    args.insert(args.end(), arguments.begin(), arguments.end());
    const morvik_test::ProcessResult result = runProcess(args);
    EXPECT_EQ(result.status, 2) << arguments[0];
    ASSERT_EQ(linesOf(result.err).size(), 1u) << result.err;
    EXPECT_EQ(linesOf(result.err)[0].rfind("morvik-bench: ", 0), 0u) << result.err;
    EXPECT_TRUE(result.out.empty());
  }
}

TEST(BenchCliTest, HelpNamesTheLastLine) {
  const morvik_test::ProcessResult result = runProcess({MORVIK_BENCH_BIN, "--help"});
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.out.find("ratio=R rss_per_doc=M doc_mb=D backup_ms=B restore_ms=S floor_ms=F"),
            std::string::npos);
}

}  // namespace
