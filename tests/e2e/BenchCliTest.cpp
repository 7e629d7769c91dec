#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ProcessRun.h"

namespace {

using morvik_test::linesOf;
using morvik_test::runProcess;

// The measured runs are covered in-process; here bad input ends at once, before any watch is
// built, with one line that says what is wrong.
TEST(BenchCliTest, BadOptionsEndWithOneLineAndStatusTwo) {
  morvik_test::TempDir temp;
  const struct {
    std::vector<std::string> arguments;
    std::string says;
  } cases[] = {
      {{"--runs"}, "Missing argument for --runs"},
      {{"--runs", "0"}, "--runs needs a number from 1 to 100, not '0'"},
      {{"--runs=99999999999999999999"}, "not '99999999999999999999'"},
      {{"--runs=2", "--runs", "3"}, "--runs is given more than once"},
      {{"extra"}, "unexpected argument 'extra'"},
      {{"--work", temp.path()}, "already exists"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> args = {MORVIK_BENCH_BIN};
    args.insert(args.end(), c.arguments.begin(), c.arguments.end());
    const morvik_test::ProcessResult result = runProcess(args);
    EXPECT_EQ(result.status, 2) << c.arguments[0];
    ASSERT_EQ(linesOf(result.err).size(), 1u) << result.err;
    EXPECT_EQ(linesOf(result.err)[0].rfind("morvik-bench: ", 0), 0u) << result.err;
    EXPECT_NE(result.err.find(c.says), std::string::npos) << result.err;
    EXPECT_TRUE(result.out.empty());
  }
}

}  // namespace
