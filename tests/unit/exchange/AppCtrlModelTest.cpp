#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ExchangeSupport.h"
#include "MvHandles.h"
#include "MvSvcAppCtrlModel.h"
#include "host/AppControl.h"

namespace morvik_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class AppCtrlModelTest : public ExchangeFixture {
 protected:
  void SetUp() override {
    ExchangeFixture::SetUp();
    watchApp_ = addPeer(kOrbitlineService);
    store_ = addPeer(kStore);
  }

  // A new model whose every verdict lands in verdicts_ (with its result XML), and which the
  // callback destroys, as the service's owners do.
  MvSvcAppCtrlModel* model(const char* pkgId,
                           const char* svcId,
                           unsigned timeoutMs = MvSvcAppCtrlModel::kStoreReplyTimeoutMs) {
    auto* created = new MvSvcAppCtrlModel(pkgId, svcId, timeoutMs);
    created->setOnAppCtrlRequestReplyCb([this](bool success, void* data) {
      auto* done = static_cast<MvSvcAppCtrlModel*>(data);
      verdicts_.push_back(success);
      resultXml_ = done->getResultXml();
      handlesAtVerdict_ = host::liveAppControlCount();
      delete done;
    });
    return created;
  }

  std::shared_ptr<FakeApp> watchApp_;
  std::shared_ptr<FakeApp> store_;
  std::vector<bool> verdicts_;
  std::string resultXml_;
  int handlesAtVerdict_ = -1;
};

// A watch app's reply counts whatever its result code, and comes from the loop, not the call.
TEST_F(AppCtrlModelTest, WatchAppRepliesAreAsynchronousAndAlwaysCount) {
  watchApp_->replyResult = APP_CONTROL_RESULT_FAILED;
  watchApp_->replyExtras = {{"result_xml", "<orbitline/>"}};
  model(kOrbitline, kOrbitlineService)->requestBackup();
  EXPECT_THAT(verdicts_, IsEmpty());
  ASSERT_TRUE(runLoopUntil([&] { return !verdicts_.empty(); }, 5));
  EXPECT_THAT(verdicts_, ElementsAre(true));
  EXPECT_EQ(resultXml_, "<orbitline/>");
  EXPECT_THAT(outgoing(platform()),
              ElementsAre(std::string("request ") + kOrbitlineService + " talvoro_cloud_backup"));
}

// A launch that cannot go out reports false at once, its handle already released.
TEST_F(AppCtrlModelTest, FailedLaunchesReportAtOnce) {
  platform().packages().uninstall(kStore);
  const int handlesBefore = host::liveAppControlCount();
  model("com.example.gone", "com.example.gone.service")->requestBackup();
  model("com.indie.clock-tidal", kStore)->requestWatchInstall();
  EXPECT_THAT(verdicts_, ElementsAre(false, false));
  EXPECT_EQ(handlesAtVerdict_, handlesBefore);
  EXPECT_THAT(logs(), ElementsAre("E Failed to launch com.example.gone.service app",
                                  "E app_control_send_launch_request() failed"));
}

// Store requests wait for their verdict before returning; the install's verdict depends on the
// store's errorMsg: the two answers that mean "nothing to install here" count as success.
TEST_F(AppCtrlModelTest, StoreVerdicts) {
  const app_control_result_e ok = APP_CONTROL_RESULT_SUCCEEDED;
  const app_control_result_e failed = APP_CONTROL_RESULT_FAILED;
  const struct {
    bool install;
    app_control_result_e result;
    const char* errorMsg;  // none when null
    bool verdict;
    const char* log;  // the one line logged, if any
  } cases[] = {
      {false, ok, nullptr, true, "E app_control_get_extra_data() failed"},
      {false, failed, "busy", false, "E result failed! errorMsg (busy)"},
      {true, ok, "ok", true, nullptr},
      {true, failed, "VENDARO_MESSAGE_RES_ERROR_NOT_SUPPORT_IN_THIS_DEVICE", true, nullptr},
      {true, failed, "VENDARO_MESSAGE_RES_ERROR_CAN_NOT_FIND_CONTENT (404)", true, nullptr},
      {true, failed, "VENDARO_MESSAGE_RES_ERROR_CAN_NOT_FIND", false,
       "E request GUID = com.indie.clock-tidal, result failed! errorMsg "
       "(VENDARO_MESSAGE_RES_ERROR_CAN_NOT_FIND)"},
      {true, failed, nullptr, false, "E app_control_get_extra_data() failed"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.errorMsg ? c.errorMsg : "no errorMsg");
    platform().log().clear();
    verdicts_.clear();
    store_->replyResult = c.result;
    store_->replyExtras.clear();
    if (c.errorMsg)
      store_->replyExtras = {{"errorMsg", c.errorMsg}};
    MvSvcAppCtrlModel* request = model(c.install ? "com.indie.clock-tidal" : kStore, kStore);
    c.install ? request->requestWatchInstall() : request->requestPrepareInstall();
    EXPECT_THAT(verdicts_, ElementsAre(c.verdict));
    EXPECT_EQ(logs(), c.log ? std::vector<std::string>{c.log} : std::vector<std::string>());
  }
  const std::string store = std::string("request ") + kStore + " - req_type=";
  EXPECT_EQ(outgoing(platform())[0], store + "prepare-install-by-GUID");
  EXPECT_EQ(outgoing(platform()).back(), store + "install-by-GUID GUID=com.indie.clock-tidal");
}

// A silent store ends each wait with false after its bound; a late reply arriving while a newer
// model (quite likely at the same address) waits neither ends that wait nor lends it its verdict.
TEST_F(AppCtrlModelTest, SilentStoreIsBoundedAndItsLateReplyTouchesNothing) {
  store_->answers = false;
  model(kStore, kStore, 40)->requestPrepareInstall();
  model("com.indie.clock-tidal", kStore, 50)->requestWatchInstall();
  std::shared_ptr<host::PendingReply> lateReply = store_->heldReply;
  ASSERT_TRUE(lateReply);
  platform().post(
      [lateReply] { lateReply->send(mvCreateAppControl().get(), APP_CONTROL_RESULT_SUCCEEDED); },
      20);
  model("com.indie.clock-ember", kStore, 60)->requestWatchInstall();
  EXPECT_THAT(verdicts_, ElementsAre(false, false, false));
  EXPECT_EQ(platform().record().ofKind(host::BoundaryEvent::Kind::kAppControlReply).size(), 1u);
  EXPECT_THAT(logs(), ElementsAre("E No reply from com.talvoro.vendarosvc in 40 ms",
                                  "E No reply from com.talvoro.vendarosvc to the install of GUID "
                                  "com.indie.clock-tidal in 50 ms",
                                  "E No reply from com.talvoro.vendarosvc to the install of GUID "
                                  "com.indie.clock-ember in 60 ms"));
}

}  // namespace
}  // namespace morvik_test
