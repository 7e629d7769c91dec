// The failures no fault switch reaches name the member that logs them as the source shows it,
// shared steps included (the runs of every fault switch check theirs end to end).
#include <gtest/gtest.h>
#include <pkgmgr-info.h>

#include <set>
#include <string>
#include <vector>

#include "LogLineMatcher.h"
#include "MvSvcBackupModel.h"
#include "MvSvcRestoreModel.h"
#include "MvSvcWatchDataCollector.h"
#include "MvSvcWatchDataTransferer.h"
#include "TempDir.h"
#include "host/CloudLibrary.h"
#include "host/MainLoop.h"
#include "host/Platform.h"

namespace {

// Each line whole, as the source places it; the set of "function: message" seen.
std::set<std::string> check(const host::LogSink& log) {
  std::set<std::string> seen;
  for (const host::LogLine& line : log.lines()) {
    if (line.tag != "morvik-service")
      continue;
    morvik_test::ServiceLogLine parsed;
    EXPECT_TRUE(morvik_test::parseServiceLogLine(line, parsed)) << line.text;
    EXPECT_EQ(morvik_test::whereTheSourceDiffers(parsed), "") << line.text;
    seen.insert(parsed.function + ": " + parsed.message);
  }
  return seen;
}

TEST(LogPrefixTest, FailuresNoSwitchReachesNameTheirMember) {
  morvik_test::TempDir temp;
  std::set<std::string> seen;
  {
    host::MainLoop loop;
    host::Platform platform(temp.path(), MVSVC_SERVICE_APP_ID);
    platform.log().setEchoToStderr(false);
    host::cloud::reset();
    host::cloud::setInitializeFailure(TALVORO_CLOUD_ERROR_IO_ERROR);
    std::vector<WatchResultData> results;
    std::vector<WatchImageData> images;
    MvSvcBackupModel(nullptr, results, images).getJsonStr(0);
    MvSvcRestoreModel(nullptr).run();
    host::cloud::reset();

    platform.packages().install({"com.indie.clock-tidal", "com.indie.clock-tidal", "watchapp"});
    platform.packages().failCall("pkgmgrinfo_appinfo_usr_filter_foreach_appinfo", PMINFO_R_ERROR);
    MvSvcWatchDataCollector().run();
    platform.packages().failCall("pkgmgrinfo_appinfo_usr_filter_foreach_appinfo", 0);
    platform.packages().failCall("pkgmgrinfo_appinfo_is_preload", PMINFO_R_ERROR);
    std::vector<WatchResultData> downloads{{"com.indie.clock-tidal", "", "downloaded"}};
    MvSvcWatchDataTransferer(results, images, downloads).run();
    seen = check(platform.log());
  }
  host::Platform diskless("", MVSVC_SERVICE_APP_ID);
  diskless.log().setEchoToStderr(false);
  MvSvcRestoreModel model(nullptr);
  const std::set<std::string> pathless = check(diskless.log());
  seen.insert(pathless.begin(), pathless.end());

  const int failed = TALVORO_CLOUD_ERROR_IO_ERROR;
  const int uninitialized = TALVORO_CLOUD_ERROR_NOT_INITIALIZED;
  for (const std::string& wanted : {
           "_init: talvoro_cloud_initialize failed.(" + std::to_string(failed) + ")",
           "_fini: talvoro_cloud_deinitialize failed.(" + std::to_string(uninitialized) + ")",
           std::string("run: talvoro_cloud is not initialized."),
           std::string("RestoreModel: get path failed"),
           std::string("getJsonStr: Failed to get watch main vconf key"),
           "_get3rdWatchAppPackageInfo: pkgmgrinfo_appinfo_filter_foreach_appinfo error[err code "
           "= " +
               std::to_string(PMINFO_R_ERROR) + "]",
           std::string("_foreach_pkginfo_app_list_cb: pkgmgrinfo_appinfo_is_preload error"),
           std::string("requestWatchInstall: app_control_send_launch_request() failed"),
       })
    EXPECT_EQ(seen.count(wanted), 1u) << wanted;
}

}  // namespace
