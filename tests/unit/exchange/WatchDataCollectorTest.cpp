#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <memory>
#include <string>
#include <vector>

#include "ExchangeSupport.h"
#include "MvSvcWatchDataCollector.h"

namespace morvik_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> entries(const std::vector<WatchResultData>& list) {
  std::vector<std::string> lines;
  for (const WatchResultData& entry : list)
    lines.push_back(entry.pkgId + " | " + entry.svcId + " | " + entry.result);
  return lines;
}

std::vector<std::string> images(const std::vector<WatchImageData>& list) {
  std::vector<std::string> lines;
  for (const WatchImageData& image : list)
    lines.push_back(image.fileName + " | " + image.bgType + " | " + image.data);
  return lines;
}

class WatchDataCollectorTest : public ExchangeFixture {
 protected:
  void SetUp() override {
    ExchangeFixture::SetUp();
    orbitline_ = addPeer(kOrbitlineService);
    orbitline_->replyExtras = {{"result_xml", "<orbitline/>"}};
    pacetrail_ = addPeer(kPacetrailService);
    pacetrail_->answers = false;
    platform().packages().install(
        {"com.talvoro.watchface", "com.talvoro.watchface", "watchapp", true});
    platform().packages().install(
        {"com.indie.clock-tidal", "com.indie.clock-tidal", "watchapp", false});
    platform().packages().install(
        {"com.indie.clock-ember", "com.indie.clock-ember", "watchapp", false});
  }

  // Runs a collector; its completion copies the lists, counts, and destroys it when asked to.
  void start(unsigned timeoutMs = MvSvcWatchDataCollector::kBackupFinishedTimeoutMs) {
    collector_ = new MvSvcWatchDataCollector(timeoutMs);
    collector_->setOnCollectCompleted([this](bool success, void* data) {
      auto* collector = static_cast<MvSvcWatchDataCollector*>(data);
      completions_.push_back(success);
      results_ = collector->getResultDataList();
      images_ = collector->getImageDataList();
      if (destroyOnCompletion_) {
        delete collector;
        collector_ = nullptr;
      }
    });
    collector_->run();
  }

  // Starts, and waits for the orbitline reply so that later arrivals have a known order.
  void startAndSettle() {
    start();
    ASSERT_TRUE(runLoopUntil([&] { return collector_->getResultDataList().size() == 3; }, 5));
  }

  void TearDown() override {
    delete collector_;
    ExchangeFixture::TearDown();
  }

  std::shared_ptr<FakeApp> orbitline_;
  std::shared_ptr<FakeApp> pacetrail_;
  MvSvcWatchDataCollector* collector_ = nullptr;
  bool destroyOnCompletion_ = true;
  std::vector<bool> completions_;
  std::vector<WatchResultData> results_;
  std::vector<WatchImageData> images_;
};

TEST_F(WatchDataCollectorTest, RequestsThenDownloadedAppsFirstThenArrivals) {
  start();
  EXPECT_THAT(outgoing(platform()),
              ElementsAre(std::string("request ") + kOrbitlineService + " talvoro_cloud_backup",
                          std::string("request ") + kPacetrailService + " talvoro_cloud_backup",
                          "message operation=talvoro_cloud_backup"));
  EXPECT_THAT(logs(), ElementsAre("I Start watchface backup procedure",
                                  "I com.talvoro.watchface is preload. Skip backup"));

  ASSERT_TRUE(runLoopUntil([&] { return collector_->getResultDataList().size() == 3; }, 5));
  fromWatchface({{"type", "watch"}, {"pkgid", "face.a"}, {"result_xml", "<a/>"}});
  fromWatchface({{"type", "watch"}, {"pkgid", "face.b"}, {"result_xml", ""}});
  fromWatchface({{"type", "watch"},
                 {"message", "backup_finished"},
                 {"pkgid", "face.a"},
                 {"result_xml", "<again/>"}});
  fromWatchface({{"type", "clock"}, {"message", "backup_finished"}});
  ASSERT_TRUE(runLoopUntil([&] { return !completions_.empty(); }, 5));

  EXPECT_THAT(completions_, ElementsAre(true));
  EXPECT_THAT(entries(results_),
              ElementsAre("com.indie.clock-tidal | com.indie.clock-tidal | downloaded",
                          "com.indie.clock-ember | com.indie.clock-ember | downloaded",
                          std::string("com.talvoro.clock-orbitline | ") + kOrbitlineService +
                              " | <orbitline/>",
                          "face.a | com.talvoro.watchface-service | <a/>",
                          "face.b | com.talvoro.watchface-service | ",
                          "face.a | com.talvoro.watchface-service | <again/>"));
  EXPECT_THAT(images_, IsEmpty());
}

TEST_F(WatchDataCollectorTest, ImagesAreEncodedAndUnreadablePathsGiveEmptyData) {
  const std::string dir = deviceDir() + "/photos";
  g_mkdir_with_parents(dir.c_str(), 0755);
  writeFile(dir + "/a.jpg", std::string("\xff\xd8\x00jpg", 6));
  writeFile(dir + "/empty.png", "");
  // Read and encoded a chunk at a time: more than two chunks, and no whole number of groups.
  std::string big(100001, '\0');
  for (size_t i = 0; i < big.size(); ++i)
    big[i] = static_cast<char>(i * 7919 % 251);
  writeFile(dir + "/big.jpg", big);
  g_autofree gchar* bigBase64 =
      g_base64_encode(reinterpret_cast<const guchar*>(big.data()), big.size());
  ASSERT_EQ(mkfifo((dir + "/pipe").c_str(), 0644), 0);
  start();
  fromWatchface({{"type", "image"},
                 {"file_name", "a.jpg"},
                 {"file_path", dir + "/a.jpg"},
                 {"bg_type", "photo"}});
  fromWatchface({{"type", "image"},
                 {"file_name", "empty.png"},
                 {"file_path", dir + "/empty.png"},
                 {"bg_type", "gallery"}});
  fromWatchface({{"type", "image"},
                 {"file_name", "big.jpg"},
                 {"file_path", dir + "/big.jpg"},
                 {"bg_type", "photo"}});
  fromWatchface({{"type", "image"},
                 {"file_name", "pipe"},
                 {"file_path", dir + "/pipe"},
                 {"bg_type", "photo"}});
  fromWatchface(
      {{"type", "image"}, {"file_name", "dir"}, {"file_path", dir}, {"bg_type", "photo"}});
  fromWatchface({{"type", "image"},
                 {"file_name", "gone"},
                 {"file_path", dir + "/gone"},
                 {"bg_type", "photo"}});
  fromWatchface({{"message", "backup_finished"}});
  ASSERT_TRUE(runLoopUntil([&] { return !completions_.empty(); }, 5));
  EXPECT_THAT(images(images_), ElementsAre("a.jpg | photo | /9gAanBn", "empty.png | gallery | ",
                                           std::string("big.jpg | photo | ") + bigBase64,
                                           "pipe | photo | ", "dir | photo | ", "gone | photo | "));
}

TEST_F(WatchDataCollectorTest, EntriesThatLackAKeyAreSkippedNamingIt) {
  startAndSettle();
  platform().log().clear();
  fromWatchface({{"type", "watch"}, {"pkgid", "face.a"}});
  fromWatchface({{"type", "watch"}, {"result_xml", "<a/>"}});
  fromWatchface({{"type", "image"}, {"file_name", "a.jpg"}, {"file_path", "/x"}});
  fromWatchface({{"type", "image"}, {"file_path", "/x"}, {"bg_type", "photo"}});
  fromWatchface({{"type", "image"}, {"file_name", "a.jpg"}, {"bg_type", "photo"}});
  fromWatchface({{"message", "backup_finished"}});
  ASSERT_TRUE(runLoopUntil([&] { return !completions_.empty(); }, 5));
  EXPECT_THAT(logs(), ElementsAre("E Watch message without result_xml. Skip",
                                  "E Watch message without pkgid. Skip",
                                  "E Image message without bg_type. Skip",
                                  "E Image message without file_name. Skip",
                                  "E Image message without file_path. Skip",
                                  "I Backup from watchface finished", "I Unregister message port"));
  EXPECT_EQ(results_.size(), 3u);  // the downloaded apps and the orbitline reply
  EXPECT_THAT(images_, IsEmpty());
}

TEST_F(WatchDataCollectorTest, CompletesOnceAndLateEntriesStillAppend) {
  destroyOnCompletion_ = false;
  startAndSettle();
  fromWatchface({{"message", "backup_finished"}});
  fromWatchface({{"message", "backup_finished"}});
  fromWatchface({{"type", "watch"}, {"pkgid", "face.late"}, {"result_xml", "<late/>"}});
  ASSERT_TRUE(runLoopUntil([&] { return collector_->getResultDataList().size() == 4; }, 5));
  runLoopFor(0.05);
  EXPECT_THAT(completions_, ElementsAre(true));
  EXPECT_EQ(results_.size(), 3u);
  EXPECT_EQ(collector_->getResultDataList().back().pkgId, "face.late");
}

TEST_F(WatchDataCollectorTest, SilentWatchfaceCompletesWithFailureAfterTheBound) {
  start(100);
  ASSERT_TRUE(runLoopUntil([&] { return !completions_.empty(); }, 5));
  runLoopFor(0.15);
  EXPECT_THAT(completions_, ElementsAre(false));
  EXPECT_THAT(logs(), ElementsAre("I Start watchface backup procedure",
                                  "I com.talvoro.watchface is preload. Skip backup",
                                  "E No backup_finished from watchface in 100 ms",
                                  "I Unregister message port"));
  EXPECT_EQ(MvSvcWatchDataCollector::kBackupFinishedTimeoutMs, 30000u);
}

TEST_F(WatchDataCollectorTest, LateReplyAndMessagesAfterTheCollectorIsGoneTouchNothing) {
  start();
  fromWatchface({{"message", "backup_finished"}});
  ASSERT_TRUE(runLoopUntil([&] { return !completions_.empty(); }, 5));
  ASSERT_EQ(collector_, nullptr);
  ASSERT_TRUE(pacetrail_->heldReply);
  const size_t linesBefore = logs().size();

  app_control_h answer = nullptr;
  app_control_create(&answer);
  app_control_add_extra_data(answer, "result_xml", "<pacetrail/>");
  pacetrail_->heldReply->send(answer, APP_CONTROL_RESULT_SUCCEEDED);
  app_control_destroy(answer);
  fromWatchface({{"message", "backup_finished"}});
  runLoopFor(0.1);

  EXPECT_EQ(platform().record().ofKind(host::BoundaryEvent::Kind::kAppControlReply).size(), 2u);
  EXPECT_EQ(platform().record().ofKind(host::BoundaryEvent::Kind::kMessageDropped).size(), 1u);
  EXPECT_EQ(logs().size(), linesBefore);
  EXPECT_THAT(completions_, ElementsAre(true));
}

TEST_F(WatchDataCollectorTest, MissingWatchAppsAndWatchfaceAreLoggedAndCollectionGoesOn) {
  platform().packages().uninstall(kOrbitlineService);
  platform().packages().uninstall(kPacetrailService);
  platform().packages().uninstall(kWatchfaceService);
  start(50);
  ASSERT_TRUE(runLoopUntil([&] { return !completions_.empty(); }, 5));
  EXPECT_THAT(
      logs(),
      ElementsAre(std::string("E Failed to launch ") + kOrbitlineService + " app",
                  "E Failed to request backup app control",
                  std::string("E Failed to launch ") + kPacetrailService + " app",
                  "E Failed to request backup app control", "E Failed to send message port message",
                  "I com.talvoro.watchface is preload. Skip backup",
                  "E No backup_finished from watchface in 50 ms", "I Unregister message port"));
  EXPECT_THAT(completions_, ElementsAre(false));
  EXPECT_EQ(results_.size(), 2u);
}

}  // namespace
}  // namespace morvik_test
