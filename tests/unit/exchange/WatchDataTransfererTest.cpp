#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <pkgmgr-info.h>
#include "ExchangeSupport.h"
#include "MvSvcWatchDataTransferer.h"

namespace morvik_test {
namespace {

using ::testing::ElementsAre;

class WatchDataTransfererTest : public ExchangeFixture {
 protected:
  void SetUp() override {
    ExchangeFixture::SetUp();
    addPeer(kStore);
    addPeer(kOrbitlineService);
  }

  void TearDown() override {
    delete transferer_;
    ExchangeFixture::TearDown();
  }

  // Builds and runs a transferer; its completion records whether "restore_finished" had gone out
  // and destroys it when asked to.
  void run() {
    transferer_ = new MvSvcWatchDataTransferer(results_, images_, downloads_,
                                               MvSvcAppCtrlModel::kStoreReplyTimeoutMs);
    transferer_->setOnTransferCompleted([this](bool success, void* data) {
      completions_.push_back(success);
      finishedSentAtCompletion_ = !outgoing(platform()).empty() &&
                                  outgoing(platform()).back() == "message message=restore_finished";
      if (destroyOnCompletion_) {
        delete static_cast<MvSvcWatchDataTransferer*>(data);
        transferer_ = nullptr;
      }
    });
    transferer_->run();
  }

  std::vector<WatchResultData> results_;
  std::vector<WatchImageData> images_;
  std::vector<WatchResultData> downloads_;
  MvSvcWatchDataTransferer* transferer_ = nullptr;
  bool destroyOnCompletion_ = true;
  std::vector<bool> completions_;
  bool finishedSentAtCompletion_ = false;
};

TEST_F(WatchDataTransfererTest, EmptyListsStillSendStartAndFinish) {
  run();
  EXPECT_THAT(completions_, ElementsAre(true));
  EXPECT_TRUE(finishedSentAtCompletion_);
  EXPECT_THAT(outgoing(platform()),
              ElementsAre("message message=restore_start", "message message=restore_finished"));
  EXPECT_THAT(logs(),
              ElementsAre("E Downloaded watch list is empty", "E Result restore list is empty",
                          "E Image restore list is empty"));
}

TEST_F(WatchDataTransfererTest, StoreFirstThenSettingsImagesAndFinish) {
  platform().packages().install(
      {"com.indie.clock-tidal", "com.indie.clock-tidal", "watchapp", false});
  platform().packages().install({"com.preload.clock", "com.preload.clock", "watchapp", true});
  downloads_ = {{"com.indie.clock-tidal", "com.indie.clock-tidal", "downloaded"},
                {"com.preload.clock", "com.preload.clock", "downloaded"},
                {"com.indie.clock-ember", "com.indie.clock-ember", "downloaded"}};
  results_ = {{"face.a", kWatchfaceService, "<a/>"},
              {kOrbitline, kOrbitlineService, "<o/>"},
              {"face.b", std::string(kWatchfaceService) + "2", "<b/>"}};
  images_ = {{"bg.jpg", "photo", "AQD+"}};
  run();

  const std::string store = std::string("request ") + kStore + " - req_type=";
  std::vector<std::string> expected = {
      store + "prepare-install-by-GUID",
      store + "install-by-GUID GUID=com.preload.clock",
      store + "install-by-GUID GUID=com.indie.clock-ember",
      "message message=restore_start",
      "message operation=talvoro_cloud_restore type=watch pkgid=face.a result_xml=<a/>",
      std::string("request ") + kOrbitlineService + " talvoro_cloud_restore result_xml=<o/>",
      std::string("request ") + kWatchfaceService + "2 talvoro_cloud_restore result_xml=<b/>"};
  expected.push_back("message operation=talvoro_cloud_restore type=image bg_type=photo file_path=" +
                     trustedDir() + "bg.jpg file_name=bg.jpg");
  expected.push_back("message message=restore_finished");
  EXPECT_EQ(outgoing(platform()), expected);
  g_autofree char* bytes = nullptr;
  gsize length = 0;
  ASSERT_TRUE(g_file_get_contents((trustedDir() + "bg.jpg").c_str(), &bytes, &length, nullptr));
  EXPECT_EQ(std::string(bytes, length), std::string("\x01\x00\xfe", 3));
  EXPECT_THAT(
      logs(),
      ElementsAre("I com.preload.clock is preload. Skip push into list",
                  "E app_control_get_extra_data() failed",
                  "E com.indie.clock-tidal package is already installed. Skip install",
                  "E app_control_get_extra_data() failed", "E app_control_get_extra_data() failed",
                  "E Failed to launch com.talvoro.watchface-service2 app",
                  "E Failed to request restore app control"));
  EXPECT_THAT(completions_, ElementsAre(true));
  EXPECT_TRUE(finishedSentAtCompletion_);
}

// An early "restore_finished" (here inside the store wait) does not end the run, nor does a later
// one report anything more.
TEST_F(WatchDataTransfererTest, RestoreFinishedFromTheWatchfaceNeverEndsTheRun) {
  destroyOnCompletion_ = false;
  downloads_ = {{"com.indie.clock-ember", "com.indie.clock-ember", "downloaded"}};
  fromWatchface({{"message", "restore_finished"}});
  run();
  EXPECT_EQ(platform().record().ofKind(host::BoundaryEvent::Kind::kMessageDelivered).size(), 1u);
  EXPECT_THAT(completions_, ElementsAre(true));
  EXPECT_TRUE(finishedSentAtCompletion_);
  EXPECT_EQ(logs()[0], "I Restore from watchface finished");

  fromWatchface({{"message", "restore_finished"}});
  runLoopFor(0.05);
  EXPECT_THAT(completions_, ElementsAre(true));
}

// An app whose preload flag cannot be read is logged in the name of the per-app callback.
TEST_F(WatchDataTransfererTest, AnUnreadablePreloadFlagIsLoggedByTheCallback) {
  platform().packages().install({"com.indie.clock-tidal", "com.indie.clock-tidal", "watchapp"});
  platform().packages().failCall("pkgmgrinfo_appinfo_is_preload", PMINFO_R_ERROR);
  downloads_ = {{"com.indie.clock-tidal", "com.indie.clock-tidal", "downloaded"}};
  run();
  EXPECT_THAT(logs(), ::testing::Contains("E pkgmgrinfo_appinfo_is_preload error"));
}

}  // namespace
}  // namespace morvik_test
