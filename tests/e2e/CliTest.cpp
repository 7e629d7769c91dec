#include <fcntl.h>
#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <vector>

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
  EXPECT_FALSE(g_file_test(cloud_.c_str(), G_FILE_TEST_EXISTS));

  // Another process holds the watch: runs and profile writers are refused, and nothing is lost.
  const int held = open(device_.c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(flock(held, LOCK_EX), 0);
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           run(device_, cloud_, "backup"),
           {MORVIK_EMU_BIN, "fault", device_, "watchface-silent"}}) {
    ProcessResult busy = morvik_test::runProcess(args);
    EXPECT_EQ(busy.status, 2);
    EXPECT_EQ(linesOf(busy.err).size(), 1u) << busy.err;
    EXPECT_NE(busy.err.find("is in use by another run"), std::string::npos) << busy.err;
  }
  close(held);
  EXPECT_FALSE(g_file_test(cloud_.c_str(), G_FILE_TEST_EXISTS));
  EXPECT_EQ(morvik_test::runEmu({"fault", device_, "list"}).out.find("[set:"), std::string::npos);
}

}  // namespace
