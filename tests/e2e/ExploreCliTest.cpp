#include <glib.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "ProcessRun.h"
#include "TempDir.h"

namespace {

using morvik_test::linesOf;
using morvik_test::ProcessResult;
using morvik_test::runEmu;

std::string lastLine(const std::string& text) {
  std::vector<std::string> lines = linesOf(text);
  return lines.empty() ? std::string() : lines.back();
}

std::string lineStarting(const std::string& text, const std::string& start) {
  for (const std::string& line : linesOf(text)) {
    if (line.rfind(start, 0) == 0)
      return line;
  }
  return std::string();
}

// The cases once found by hand, and a range of seeds, end with every invariant held.
TEST(ExploreCliTest, NamedCasesAndASeedRangeHoldEveryInvariant) {
  ProcessResult named = runEmu({"explore", "--scenario", "all"});
  EXPECT_EQ(named.status, 0) << named.out << named.err;
  EXPECT_EQ(lastLine(named.out), "explore: seeds=8 failures=0") << named.out;
  ProcessResult seeds = runEmu({"explore", "--seeds", "12", "--first", "9000"});
  EXPECT_EQ(seeds.status, 0) << seeds.out << seeds.err;
  EXPECT_EQ(lastLine(seeds.out), "explore: seeds=12 failures=0") << seeds.out;
}

// A schedule depends on its seed alone: two runs of one seed cross the boundary in the same
// order at the same simulated times, and another seed does not.
TEST(ExploreCliTest, ASeedReplaysItsScheduleExactly) {
  morvik_test::TempDir temp;
  auto trace = [&](const std::string& name, const char* seed) {
    const std::string watch = temp.path() + "/" + name;
    EXPECT_EQ(runEmu({"init", watch, "--blank"}).status, 0);
    ProcessResult run = morvik_test::runProcess(
        {MORVIK_SERVICE_BIN, "--device", watch, "--cloud", temp.path() + "/cloud-" + name,
         "--schedule", seed, "--operation", "backup", "--then", "0", "--operation", "restore",
         "--then", "0.5", "--operation", "none", "--extra", "retail-mode=1"});
    return lineStarting(run.out, "schedule");
  };
  const std::string first = trace("first", "77");
  EXPECT_NE(first.find("seed 77 on a simulated clock, trace "), std::string::npos) << first;
  EXPECT_EQ(trace("again", "77"), first);
  EXPECT_NE(trace("other", "78"), first);
}

// A signal ends the run at once, even while the service waits on a silent store inside a
// nested loop, and the watch stays readable.
TEST(ExploreCliTest, SigtermEndsARunInsideAStoreWait) {
  morvik_test::TempDir temp;
  const std::string sample = temp.path() + "/sample";
  const std::string blank = temp.path() + "/blank";
  const std::string cloud = temp.path() + "/cloud";
  ASSERT_EQ(runEmu({"init", sample, "--sample"}).status, 0);
  ASSERT_EQ(morvik_test::runProcess(
                {MORVIK_SERVICE_BIN, "--device", sample, "--cloud", cloud, "--operation", "backup"})
                .status,
            0);
  ASSERT_EQ(runEmu({"init", blank, "--blank"}).status, 0);
  ASSERT_EQ(runEmu({"fault", blank, "store-silent"}).status, 0);

  const std::string summary = temp.path() + "/summary.txt";
  const gint64 started = g_get_monotonic_time();
  const pid_t service = fork();
  if (service == 0) {
    freopen(summary.c_str(), "w", stdout);
    freopen("/dev/null", "w", stderr);
    execl(MORVIK_SERVICE_BIN, MORVIK_SERVICE_BIN, "--device", blank.c_str(), "--cloud",
          cloud.c_str(), "--operation", "restore", nullptr);
    _exit(127);
  }
  // Killed once the store has let its first request go unanswered.
  const std::string log = blank + "/log/dlog.log";
  for (int i = 0; i < 1000; ++i) {
    g_autofree char* text = nullptr;
    if (g_file_get_contents(log.c_str(), &text, nullptr, nullptr) &&
        strstr(text, "left unanswered"))
      break;
    g_usleep(10000);
  }
  kill(service, SIGTERM);
  int status = 0;
  waitpid(service, &status, 0);
  g_autofree char* out = nullptr;
  g_file_get_contents(summary.c_str(), &out, nullptr, nullptr);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 128 + SIGTERM) << out;
  EXPECT_LT((g_get_monotonic_time() - started) / G_USEC_PER_SEC, 10);
  EXPECT_EQ(lineStarting(out ? out : "", "ended").rfind("ended     interrupted by SIGTERM", 0), 0u)
      << out;
  EXPECT_EQ(runEmu({"show", blank}).status, 0);
}

}  // namespace
