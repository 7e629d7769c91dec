#include "emu/DeviceProfile.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <string>

#include "TempDir.h"
#include "emu/EmulatedWatch.h"
#include "emu/SampleWatch.h"
#include "host/MainLoop.h"
#include "host/Platform.h"

namespace {

class DeviceProfileTest : public ::testing::Test {
 protected:
  std::string writeProfile(const char* json) {
    g_autofree char* path = g_build_filename(dir_.c_str(), "device.json", nullptr);
    g_file_set_contents(path, json, -1, nullptr);
    emu::DeviceProfile profile;
    std::string error;
    EXPECT_FALSE(profile.load(dir_, error));
    return error;
  }

  morvik_test::TempDir temp_;
  const std::string dir_ = temp_.path();
};

TEST_F(DeviceProfileTest, SampleWatchHasTheUsersSetupAndReadsBackEqual) {
  std::string error;
  ASSERT_TRUE(emu::createSampleWatch(dir_, error)) << error;
  emu::DeviceProfile profile;
  ASSERT_TRUE(profile.load(dir_, error)) << error;

  EXPECT_EQ(profile.config.at(emu::kIdleClockKey), emu::kWatchfaceAppId);
  EXPECT_FALSE(profile.faces.empty());
  EXPECT_EQ(profile.watchApps.size(), 2u);
  for (const emu::WatchAppState& app : profile.watchApps)
    EXPECT_FALSE(app.resultXml.empty()) << app.appId;
  int downloaded = 0;
  for (const host::PackageInfo& info : profile.packages)
    downloaded += info.preload ? 0 : 1;
  EXPECT_EQ(downloaded, static_cast<int>(profile.catalogue.size()));
  ASSERT_FALSE(profile.images.empty());
  for (const emu::BackgroundImage& image : profile.images) {
    g_autofree char* path = g_build_filename(dir_.c_str(), image.path.c_str(), nullptr);
    EXPECT_TRUE(g_file_test(path, G_FILE_TEST_IS_REGULAR)) << path;
  }

  ASSERT_TRUE(profile.save(dir_, error)) << error;
  emu::DeviceProfile again;
  ASSERT_TRUE(again.load(dir_, error)) << error;
  EXPECT_EQ(again.faces.size(), profile.faces.size());
  EXPECT_EQ(again.faces.back().settings, profile.faces.back().settings);
  EXPECT_EQ(again.packages.size(), profile.packages.size());
  EXPECT_EQ(again.config, profile.config);

  EXPECT_FALSE(emu::createBlankWatch(dir_, error));
  EXPECT_EQ(error, "'" + dir_ + "' already holds a watch");
}

TEST_F(DeviceProfileTest, BlankWatchHasThePlatformAppsButNoneOfTheUsersSetup) {
  std::string error;
  ASSERT_TRUE(emu::createBlankWatch(dir_, error)) << error;
  emu::DeviceProfile profile;
  ASSERT_TRUE(profile.load(dir_, error)) << error;
  EXPECT_TRUE(profile.faces.empty());
  EXPECT_TRUE(profile.images.empty());
  EXPECT_FALSE(profile.catalogue.empty());
  for (const host::PackageInfo& info : profile.packages)
    EXPECT_TRUE(info.preload) << info.appId;
  for (const emu::WatchAppState& app : profile.watchApps)
    EXPECT_TRUE(app.resultXml.empty()) << app.appId;
}

TEST_F(DeviceProfileTest, BrokenProfilesAreRefusedWithAOneLineReason) {
  EXPECT_NE(writeProfile("{\"format\": 1, \"name\": ").find("device.json"), std::string::npos);
  EXPECT_NE(writeProfile("[]").find("not a JSON object"), std::string::npos);
  // json-glib quotes a broken string with its line break; the reason stays one line.
  const std::string broken = writeProfile("{\"format\": 1, \"name\": \"v{\n  \"t\"}");
  EXPECT_EQ(broken.find('\n'), std::string::npos) << broken;
  EXPECT_NE(broken.find("device.json:2:"), std::string::npos) << broken;
  EXPECT_NE(writeProfile("{\"format\": 2, \"name\": \"x\"}").find("not a device profile"),
            std::string::npos);
  EXPECT_NE(writeProfile("{\"format\": \"1\", \"name\": \"x\"}").find("not a device profile"),
            std::string::npos);
  EXPECT_EQ(writeProfile("{\"format\": 1, \"name\": \"x\", \"packages\": {}}"),
            "device.json \"packages\" must be an array");
  EXPECT_EQ(writeProfile("{\"format\": 1, \"name\": \"x\", \"packages\": [{\"pkgid\": \"p\"}]}"),
            "device.json.packages[0] lacks \"appid\"");
  EXPECT_EQ(writeProfile("{\"format\": 1, \"name\": \"x\", \"config\": {\"k\": 3}}"),
            "device.json.config \"k\" must be a string");
  EXPECT_EQ(writeProfile("{\"format\": 1, \"name\": \"x\", \"packages\": [{\"pkgid\": \"p\", "
                         "\"appid\": \"a\", \"component\": \"svcapp\", \"preload\": 1}]}"),
            "device.json.packages[0] \"preload\" must be true or false");

  emu::DeviceProfile profile;
  std::string error;
  EXPECT_FALSE(profile.load(dir_ + "/absent", error));
  EXPECT_EQ(error.find('\n'), std::string::npos);
}

TEST_F(DeviceProfileTest, EmulatedWatchLoadsThePlatformAndWritesBackWhatChanged) {
  std::string error;
  ASSERT_TRUE(emu::createSampleWatch(dir_, error)) << error;
  emu::EmulatedWatch watch;
  {
    host::Platform platform(dir_, emu::kServiceAppId);
    platform.log().setEchoToStderr(false);
    host::LaunchOptions options;
    options.deviceDir = dir_;
    ASSERT_TRUE(watch.boot(platform, options, error)) << error;
    std::string idle;
    ASSERT_TRUE(platform.config().get(emu::kIdleClockKey, idle));
    EXPECT_EQ(idle, emu::kWatchfaceAppId);
    ASSERT_NE(platform.packages().findApp("com.indie.clock-tidal"), nullptr);
    EXPECT_FALSE(platform.packages().findApp("com.indie.clock-tidal")->preload);

    platform.config().set(emu::kIdleClockKey, "com.indie.clock-ember");
    platform.packages().install({"com.indie.new", "com.indie.new", "watchapp", false});
    host::RunReport report;
    watch.finish(platform, host::RunOutcome(), report);
  }
  emu::DeviceProfile profile;
  ASSERT_TRUE(profile.load(dir_, error)) << error;
  EXPECT_EQ(profile.config.at(emu::kIdleClockKey), "com.indie.clock-ember");
  EXPECT_EQ(profile.packages.back().appId, "com.indie.new");
  EXPECT_FALSE(profile.faces.empty());
}

}  // namespace
