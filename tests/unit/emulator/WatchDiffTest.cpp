#include "emu/WatchDiff.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

#include "TempDir.h"
#include "emu/DeviceProfile.h"
#include "emu/SampleWatch.h"

namespace {

using Lines = std::vector<std::string>;

class WatchDiffTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(emu::createSampleWatch(first_, error)) << error;
    ASSERT_TRUE(emu::createSampleWatch(second_, error)) << error;
  }

  // Loads the second watch, lets `change` edit it, and saves it.
  void editSecond(const std::function<void(emu::DeviceProfile&)>& change) {
    emu::DeviceProfile profile;
    std::string error;
    ASSERT_TRUE(profile.load(second_, error)) << error;
    change(profile);
    ASSERT_TRUE(profile.save(second_, error)) << error;
  }

  std::string filePath(const std::string& dir, const std::string& relative) {
    g_autofree char* path = g_build_filename(dir.c_str(), relative.c_str(), nullptr);
    return path;
  }

  std::string photoPath(const std::string& dir, const std::string& fileName) {
    emu::DeviceProfile profile;
    std::string error;
    EXPECT_TRUE(profile.load(dir, error)) << error;
    for (const emu::BackgroundImage& image : profile.images)
      if (image.fileName == fileName)
        return filePath(dir, image.path);
    ADD_FAILURE() << "no photo " << fileName;
    return "";
  }

  Lines diff() {
    Lines differences;
    std::string error;
    EXPECT_TRUE(emu::diffWatches(first_, second_, differences, error)) << error;
    return differences;
  }

  morvik_test::TempDir temp_;
  const std::string first_ = temp_.path() + "/one";
  const std::string second_ = temp_.path() + "/two";
};

TEST_F(WatchDiffTest, TwoSampleWatchesHaveTheSameSetup) {
  EXPECT_EQ(diff(), Lines{});
}

TEST_F(WatchDiffTest, PhotosCompareByNameTypeAndBytesNotByWhereTheyLie) {
  const std::string moved = "apps/com.talvoro.watchface-service/data/restored/bg-aurora.jpg";
  const std::string old = photoPath(second_, "bg-aurora.jpg");
  g_autofree char* movedDir = g_path_get_dirname(filePath(second_, moved).c_str());
  ASSERT_EQ(g_mkdir_with_parents(movedDir, 0755), 0);
  ASSERT_EQ(g_rename(old.c_str(), filePath(second_, moved).c_str()), 0);
  editSecond([&](emu::DeviceProfile& profile) {
    std::swap(profile.images[0], profile.images[1]);
    profile.images[1].path = moved;
  });
  EXPECT_EQ(diff(), Lines{});
}

TEST_F(WatchDiffTest, SampleAndBlankDifferInEveryPartOfTheSetup) {
  const std::string blank = temp_.path() + "/blank";
  std::string error;
  ASSERT_TRUE(emu::createBlankWatch(blank, error)) << error;
  Lines differences;
  ASSERT_TRUE(emu::diffWatches(first_, blank, differences, error)) << error;
  const std::string onFirst = ": only on " + first_;
  EXPECT_EQ(differences, (Lines{
                             "idle face: com.talvoro.face.aurora vs com.talvoro.face.classic",
                             "face com.talvoro.face.aurora" + onFirst,
                             "face com.talvoro.face.mono" + onFirst,
                             "face com.talvoro.face.nebula" + onFirst,
                             "watch app com.talvoro.clock-orbitline.service: settings differ",
                             "watch app com.talvoro.clock-pacetrail.service: settings differ",
                             "photo bg-aurora.jpg" + onFirst,
                             "photo bg-harbour.png" + onFirst,
                             "app com.indie.clock-ember" + onFirst,
                             "app com.indie.clock-tidal" + onFirst,
                         }));
}

TEST_F(WatchDiffTest, IdleClockComparesBothKeysAndNamesAnUnsetOne) {
  editSecond([](emu::DeviceProfile& profile) {
    profile.config[emu::kIdleClockKey] = "com.talvoro.clock-orbitline";
    profile.config.erase(emu::kWatchfaceNameKey);
  });
  EXPECT_EQ(diff(), (Lines{"idle clock: com.talvoro.watchface vs com.talvoro.clock-orbitline",
                           "idle face: com.talvoro.face.aurora vs (unset)"}));
}

TEST_F(WatchDiffTest, OneChangedCharacterInASettingsDocumentIsADifference) {
  editSecond([](emu::DeviceProfile& profile) {
    profile.faces[1].settings.back() = ' ';
    profile.watchApps[1].resultXml += "\n";
    profile.faces.push_back({"com.indie.face.extra", ""});
  });
  EXPECT_EQ(diff(), (Lines{"face com.indie.face.extra: only on " + second_,
                           "face com.talvoro.face.mono: settings differ",
                           "watch app com.talvoro.clock-pacetrail.service: settings differ"}));
}

TEST_F(WatchDiffTest, PhotoBytesTypeAndMissingFilesAreDifferencesNotErrors) {
  const std::string aurora = photoPath(second_, "bg-aurora.jpg");
  g_autofree char* bytes = nullptr;
  gsize length = 0;
  ASSERT_TRUE(g_file_get_contents(aurora.c_str(), &bytes, &length, nullptr));
  bytes[length / 2] = static_cast<char>(bytes[length / 2] ^ 1);
  ASSERT_TRUE(g_file_set_contents(aurora.c_str(), bytes, static_cast<gssize>(length), nullptr));
  ASSERT_EQ(g_unlink(photoPath(first_, "bg-harbour.png").c_str()), 0);
  editSecond([](emu::DeviceProfile& profile) { profile.images[1].bgType = "photo"; });

  EXPECT_EQ(diff(), (Lines{"photo bg-aurora.jpg: bytes differ",
                           "photo bg-harbour.png: bg_type gallery vs photo",
                           "photo bg-harbour.png: file missing on " + first_}));
}

TEST_F(WatchDiffTest, APhotoPathThatIsNotARegularFileIsMissingAndNeverBlocks) {
  const std::string harbour = photoPath(second_, "bg-harbour.png");
  ASSERT_EQ(g_unlink(harbour.c_str()), 0);
  ASSERT_EQ(mkfifo(harbour.c_str(), 0644), 0);
  EXPECT_EQ(diff(), Lines{"photo bg-harbour.png: file missing on " + second_});
}

TEST_F(WatchDiffTest, OnlyDownloadedAppsAreCompared) {
  editSecond([](emu::DeviceProfile& profile) {
    for (auto app = profile.packages.begin(); app != profile.packages.end();) {
      if (app->appId == emu::kStoreAppId || app->appId == "com.indie.clock-tidal")
        app = profile.packages.erase(app);
      else if (app->appId == "com.indie.clock-ember")
        (app++)->pkgId = "com.indie.clock-ember2";
      else
        ++app;
    }
    profile.packages.push_back({"com.indie.clock-dune", "com.indie.clock-dune", "watchapp", true});
  });
  EXPECT_EQ(diff(), (Lines{"app com.indie.clock-ember: package com.indie.clock-ember vs "
                           "com.indie.clock-ember2",
                           "app com.indie.clock-tidal: only on " + first_}));
}

TEST_F(WatchDiffTest, AnUnreadableProfileIsAnErrorWithAOneLineReason) {
  ASSERT_TRUE(g_file_set_contents(filePath(second_, "device.json").c_str(), "{\"format\": 2}", -1,
                                  nullptr));
  Lines differences;
  std::string error;
  EXPECT_FALSE(emu::diffWatches(first_, second_, differences, error));
  EXPECT_NE(error.find(second_ + "/device.json"), std::string::npos) << error;
  EXPECT_EQ(error.find('\n'), std::string::npos) << error;

  EXPECT_FALSE(emu::diffWatches(temp_.path() + "/none", first_, differences, error));
  EXPECT_NE(error.find("none/device.json"), std::string::npos) << error;
}

}  // namespace
