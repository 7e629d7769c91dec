#include <glib.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "ProcessRun.h"

namespace {

using morvik_test::hasLine;
using morvik_test::linesOf;
using morvik_test::ProcessResult;
using morvik_test::runEmu;

using ExploreCliTest = morvik_test::CliFixture;

// The cases once found by hand, and a range of seeds, end with every invariant held.
TEST_F(ExploreCliTest, NamedCasesAndASeedRangeHoldEveryInvariant) {
  for (const auto& args : std::vector<std::vector<std::string>>{
           {"explore", "--scenario", "all", "--work", root_ + "/named"},
           {"explore", "--seeds", "8", "--first", "9000", "--work", root_ + "/seeds"}}) {
    ProcessResult run = runEmu(args);
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    ASSERT_FALSE(linesOf(run.out).empty());
    EXPECT_EQ(
        linesOf(run.out).back(),
        "explore: seeds=" + std::string(args[1] == "--scenario" ? "13" : "8") + " failures=0");
  }
}

// A failure says why: how the service died by the signal's name, the invariant broken, the
// trace kept to draw it, and a replay line that carries the service it ran; a replayed seed
// shows its scenario and platform even when it passes.
TEST_F(ExploreCliTest, AFailureNamesItsSignalInvariantTraceAndReplayAndAReplayShowsItsScenario) {
  // The real service for the explorer's own clean backup (seed 0); every seed's run then crashes
  // once its trace is written.
  const std::string service = MORVIK_SERVICE_BIN;
  const std::string crashing =
      file("crashing-service", "#!/bin/sh\ncase \"$*\" in *\"--schedule 0 \"*) exec " + service +
                                   " \"$@\";; esac\n" + service + " \"$@\"\nkill -SEGV $$\n");
  ASSERT_EQ(chmod(crashing.c_str(), 0755), 0);
  ProcessResult run =
      runEmu({"explore", "--seed", "3", "--service", crashing, "--work", root_ + "/w1"});
  EXPECT_EQ(run.status, 1) << run.out << run.err;
  EXPECT_TRUE(hasLine(run.out, "FAILED seed 3 (killed by SIGSEGV): ")) << run.out;
  EXPECT_TRUE(hasLine(run.out, "  platform: cloud-registration=")) << run.out;
  EXPECT_TRUE(hasLine(run.out, "  - no crash: the service died of SIGSEGV")) << run.out;
  const std::string trace = root_ + "/w1/seed-3/trace.json";
  EXPECT_TRUE(hasLine(run.out, "  trace: " + trace + " (draw it: morvik-emu timeline " + trace +
                                   " -o " + root_ + "/w1/seed-3/trace.svg)"))
      << run.out;
  EXPECT_EQ(runEmu({"timeline", trace}).status, 0);
  EXPECT_TRUE(hasLine(run.out, "  replay: morvik-emu explore --seed 3 --service " + crashing))
      << run.out;

  run = runEmu({"explore", "--seed", "9001", "--work", root_ + "/w2"});
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_TRUE(hasLine(run.out, "passed seed 9001 (exit status ")) << run.out;
  EXPECT_TRUE(hasLine(run.out, "  platform: cloud-registration=")) << run.out;

  // The golden backup's own failure says what went wrong.
  const std::string failing = file("failing", "#!/bin/sh\nexit 1\n");
  ASSERT_EQ(chmod(failing.c_str(), 0755), 0);
  run = runEmu({"explore", "--seed", "3", "--service", failing, "--work", root_ + "/w3"});
  EXPECT_EQ(run.status, 2);
  EXPECT_TRUE(hasLine(run.err, "the clean backup of the sample watch ended with status 1"))
      << run.err;
}

// A file the service writes anywhere outside its run, as root, is named, for the run and for
// its check restore alike.
TEST_F(ExploreCliTest, AWriteOutsideTheRunIsNamed) {
  const std::string writer =
      file("writing-service", "#!/bin/sh\necho probe > " + root_ + "/probe-$$\nexec " +
                                  MORVIK_SERVICE_BIN + " \"$@\"\n");
  ASSERT_EQ(chmod(writer.c_str(), 0755), 0);
  ProcessResult run =
      runEmu({"explore", "--seed", "3", "--service", writer, "--work", root_ + "/w4"});
  if (hasLine(run.out, "explore: note: writes outside"))
    GTEST_SKIP() << "the audit needs root";
  EXPECT_EQ(run.status, 1) << run.out << run.err;
  EXPECT_TRUE(hasLine(
      run.out, "  - nothing written outside the run: the service wrote " + root_ + "/probe-"))
      << run.out;
  EXPECT_TRUE(hasLine(run.out, "its restore onto a blank watch wrote " + root_ + "/probe-"))
      << run.out;
}

// A watch's platform switches are fixed, listed and cleared like its fault switches; a name or
// value the platform does not know is refused with one line.
TEST_F(ExploreCliTest, APlatformSwitchIsFixedListedAndClearedOnAWatch) {
  const std::string blank = watch("blank", "--blank");
  for (const auto& refused : std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"platform", blank, "cloud-registration=maybe"}, "needs one of: refuse, replace"},
           {{"platform", blank, "vconf-value-limit=0"}, "a byte count from 1"},
           {{"platform", blank, "sideways=1"}, "unknown platform switch 'sideways'"},
           {{"platform", blank, "cloud-registration"}, "needs NAME=VALUE"},
           {{"platform", blank, "clear", "port-reregistration"}, "is not set"},
           {{"platform", blank}, "platform needs DIR and NAME=VALUE"},
       }) {
    ProcessResult run = runEmu(refused.first);
    EXPECT_EQ(run.status, 2) << refused.second;
    EXPECT_EQ(linesOf(run.err).size(), 1u) << run.err;
    EXPECT_NE(run.err.find(refused.second), std::string::npos) << run.err;
  }
  ASSERT_EQ(runEmu({"platform", blank, "port-reregistration=new-id"}).status, 0);
  ASSERT_EQ(runEmu({"platform", blank, "message-size-limit=4096"}).status, 0);
  ProcessResult list = runEmu({"platform", blank, "list"});
  EXPECT_EQ(list.status, 0);
  EXPECT_EQ(linesOf(list.out).size(), 7u) << list.out;
  EXPECT_TRUE(hasLine(list.out, "[set: new-id]")) << list.out;
  EXPECT_TRUE(hasLine(list.out, "[set: 4096]")) << list.out;
  ASSERT_EQ(runEmu({"platform", blank, "clear", "port-reregistration"}).status, 0);
  EXPECT_FALSE(hasLine(runEmu({"platform", blank, "list"}).out, "[set: new-id]"));
  ASSERT_EQ(runEmu({"platform", blank, "clear"}).status, 0);
  EXPECT_FALSE(hasLine(runEmu({"platform", blank, "list"}).out, "[set: "));
  // A run takes the watch's personality, and the watch stays readable.
  ASSERT_EQ(runEmu({"platform", blank, "cloud-registration=replace"}).status, 0);
  EXPECT_EQ(service(blank, {"--operation", "backup"}).status, 0);
  EXPECT_TRUE(hasLine(runEmu({"platform", blank, "list"}).out, "[set: replace]"));
}

// A schedule depends on its seed alone: two runs of one seed cross the boundary in the same
// order at the same simulated times, and another seed does not.
TEST_F(ExploreCliTest, ASeedReplaysItsScheduleExactly) {
  auto trace = [&](const std::string& name, const char* seed) {
    ProcessResult run =
        morvik_test::runProcess({MORVIK_SERVICE_BIN, "--device", watch(name, "--blank"), "--cloud",
                                 root_ + "/cloud-" + name, "--schedule", seed, "--operation",
                                 "backup", "--then", "0", "--operation", "restore", "--then", "0.5",
                                 "--operation", "none", "--extra", "retail-mode=1"});
    for (const std::string& line : linesOf(run.out)) {
      if (line.rfind("schedule  seed ", 0) == 0)
        return line;
    }
    return std::string("no schedule line in ") + run.out;
  };
  const std::string first = trace("first", "77");
  EXPECT_NE(first.find("seed 77 on a simulated clock, trace "), std::string::npos) << first;
  EXPECT_EQ(trace("again", "77"), first);
  EXPECT_NE(trace("other", "78"), first);
}

// A signal ends the run at once, even while the service waits on a silent store inside a
// nested loop, and the watch stays readable.
TEST_F(ExploreCliTest, SigtermEndsARunInsideAStoreWait) {
  ASSERT_EQ(service(watch("sample", "--sample"), {"--operation", "backup"}).status, 0);
  const std::string blank = watch("blank", "--blank");
  ASSERT_EQ(runEmu({"fault", blank, "store-silent"}).status, 0);

  const std::string summary = root_ + "/summary.txt";
  const pid_t service = fork();
  if (service == 0) {
    freopen(summary.c_str(), "w", stdout);
    freopen("/dev/null", "w", stderr);
    execl(MORVIK_SERVICE_BIN, MORVIK_SERVICE_BIN, "--device", blank.c_str(), "--cloud",
          cloud_.c_str(), "--operation", "restore", nullptr);
    _exit(127);
  }
  // Killed once the store has let its first request go unanswered.
  for (int i = 0; i < 1000; ++i) {
    g_autofree char* text = nullptr;
    if (g_file_get_contents((blank + "/log/dlog.log").c_str(), &text, nullptr, nullptr) &&
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
  EXPECT_TRUE(hasLine(out ? out : "", "ended     interrupted by SIGTERM")) << out;
  EXPECT_EQ(runEmu({"show", blank}).status, 0);
}

}  // namespace
