#include <WServiceApp.h>

#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <service_app.h>
#include <stdlib.h>

#include <functional>
#include <string>
#include <vector>

#include "MvHandles.h"
#include "MvWatchNames.h"
#include "TempDir.h"
#include "emu/EmulatedWatch.h"
#include "emu/SampleWatch.h"
#include "launcher/DeviceHooks.h"
#include "launcher/Launcher.h"

namespace {

// Records the life cycle as the launcher drives it.
class RecordingApp : public app_assist::WServiceApp {
 public:
  bool onCreate() override {
    calls.push_back("create");
    return createResult;
  }
  void onTerminate() override { calls.push_back("terminate"); }
  void onAppControl(app_control_h request, bool firstLaunch) override {
    char* text = nullptr;
    app_control_get_operation(request, &text);
    MvCharPtr operation(text);
    calls.push_back(std::string(firstLaunch ? "first " : "next ") +
                    (operation ? operation.get() : "(none)"));
    if (onRequest)
      onRequest(request);
  }

  bool createResult = true;
  std::function<void(app_control_h)> onRequest;
  std::vector<std::string> calls;
};

class LauncherTest : public ::testing::Test {
 protected:
  // Runs `app` on a new sample watch, ROOT/`name`, as the service's main() does.
  int run(RecordingApp& app, std::vector<std::string> extra, const char* name = "watch") {
    const std::string device = temp_.path() + "/" + name;
    std::string error;
    EXPECT_TRUE(emu::createSampleWatch(device, error)) << error;
    emu::EmulatedWatch watch;
    launcher::Launcher launcher(MV_SERVICE_APP_ID);
    host::setAppLauncher(&launcher);
    launcher::setDeviceHooks(&watch);
    std::vector<std::string> args{"service", "--device", device, "--cloud",
                                  temp_.path() + "/cloud"};
    args.insert(args.end(), extra.begin(), extra.end());
    std::vector<char*> argv;
    for (std::string& arg : args)
      argv.push_back(&arg[0]);
    testing::internal::CaptureStdout();
    const int status = app.start(static_cast<int>(argv.size()), argv.data());
    summary_ = testing::internal::GetCapturedStdout();
    launcher::setDeviceHooks(nullptr);
    host::setAppLauncher(nullptr);
    return status;
  }

  bool summaryHas(const std::string& line) const {
    return summary_.find("\n" + line) != std::string::npos;
  }

  morvik_test::TempDir temp_;
  std::string summary_;
};

TEST_F(LauncherTest, DeliversRequestsInOrderAndEndsWhenTheAppExits) {
  RecordingApp app;
  int delivered = 0;
  app.onRequest = [&](app_control_h) {
    if (++delivered == 2)
      service_app_exit();
  };
  EXPECT_EQ(run(app, {"--operation", "backup", "--then", "0.05", "--operation", "none", "--then",
                      "5", "--operation", "restore"}),
            4);
  EXPECT_EQ(app.calls,
            (std::vector<std::string>{
                "create", "first http://talvoro.com/appcontrol/operation/talvoro_cloud/backup",
                "next (none)", "terminate"}));
  EXPECT_TRUE(summaryHas("ended     by the service itself")) << summary_;
  // The app answered neither cloud request, and the run ended before the third was due.
  EXPECT_TRUE(summaryHas("cloud     request 1, backup: the service never answered")) << summary_;
  EXPECT_TRUE(summaryHas("cloud     request 3, restore: not delivered")) << summary_;
}

// What the app does wrong with its one request, and the summary line that must say so.
TEST_F(LauncherTest, AFlowThatEndsBadlyIsAFailureInTheSummary) {
  const std::string unsaved = temp_.path() + "/unsaved";
  const struct {
    const char* name;
    std::function<void(app_control_h)> act;
    std::string line;
  } cases[] = {
      {"twice",
       [](app_control_h request) {
         MvAppControlPtr reply = mvCreateAppControl();
         app_control_reply_to_launch_request(reply.get(), request, APP_CONTROL_RESULT_SUCCEEDED);
         app_control_reply_to_launch_request(reply.get(), request, APP_CONTROL_RESULT_FAILED);
       },
       "reply     launch request 1 was answered more than once"},
      // A directory in the profile's place: the run's changes to the watch cannot be saved.
      {"unsaved",
       [&](app_control_h) {
         ASSERT_EQ(g_unlink((unsaved + "/device.json").c_str()), 0);
         ASSERT_EQ(g_mkdir((unsaved + "/device.json").c_str(), 0755), 0);
       },
       "watch     NOT SAVED: " + unsaved + "/device.json: "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    RecordingApp app;
    app.onRequest = [&](app_control_h request) {
      c.act(request);
      service_app_exit();
    };
    EXPECT_EQ(run(app, {"--operation", "none"}, c.name), 4);
    EXPECT_TRUE(summaryHas(c.line)) << summary_;
  }
  // Nothing half-written is left in the watch.
  g_autoptr(GDir) dir = g_dir_open(unsaved.c_str(), 0, nullptr);
  ASSERT_NE(dir, nullptr);
  while (const char* name = g_dir_read_name(dir))
    EXPECT_FALSE(g_str_has_prefix(name, "device.json.")) << name;
}

TEST_F(LauncherTest, DeadlineEndsARunThatNeverExits) {
  RecordingApp app;
  EXPECT_EQ(run(app, {"--operation", "none", "--deadline", "0.2"}), 3);
  EXPECT_EQ(app.calls, (std::vector<std::string>{"create", "first (none)", "terminate"}));
}

TEST_F(LauncherTest, RefusedOrUnlaunchedAppsGetNothing) {
  RecordingApp refused;
  refused.createResult = false;
  testing::internal::CaptureStderr();
  EXPECT_EQ(run(refused, {"--operation", "none"}, "refused"), 1);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("onCreate returned false"),
            std::string::npos);
  EXPECT_EQ(refused.calls, std::vector<std::string>{"create"});

  // Without a launcher the host cannot run the app: none of its life cycle runs.
  RecordingApp unlaunched;
  char name[] = "service";
  char* argv[] = {name, nullptr};
  testing::internal::CaptureStderr();
  EXPECT_EQ(unlaunched.start(1, argv), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "service: no launcher is linked into this binary\n");
  EXPECT_EQ(unlaunched.calls, std::vector<std::string>{});
}

TEST_F(LauncherTest, WatchdogEndsTheProcessWhenTheAppHangsInANestedLoop) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        RecordingApp app;
        app.onRequest = [](app_control_h) {
          GMainLoop* stuck = g_main_loop_new(nullptr, FALSE);
          g_main_loop_run(stuck);
        };
        run(app, {"--operation", "none", "--deadline", "0.3"});
      },
      testing::ExitedWithCode(3), "");
}

}  // namespace
