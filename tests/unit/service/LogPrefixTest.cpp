// Shared steps log in the name of the member that takes them: here the failures that neither a
// fault switch nor another test reaches (every test's lines go through serviceMessages(), which
// checks each against the source).
#include <gtest/gtest.h>
#include <pkgmgr-info.h>

#include <algorithm>
#include <string>
#include <vector>

#include "LogLineMatcher.h"
#include "MvSvcRestoreModel.h"
#include "MvSvcWatchDataCollector.h"
#include "MvSvcWatchDataTransferer.h"
#include "TempDir.h"
#include "host/MainLoop.h"
#include "host/Platform.h"

namespace {

using Lines = std::vector<std::string>;

TEST(LogPrefixTest, PackageListsAndTrustedPathsFailInTheNameOfTheirCaller) {
  morvik_test::TempDir temp;
  {
    host::MainLoop loop;
    host::Platform platform(temp.path(), MVSVC_SERVICE_APP_ID);
    platform.log().setEchoToStderr(false);
    platform.packages().install({"com.indie.clock-tidal", "com.indie.clock-tidal", "watchapp"});
    platform.packages().failCall("pkgmgrinfo_appinfo_usr_filter_foreach_appinfo", PMINFO_R_ERROR);
    MvSvcWatchDataCollector().run();
    platform.packages().failCall("pkgmgrinfo_appinfo_usr_filter_foreach_appinfo", 0);
    platform.packages().failCall("pkgmgrinfo_appinfo_is_preload", PMINFO_R_ERROR);
    std::vector<WatchResultData> results, downloads{{"com.indie.clock-tidal", "", "downloaded"}};
    std::vector<WatchImageData> images;
    MvSvcWatchDataTransferer(results, images, downloads).run();
    const Lines logged = morvik_test::serviceMessages(platform.log());
    for (const std::string& line :
         {"E pkgmgrinfo_appinfo_filter_foreach_appinfo error[err code = " +
              std::to_string(PMINFO_R_ERROR) + "]",
          std::string("E pkgmgrinfo_appinfo_is_preload error")})
      EXPECT_EQ(std::count(logged.begin(), logged.end(), line), 1) << line;
    for (const std::string& line : logged)
      EXPECT_NE(line[0], '?') << line;
  }
  host::Platform diskless("", MVSVC_SERVICE_APP_ID);
  diskless.log().setEchoToStderr(false);
  MvSvcRestoreModel model(nullptr);
  EXPECT_EQ(morvik_test::serviceMessages(diskless.log()), Lines{"E get path failed"});
}

}  // namespace
