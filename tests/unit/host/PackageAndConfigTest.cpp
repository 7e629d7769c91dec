#include <dlog.h>
#include <pkgmgr-info.h>
#include <tzplatform_config.h>
#include <vconf.h>

#include <glib.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <utility>
#include <vector>

#include "PlatformFixture.h"

namespace {

class PackageAndConfigTest : public morvik_test::PlatformFixture {
 protected:
  void SetUp() override {
    PlatformFixture::SetUp();
    platform().packages().install(
        {"com.talvoro.watchface", "com.talvoro.watchface", "watchapp", true});
    platform().packages().install(
        {"com.talvoro.watchface-service", "com.talvoro.watchface-service", "svcapp", true});
    platform().packages().install(
        {"com.indie.clock-tidal", "com.indie.clock-tidal", "watchapp", false});
    platform().packages().install({"com.indie.multi", "com.indie.multi.a", "watchapp", false});
    platform().packages().install({"com.indie.multi", "com.indie.multi.b", "watchapp", false});
  }

  struct Listing {
    std::vector<std::pair<std::string, bool>> apps;
    int stopAfter = -1;
  };

  static int listApp(const pkgmgrinfo_appinfo_h handle, void* data) {
    auto* listing = static_cast<Listing*>(data);
    char* pkgId = nullptr;
    bool preload = false;
    EXPECT_EQ(pkgmgrinfo_appinfo_get_pkgid(handle, &pkgId), PMINFO_R_OK);
    EXPECT_EQ(pkgmgrinfo_appinfo_is_preload(handle, &preload), PMINFO_R_OK);
    listing->apps.emplace_back(pkgId, preload);
    if (listing->stopAfter >= 0 && static_cast<int>(listing->apps.size()) >= listing->stopAfter)
      return -1;
    return 0;
  }

  int listWatchApps(Listing& listing, uid_t uid) {
    pkgmgrinfo_appinfo_filter_h filter = nullptr;
    EXPECT_EQ(pkgmgrinfo_appinfo_filter_create(&filter), PMINFO_R_OK);
    EXPECT_EQ(
        pkgmgrinfo_appinfo_filter_add_string(filter, PMINFO_APPINFO_PROP_APP_COMPONENT, "watchapp"),
        PMINFO_R_OK);
    int result = pkgmgrinfo_appinfo_usr_filter_foreach_appinfo(filter, listApp, &listing, uid);
    pkgmgrinfo_appinfo_filter_destroy(filter);
    return result;
  }
};

TEST_F(PackageAndConfigTest, FilterListsWatchAppsInOrderWithTheirPreloadFlag) {
  Listing listing;
  EXPECT_EQ(listWatchApps(listing, tzplatform_getuid(TZ_SYS_GLOBALAPP_USER)), PMINFO_R_OK);
  EXPECT_EQ(listing.apps,
            (std::vector<std::pair<std::string, bool>>{{"com.talvoro.watchface", true},
                                                       {"com.indie.clock-tidal", false},
                                                       {"com.indie.multi", false},
                                                       {"com.indie.multi", false}}));

  Listing stopped;
  stopped.stopAfter = 2;
  EXPECT_EQ(listWatchApps(stopped, tzplatform_getuid(TZ_SYS_DEFAULT_USER)), PMINFO_R_OK);
  EXPECT_EQ(stopped.apps.size(), 2u);
  Listing none;
  EXPECT_EQ(listWatchApps(none, 1234), PMINFO_R_EINVAL);
  EXPECT_TRUE(none.apps.empty());
}

TEST_F(PackageAndConfigTest, ConfigurationStringsAreCopiesAndReadOnlyKeysRefuseWrites) {
  EXPECT_EQ(vconf_get_str("db/pel/clocks_set_idle"), nullptr);
  EXPECT_EQ(vconf_set_str("db/pel/clocks_set_idle", "com.indie.clock-tidal"), VCONF_OK);
  char* value = vconf_get_str("db/pel/clocks_set_idle");
  ASSERT_NE(value, nullptr);
  EXPECT_STREQ(value, "com.indie.clock-tidal");
  free(value);

  platform().config().setReadOnly("db/pel/clocks_set_idle", true);
  EXPECT_EQ(vconf_set_str("db/pel/clocks_set_idle", "other"), VCONF_ERROR);
  value = vconf_get_str("db/pel/clocks_set_idle");
  EXPECT_STREQ(value, "com.indie.clock-tidal");
  free(value);
}

// A backup document logged whole would be copied into every log line it passes through.
TEST_F(PackageAndConfigTest, LongLogMessagesAreCutBeforeACharacterAtTheLineBuffer) {
  const std::string document(5000, 'd');
  EXPECT_EQ(dlog_print(DLOG_INFO, "morvik-service", "value : %s", document.c_str()), 4096);
  // "é" takes the 4096th and 4097th bytes: the cut falls inside it, so it goes whole.
  const std::string accented = std::string(4095, 'a') + "\xC3\xA9" + "tail";
  EXPECT_EQ(dlog_print(DLOG_INFO, "morvik-service", "%s", accented.c_str()), 4095);
  EXPECT_EQ(dlog_print(DLOG_INFO, "morvik-service", "%s", std::string(4096, 'x').c_str()), 4096);

  const std::vector<std::string> texts = platform().log().texts("morvik-service");
  ASSERT_EQ(texts.size(), 3u);
  EXPECT_EQ(texts[0], "value : " + document.substr(0, 4096 - 8));
  EXPECT_EQ(texts[1], std::string(4095, 'a'));
  EXPECT_EQ(texts[2], std::string(4096, 'x'));
}

}  // namespace
