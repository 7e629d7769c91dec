#include "host/LaunchOptions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Args = std::vector<std::string>;

TEST(LaunchOptionsTest, ReadsRequestsSpacedInTime) {
  host::LaunchOptions options;
  std::string error;
  ASSERT_TRUE(host::parseLaunchOptions(
      Args{"--device", "d", "--cloud", "c", "--operation", "none", "--extra", "retail-mode=1",
           "--then", "1.5", "--operation", "info", "--extra", "a=b=c", "--deadline", "7"},
      options, error))
      << error;
  EXPECT_EQ(options.deviceDir, "d");
  EXPECT_EQ(options.cloudDir, "c");
  EXPECT_DOUBLE_EQ(options.deadlineSeconds, 7);
  ASSERT_EQ(options.requests.size(), 2u);
  EXPECT_EQ(options.requests[0].operation, "");
  EXPECT_EQ(options.requests[0].extras, (host::KeyValues{{"retail-mode", "1"}}));
  EXPECT_DOUBLE_EQ(options.requests[0].delaySeconds, 0);
  EXPECT_EQ(options.requests[1].operation,
            "http://talvoro.com/appcontrol/operation/talvoro_cloud/get_backup_info");
  EXPECT_EQ(options.requests[1].extras, (host::KeyValues{{"a", "b=c"}}));
  EXPECT_DOUBLE_EQ(options.requests[1].delaySeconds, 1.5);
}

TEST(LaunchOptionsTest, ExpandsShortOperationNamesAndKeepsOthersVerbatim) {
  EXPECT_EQ(host::expandOperation("backup"),
            "http://talvoro.com/appcontrol/operation/talvoro_cloud/backup");
  EXPECT_EQ(host::expandOperation("restore"),
            "http://talvoro.com/appcontrol/operation/talvoro_cloud/restore");
  EXPECT_EQ(host::expandOperation("none"), "");
  EXPECT_EQ(host::expandOperation("Backup"), "Backup");
}

TEST(LaunchOptionsTest, RefusesBadCommandLinesWithAReason) {
  const Args base{"--device", "d", "--cloud", "c"};
  const struct {
    Args extra;
    const char* reason;
  } cases[] = {
      {{}, "every launch request needs --operation"},
      {{"--operation", "backup", "--then", "1"}, "every launch request needs --operation"},
      {{"--operation", "backup", "--operation", "info"}, "a launch request has one --operation"},
      {{"--then", "1", "--operation", "backup"}, "--then follows a launch request"},
      {{"--operation", "none", "--then", "-1", "--operation", "none"}, "--then needs a number"},
      {{"--operation", "none", "--then", "1x", "--operation", "none"}, "--then needs a number"},
      {{"--operation", "none", "--extra", "=1"}, "--extra needs KEY=VALUE"},
      {{"--operation", "none", "--extra", "retail-mode"}, "--extra needs KEY=VALUE"},
      {{"--operation", "none", "--deadline", "0"}, "--deadline needs a positive number"},
      {{"--operation", "none", "--deadline", "nan"}, "--deadline needs a positive number"},
      {{"--operation", "none", "--colour", "red"}, "unknown option '--colour'"},
      {{"--operation"}, "--operation needs a value"},
      {{"--operation", ""}, "--operation needs backup"},
  };
  for (const auto& c : cases) {
    Args args = base;
    args.insert(args.end(), c.extra.begin(), c.extra.end());
    host::LaunchOptions options;
    std::string error;
    SCOPED_TRACE(c.reason);
    EXPECT_FALSE(host::parseLaunchOptions(args, options, error));
    EXPECT_EQ(error.rfind(c.reason, 0), 0u) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos);
  }

  host::LaunchOptions options;
  std::string error;
  EXPECT_FALSE(
      host::parseLaunchOptions(Args{"--cloud", "c", "--operation", "none"}, options, error));
  EXPECT_EQ(error, "--device DIR is required");
  EXPECT_FALSE(
      host::parseLaunchOptions(Args{"--device", "d", "--operation", "none"}, options, error));
  EXPECT_EQ(error, "--cloud DIR is required");
}

}  // namespace
