// Every line the service logs names the member that logs it, as the source shows that member:
// file, function ("operator()" for a handler written as a lambda) and line, shared steps
// included. The expected prefix of each line is read off the source, not written here.
#include <glib.h>
#include <gtest/gtest.h>
#include <pkgmgr-info.h>

#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "LogLineMatcher.h"
#include "MvSvcApp.h"
#include "MvSvcBackupModel.h"
#include "MvSvcRestoreModel.h"
#include "MvSvcWatchDataCollector.h"
#include "MvSvcWatchDataTransferer.h"
#include "TempDir.h"
#include "emu/EmulatedWatch.h"
#include "emu/SampleWatch.h"
#include "host/CloudLibrary.h"
#include "host/DeviceHooks.h"
#include "host/MainLoop.h"
#include "host/Platform.h"

namespace {

using Switches = std::map<std::string, std::string>;

// Where the source logs a line: in FILE, the member whose definition starts (at column 0) with
// `definition`, on the first line of it that holds `marker` (the quoted format when null); the
// prefix shows `shown`. A shared step's marker is its call, which hands it the caller's place.
struct Origin {
  const char* format;
  const char* file;
  const char* definition;
  const char* shown;
  const char* marker = nullptr;
};

const Origin kOrigins[] = {
    {"Setting key and date for cloud upload [key=%s, date=%s]", "BackupModel.cpp",
     "BackupModel::_backupSetKeysDatesCb(", "_backupSetKeysDatesCb"},
    {"backup jsonStr : %s", "BackupModel.cpp", "BackupModel::_backupRecordCb(", "_backupRecordCb",
     "_fillRecords(records, MVSVC_HERE)"},
    {"talvoro_cloud_initialize failed.(%d)", "BackupModel.cpp", "BackupModel::_init(", "_init",
     "mvsvcCloudInitialize(MVSVC_HERE)"},
    {"talvoro_cloud is not initialized.", "BackupModel.cpp", "BackupModel::run(", "run"},
    {"talvoro_cloud_deinitialize failed.(%d)", "BackupModel.cpp", "BackupModel::_fini(", "_fini",
     "mvsvcCloudDeinitialize(MVSVC_HERE)"},
    {"talvoro_cloud_initialize failed.(%d)", "RestoreModel.cpp", "RestoreModel::_init(", "_init",
     "mvsvcCloudInitialize(MVSVC_HERE)"},
    {"talvoro_cloud is not initialized.", "RestoreModel.cpp", "RestoreModel::run(", "run"},
    {"talvoro_cloud_deinitialize failed.(%d)", "RestoreModel.cpp", "RestoreModel::_fini(", "_fini",
     "mvsvcCloudDeinitialize(MVSVC_HERE)"},
    {"get path failed", "RestoreModel.cpp", "RestoreModel::RestoreModel(", "RestoreModel",
     "\"get path failed\", MVSVC_HERE"},
    {"value : %s", "RestoreModel.cpp", "RestoreModel::_restoreRecordCb(", "_restoreRecordCb"},
    {"Failed to get watch main vconf key", "MvSvcBackupModel.cpp",
     "void MvSvcBackupModel::getJsonStr(unsigned int,", "getJsonStr"},
    {"Failed to get watch sub key", "MvSvcBackupModel.cpp",
     "void MvSvcBackupModel::getJsonStr(unsigned int,", "getJsonStr"},
    {"Failed to collect watch backup data", "MvSvcApp.cpp", "MvSvcApp::_startCollection(",
     "operator()"},
    {"Failed to launch %s app", "MvSvcAppCtrlModel.cpp", "MvSvcAppCtrlModel::requestBackup(",
     "requestBackup"},
    {"app_control_send_launch_request() failed", "MvSvcAppCtrlModel.cpp",
     "MvSvcAppCtrlModel::requestPrepareInstall(", "requestPrepareInstall", "MVSVC_HERE"},
    {"app_control_send_launch_request() failed", "MvSvcAppCtrlModel.cpp",
     "MvSvcAppCtrlModel::requestWatchInstall(", "requestWatchInstall", "MVSVC_HERE"},
    {"app_control_get_extra_data() failed", "MvSvcAppCtrlModel.cpp",
     "MvSvcAppCtrlModel::_prepareInstallReplyCb(", "_prepareInstallReplyCb", "MVSVC_HERE"},
    {"app_control_get_extra_data() failed", "MvSvcAppCtrlModel.cpp",
     "MvSvcAppCtrlModel::_watchInstallReplyCb(", "_watchInstallReplyCb",
     "readExtra(reply, kKeyErrorMsg, MVSVC_HERE)"},
    {"request GUID = %s, result failed! errorMsg (%s)", "MvSvcAppCtrlModel.cpp",
     "MvSvcAppCtrlModel::_watchInstallReplyCb(", "_watchInstallReplyCb"},
    {"No reply from %s in %u ms", "MvSvcAppCtrlModel.cpp",
     "MvSvcAppCtrlModel::_storeReplyTimeoutCb(", "_storeReplyTimeoutCb"},
    {"No reply from %s to the install of GUID %s in %u ms", "MvSvcAppCtrlModel.cpp",
     "MvSvcAppCtrlModel::_storeReplyTimeoutCb(", "_storeReplyTimeoutCb"},
    {"Start watchface backup procedure", "MvSvcWatchDataCollector.cpp",
     "MvSvcWatchDataCollector::run(", "run"},
    {"Failed to send message port message", "MvSvcWatchDataCollector.cpp",
     "MvSvcWatchDataCollector::run(", "run"},
    {"Backup from watchface finished", "MvSvcWatchDataCollector.cpp",
     "MvSvcWatchDataCollector::_watchDataMessageCb(", "_watchDataMessageCb"},
    {"Failed to request backup app control", "MvSvcWatchDataCollector.cpp",
     "MvSvcWatchDataCollector::_sendBackupRequestAppCtrl(", "operator()"},
    {"No backup_finished from watchface in %u ms", "MvSvcWatchDataCollector.cpp",
     "MvSvcWatchDataCollector::_backupFinishedTimeoutCb(", "_backupFinishedTimeoutCb"},
    {"Unregister message port", "MvSvcWatchDataCollector.cpp",
     "MvSvcWatchDataCollector::~MvSvcWatchDataCollector(", "~MvSvcWatchDataCollector"},
    {"%s is preload. Skip backup", "MvSvcWatchDataCollector.cpp",
     "MvSvcWatchDataCollector::_foreach_pkginfo_app_list_cb(", "_foreach_pkginfo_app_list_cb"},
    {"pkgmgrinfo_appinfo_get_pkgid error", "MvSvcWatchDataCollector.cpp",
     "MvSvcWatchDataCollector::_foreach_pkginfo_app_list_cb(", "_foreach_pkginfo_app_list_cb",
     "MVSVC_HERE"},
    {"pkgmgrinfo_appinfo_filter_foreach_appinfo error[err code = %d]",
     "MvSvcWatchDataCollector.cpp", "MvSvcWatchDataCollector::_get3rdWatchAppPackageInfo(",
     "_get3rdWatchAppPackageInfo", "MVSVC_HERE"},
    {"%s is preload. Skip push into list", "MvSvcWatchDataTransferer.cpp",
     "MvSvcWatchDataTransferer::_foreach_pkginfo_app_list_cb(", "_foreach_pkginfo_app_list_cb"},
    {"pkgmgrinfo_appinfo_is_preload error", "MvSvcWatchDataTransferer.cpp",
     "MvSvcWatchDataTransferer::_foreach_pkginfo_app_list_cb(", "_foreach_pkginfo_app_list_cb",
     "MVSVC_HERE"},
    {"pkgmgrinfo_appinfo_filter_add_string[watchapp] error", "MvSvcWatchDataTransferer.cpp",
     "MvSvcWatchDataTransferer::_getInstalledWatchList(", "_getInstalledWatchList", "MVSVC_HERE"},
    {"Result restore list is empty", "MvSvcWatchDataTransferer.cpp",
     "MvSvcWatchDataTransferer::run(", "run"},
    {"Image restore list is empty", "MvSvcWatchDataTransferer.cpp",
     "MvSvcWatchDataTransferer::run(", "run"},
    {"Failed to send message port message", "MvSvcWatchDataTransferer.cpp",
     "MvSvcWatchDataTransferer::_sendMessagePortMessage(", "_sendMessagePortMessage", "MVSVC_HERE"},
    {"Restore from watchface finished", "MvSvcWatchDataTransferer.cpp",
     "MvSvcWatchDataTransferer::_watchDataMessageCb(", "_watchDataMessageCb"},
};

// The prefix the source gives `origin`, or "" when the source has no such line.
std::string prefixFromSource(const Origin& origin) {
  std::ifstream source(std::string(MORVIK_SOURCE_DIR "/service-app/src/") + origin.file);
  const std::string marker =
      origin.marker ? origin.marker : std::string("\"") + origin.format + "\"";
  bool inside = false;
  int number = 0;
  for (std::string text; std::getline(source, text);) {
    ++number;
    if (!inside)
      inside = text.find(origin.definition) != std::string::npos && text[0] != ' ';
    else if (text == "}")
      return "";
    if (inside && text.find(marker) != std::string::npos)
      return std::string(origin.file) + ": " + origin.shown + "(" + std::to_string(number) + ") > ";
  }
  return "";
}

// The format with each conversion as a wildcard.
std::string pattern(const char* format) {
  std::string text;
  for (const char* at = format; *at; ++at) {
    if (*at != '%') {
      text += *at;
      continue;
    }
    while (at[1] && !g_ascii_isalpha(at[1]))
      ++at;
    while (at[1] == 'l' || at[1] == 'z')
      ++at;
    ++at;
    text += '*';
  }
  return text;
}

class LogPrefixTest : public ::testing::Test {
 protected:
  // Runs the service as morvik-service does, on a new sample or blank watch with `faults` and
  // `config` (when set), on the fixture's cloud.
  void run(bool sample,
           const char* operation,
           const Switches& faults = {},
           const Switches* config = nullptr) {
    const std::string device = temp_.path() + "/watch" + std::to_string(++runs_);
    std::string error;
    emu::DeviceProfile profile;
    ASSERT_TRUE(sample ? emu::createSampleWatch(device, error)
                       : emu::createBlankWatch(device, error))
        << error;
    ASSERT_TRUE(profile.load(device, error)) << error;
    profile.faults = faults;
    if (config)
      profile.config = *config;
    ASSERT_TRUE(profile.save(device, error)) << error;
    emu::EmulatedWatch watch;
    host::setDeviceHooks(&watch);
    std::vector<std::string> args{"morvik-service",        "--device",    device,   "--cloud",
                                  temp_.path() + "/cloud", "--operation", operation};
    std::vector<char*> argv;
    for (std::string& arg : args)
      argv.push_back(&arg[0]);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    MvSvcApp app;
    app.start(static_cast<int>(argv.size()), argv.data());
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    check(host::Platform::current()->log());
  }

  // Each service line of `log` as the source gives it, whole.
  void check(const host::LogSink& log) {
    for (const host::LogLine& line : log.lines()) {
      if (line.tag != "morvik-service")
        continue;
      // A line cut at 4 KiB lost its closing colour: the prefix is all that counts of it.
      host::LogLine whole = line;
      morvik_test::ServiceLogLine parsed;
      if (!morvik_test::parseServiceLogLine(whole, parsed)) {
        whole.text += "\x1b[0;m";
        ASSERT_TRUE(morvik_test::parseServiceLogLine(whole, parsed)) << line.text;
      }
      std::vector<std::string> expected;
      for (const Origin& origin : kOrigins) {
        if (parsed.file != origin.file || parsed.function != origin.shown ||
            !g_pattern_match_simple(pattern(origin.format).c_str(), parsed.message.c_str()))
          continue;
        const std::string prefix = prefixFromSource(origin);
        expected.push_back(prefix + (parsed.error ? "\x1b[0;31m* Critical * " : "\x1b[0;32m") +
                           parsed.message + "\x1b[0;m");
        if (expected.back() == whole.text)
          ++hits_[&origin];
      }
      EXPECT_TRUE(std::find(expected.begin(), expected.end(), whole.text) != expected.end())
          << "logged:   " << whole.text.substr(0, 200) << "\nexpected: "
          << (expected.empty() ? "(no origin in the source)" : expected[0].substr(0, 200));
    }
  }

  morvik_test::TempDir temp_;
  int runs_ = 0;
  std::map<const Origin*, int> hits_;
};

// Backups of a sample watch and restores onto a blank one, plain and under each fault switch,
// and the failures no switch reaches, called directly.
TEST_F(LogPrefixTest, EveryLineNamesItsMemberAsTheSourceDoes) {
  run(true, "backup");
  run(false, "restore");
  const Switches noIdleClock;
  run(true, "backup", {}, &noIdleClock);
  for (const char* fault :
       {"cloud-fail=prepare", "cloud-fail=keys", "cloud-fail=upload", "cloud-fail=complete",
        "watchface-silent", "watchapp-late=300", "watchapp-missing", "image-unreadable"}) {
    SCOPED_TRACE(fault);
    gchar** parts = g_strsplit(fault, "=", 2);
    run(true, "backup", {{parts[0], parts[1] ? parts[1] : "on"}});
    g_strfreev(parts);
  }
  for (const auto& fault : Switches{{"cloud-fail", "download"},
                                    {"watchface-finish-early", "on"},
                                    {"store-silent", "on"},
                                    {"store-error", "VENDARO_MESSAGE_RES_ERROR_NETWORK"}}) {
    SCOPED_TRACE(fault.first);
    run(false, "restore", {fault});
  }

  {
    host::MainLoop loop;
    host::Platform platform(temp_.path() + "/bare", MVSVC_SERVICE_APP_ID);
    platform.log().setEchoToStderr(false);
    host::cloud::reset();
    host::cloud::setInitializeFailure(TALVORO_CLOUD_ERROR_IO_ERROR);
    std::vector<WatchResultData> results;
    std::vector<WatchImageData> images;
    MvSvcBackupModel(nullptr, results, images).run(MVSVC_OPERATION_BACKUP);
    MvSvcRestoreModel(nullptr).run();
    host::cloud::reset();

    platform.packages().install({"com.indie.clock-tidal", "com.indie.clock-tidal", "watchapp"});
    platform.packages().failCall("pkgmgrinfo_appinfo_usr_filter_foreach_appinfo", PMINFO_R_ERROR);
    MvSvcWatchDataCollector().run();
    platform.packages().failCall("pkgmgrinfo_appinfo_usr_filter_foreach_appinfo", 0);
    platform.packages().failCall("pkgmgrinfo_appinfo_get_pkgid", PMINFO_R_ERROR);
    MvSvcWatchDataCollector().run();
    platform.packages().failCall("pkgmgrinfo_appinfo_get_pkgid", 0);
    std::vector<WatchResultData> downloads{{"com.indie.clock-tidal", "", "downloaded"}};
    platform.packages().failCall("pkgmgrinfo_appinfo_is_preload", PMINFO_R_ERROR);
    MvSvcWatchDataTransferer(results, images, downloads).run();
    platform.packages().failCall("pkgmgrinfo_appinfo_filter_add_string", PMINFO_R_EINVAL);
    downloads = {{"com.indie.clock-tidal", "", "downloaded"}};
    MvSvcWatchDataTransferer(results, images, downloads).run();
    check(platform.log());
  }
  {
    host::Platform diskless("", MVSVC_SERVICE_APP_ID);
    diskless.log().setEchoToStderr(false);
    MvSvcRestoreModel model(nullptr);
    check(diskless.log());
  }

  for (const Origin& origin : kOrigins) {
    EXPECT_NE(prefixFromSource(origin), "") << origin.format << " in " << origin.file;
    EXPECT_GT(hits_[&origin], 0) << "never logged: " << origin.format << " in " << origin.shown;
  }
}

}  // namespace
