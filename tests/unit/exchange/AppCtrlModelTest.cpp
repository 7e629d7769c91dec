#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ExchangeSupport.h"
#include "MvSvcAppCtrlModel.h"
#include "host/AppControl.h"

namespace morvik_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Every verdict a model delivered, with the model's state read at that moment.
struct Verdicts {
  std::vector<bool> values;
  std::string resultXml;

  MvSvcCompletionCb callback() {
    return [this](bool success, void* data) {
      values.push_back(success);
      resultXml = static_cast<MvSvcAppCtrlModel*>(data)->getResultXml();
    };
  }
};

class AppCtrlModelTest : public ExchangeFixture {
 protected:
  void SetUp() override {
    ExchangeFixture::SetUp();
    watchApp_ = addPeer(kOrbitlineService);
    store_ = addPeer(kStore);
  }

  // A watch-install request answered with `result` and `extras`; returns its verdicts.
  std::vector<bool> watchInstall(app_control_result_e result, const host::KeyValues& extras) {
    store_->replyResult = result;
    store_->replyExtras = extras;
    Verdicts verdicts;
    MvSvcAppCtrlModel model("com.indie.clock-tidal", kStore);
    model.setOnAppCtrlRequestReplyCb(verdicts.callback());
    model.requestWatchInstall();
    return verdicts.values;
  }

  std::shared_ptr<FakeApp> watchApp_;
  std::shared_ptr<FakeApp> store_;
};

TEST_F(AppCtrlModelTest, BackupReplyCountsWhateverItsResultCode) {
  watchApp_->replyResult = APP_CONTROL_RESULT_FAILED;
  watchApp_->replyExtras = {{"result_xml", "<orbitline/>"}};
  Verdicts verdicts;
  MvSvcAppCtrlModel model(kOrbitline, kOrbitlineService);
  model.setOnAppCtrlRequestReplyCb(verdicts.callback());
  model.requestBackup();
  EXPECT_THAT(verdicts.values, IsEmpty());  // asynchronous: nothing before the loop runs

  ASSERT_TRUE(runLoopUntil([&] { return !verdicts.values.empty(); }, 5));
  EXPECT_THAT(verdicts.values, ElementsAre(true));
  EXPECT_EQ(verdicts.resultXml, "<orbitline/>");
  EXPECT_EQ(model.getPackageId(), kOrbitline);
  EXPECT_EQ(model.getServiceId(), kOrbitlineService);
  EXPECT_THAT(outgoing(platform()),
              ElementsAre(std::string("request ") + kOrbitlineService + " talvoro_cloud_backup"));
}

TEST_F(AppCtrlModelTest, RestoreSendsTheXmlAndAnyReplyCounts) {
  watchApp_->replyResult = APP_CONTROL_RESULT_CANCELED;
  Verdicts verdicts;
  MvSvcAppCtrlModel model(kOrbitline, kOrbitlineService);
  model.setOnAppCtrlRequestReplyCb(verdicts.callback());
  model.requestRestore("<ring color=\"amber\"/>");
  ASSERT_TRUE(runLoopUntil([&] { return !verdicts.values.empty(); }, 5));
  EXPECT_THAT(verdicts.values, ElementsAre(true));
  EXPECT_THAT(outgoing(platform()),
              ElementsAre(std::string("request ") + kOrbitlineService +
                          " talvoro_cloud_restore result_xml=<ring color=\"amber\"/>"));
}

TEST_F(AppCtrlModelTest, FailedLaunchReportsAtOnceWithTheHandleAlreadyReleased) {
  const int handlesBefore = host::liveAppControlCount();
  std::vector<bool> verdicts;
  int handlesAtCallback = -1;
  auto* model = new MvSvcAppCtrlModel("com.example.gone", "com.example.gone.service");
  // The owner destroys the model inside the callback, as the collector does.
  model->setOnAppCtrlRequestReplyCb([&](bool success, void* data) {
    verdicts.push_back(success);
    handlesAtCallback = host::liveAppControlCount();
    delete static_cast<MvSvcAppCtrlModel*>(data);
  });
  model->requestBackup();
  EXPECT_THAT(verdicts, ElementsAre(false));
  EXPECT_EQ(handlesAtCallback, handlesBefore);
  EXPECT_EQ(host::liveAppControlCount(), handlesBefore);
  EXPECT_THAT(logs(), ElementsAre("E Failed to launch com.example.gone.service app"));
  // The line names the request that failed.
  morvik_test::ServiceLogLine line;
  ASSERT_TRUE(morvik_test::parseServiceLogLine(platform().log().lines().back(), line));
  EXPECT_EQ(line.function, "requestBackup");
}

TEST_F(AppCtrlModelTest, FailedStoreRequestReportsAtOnceAndReleasesItsHandle) {
  platform().packages().uninstall(kStore);
  const int handlesBefore = host::liveAppControlCount();
  Verdicts verdicts;
  {
    MvSvcAppCtrlModel model("com.indie.clock-tidal", kStore);
    model.setOnAppCtrlRequestReplyCb(verdicts.callback());
    model.requestWatchInstall();
    EXPECT_EQ(host::liveAppControlCount(), handlesBefore);
  }
  EXPECT_THAT(verdicts.values, ElementsAre(false));
  EXPECT_THAT(logs(), ElementsAre("E app_control_send_launch_request() failed"));
  morvik_test::ServiceLogLine line;
  ASSERT_TRUE(morvik_test::parseServiceLogLine(platform().log().lines().back(), line));
  EXPECT_EQ(line.function, "requestWatchInstall");
  EXPECT_TRUE(store_->requests.empty());
}

TEST_F(AppCtrlModelTest, PrepareInstallWaitsForTheVerdictBeforeReturning) {
  Verdicts verdicts;
  MvSvcAppCtrlModel model(kStore, kStore);
  model.setOnAppCtrlRequestReplyCb(verdicts.callback());
  model.requestPrepareInstall();
  EXPECT_THAT(verdicts.values, ElementsAre(true));
  // The store sent no "errorMsg": the failed read is logged, the verdict stands.
  EXPECT_THAT(logs(), ElementsAre("E app_control_get_extra_data() failed"));
  EXPECT_THAT(outgoing(platform()), ElementsAre(std::string("request ") + kStore +
                                                " - req_type=prepare-install-by-GUID"));

  store_->replyResult = APP_CONTROL_RESULT_FAILED;
  store_->replyExtras = {{"errorMsg", "busy"}};
  MvSvcAppCtrlModel failing(kStore, kStore);
  failing.setOnAppCtrlRequestReplyCb(verdicts.callback());
  failing.requestPrepareInstall();
  EXPECT_THAT(verdicts.values, ElementsAre(true, false));
  EXPECT_EQ(logs().back(), "E result failed! errorMsg (busy)");
}

TEST_F(AppCtrlModelTest, WatchInstallVerdicts) {
  EXPECT_THAT(watchInstall(APP_CONTROL_RESULT_SUCCEEDED, {{"errorMsg", "ok"}}), ElementsAre(true));
  EXPECT_THAT(watchInstall(APP_CONTROL_RESULT_FAILED,
                           {{"errorMsg", "VENDARO_MESSAGE_RES_ERROR_NOT_SUPPORT_IN_THIS_DEVICE"}}),
              ElementsAre(true));
  EXPECT_THAT(watchInstall(APP_CONTROL_RESULT_FAILED,
                           {{"errorMsg", "VENDARO_MESSAGE_RES_ERROR_CAN_NOT_FIND_CONTENT (404)"}}),
              ElementsAre(true));
  EXPECT_THAT(logs(), IsEmpty());

  EXPECT_THAT(watchInstall(APP_CONTROL_RESULT_FAILED,
                           {{"errorMsg", "VENDARO_MESSAGE_RES_ERROR_CAN_NOT_FIND"}}),
              ElementsAre(false));
  EXPECT_THAT(logs(), ElementsAre("E request GUID = com.indie.clock-tidal, result failed! "
                                  "errorMsg (VENDARO_MESSAGE_RES_ERROR_CAN_NOT_FIND)"));
  platform().log().clear();

  // No "errorMsg": false, and no verdict line beside the failed read.
  EXPECT_THAT(watchInstall(APP_CONTROL_RESULT_FAILED, {}), ElementsAre(false));
  EXPECT_THAT(logs(), ElementsAre("E app_control_get_extra_data() failed"));
  EXPECT_EQ(
      outgoing(platform()).back(),
      std::string("request ") + kStore + " - req_type=install-by-GUID GUID=com.indie.clock-tidal");
}

TEST_F(AppCtrlModelTest, WithoutACallbackEveryRequestStillRuns) {
  MvSvcAppCtrlModel prepare(kStore, kStore);
  prepare.requestPrepareInstall();
  MvSvcAppCtrlModel backup(kOrbitline, kOrbitlineService);
  backup.requestBackup();
  ASSERT_TRUE(runLoopUntil([&] { return watchApp_->requests.size() == 1; }, 5));
  EXPECT_EQ(store_->requests.size(), 1u);
  EXPECT_EQ(watchApp_->requests.size(), 1u);
}

TEST_F(AppCtrlModelTest, SilentStoreEndsTheWaitWithFalseAndItsLateReplyTouchesNothing) {
  store_->answers = false;
  std::vector<bool> verdicts;
  auto* first = new MvSvcAppCtrlModel("com.indie.clock-tidal", kStore, 100);
  first->setOnAppCtrlRequestReplyCb([&](bool success, void* data) {
    verdicts.push_back(success);
    delete static_cast<MvSvcAppCtrlModel*>(data);
  });
  first->requestWatchInstall();
  EXPECT_THAT(verdicts, ElementsAre(false));
  EXPECT_THAT(logs(), ElementsAre("E No reply from com.talvoro.vendarosvc to the install of GUID "
                                  "com.indie.clock-tidal in 100 ms"));
  std::shared_ptr<host::PendingReply> lateReply = store_->heldReply;
  ASSERT_TRUE(lateReply);

  // The late reply arrives while a newer model (quite likely at the same address) waits: it
  // must neither end that wait nor lend it its verdict.
  platform().post(
      [lateReply] {
        app_control_h answer = nullptr;
        app_control_create(&answer);
        lateReply->send(answer, APP_CONTROL_RESULT_SUCCEEDED);
        app_control_destroy(answer);
      },
      20);
  auto* second = new MvSvcAppCtrlModel("com.indie.clock-ember", kStore, 300);
  second->setOnAppCtrlRequestReplyCb([&](bool success, void* data) {
    verdicts.push_back(success);
    delete static_cast<MvSvcAppCtrlModel*>(data);
  });
  second->requestWatchInstall();
  EXPECT_THAT(verdicts, ElementsAre(false, false));
  EXPECT_EQ(platform().record().ofKind(host::BoundaryEvent::Kind::kAppControlReply).size(), 1u);
  EXPECT_EQ(logs().back(),
            "E No reply from com.talvoro.vendarosvc to the install of GUID com.indie.clock-ember "
            "in 300 ms");
  EXPECT_EQ(logs().size(), 2u);
}

}  // namespace
}  // namespace morvik_test
