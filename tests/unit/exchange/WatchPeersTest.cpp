// The service's exchange classes against the emulated watch's apps, with every fault switch.
#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <glib/gstdio.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ExchangeSupport.h"
#include "MvSvcWatchDataCollector.h"
#include "MvSvcWatchDataTransferer.h"
#include "emu/EmulatedWatch.h"
#include "emu/SampleWatch.h"
#include "host/LaunchOptions.h"

namespace morvik_test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsSupersetOf;

std::string base64(const std::string& bytes) {
  g_autofree gchar* text =
      g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size());
  return text;
}

class WatchPeersTest : public PlatformFixture {
 protected:
  void TearDown() override {
    delete collector_;
    delete transferer_;
    // The watch's apps live on the platform: the watch goes first.
    watch_.reset();
    PlatformFixture::TearDown();
  }

  // Makes the watch in the fixture's device directory with `faults` and boots it.
  void boot(bool sample,
            const std::map<std::string, std::string>& faults = {},
            const std::function<void(emu::DeviceProfile&)>& edit = nullptr) {
    std::string error;
    ASSERT_TRUE(sample ? emu::createSampleWatch(deviceDir(), error)
                       : emu::createBlankWatch(deviceDir(), error))
        << error;
    emu::DeviceProfile profile;
    ASSERT_TRUE(profile.load(deviceDir(), error)) << error;
    profile.faults = faults;
    if (edit)
      edit(profile);
    ASSERT_TRUE(profile.save(deviceDir(), error)) << error;
    host::LaunchOptions options;
    options.deviceDir = deviceDir();
    watch_ = std::make_unique<emu::EmulatedWatch>();
    ASSERT_TRUE(watch_->boot(platform(), options, error)) << error;
  }

  void collect(unsigned timeoutMs = MvSvcWatchDataCollector::kBackupFinishedTimeoutMs) {
    collector_ = new MvSvcWatchDataCollector(timeoutMs);
    collector_->setOnCollectCompleted([this](bool success, void* data) {
      auto* collector = static_cast<MvSvcWatchDataCollector*>(data);
      completions_.push_back(success);
      results_ = collector->getResultDataList();
      images_ = collector->getImageDataList();
      delete collector;
      collector_ = nullptr;
    });
    collector_->run();
    ASSERT_TRUE(runLoopUntil([&] { return !completions_.empty(); }, 10));
  }

  // What a restore of the sample watch carries (a face, a watch app, a photo, both downloaded
  // apps), and an app the store does not know.
  void transfer() {
    std::vector<WatchResultData> results = {
        {"com.talvoro.face.mono", kWatchfaceService, "<face id=\"mono\"/>"},
        {kPacetrail, kPacetrailService, "<pacetrail restored=\"yes\"/>"}};
    std::vector<WatchImageData> images = {{"bg-new.jpg", "photo", base64("photo bytes")}};
    std::vector<WatchResultData> downloads;
    for (const char* app :
         {"com.indie.clock-tidal", "com.indie.clock-gone", "com.indie.clock-ember"})
      downloads.push_back({app, app, "downloaded"});
    transferer_ = new MvSvcWatchDataTransferer(results, images, downloads,
                                               MvSvcAppCtrlModel::kStoreReplyTimeoutMs);
    transferer_->setOnTransferCompleted([this](bool success, void* data) {
      completions_.push_back(success);
      auto* transferer = static_cast<MvSvcWatchDataTransferer*>(data);
      transferer->sendWatchIdleChangeMessage("com.talvoro.face.mono");
      delete transferer;
      transferer_ = nullptr;
    });
    transferer_->run();
    // The peers apply what was sent once the main loop delivers it.
    runLoopFor(0.2);
  }

  std::vector<std::string> finishAndReload(emu::DeviceProfile& profile) {
    host::RunReport report;
    watch_->finish(platform(), host::RunOutcome(), report);
    std::string error;
    EXPECT_TRUE(profile.load(deviceDir(), error)) << error;
    return report.lines();
  }

  std::vector<std::string> logs() const {
    return serviceMessages(const_cast<WatchPeersTest*>(this)->platform().log());
  }

  std::unique_ptr<emu::EmulatedWatch> watch_;
  MvSvcWatchDataCollector* collector_ = nullptr;
  MvSvcWatchDataTransferer* transferer_ = nullptr;
  std::vector<bool> completions_;
  std::vector<WatchResultData> results_;
  std::vector<WatchImageData> images_;
};

// The store installs what it knows, as downloaded watch apps, and answers a GUID it does not
// know with a failure; the peers apply the rest and the watch keeps it all.
TEST_F(WatchPeersTest, BlankWatchRestoreInstallsAppliesAndIsWrittenBack) {
  boot(false);
  transfer();
  EXPECT_THAT(completions_, ElementsAre(true));
  const host::PackageInfo* tidal = platform().packages().findApp("com.indie.clock-tidal");
  ASSERT_NE(tidal, nullptr);
  EXPECT_FALSE(tidal->preload);
  EXPECT_EQ(tidal->component, "watchapp");
  EXPECT_EQ(platform().packages().findApp("com.indie.clock-gone"), nullptr);
  std::vector<std::string> storeAnswers;
  for (const host::BoundaryEvent& event :
       platform().record().ofKind(host::BoundaryEvent::Kind::kAppControlReply)) {
    if (event.peer == kStore)
      storeAnswers.push_back(std::to_string(event.code) + " " + testing::PrintToString(event.data));
  }
  ASSERT_EQ(storeAnswers.size(), 4u);
  EXPECT_EQ(storeAnswers[2],
            std::to_string(APP_CONTROL_RESULT_FAILED) + " " +
                testing::PrintToString(host::KeyValues{
                    {"errorMsg", "VENDARO_MESSAGE_RES_ERROR_CAN_NOT_FIND_CONTENT"}}));

  emu::DeviceProfile saved;
  EXPECT_THAT(
      finishAndReload(saved),
      IsSupersetOf({"watchface received 1 settings, 1 images, idle face com.talvoro.face.mono",
                    "watch app com.talvoro.clock-pacetrail.service: 0 backup, 1 restore",
                    "store     GUID com.indie.clock-ember: installed",
                    "store     GUID com.indie.clock-gone: "
                    "VENDARO_MESSAGE_RES_ERROR_CAN_NOT_FIND_CONTENT",
                    "store     GUID com.indie.clock-tidal: installed"}));
  EXPECT_EQ(saved.config["file/private/com.talvoro.watchface/watchface_name"],
            "com.talvoro.face.mono");
  EXPECT_EQ(saved.config["db/pel/clocks_set_idle"], "com.talvoro.watchface");
  ASSERT_EQ(saved.faces.size(), 1u);
  EXPECT_EQ(saved.faces[0].settings, "<face id=\"mono\"/>");
  ASSERT_EQ(saved.images.size(), 1u);
  EXPECT_EQ(readFile(deviceDir() + "/" + saved.images[0].path), "photo bytes");
  EXPECT_EQ(saved.watchApps[1].resultXml, "<pacetrail restored=\"yes\"/>");
  EXPECT_TRUE(
      std::any_of(saved.packages.begin(), saved.packages.end(), [](const host::PackageInfo& info) {
        return info.pkgId == "com.indie.clock-ember" && !info.preload;
      }));
}

// The watch face service hands out only regular files inside the device directory; a photo the
// service cannot count is left out of the backup. Each is named, by the service and the watch.
TEST_F(WatchPeersTest, PhotosOutsideTheDeviceOrTooLargeAreNamedAndNotBackedUp) {
  const std::string outside = deviceDir() + "/../outside-secret";
  ASSERT_TRUE(g_file_set_contents(outside.c_str(), "secret", -1, nullptr));
  boot(true, {}, [&](emu::DeviceProfile& profile) {
    const std::string dir = deviceDir() + "/" + profile.images[0].path + "-dir";
    ASSERT_EQ(g_mkdir(dir.c_str(), 0755), 0);
    ASSERT_EQ(symlink(outside.c_str(), (deviceDir() + "/link.jpg").c_str()), 0);
    const std::string huge = deviceDir() + "/huge.jpg";
    ASSERT_TRUE(g_file_set_contents(huge.c_str(), "", 0, nullptr));
    ASSERT_EQ(truncate(huge.c_str(), 2147483648LL), 0);
    profile.images = {{"link.jpg", "link.jpg", "T"},
                      {"up.jpg", "../outside-secret", "T"},
                      {"dir.jpg", profile.images[0].path + "-dir", "T"},
                      {"huge.jpg", "huge.jpg", "T"},
                      {"fine.jpg", profile.images[0].path, "T"}};
  });
  collect();
  ASSERT_EQ(images_.size(), 4u);
  for (size_t i = 0; i < 3; ++i)
    EXPECT_EQ(images_[i].data, "") << images_[i].fileName;
  EXPECT_EQ(images_[3].fileName, "fine.jpg");
  EXPECT_NE(images_[3].data, "");
  EXPECT_THAT(logs(), Contains("E Photo [huge.jpg] is too large to back up (2147483648 bytes)"));
  const std::string dirPath = watch_->profile().images[2].path;
  emu::DeviceProfile saved;
  EXPECT_THAT(
      finishAndReload(saved),
      IsSupersetOf(std::vector<std::string>{
          "watchface photo link.jpg (link.jpg) lies outside the device directory: sent "
          "as unreadable",
          "watchface photo up.jpg (../outside-secret) lies outside the device "
          "directory: sent as unreadable",
          "watchface photo dir.jpg (" + dirPath + ") is not a regular file: sent as unreadable",
          "watchface photo huge.jpg is too large to back up (2147483648 bytes)"}));
  g_unlink(outside.c_str());
}

}  // namespace
}  // namespace morvik_test
