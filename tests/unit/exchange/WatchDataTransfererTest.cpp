#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "ExchangeSupport.h"
#include "MvSvcWatchDataTransferer.h"

namespace morvik_test {
namespace {

using ::testing::ElementsAre;

std::string base64(const std::string& bytes) {
  g_autofree gchar* text =
      g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size());
  return text;
}

class WatchDataTransfererTest : public ExchangeFixture {
 protected:
  void SetUp() override {
    ExchangeFixture::SetUp();
    store_ = addPeer(kStore);
    // Like the emulated store, a success carries no "errorMsg" (the platform takes no empty one).
    store_->replyExtras = {};
    orbitline_ = addPeer(kOrbitlineService);
  }

  void TearDown() override {
    delete transferer_;
    ExchangeFixture::TearDown();
  }

  // Builds and runs a transferer; its completion records whether "restore_finished" had gone out
  // and destroys it when asked to.
  void run(unsigned storeTimeoutMs = MvSvcAppCtrlModel::kStoreReplyTimeoutMs) {
    transferer_ = new MvSvcWatchDataTransferer(results_, images_, downloads_, storeTimeoutMs);
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

  std::vector<std::string> imageMessage(const std::string& name, const std::string& bgType) {
    return {"message operation=talvoro_cloud_restore type=image bg_type=" + bgType +
            " file_path=" + trustedDir() + name + " file_name=" + name};
  }

  std::shared_ptr<FakeApp> store_;
  std::shared_ptr<FakeApp> orbitline_;
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
  images_ = {{"bg.jpg", "photo", base64(std::string("\x01\x00\xfe", 3))}};
  std::vector<WatchResultData> resultsIn = results_;
  run();

  EXPECT_TRUE(results_.empty() && images_.empty() && downloads_.empty());
  const std::string store = std::string("request ") + kStore + " - req_type=";
  std::vector<std::string> expected = {
      store + "prepare-install-by-GUID",
      store + "install-by-GUID GUID=com.preload.clock",
      store + "install-by-GUID GUID=com.indie.clock-ember",
      "message message=restore_start",
      "message operation=talvoro_cloud_restore type=watch pkgid=face.a result_xml=<a/>",
      std::string("request ") + kOrbitlineService + " talvoro_cloud_restore result_xml=<o/>",
      std::string("request ") + kWatchfaceService + "2 talvoro_cloud_restore result_xml=<b/>"};
  expected.push_back(imageMessage("bg.jpg", "photo")[0]);
  expected.push_back("message message=restore_finished");
  EXPECT_EQ(outgoing(platform()), expected);
  EXPECT_EQ(readFile(trustedDir() + "bg.jpg"), std::string("\x01\x00\xfe", 3));
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

TEST_F(WatchDataTransfererTest, ImagesAreWrittenAndAnnouncedEmptyAndRepeatedNamesToo) {
  images_ = {{"empty.png", "gallery", ""},
             {"same.jpg", "photo", base64("first")},
             {"same.jpg", "photo", base64("second")}};
  run();
  EXPECT_EQ(readFile(trustedDir() + "empty.png"), "");
  EXPECT_EQ(readFile(trustedDir() + "same.jpg"), "second");
  std::vector<std::string> sent = outgoing(platform());
  ASSERT_EQ(sent.size(), 5u);
  EXPECT_EQ(sent[1], imageMessage("empty.png", "gallery")[0]);
  EXPECT_EQ(sent[2], imageMessage("same.jpg", "photo")[0]);
  EXPECT_EQ(sent[3], sent[2]);
}

TEST_F(WatchDataTransfererTest, NamesThatAreNotPlainAreRefused) {
  const std::vector<std::string> names = {
      "", ".", "..", "a/b.jpg", "../escape.jpg", "/tmp/abs.jpg", std::string("nul\0.jpg", 8)};
  for (const std::string& name : names)
    images_.push_back({name, "photo", base64("x")});
  run();
  std::vector<std::string> expected;
  for (const std::string& name : names) {
    expected.push_back("E Image file name is not a plain name");
    expected.push_back("E Failed to decode image file [" + std::string(name.c_str()) + "]");
  }
  std::vector<std::string> lines = logs();
  lines.erase(lines.begin(), lines.begin() + 2);  // the two empty lists
  EXPECT_EQ(lines, expected);
  EXPECT_THAT(outgoing(platform()),
              ElementsAre("message message=restore_start", "message message=restore_finished"));
  EXPECT_FALSE(
      g_file_test((deviceDir() + "/apps/com.talvoro.morvik.service/shared/escape.jpg").c_str(),
                  G_FILE_TEST_EXISTS));
}

TEST_F(WatchDataTransfererTest, ExistingLinksFifosAndDirectoriesAtTheTargetAreNotWrittenThrough) {
  const std::string outside = deviceDir() + "/outside.txt";
  writeFile(outside, "keep");
  ASSERT_EQ(symlink(outside.c_str(), (trustedDir() + "link.jpg").c_str()), 0);
  ASSERT_EQ(mkfifo((trustedDir() + "pipe.jpg").c_str(), 0644), 0);
  ASSERT_EQ(mkdir((trustedDir() + "dir.jpg").c_str(), 0755), 0);
  // A hard link is replaced by a file of its own: the other name keeps its bytes.
  const std::string shared = deviceDir() + "/shared.jpg";
  writeFile(shared, "keep");
  ASSERT_EQ(link(shared.c_str(), (trustedDir() + "hard.jpg").c_str()), 0);
  images_ = {{"link.jpg", "photo", base64("new")},
             {"pipe.jpg", "photo", base64("new")},
             {"dir.jpg", "photo", base64("new")},
             {"hard.jpg", "photo", base64("new")}};
  run();
  EXPECT_EQ(readFile(outside), "keep");
  EXPECT_EQ(readFile(shared), "keep");
  EXPECT_EQ(readFile(trustedDir() + "hard.jpg"), "new");
  std::vector<std::string> lines = logs();
  lines.erase(lines.begin(), lines.begin() + 2);
  EXPECT_THAT(lines,
              ElementsAre("E Failed to open file", "E Failed to decode image file [link.jpg]",
                          "E Failed to open file", "E Failed to decode image file [pipe.jpg]",
                          "E Failed to open file", "E Failed to decode image file [dir.jpg]"));
  EXPECT_EQ(outgoing(platform()).size(), 3u);
  EXPECT_THAT(completions_, ElementsAre(true));
}

TEST_F(WatchDataTransfererTest, RestoreFinishedDuringTheStoreWaitDoesNotEndTheRun) {
  downloads_ = {{"com.indie.clock-ember", "com.indie.clock-ember", "downloaded"}};
  // Delivered inside the prepare-install wait, before the store's reply.
  fromWatchface({{"message", "restore_finished"}});
  run();
  EXPECT_EQ(platform().record().ofKind(host::BoundaryEvent::Kind::kMessageDelivered).size(), 1u);
  EXPECT_THAT(completions_, ElementsAre(true));
  EXPECT_TRUE(finishedSentAtCompletion_);
  EXPECT_EQ(logs()[0], "I Restore from watchface finished");
}

TEST_F(WatchDataTransfererTest, RestoreFinishedAfterTheRunReportsNothingMore) {
  destroyOnCompletion_ = false;
  run();
  fromWatchface({{"message", "restore_finished"}});
  fromWatchface({{"type", "image"}, {"message", "restore_finished"}});
  ASSERT_TRUE(
      runLoopUntil([&] { return logs().back() == "I Restore from watchface finished"; }, 5));
  runLoopFor(0.05);
  EXPECT_THAT(completions_, ElementsAre(true));
  EXPECT_EQ(logs().size(), 4u);

  transferer_->sendWatchIdleChangeMessage("com.talvoro.face.mono");
  EXPECT_EQ(outgoing(platform()).back(),
            "message operation=talvoro_cloud_restore type=watch-idle-changed "
            "pkgid=com.talvoro.face.mono");
}

TEST_F(WatchDataTransfererTest, SilentStoreIsBoundedAndLateRepliesTouchNothing) {
  store_->answers = false;
  orbitline_->answers = false;
  downloads_ = {{"com.indie.clock-ember", "com.indie.clock-ember", "downloaded"}};
  results_ = {{kOrbitline, kOrbitlineService, "<o/>"}};
  run(50);
  EXPECT_THAT(logs(), ElementsAre("E No reply from com.talvoro.vendarosvc in 50 ms",
                                  "E No reply from com.talvoro.vendarosvc to the install of GUID "
                                  "com.indie.clock-ember in 50 ms",
                                  "E Image restore list is empty"));
  EXPECT_EQ(outgoing(platform()).back(), "message message=restore_finished");
  EXPECT_THAT(completions_, ElementsAre(true));
  ASSERT_EQ(transferer_, nullptr);
  ASSERT_TRUE(runLoopUntil([&] { return orbitline_->heldReply != nullptr; }, 5));

  for (FakeApp* peer : {store_.get(), orbitline_.get()}) {
    app_control_h answer = nullptr;
    app_control_create(&answer);
    peer->heldReply->send(answer, APP_CONTROL_RESULT_FAILED);
    app_control_destroy(answer);
  }
  runLoopFor(0.1);
  EXPECT_EQ(platform().record().ofKind(host::BoundaryEvent::Kind::kAppControlReply).size(), 2u);
  EXPECT_EQ(logs().size(), 3u);
  EXPECT_EQ(MvSvcAppCtrlModel::kStoreReplyTimeoutMs, 20000u);
}

}  // namespace
}  // namespace morvik_test
