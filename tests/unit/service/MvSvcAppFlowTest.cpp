#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "LogLineMatcher.h"
#include "MvSvcApp.h"
#include "MvSvcTypes.h"
#include "TempDir.h"
#include "emu/EmulatedWatch.h"
#include "emu/SampleWatch.h"
#include "host/AppControl.h"
#include "host/MainLoop.h"
#include "host/Platform.h"

namespace {

using Kind = host::BoundaryEvent::Kind;
using morvik_test::serviceMessages;

// A whole flow on the emulated sample watch with its peers and the cloud agent, as the
// launcher runs it: one launch request, then the loop until the service ends itself.
class MvSvcAppFlowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(emu::createSampleWatch(device_, error)) << error;
    ASSERT_EQ(g_mkdir(cloud_.c_str(), 0755), 0);
    platform_.log().setEchoToStderr(false);
  }

  void TearDown() override {
    host::RunReport report;
    watch_.finish(platform_, host::RunOutcome(), report);
  }

  // Delivers `operation` as launch request 1 and runs until the service exits (or 20 s).
  bool runFlow(MvSvcApp& app, const char* operation) {
    host::LaunchOptions options;
    options.deviceDir = device_;
    options.cloudDir = cloud_;
    options.requests.push_back({operation, {}, 0});
    std::string error;
    EXPECT_TRUE(watch_.boot(platform_, options, error)) << error;

    platform_.post([this, &app, operation] {
      app_control_s launched;
      launched.hasOperation = true;
      launched.operation = operation;
      launched.launchId = 1;
      app_control_h request = host::cloneAppControl(launched);
      platform_.addEvent(Kind::kLaunchRequest, "", operation, {}, 0);
      app.onAppControl(request, true);
      app_control_destroy(request);
    });
    platform_.post([] { host::MainLoop::quit(); }, 20000);
    loop_.run();
    return platform_.exitRequested();
  }

  // Index of the first event of `kind` (with `peer` when given), or -1.
  int firstEvent(Kind kind, const std::string& peer = std::string()) {
    const auto& events = platform_.record().events();
    for (size_t i = 0; i < events.size(); ++i) {
      if (events[i].kind == kind && (peer.empty() || events[i].peer == peer))
        return static_cast<int>(i);
    }
    return -1;
  }

  int backupSets() const {
    int sets = 0;
    g_autoptr(GDir) dir = g_dir_open(cloud_.c_str(), 0, nullptr);
    while (const char* name = dir ? g_dir_read_name(dir) : nullptr)
      sets += g_str_has_prefix(name, "set-") ? 1 : 0;
    return sets;
  }

  bool logged(const std::string& message) {
    std::vector<std::string> messages = serviceMessages(platform_.log());
    return std::find(messages.begin(), messages.end(), message) != messages.end();
  }

  morvik_test::TempDir temp_;
  const std::string device_ = temp_.path() + "/watch";
  const std::string cloud_ = temp_.path() + "/cloud";
  host::MainLoop loop_;
  host::Platform platform_{device_, MVSVC_SERVICE_APP_ID};
  emu::EmulatedWatch watch_;
};

TEST_F(MvSvcAppFlowTest, BackupCollectsFirstThenAnswersUploadsAndEnds) {
  MvSvcApp app;
  const int handles = host::liveAppControlCount();
  ASSERT_TRUE(runFlow(app, MVSVC_OPERATION_BACKUP));

  const int askedWatchApp =
      firstEvent(Kind::kAppControlSent, "com.talvoro.clock-orbitline.service");
  const int startedWatchface = firstEvent(Kind::kMessageSent, MVSVC_WATCHFACE_SERVICE_APP_ID);
  const int finished = firstEvent(Kind::kMessageDelivered, MVSVC_WATCHFACE_SERVICE_APP_ID);
  const int answered = firstEvent(Kind::kReplyToLauncher);
  ASSERT_GE(askedWatchApp, 0);
  EXPECT_LT(askedWatchApp, startedWatchface);
  EXPECT_LT(startedWatchface, finished);
  // The launch request is answered by the backup model, after the collection.
  EXPECT_GT(answered, finished);
  EXPECT_EQ(platform_.record().events()[answered].code, APP_CONTROL_RESULT_SUCCEEDED);
  EXPECT_EQ(backupSets(), 1);
  EXPECT_FALSE(logged("E msg is nullptr!"));

  // The request's clone went with the exchange that answered it.
  EXPECT_EQ(host::liveAppControlCount(), handles);
}

TEST_F(MvSvcAppFlowTest, BackupInformationDeclaresItsRecordStoresNothingAndEnds) {
  MvSvcApp app;
  ASSERT_TRUE(runFlow(app, MVSVC_OPERATION_GET_BACKUP_INFO));
  const int answered = firstEvent(Kind::kReplyToLauncher);
  ASSERT_GE(answered, 0);
  EXPECT_EQ(platform_.record().events()[answered].code, APP_CONTROL_RESULT_SUCCEEDED);
  EXPECT_EQ(firstEvent(Kind::kAppControlSent), -1);
  EXPECT_EQ(backupSets(), 0);
  EXPECT_TRUE(logged("E msg is nullptr!"));
  app.onTerminate();
}

TEST_F(MvSvcAppFlowTest, RestoreFromAnEmptyCloudAnswersAndEnds) {
  MvSvcApp app;
  const int handles = host::liveAppControlCount();
  ASSERT_TRUE(runFlow(app, MVSVC_OPERATION_RESTORE));
  EXPECT_GE(firstEvent(Kind::kReplyToLauncher), 0);
  EXPECT_EQ(firstEvent(Kind::kAppControlSent), -1);
  EXPECT_FALSE(logged("E msg is nullptr!"));
  // A restore keeps no clone of its request.
  EXPECT_EQ(host::liveAppControlCount(), handles);
  app.onTerminate();
}

}  // namespace
