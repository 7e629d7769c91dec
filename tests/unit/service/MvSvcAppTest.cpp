#include "MvSvcApp.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LogLineMatcher.h"
#include "MvHandles.h"
#include "MvSvcTypes.h"
#include "TempDir.h"
#include "emu/EmulatedWatch.h"
#include "emu/SampleWatch.h"
#include "host/AppControl.h"
#include "host/MainLoop.h"
#include "host/Platform.h"

namespace {

using Kind = host::BoundaryEvent::Kind;

const char* const kBackup = MV_OPERATION_BACKUP;
const host::KeyValues kRetail = {{"retail-mode", "0"}};
const char* const kNoRetailMode = "onAppControl: msg is nullptr!";

// Launch requests (each after the previous one's delay) delivered to the service on the
// emulated sample watch with its peers and the cloud agent, and what the run leaves behind
// (see describe()).
struct Case {
  const char* name;
  std::vector<launcher::LaunchRequest> requests;
  std::string left;
  const char* fault = nullptr;  // set on the watch before it boots
};

const Case kCases[] = {
    {"Backup", {{kBackup, {}, 0}}, "exit 0.0; replies 1 succeeded; sets 1; collections 1"},
    // Only one collector can hold the watch face service's port: the later request joins the
    // running collection and takes over its answer.
    {"TwoBackupsShareOneCollection",
     {{kBackup, {}, 0}, {kBackup, {}, 0}},
     "exit 0.0; replies 1 canceled 2 succeeded; sets 1; collections 1"},
    // The watch face service never finishes: after its 30 s bound the collection fails, and the
    // service stays up with the request unanswered.
    {"FailedCollection",
     {{kBackup, {}, 0}},
     "exit never; replies; sets 0; collections 1; "
     "_backupFinishedTimeoutCb: No backup_finished from watchface in 30000 ms; "
     "operator(): Failed to collect watch backup data",
     "watchface-silent"},
    {"BackupInformation",
     {{MV_OPERATION_GET_BACKUP_INFO, {}, 0}},
     std::string("exit 0.0; replies 1 succeeded; sets 0; collections 0; ") + kNoRetailMode},
    {"RestoreFromAnEmptyCloud",
     {{MV_OPERATION_RESTORE, {}, 0}},
     "exit 0.0; replies 1 succeeded; sets 0; collections 0"},
    {"RetailModeEndsTheServiceTwoSecondsLater",
     {{"", kRetail, 0}},
     "exit 2.0; replies; sets 0; collections 0"},
    {"SecondRetailRequestRestartsTheDelay",
     {{"", kRetail, 0}, {"http://example.com/unknown", kRetail, 1}},
     "exit 3.0; replies; sets 0; collections 0"},
    // Near misses of the cloud operations are no operation at all.
    {"NoCloudOperation",
     {{"HTTP://talvoro.com/appcontrol/operation/talvoro_cloud/backup", {}, 0},
      {MV_OPERATION_BACKUP "/", {}, 0},
      {"http://talvoro.com/appcontrol/operation/talvoro_cloud/restor", {}, 0}},
     std::string("exit never; replies; sets 0; collections 0; ") + kNoRetailMode + "; " +
         kNoRetailMode + "; " + kNoRetailMode},
};

// ctest lists a case by its name, not by its bytes.
void PrintTo(const Case& c, std::ostream* os) {
  *os << c.name;
}

class MvSvcAppTest : public ::testing::TestWithParam<Case> {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(emu::createSampleWatch(device_, error)) << error;
    ASSERT_EQ(g_mkdir(cloud_.c_str(), 0755), 0);
    platform_.log().setEchoToStderr(false);
  }

  void TearDown() override {
    launcher::RunReport report;
    watch_.finish(platform_, launcher::RunOutcome(), report);
  }

  // Delivers the requests as the launcher does and runs until the service exits, or for 40 s
  // (simulated) when it does not: past the 30 s bound on the collection.
  void run(MvSvcApp& app, const Case& c) {
    if (c.fault) {
      emu::DeviceProfile profile;
      std::string error;
      ASSERT_TRUE(profile.load(device_, error)) << error;
      profile.faults[c.fault] = "on";
      ASSERT_TRUE(profile.save(device_, error)) << error;
    }
    launcher::LaunchOptions options;
    options.deviceDir = device_;
    options.cloudDir = cloud_;
    options.requests = c.requests;
    std::string error;
    ASSERT_TRUE(watch_.boot(platform_, options, error)) << error;
    double at = 0;
    for (size_t i = 0; i < c.requests.size(); ++i) {
      app_control_s launched;
      launched.hasOperation = !c.requests[i].operation.empty();
      launched.operation = c.requests[i].operation;
      launched.extras = c.requests[i].extras;
      launched.launchId = static_cast<unsigned>(i + 1);
      at += c.requests[i].delaySeconds;
      platform_.post(
          [this, &app, launched] {
            MvAppControlPtr handle(host::cloneAppControl(launched));
            platform_.addEvent(Kind::kLaunchRequest, "", launched.operation, launched.extras, 0,
                               launched.launchId);
            app.onAppControl(handle.get(), launched.launchId == 1);
          },
          static_cast<unsigned>(at * 1000));
    }
    platform_.post([] { host::MainLoop::quit(); }, 40000);
    loop_.run();
  }

  // When the service asked to exit, the replies to the launcher, the sets stored, the
  // collections started, and each error line with the function that logged it.
  std::string describe() {
    const auto exits = platform_.record().ofKind(Kind::kExitRequested);
    char exit[32] = "never";
    if (!exits.empty())
      snprintf(exit, sizeof(exit), exits.size() == 1 ? "%.1f" : "%.1f and more", exits[0].at);
    std::string text = std::string("exit ") + exit + "; replies";
    for (const host::BoundaryEvent& reply : platform_.record().ofKind(Kind::kReplyToLauncher)) {
      text += " " + std::to_string(reply.launchId) +
              (reply.code == APP_CONTROL_RESULT_SUCCEEDED  ? " succeeded"
               : reply.code == APP_CONTROL_RESULT_CANCELED ? " canceled"
                                                           : " failed");
    }
    int sets = 0;
    g_autoptr(GDir) dir = g_dir_open(cloud_.c_str(), 0, nullptr);
    while (const char* name = dir ? g_dir_read_name(dir) : nullptr)
      sets += g_str_has_prefix(name, "set-") ? 1 : 0;
    int collections = 0;
    std::string errors;
    for (const host::LogLine& line : platform_.log().lines()) {
      morvik_test::ServiceLogLine parsed;
      if (!morvik_test::parseServiceLogLine(line, parsed))
        continue;
      collections += parsed.message == "Start watchface backup procedure";
      if (parsed.error)
        errors += "; " + parsed.function + ": " + parsed.message;
    }
    return text + "; sets " + std::to_string(sets) + "; collections " +
           std::to_string(collections) + errors;
  }

  morvik_test::TempDir temp_;
  const std::string device_ = temp_.path() + "/watch";
  const std::string cloud_ = temp_.path() + "/cloud";
  host::MainLoop loop_;
  host::Platform platform_{device_, MV_SERVICE_APP_ID};
  emu::EmulatedWatch watch_;
};

TEST_P(MvSvcAppTest, LeavesBehind) {
  const int handles = host::liveAppControlCount();
  MvSvcApp app;
  run(app, GetParam());
  EXPECT_EQ(describe(), GetParam().left);

  // A backup is answered once its collection has finished.
  int lastMessage = -1;
  const std::vector<host::BoundaryEvent>& events = platform_.record().events();
  for (size_t i = 0; i < events.size(); ++i) {
    if (events[i].kind == Kind::kMessageDelivered)
      lastMessage = static_cast<int>(i);
    if (events[i].kind == Kind::kReplyToLauncher && events[i].code == 0) {
      EXPECT_GT(static_cast<int>(i), lastMessage);
    }
  }
  // Every exchange released the clone of the request it answered.
  if (platform_.exitRequested()) {
    EXPECT_EQ(host::liveAppControlCount(), handles);
  }
}

INSTANTIATE_TEST_SUITE_P(Requests,
                         MvSvcAppTest,
                         ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case>& info) {
                           return std::string(info.param.name);
                         });

TEST(MvSvcAppLifeTest, DestroyingTheAppCancelsAPendingExit) {
  host::MainLoop loop;
  host::Platform platform("", MV_SERVICE_APP_ID);
  platform.log().setEchoToStderr(false);
  {
    MvSvcApp app;
    app_control_s launched;
    launched.extras = kRetail;
    MvAppControlPtr handle(host::cloneAppControl(launched));
    app.onAppControl(handle.get(), true);
  }
  platform.post([] { host::MainLoop::quit(); }, 3000);
  loop.run();
  EXPECT_FALSE(platform.exitRequested());
}

TEST(MvSvcAppDeathTest, NullRequestBreaksThePrecondition) {
  host::Platform platform("", MV_SERVICE_APP_ID);
  MvSvcApp app;
#ifdef NDEBUG
  platform.log().setEchoToStderr(false);
  app.onAppControl(nullptr, true);
  EXPECT_EQ(morvik_test::serviceMessages(platform.log()),
            (std::vector<std::string>{"E WASSERT! request != nullptr", "E msg is nullptr!"}));
#else
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(app.onAppControl(nullptr, true),
               "MvSvcApp\\.cpp: onAppControl\\([0-9]+\\) > .*WASSERT! request != nullptr");
#endif
}

}  // namespace
