#include "MvWatchNames.h"
#include "launcher/LaunchOptions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Args = std::vector<std::string>;

TEST(LaunchOptionsTest, RefusesBadCommandLinesWithAReason) {
  auto full = [](Args extra) {
    extra.insert(extra.begin(), {"--device", "d", "--cloud", "c"});
    return extra;
  };
  const struct {
    Args args;
    const char* reason;
  } cases[] = {
      {{"--cloud", "c", "--operation", "none"}, "--device DIR is required"},
      {{"--device", "d", "--operation", "none"}, "--cloud DIR is required"},
      {full({}), "every launch request needs --operation"},
      {full({"--operation", "backup", "--then", "1"}), "every launch request needs --operation"},
      {full({"--operation", "backup", "--operation", "info"}),
       "a launch request has one --operation"},
      {full({"--then", "1", "--operation", "backup"}), "--then follows a launch request"},
      {full({"--operation", "none", "--then", "1x", "--operation", "none"}),
       "--then needs a number"},
      {full({"--operation", "none", "--extra", "=1"}), "--extra needs KEY=VALUE"},
      {full({"--operation", "none", "--deadline", "nan"}), "--deadline needs a positive number"},
      {full({"--operation", "none", "--colour", "red"}), "unknown option '--colour'"},
      {full({"--operation"}), "--operation needs a value"},
      {full({"--operation", ""}), "unknown operation '': use backup, restore, info, none or a"},
      {full({"--operation", "backpu"}), "unknown operation 'backpu'"},
      {full({"--operation", "restore", "--set", "0"}), "--set needs a set ID, not '0'"},
      {full({"--operation", "restore", "--set", "1", "--set=2"}), "--set is given more than once"},
      {full({"--operation", "restore", "--then", "1", "--operation", "info", "--set", "1"}),
       "--set chooses the set of a restore, and launch request 2 is not one"},
      {full({"--device", "e", "--operation", "none"}), "--device is given more than once"},
      {full({"--operation", "none", "--deadline", "604801"}), "--deadline needs a positive"},
      {full({"--operation", "none", "--then", "4294968", "--operation", "none"}),
       "--then needs a number of seconds from 0 to"},
      {full({"--operation", "none", "stray"}), "unexpected argument 'stray'"},
  };
  for (const auto& c : cases) {
    launcher::LaunchOptions options;
    std::string error;
    SCOPED_TRACE(c.reason);
    EXPECT_FALSE(launcher::parseLaunchOptions(c.args, options, error));
    EXPECT_EQ(error.rfind(c.reason, 0), 0u) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos);
  }
}

// The forms a user types: --opt=value, the longest deadline (its milliseconds overflow an
// unsigned int), --version without the required options.
TEST(LaunchOptionsTest, ReadsConventionalForms) {
  launcher::LaunchOptions options;
  std::string error;
  const std::string custom = "http://tizen.org/appcontrol/operation/default";
  ASSERT_TRUE(launcher::parseLaunchOptions(
      Args{"--device=d", "--cloud=c", "--operation=backup", "--deadline=604800", "--then=2",
           "--operation=restore", "--set=7", "--then", "0", "--operation", custom},
      options, error))
      << error;
  EXPECT_EQ(options.deviceDir, "d");
  EXPECT_DOUBLE_EQ(options.deadlineSeconds, 604800);
  ASSERT_EQ(options.requests.size(), 3u);
  EXPECT_EQ(options.requests[0].operation, MV_OPERATION_BACKUP);
  EXPECT_FALSE(options.requests[0].setId);
  EXPECT_DOUBLE_EQ(options.requests[1].delaySeconds, 2);
  EXPECT_EQ(options.requests[1].setId, 7u);
  EXPECT_EQ(options.requests[2].operation, custom);
  launcher::LaunchOptions version;
  ASSERT_TRUE(launcher::parseLaunchOptions(Args{"--version"}, version, error)) << error;
  EXPECT_EQ(version.action, launcher::LaunchOptions::Action::kVersion);
}

}  // namespace
