#include "emu/DeviceProfile.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

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

// Only a regular file of bounded size is read, and nothing json-glib would recurse through too
// deeply: each of these would hang, exhaust memory or crash the reader.
TEST_F(DeviceProfileTest, WhatIsNoProfileFileIsRefusedAtOnce) {
  const std::string path = dir_ + "/device.json";
  const auto refusal = [&] {
    emu::DeviceProfile profile;
    std::string error;
    EXPECT_FALSE(profile.load(dir_, error));
    EXPECT_EQ(error.find('\n'), std::string::npos);
    return error;
  };
  ASSERT_EQ(mkfifo(path.c_str(), 0644), 0);
  EXPECT_EQ(refusal(), path + ": not a regular file");
  g_unlink(path.c_str());
  ASSERT_EQ(symlink("/dev/zero", path.c_str()), 0);
  EXPECT_EQ(refusal(), path + ": not a regular file");
  g_unlink(path.c_str());
  const std::string deep = "{\"format\":1,\"name\":\"x\",\"faults\":" + std::string(200000, '[') +
                           std::string(200000, ']') + "}";
  ASSERT_TRUE(g_file_set_contents(path.c_str(), deep.c_str(), -1, nullptr));
  EXPECT_EQ(refusal(), path + ": nests deeper than 512 levels");
  ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(emu::DeviceProfile::kMaxFileBytes) + 1), 0);
  EXPECT_EQ(refusal(), path + ": larger than 64 MiB");
}

// A profile that loads saves to one that loads the same: json-glib turns "\377" into a byte
// that is not UTF-8, and settings a restore brought may hold such bytes; both are carried.
TEST_F(DeviceProfileTest, WhatLoadsSavesAndLoadsAgainTheSame) {
  const std::string path = dir_ + "/device.json";
  const char* text =
      "{\"format\":1,\"name\":\"t\\377\",\"config\":{\"db/k\":\"v\\377\",\"plain\":\"p\"},"
      "\"faces\":[{\"pkgid\":\"f\",\"settings\":\"<x>\\6\\351</x>\"}]}";
  ASSERT_TRUE(g_file_set_contents(path.c_str(), text, -1, nullptr));
  emu::DeviceProfile profile;
  std::string error;
  ASSERT_TRUE(profile.load(dir_, error)) << error;
  ASSERT_EQ(profile.faces.size(), 1u);
  EXPECT_EQ(profile.faces[0].settings, "<x>\x06\xe9</x>");
  profile.watchApps.push_back({"a", "p", "caf\xe9"});
  ASSERT_TRUE(profile.save(dir_, error)) << error;

  g_autofree char* saved = nullptr;
  gsize length = 0;
  ASSERT_TRUE(g_file_get_contents(path.c_str(), &saved, &length, nullptr));
  EXPECT_TRUE(g_utf8_validate(saved, static_cast<gssize>(length), nullptr));
  emu::DeviceProfile again;
  ASSERT_TRUE(again.load(dir_, error)) << error;
  EXPECT_EQ(again.name, "t\xff");
  EXPECT_EQ(again.config, profile.config);
  EXPECT_EQ(again.faces[0].settings, profile.faces[0].settings);
  EXPECT_EQ(again.watchApps[0].resultXml, "caf\xe9");

  // A name cannot carry its bytes: such a profile is refused, not saved broken.
  EXPECT_EQ(writeProfile("{\"format\":1,\"name\":\"x\",\"config\":{\"\\377\":\"v\"}}"),
            "device.json \"config\" has a name that is not UTF-8 text");
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
