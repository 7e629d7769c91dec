#include <dlog.h>
#include <vconf.h>

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "MvHandles.h"
#include "PlatformFixture.h"

namespace {

using PackageAndConfigTest = morvik_test::PlatformFixture;

TEST_F(PackageAndConfigTest, ConfigurationStringsAreCopiesAndReadOnlyKeysRefuseWrites) {
  EXPECT_EQ(vconf_get_str("db/pel/clocks_set_idle"), nullptr);
  EXPECT_EQ(vconf_set_str("db/pel/clocks_set_idle", "com.indie.clock-tidal"), VCONF_OK);
  MvCharPtr value(vconf_get_str("db/pel/clocks_set_idle"));
  ASSERT_NE(value, nullptr);
  EXPECT_STREQ(value.get(), "com.indie.clock-tidal");

  platform().config().setReadOnly("db/pel/clocks_set_idle", true);
  EXPECT_EQ(vconf_set_str("db/pel/clocks_set_idle", "other"), VCONF_ERROR);
  value.reset(vconf_get_str("db/pel/clocks_set_idle"));
  EXPECT_STREQ(value.get(), "com.indie.clock-tidal");
}

// A backup document logged whole would be copied into every log line it passes through.
TEST_F(PackageAndConfigTest, LongLogMessagesAreCutBeforeACharacterAtTheLineBuffer) {
  const std::string document(5000, 'd');
  EXPECT_EQ(dlog_print(DLOG_INFO, "morvik-service", "value : %s", document.c_str()), 4096);
  // "é" takes the 4096th and 4097th bytes: the cut falls inside it, so it goes whole.
  const std::string accented = std::string(4095, 'a') + "\xC3\xA9" + "tail";
  EXPECT_EQ(dlog_print(DLOG_INFO, "morvik-service", "%s", accented.c_str()), 4095);
  EXPECT_EQ(dlog_print(DLOG_INFO, "morvik-service", "%s", std::string(4096, 'x').c_str()), 4096);
  // A string is cut without being measured to its end; every other conversion is printf's.
  char expected[64];
  snprintf(expected, sizeof expected, "%-6s|%3.1s|%%|%d|%5zu|%c", "ab", "xyz", -7, size_t{42}, 'q');
  dlog_print(DLOG_INFO, "morvik-service", "%-6s|%3.1s|%%|%d|%5zu|%c", "ab", "xyz", -7, size_t{42},
             'q');
  dlog_print(DLOG_INFO, "morvik-service", "%2$s-%1$s", "one", "two");

  const std::vector<std::string> texts = platform().log().texts("morvik-service");
  ASSERT_EQ(texts.size(), 5u);
  EXPECT_EQ(texts[0], "value : " + document.substr(0, 4096 - 8));
  EXPECT_EQ(texts[1], std::string(4095, 'a'));
  EXPECT_EQ(texts[2], std::string(4096, 'x'));
  EXPECT_EQ(texts[3], expected);
  EXPECT_EQ(texts[4], "two-one");
}

}  // namespace
