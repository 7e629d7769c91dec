#include "emu/DeviceProfile.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "MvHandles.h"
#include "TempDir.h"
#include "emu/RunJournal.h"
#include "emu/SampleWatch.h"
#include "host/Personality.h"

namespace {

class DeviceProfileTest : public ::testing::Test {
 protected:
  // Why the profile in the directory does not load: one line, or "" when it loads.
  std::string refusal() {
    emu::DeviceProfile profile;
    std::string error;
    const bool loaded = profile.load(dir_, error);
    EXPECT_EQ(loaded, error.empty());
    EXPECT_EQ(error.find('\n'), std::string::npos);
    return error;
  }

  morvik_test::TempDir temp_;
  const std::string dir_ = temp_.path();
  const std::string path_ = dir_ + "/device.json";
};

TEST_F(DeviceProfileTest, BrokenProfilesAreRefusedWithAOneLineReason) {
  const struct {
    std::string text;
    std::string reason;  // the whole reason, or a part of it after "~"
  } cases[] = {
      {"{\"format\": 1, \"name\": ", "~device.json"},
      {"[]", "~not a JSON object"},
      // json-glib quotes a broken string with its line break.
      {"{\"format\": 1, \"name\": \"v{\n  \"t\"}", "~device.json:2:"},
      {"{\"format\": 2, \"name\": \"x\"}", "~not a device profile"},
      {"{\"format\": 1, \"name\": \"x\", \"packages\": {}}",
       "device.json \"packages\" must be an array"},
      {"{\"format\": 1, \"name\": \"x\", \"packages\": [{\"pkgid\": \"p\"}]}",
       "device.json.packages[0] lacks \"appid\""},
      {"{\"format\": 1, \"name\": \"x\", \"config\": {\"k\": 3}}",
       "device.json.config \"k\" must be a string"},
      {"{\"format\": 1, \"name\": \"x\", \"packages\": [{\"pkgid\": \"p\", \"appid\": \"a\", "
       "\"component\": \"svcapp\", \"preload\": 1}]}",
       "device.json.packages[0] \"preload\" must be true or false"},
      // A name cannot carry its bytes: such a profile is refused, not saved broken.
      {"{\"format\":1,\"name\":\"x\",\"config\":{\"\\377\":\"v\"}}",
       "device.json \"config\" has a name that is not UTF-8 text"},
      {"{\"format\":1,\"name\":\"x\",\"platform\":{\"cloud-registration\":\"merge\"}}",
       "device.json: platform: cloud-registration needs one of: refuse, replace"},
      {"{\"format\":1,\"name\":\"x\",\"platform\":{\"vconf-value-limit\":\"0\"}}",
       "device.json: platform: vconf-value-limit needs a byte count from 1 to 1073741824, or off"},
      {"{\"format\":1,\"name\":\"x\",\"platform\":{\"bogus\":\"on\"}}",
       "device.json: platform: unknown platform switch 'bogus'"},
      // No watch holds a configuration value longer than its platform stores.
      {"{\"format\":1,\"name\":\"x\",\"config\":{\"k\":\"" + std::string(4097, 'v') + "\"}}",
       "device.json: config: the value of 'k' is 4097 bytes, more than the platform's "
       "vconf-value-limit of 4096"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    ASSERT_TRUE(g_file_set_contents(path_.c_str(), c.text.c_str(), -1, nullptr));
    if (c.reason[0] == '~')
      EXPECT_NE(refusal().find(c.reason.substr(1)), std::string::npos) << refusal();
    else
      EXPECT_EQ(refusal(), c.reason);
  }
  g_unlink(path_.c_str());
  EXPECT_NE(refusal(), "");
  // Only a regular file of bounded size is read: either of these would hang or exhaust memory.
  ASSERT_EQ(symlink("/dev/zero", path_.c_str()), 0);
  EXPECT_EQ(refusal(), path_ + ": not a regular file");
  g_unlink(path_.c_str());
  ASSERT_TRUE(g_file_set_contents(path_.c_str(), "", 0, nullptr));
  ASSERT_EQ(truncate(path_.c_str(), static_cast<off_t>(emu::DeviceProfile::kMaxFileBytes) + 1), 0);
  EXPECT_EQ(refusal(), path_ + ": larger than 64 MiB");
}

TEST_F(DeviceProfileTest, APlatformPersonalitySavesAndLoadsAsTheHostReadsIt) {
  std::string error;
  ASSERT_TRUE(emu::createBlankWatch(dir_, error)) << error;
  emu::DeviceProfile profile;
  ASSERT_TRUE(profile.load(dir_, error)) << error;
  profile.platform = {{"cloud-registration", "replace"}, {"message-size-limit", "4096"}};
  ASSERT_TRUE(profile.save(dir_, error)) << error;
  emu::DeviceProfile loaded;
  ASSERT_TRUE(loaded.load(dir_, error)) << error;
  host::Personality personality;
  ASSERT_TRUE(personality.setAll(loaded.platform, error)) << error;
  EXPECT_EQ(personality.cloudRegistration, host::Personality::CloudRegistration::kReplace);
  EXPECT_EQ(personality.messageSizeLimit, 4096u);
  // What was not set keeps the platform's own default, and reads back as a valid setting.
  host::Personality echoed;
  ASSERT_TRUE(echoed.setAll(personality.settings(), error)) << error;
  EXPECT_EQ(echoed.settings(), personality.settings());
  EXPECT_EQ(echoed.settings().size(), host::personalitySwitches().size());
}

// The benchmark compares runs and sizes: its watch is the same every time (down to the digest of
// its settings and photos), of the stated shape, with photos that do not compress.
TEST_F(DeviceProfileTest, HeavyWatchHasTheReferenceShapeEveryTime) {
  std::string error;
  emu::DeviceProfile heavy;
  ASSERT_TRUE(emu::createHeavyWatch(dir_, 1, error) && heavy.load(dir_, error)) << error;
  g_autoptr(GChecksum) digest = g_checksum_new(G_CHECKSUM_SHA256);
  std::set<std::string> distinct;
  for (const emu::FaceEntry& face : heavy.faces)
    distinct.insert(face.settings);
  for (const emu::WatchAppState& app : heavy.watchApps)
    distinct.insert(app.resultXml);
  EXPECT_EQ(heavy.faces.size(), 40u);
  EXPECT_EQ(distinct.size(), 42u);
  for (const std::string& settings : distinct) {
    EXPECT_EQ(settings.size(), 16u * 1024);
    g_checksum_update(digest, reinterpret_cast<const guchar*>(settings.data()), settings.size());
  }
  ASSERT_EQ(heavy.images.size(), 20u);
  distinct.clear();
  for (const emu::BackgroundImage& image : heavy.images) {
    const auto bytes = emu::readDeviceFile(dir_, image.path);
    ASSERT_TRUE(bytes && bytes->size() == 512u * 1024) << image.path;
    distinct.insert(*bytes);
    g_checksum_update(digest, reinterpret_cast<const guchar*>(bytes->data()), bytes->size());
  }
  EXPECT_EQ(distinct.size(), 20u);
  EXPECT_STREQ(g_checksum_get_string(digest),
               "bef2e8b2404fdcf962a65628fccfc5211d45b7c9b7e67f4501fbfad362100e2b");
  // Incompressible: every byte value turns up, none of them much more often than the rest.
  std::vector<size_t> counts(256);
  for (unsigned char c : *distinct.begin())
    ++counts[c];
  EXPECT_LT(*std::max_element(counts.begin(), counts.end()), 2 * 512u * 1024 / 256);
  EXPECT_GT(*std::min_element(counts.begin(), counts.end()), 512u * 1024 / 256 / 2);
}

}  // namespace

// A run's journal is read with the profile: whole lines in their order, a line a kill cut short
// as no change; a line that is no change refuses the profile, naming it.
TEST_F(DeviceProfileTest, AJournalLeftByARunIsReadWithTheProfile) {
  std::string error;
  ASSERT_TRUE(emu::createBlankWatch(dir_, error)) << error;
  {
    emu::RunJournal journal(dir_);
    journal.face({"com.talvoro.face.mono", "<first/>"});
    journal.config(MV_IDLE_CLOCK_KEY, "caf\xE9");
    journal.face({"com.talvoro.face.mono", "<second/>"});
    journal.photo({"p.jpg", "apps/p.jpg", "photo"});
    ASSERT_FALSE(journal.failed(error)) << error;
  }
  const std::string journal = dir_ + "/" + emu::RunJournal::kFileName;
  MvFilePtr file(fopen(journal.c_str(), "a"));
  fputs("face Y3V0", file.get());
  file.reset();
  emu::DeviceProfile profile;
  ASSERT_TRUE(profile.load(dir_, error)) << error;
  EXPECT_EQ(profile.config[MV_IDLE_CLOCK_KEY], "caf\xE9");
  ASSERT_EQ(profile.faces.size(), 1u);
  EXPECT_EQ(profile.faces[0].settings, "<second/>");
  ASSERT_EQ(profile.images.size(), 1u);
  EXPECT_EQ(profile.images[0].path, "apps/p.jpg");

  ASSERT_TRUE(profile.save(dir_, error)) << error;
  EXPECT_FALSE(g_file_test(journal.c_str(), G_FILE_TEST_EXISTS));
  ASSERT_TRUE(g_file_set_contents(journal.c_str(), "face YQ== Yg==\nsmile YQ==\n", -1, nullptr));
  EXPECT_EQ(refusal(), journal + ": line 2 is no change of a run");
}
