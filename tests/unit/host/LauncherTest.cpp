#include <WServiceApp.h>

#include <glib.h>
#include <gtest/gtest.h>
#include <service_app.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "TempDir.h"
#include "emu/EmulatedWatch.h"
#include "emu/SampleWatch.h"
#include "host/DeviceHooks.h"

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
    char* operation = nullptr;
    app_control_get_operation(request, &operation);
    calls.push_back(std::string(firstLaunch ? "first " : "next ") +
                    (operation ? operation : "(none)"));
    free(operation);
    if (onRequest)
      onRequest();
  }

  bool createResult = true;
  void (*onRequest)() = nullptr;
  std::vector<std::string> calls;
};

class LauncherTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(emu::createSampleWatch(device_, error)) << error;
    host::setDeviceHooks(&watch_);
  }
  void TearDown() override { host::setDeviceHooks(nullptr); }

  int start(RecordingApp& app, std::vector<std::string> extra) {
    std::vector<std::string> args{"service", "--device", device_, "--cloud",
                                  temp_.path() + "/cloud"};
    args.insert(args.end(), extra.begin(), extra.end());
    std::vector<char*> argv;
    for (std::string& arg : args)
      argv.push_back(&arg[0]);
    return app.start(static_cast<int>(argv.size()), argv.data());
  }

  morvik_test::TempDir temp_;
  const std::string device_ = temp_.path() + "/watch";
  emu::EmulatedWatch watch_;
};

TEST_F(LauncherTest, DeliversRequestsInOrderAndEndsWhenTheAppExits) {
  RecordingApp app;
  app.onRequest = [] {
    static int delivered = 0;
    if (++delivered == 2)
      service_app_exit();
  };
  testing::internal::CaptureStdout();
  EXPECT_EQ(start(app, {"--operation", "backup", "--then", "0.05", "--operation", "none", "--then",
                        "5", "--operation", "restore"}),
            4);
  std::string summary = testing::internal::GetCapturedStdout();
  EXPECT_EQ(app.calls,
            (std::vector<std::string>{
                "create", "first http://talvoro.com/appcontrol/operation/talvoro_cloud/backup",
                "next (none)", "terminate"}));
  EXPECT_NE(summary.find("ended     by the service itself"), std::string::npos) << summary;
  // The app answered neither cloud request, and the run ended before the third was due.
  EXPECT_NE(summary.find("cloud     request 1, backup: the service never answered"),
            std::string::npos)
      << summary;
  EXPECT_NE(summary.find("cloud     request 3, restore: not delivered"), std::string::npos)
      << summary;
}

TEST_F(LauncherTest, DeadlineEndsARunThatNeverExits) {
  RecordingApp app;
  testing::internal::CaptureStdout();
  EXPECT_EQ(start(app, {"--operation", "none", "--deadline", "0.2"}), 3);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(app.calls, (std::vector<std::string>{"create", "first (none)", "terminate"}));
}

TEST_F(LauncherTest, RefusedCreateDeliversNothing) {
  RecordingApp app;
  app.createResult = false;
  testing::internal::CaptureStderr();
  EXPECT_EQ(start(app, {"--operation", "none", "--deadline", "0.2"}), 1);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("onCreate returned false"),
            std::string::npos);
  EXPECT_EQ(app.calls, std::vector<std::string>{"create"});
}

TEST_F(LauncherTest, WatchdogEndsTheProcessWhenTheAppHangsInANestedLoop) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        RecordingApp app;
        app.onRequest = [] {
          GMainLoop* stuck = g_main_loop_new(nullptr, FALSE);
          g_main_loop_run(stuck);
        };
        start(app, {"--operation", "none", "--deadline", "0.3"});
      },
      testing::ExitedWithCode(3), "");
}

}  // namespace
