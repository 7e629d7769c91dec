#include <fcntl.h>
#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include <regex>
#include <string>
#include <vector>

#include "MvDeviceLog.h"
#include "MvHandles.h"
#include "MvJsonNesting.h"
#include "ProcessRun.h"

namespace {

using morvik_test::linesOf;
using morvik_test::ProcessResult;

class CliTest : public morvik_test::CliFixture {
 protected:
  void SetUp() override { device_ = watch("watch", "--sample"); }

  std::string device_;
};

// On a simulated clock: the end comes 2 s after the last retail-mode request, to the millisecond.
TEST_F(CliTest, RetailModeRequestsEndTheServiceTwoSecondsAfterTheLast) {
  const std::vector<std::string> retail{"--operation", "none", "--extra", "retail-mode=1"};
  std::vector<std::string> args = retail;
  for (const double end : {2.0, 3.5}) {
    std::vector<std::string> run = args;
    run.insert(run.end(), {"--schedule", "1", "--json", "-"});
    ProcessResult result = service(device_, run);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    g_autoptr(JsonParser) parser = json_parser_new();
    JsonObject* summary = morvik_test::jsonObject(parser, result.out);
    ASSERT_NE(summary, nullptr);
    JsonObject* ended = json_object_get_object_member(summary, "ended");
    EXPECT_STREQ(json_object_get_string_member(ended, "by"), "service");
    EXPECT_NEAR(json_object_get_double_member(ended, "at"), end, 0.001);
    args.insert(args.end(), {"--then", "1.5"});
    args.insert(args.end(), retail.begin(), retail.end());
  }
}

TEST_F(CliTest, RequestWithoutExtraLogsTheErrorAndRunsIntoTheDeadline) {
  ProcessResult run =
      service(device_, {"--operation", "none", "--deadline", "1.5", "--schedule", "1"});
  EXPECT_EQ(run.status, 3);
  // The device log's shape; stderr is no terminal here, so the line has no colour.
  const std::regex expected(
      "[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}[+-][0-9]{4} "
      "E/morvik-service\\(P *[0-9]+, T *[0-9]+\\): MvSvcApp\\.cpp: onAppControl\\([0-9]+\\) > "
      "\\* Critical \\* msg is nullptr!");
  std::vector<std::string> lines = linesOf(run.err);
  ASSERT_EQ(lines.size(), 1u) << run.err;
  EXPECT_TRUE(std::regex_match(lines[0], expected)) << lines[0];
  EXPECT_TRUE(morvik_test::hasLine(run.out, "ended     by the deadline of 1.5 s")) << run.out;
  EXPECT_TRUE(morvik_test::hasLine(run.out, "waiting   for nothing")) << run.out;

  // The device's log holds the run's marker line, then the same line; the other runs and
  // levels are left out.
  ASSERT_EQ(service(device_, {"--operation", "backup", "--schedule", "1"}).status, 0);
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"log", device_, "--run", "1", "--level=error"},
           {"log", device_, "--run", "1", "--tag", "morvik-service"}}) {
    ProcessResult log = morvik_test::runEmu(args);
    const std::vector<std::string> logged = linesOf(log.out);
    ASSERT_EQ(logged.size(), 2u) << log.out << log.err;
    EXPECT_NE(logged[0].find(" I/morvik-host(P"), std::string::npos) << logged[0];
    EXPECT_NE(logged[0].find("): run begins: morvik-service --device " + device_ + " --cloud " +
                             cloud_ + " --operation none --deadline 1.5 --schedule 1"),
              std::string::npos)
        << logged[0];
    EXPECT_EQ(logged[1], lines[0]);
  }
  for (const std::vector<std::string>& args :
       std::vector<std::vector<std::string>>{{"log", device_, "--run", "3"},
                                             {"log", device_, "--run", "1", "--last"},
                                             {"log", device_, "--level", "loud"},
                                             {"log", root_}})
    EXPECT_EQ(morvik_test::runEmu(args).status, 2) << args.back();
}

// What a follower has printed once `expected` lines have come, or after 10 s.
std::string readLines(int fd, size_t expected) {
  std::string text;
  const gint64 until = g_get_monotonic_time() + 10 * G_USEC_PER_SEC;
  while (linesOf(text).size() < expected && g_get_monotonic_time() < until) {
    struct pollfd ready = {fd, POLLIN, 0};
    if (poll(&ready, 1, 100) <= 0)
      continue;
    char chunk[4096];
    const ssize_t got = read(fd, chunk, sizeof chunk);
    if (got <= 0)
      break;
    text.append(chunk, static_cast<size_t>(got));
  }
  return text;
}

// The device reader's filter specs and --pid choose lines; --follow prints runs as they happen.
TEST_F(CliTest, TheLogReaderFiltersAsTheDevicesDoesAndFollowsNewRuns) {
  const std::vector<std::string> noExtra = {"--operation", "none",       "--deadline",
                                            "0.5",         "--schedule", "1"};
  ASSERT_EQ(service(device_, {"--operation", "backup"}).status, 0);
  ASSERT_EQ(service(device_, noExtra).status, 3);
  const std::vector<std::string> all = linesOf(morvik_test::runEmu({"log", device_}).out);
  size_t ofService = 0;
  MvDeviceLogLine marker, line;
  for (const std::string& text : all)
    ofService += mvParseDeviceLogLine(text, line) && line.tag == "morvik-service";
  ASSERT_TRUE(mvParseDeviceLogLine(all[0], marker));
  ASSERT_GT(all.size(), ofService + 2);
  auto shown = [&](std::vector<std::string> args) {
    args.insert(args.begin(), {"log", device_});
    const ProcessResult run = morvik_test::runEmu(args);
    EXPECT_EQ(run.status, 0) << run.err;
    return linesOf(run.out).size();
  };
  EXPECT_EQ(shown({"morvik-service:E", "*:S"}), 3u);  // the two markers and the one error
  EXPECT_EQ(shown({"morvik-service:F", "*:S"}), 2u);
  EXPECT_EQ(shown({"morvik-service", "*:s"}), ofService + 2);
  EXPECT_EQ(shown({"morvik-service:S"}), all.size() - ofService);
  EXPECT_EQ(shown({"--run", "1", "--pid", std::to_string(marker.pid)}),
            linesOf(morvik_test::runEmu({"log", device_, "--run", "1"}).out).size());
  EXPECT_EQ(
      shown({"--pid", std::to_string(marker.pid)}),
      all.size() - linesOf(morvik_test::runEmu({"log", device_, "--run", "2"}).out).size() + 1);
  for (const char* bad : {"morvik-service:X", ":E", "--pid=0"})
    EXPECT_EQ(morvik_test::runEmu({"log", device_, bad}).status, 2) << bad;

  const std::vector<std::string> follow = {MORVIK_EMU_BIN,     "log", device_, "--last", "--follow",
                                           "morvik-service:E", "*:S"};
  std::vector<char*> argv;
  for (const std::string& arg : follow)
    argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  GPid pid = 0;
  int out = -1;
  ASSERT_TRUE(g_spawn_async_with_pipes(nullptr, argv.data(), nullptr, G_SPAWN_DO_NOT_REAP_CHILD,
                                       nullptr, nullptr, &pid, nullptr, &out, nullptr, nullptr));
  MvFd follower(out);
  EXPECT_EQ(linesOf(readLines(follower.get(), 2)).size(), 2u);
  ASSERT_EQ(service(device_, noExtra).status, 3);
  const std::vector<std::string> followed = linesOf(readLines(follower.get(), 2));
  kill(pid, SIGTERM);
  waitpid(pid, nullptr, 0);
  g_spawn_close_pid(pid);
  follower.reset();
  ASSERT_EQ(followed.size(), 2u);
  EXPECT_NE(followed[0].find("run begins: "), std::string::npos);
  EXPECT_NE(followed[1].find(" E/morvik-service("), std::string::npos);
}

TEST_F(CliTest, BadUsageOrUnusableDirectoriesExitWithTwoAndOneLineAndMakeNothing) {
  file("plain-file", "x");
  g_mkdir((root_ + "/empty").c_str(), 0755);
  // Profiles that would crash or hang a reader.
  g_mkdir((root_ + "/deep").c_str(), 0755);
  file("deep/device.json", std::string(200000, '[') + std::string(200000, ']'));
  g_mkdir((root_ + "/fifo").c_str(), 0755);
  mkfifo((root_ + "/fifo/device.json").c_str(), 0644);
  const std::string kTooDeep = "nests deeper than " + std::to_string(kMvJsonMaxNesting) + " levels";
  auto run = [&](const std::string& device, const std::string& cloud, const char* operation) {
    return std::vector<std::string>{MORVIK_SERVICE_BIN, "--device", device, "--cloud", cloud,
                                    "--operation",      operation};
  };
  g_mkdir((root_ + "/acloud").c_str(), 0755);
  file("acloud/set-000001.dat", "x");
  const std::string longDir = root_ + "/" + std::string(60, 'l');
  const std::string tooLong = "device directory '" + longDir + "' is too long: the app's files";
  g_mkdir(longDir.c_str(), 0755);
  const struct {
    std::vector<std::string> args;
    std::string reason;
  } cases[] = {
      {{MORVIK_SERVICE_BIN}, "--device DIR is required"},
      {run(root_ + "/absent", cloud_, "none"), "is not a readable, writable directory"},
      {run(device_, root_ + "/plain-file", "none"), "cloud directory"},
      {run(root_ + "/empty", cloud_, "none"), "device.json"},
      {run(root_ + "/deep", cloud_, "backup"), kTooDeep},
      {run(root_ + "/fifo", cloud_, "backup"), "device.json: not a regular file"},
      {{MORVIK_EMU_BIN, "show", root_ + "/deep"}, kTooDeep},
      // A cloud that is missing, a watch, or neither; a watch that is a cloud.
      {run(device_, root_ + "/typo", "restore"), "cloud directory '" + root_ + "/typo' does not"},
      {run(device_, root_ + "/typo", "info"), "does not exist"},
      {run(device_, device_, "backup"), "'" + device_ + "' is a watch, not a cloud"},
      {run(device_, root_, "backup"), "is not a cloud: it holds other files and no backup set"},
      {run(root_ + "/acloud", cloud_, "backup"), "'" + root_ + "/acloud' is a cloud, not a watch"},
      {{MORVIK_EMU_BIN, "doctor", root_}, "is neither a watch (it has no device.json) nor a cloud"},
      {{MORVIK_EMU_BIN, "init", root_ + "/acloud", "--blank"}, "is a cloud, not a watch"},
      {run(device_, cloud_, "backpu"),
       "unknown operation 'backpu': use backup, restore, info, none"},
      // Every tool refuses a watch whose paths would not fit the service's buffers alike.
      {run(longDir, cloud_, "backup"), tooLong},
      {{MORVIK_EMU_BIN, "init", longDir, "--sample"}, tooLong},
      {{MORVIK_EMU_BIN, "explore", "--seeds", "1", "--work", root_ + "/" + std::string(40, 'w')},
       "/seed-999999/watch' is too long: the app's files there would need"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reason);
    ProcessResult run = morvik_test::runProcess(c.args);
    EXPECT_EQ(run.status, 2);
    std::vector<std::string> lines = linesOf(run.err);
    ASSERT_EQ(lines.size(), 1u) << run.err;
    EXPECT_NE(lines[0].find(c.reason), std::string::npos) << lines[0];
    EXPECT_EQ(run.out, "");
  }
  for (const std::string& dir : {device_, root_ + "/deep", root_ + "/empty"})
    EXPECT_FALSE(g_file_test((dir + "/log").c_str(), G_FILE_TEST_EXISTS)) << dir;
  for (const std::string& dir : {cloud_, root_ + "/typo", longDir + "/device.json"})
    EXPECT_FALSE(g_file_test(dir.c_str(), G_FILE_TEST_EXISTS)) << dir;

  // A refused run answers --json with its refusal, in place of an older result.
  const std::string result = file("result.json", "{\"status\":0}");
  for (const auto& [operation, reason] : {std::make_pair("restore", "does not exist"),
                                          std::make_pair("backpu", "unknown operation")}) {
    std::vector<std::string> args = run(device_, root_ + "/typo", operation);
    args.insert(args.begin() + 1, {"--json", result});
    ASSERT_EQ(morvik_test::runProcess(args).status, 2);
    g_autofree char* text = nullptr;
    ASSERT_TRUE(g_file_get_contents(result.c_str(), &text, nullptr, nullptr));
    g_autoptr(JsonParser) parser = json_parser_new();
    JsonObject* refused = morvik_test::jsonObject(parser, text);
    ASSERT_NE(refused, nullptr);
    EXPECT_EQ(json_object_get_int_member(refused, "status"), 2);
    EXPECT_NE(std::string(json_object_get_string_member(refused, "refused")).find(reason),
              std::string::npos);
    EXPECT_EQ(json_array_get_length(json_object_get_array_member(refused, "failures")), 1u);
  }

  // Another process holds the watch: runs and profile writers are refused, and nothing is lost.
  MvFd held(open(device_.c_str(), O_RDONLY | O_DIRECTORY));
  ASSERT_EQ(flock(held.get(), LOCK_EX), 0);
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           run(device_, cloud_, "backup"),
           {MORVIK_EMU_BIN, "fault", device_, "watchface-silent"}}) {
    ProcessResult busy = morvik_test::runProcess(args);
    EXPECT_EQ(busy.status, 2);
    EXPECT_EQ(linesOf(busy.err).size(), 1u) << busy.err;
    EXPECT_NE(busy.err.find("is in use by another run"), std::string::npos) << busy.err;
  }
  held.reset();
  EXPECT_FALSE(g_file_test(cloud_.c_str(), G_FILE_TEST_EXISTS));
  EXPECT_EQ(morvik_test::runEmu({"fault", device_, "list"}).out.find("[set:"), std::string::npos);
}

}  // namespace
