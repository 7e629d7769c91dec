#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <memory>
#include <string>
#include <vector>

#include <pkgmgr-info.h>
#include "ExchangeSupport.h"
#include "MvSvcWatchDataCollector.h"

namespace morvik_test {
namespace {

using ::testing::ElementsAre;

class WatchDataCollectorTest : public ExchangeFixture {
 protected:
  void SetUp() override {
    ExchangeFixture::SetUp();
    orbitline_ = addPeer(kOrbitlineService);
    orbitline_->replyExtras = {{"result_xml", "<orbitline/>"}};
    pacetrail_ = addPeer(kPacetrailService);
    pacetrail_->answers = false;
    const bool preload = true;
    platform().packages().install(
        {"com.talvoro.watchface", "com.talvoro.watchface", "watchapp", preload});
    for (const char* app : {"com.indie.clock-tidal", "com.indie.clock-ember"})
      platform().packages().install({app, app, "watchapp", !preload});
  }

  void TearDown() override {
    delete collector_;
    ExchangeFixture::TearDown();
  }

  // Runs a collector whose completion records the lists ("pkgid | svcid | result" and "file | type
  // | data") and destroys it unless keep_.
  void start(unsigned timeoutMs = MvSvcWatchDataCollector::kBackupFinishedTimeoutMs) {
    collector_ = new MvSvcWatchDataCollector(timeoutMs);
    collector_->setOnCollectCompleted([this](bool success, void* data) {
      auto* collector = static_cast<MvSvcWatchDataCollector*>(data);
      completions_.push_back(success);
      for (const WatchResultData& entry : collector->getResultDataList())
        results_.push_back(entry.pkgId + " | " + entry.svcId + " | " + entry.result);
      for (const WatchImageData& image : collector->getImageDataList())
        images_.push_back(image.fileName + " | " + image.bgType + " | " + image.data);
      if (!keep_) {
        delete collector;
        collector_ = nullptr;
      }
    });
    collector_->run();
  }

  void finishAndWait() {
    fromWatchface({{"message", "backup_finished"}});
    ASSERT_TRUE(runLoopUntil([&] { return !completions_.empty(); }, 5));
  }

  std::shared_ptr<FakeApp> orbitline_;
  std::shared_ptr<FakeApp> pacetrail_;
  MvSvcWatchDataCollector* collector_ = nullptr;
  bool keep_ = false;
  std::vector<bool> completions_;
  std::vector<std::string> results_;
  std::vector<std::string> images_;
};

// Requests go out at once; downloaded apps lead the list, then entries in order of arrival; the
// first "backup_finished" that is no entry completes, once, and later entries still append.
TEST_F(WatchDataCollectorTest, CollectsInOrderAndCompletesOnTheFirstFinish) {
  keep_ = true;
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
  fromWatchface({{"message", "backup_finished"}});
  fromWatchface({{"type", "watch"}, {"pkgid", "face.late"}, {"result_xml", "<late/>"}});
  ASSERT_TRUE(runLoopUntil([&] { return collector_->getResultDataList().size() == 7; }, 5));
  runLoopFor(0.05);

  EXPECT_THAT(completions_, ElementsAre(true));
  EXPECT_THAT(results_, ElementsAre("com.indie.clock-tidal | com.indie.clock-tidal | downloaded",
                                    "com.indie.clock-ember | com.indie.clock-ember | downloaded",
                                    std::string("com.talvoro.clock-orbitline | ") +
                                        kOrbitlineService + " | <orbitline/>",
                                    "face.a | com.talvoro.watchface-service | <a/>",
                                    "face.b | com.talvoro.watchface-service | ",
                                    "face.a | com.talvoro.watchface-service | <again/>"));
}

// Photos are read and encoded a chunk at a time, and what cannot be read gives empty data; an entry
// that lacks a key is skipped, naming the key.
TEST_F(WatchDataCollectorTest, PhotosAreEncodedAndIncompleteEntriesSkipped) {
  const std::string dir = deviceDir() + "/photos";
  g_mkdir_with_parents(dir.c_str(), 0755);
  ASSERT_TRUE(g_file_set_contents((dir + "/a.jpg").c_str(), "\xff\xd8\x00jpg", 6, nullptr));
  ASSERT_TRUE(g_file_set_contents((dir + "/empty.png").c_str(), "", 0, nullptr));
  // More than two chunks, and no whole number of base64 groups.
  std::string big(100001, '\0');
  for (size_t i = 0; i < big.size(); ++i)
    big[i] = static_cast<char>(i * 7919 % 251);
  ASSERT_TRUE(g_file_set_contents((dir + "/big.jpg").c_str(), big.data(), big.size(), nullptr));
  g_autofree gchar* bigBase64 =
      g_base64_encode(reinterpret_cast<const guchar*>(big.data()), big.size());
  ASSERT_EQ(mkfifo((dir + "/pipe").c_str(), 0644), 0);
  start();
  platform().log().clear();
  for (const std::string name : {"a.jpg", "empty.png", "big.jpg", "pipe", ".", "gone"}) {
    fromWatchface({{"type", "image"},
                   {"file_name", name == "." ? "dir" : name},
                   {"file_path", dir + "/" + name},
                   {"bg_type", name == "empty.png" ? "gallery" : "photo"}});
  }
  fromWatchface({{"type", "watch"}, {"pkgid", "face.a"}});
  fromWatchface({{"type", "watch"}, {"result_xml", "<a/>"}});
  fromWatchface({{"type", "image"}, {"file_name", "a.jpg"}, {"file_path", "/x"}});
  fromWatchface({{"type", "image"}, {"file_path", "/x"}, {"bg_type", "photo"}});
  fromWatchface({{"type", "image"}, {"file_name", "a.jpg"}, {"bg_type", "photo"}});
  finishAndWait();
  EXPECT_THAT(images_, ElementsAre("a.jpg | photo | /9gAanBn", "empty.png | gallery | ",
                                   std::string("big.jpg | photo | ") + bigBase64, "pipe | photo | ",
                                   "dir | photo | ", "gone | photo | "));
  EXPECT_THAT(logs(), ElementsAre("E Watch message without result_xml. Skip",
                                  "E Watch message without pkgid. Skip",
                                  "E Image message without bg_type. Skip",
                                  "E Image message without file_name. Skip",
                                  "E Image message without file_path. Skip",
                                  "I Backup from watchface finished", "I Unregister message port"));
}

// Missing peers are logged and the collection goes on; a silent watch face ends it with failure
// once the bound passes.
TEST_F(WatchDataCollectorTest, MissingPeersAndASilentWatchfaceEndInFailureAfterTheBound) {
  platform().packages().uninstall(kOrbitlineService);
  platform().packages().uninstall(kWatchfaceService);
  start(50);
  ASSERT_TRUE(runLoopUntil([&] { return !completions_.empty(); }, 5));
  runLoopFor(0.1);
  EXPECT_THAT(
      logs(),
      ElementsAre(std::string("E Failed to launch ") + kOrbitlineService + " app",
                  "E Failed to request backup app control", "E Failed to send message port message",
                  "I com.talvoro.watchface is preload. Skip backup",
                  "E No backup_finished from watchface in 50 ms", "I Unregister message port"));
  EXPECT_THAT(completions_, ElementsAre(false));
  EXPECT_EQ(results_.size(), 2u);
}

// A package list that fails is logged in the name of the member that lists.
TEST_F(WatchDataCollectorTest, AFailedPackageListIsLoggedByTheListingMember) {
  platform().packages().failCall("pkgmgrinfo_appinfo_usr_filter_foreach_appinfo", PMINFO_R_ERROR);
  start();
  EXPECT_THAT(logs(), ::testing::Contains("E pkgmgrinfo_appinfo_filter_foreach_appinfo error[err "
                                          "code = " +
                                          std::to_string(PMINFO_R_ERROR) + "]"));
}

}  // namespace
}  // namespace morvik_test
