#include "MvDeviceLog.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

const char* const kTime = "11-22 18:26:40.123+0100";

MvDeviceLogLine lineWith(const std::string& message) {
  return MvDeviceLogLine{kTime, 'I', "tag", 42, 4243, message};
}

TEST(DeviceLogTest, LinesHaveTheDeviceReadersShapeAndReadBack) {
  const std::vector<std::string> written =
      mvFormatDeviceLogLine(lineWith("a (P 1, T 2): b"), false);
  ASSERT_EQ(written.size(), 1u);
  EXPECT_EQ(written[0], std::string(kTime) + " I/tag     (P   42, T 4243): a (P 1, T 2): b");
  MvDeviceLogLine read;
  ASSERT_TRUE(mvParseDeviceLogLine(written[0], read));
  EXPECT_EQ(mvFormatDeviceLogLine(read, false), written);

  // Each line of a message carries the whole header.
  const std::vector<std::string> two = mvFormatDeviceLogLine(lineWith("one\ntwo"), false);
  ASSERT_EQ(two.size(), 2u);
  ASSERT_TRUE(mvParseDeviceLogLine(two[1], read));
  EXPECT_EQ(read.message, "two");

  for (const char* text :
       {"", "E/tag: message", "11-22 18:26:40.123+0100 I/tag: message",
        "11-22 18:26:40.123+0100 X/tag(P 1, T 2): m", "11-22 18:26:4x.123+0100 I/tag(P 1, T 2): m"})
    EXPECT_FALSE(mvParseDeviceLogLine(text, read)) << text;
}

TEST(DeviceLogTest, ColourPassesOnlyToTerminalsAndIsAlwaysReset) {
  const std::string green = "\x1b[0;32m", red = "\x1b[0;31m", reset = "\x1b[0;m";
  const struct {
    std::string message;
    bool colour;
    std::string shown;
  } cases[] = {
      {green + "info" + reset, false, "info"},
      {green + "info" + reset, true, green + "info" + reset},
      // Cut at the line buffer before the reset, or inside it.
      {red + "* Critical * value : {...", true, red + "* Critical * value : {..." + reset},
      {green + "value" + "\x1b[0;", true, green + "value" + reset},
      {green + "value" + "\x1b[0;", false, "value"},
      // Nothing else reaches the terminal.
      {"a\x1b]0;title\x07z\r\x7f", true, "a^[]0;title^Gz^M^?"},
      {"tab\tkept", false, "tab\tkept"},
  };
  for (const auto& c : cases) {
    const std::vector<std::string> written = mvFormatDeviceLogLine(lineWith(c.message), c.colour);
    ASSERT_EQ(written.size(), 1u);
    MvDeviceLogLine read;
    ASSERT_TRUE(mvParseDeviceLogLine(written[0], read));
    EXPECT_EQ(read.message, c.shown) << c.message;
  }
}

}  // namespace
