#include "emu/DeviceProfile.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "TempDir.h"
#include "emu/SampleWatch.h"

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

// The benchmark compares runs and sizes: its watch is the same every time, of the stated shape,
// with photos that do not compress.
TEST_F(DeviceProfileTest, HeavyWatchHasTheReferenceShapeEveryTime) {
  std::string error;
  emu::DeviceProfile once, twice;
  ASSERT_TRUE(emu::createHeavyWatch(dir_ + "/once", 1, error) && once.load(dir_ + "/once", error) &&
              emu::createHeavyWatch(dir_ + "/twice", 2, error) &&
              twice.load(dir_ + "/twice", error))
      << error;
  std::set<std::string> distinct;
  for (const emu::FaceEntry& face : once.faces)
    distinct.insert(face.settings);
  for (const emu::WatchAppState& app : once.watchApps)
    distinct.insert(app.resultXml);
  EXPECT_EQ(once.faces.size(), 40u);
  EXPECT_EQ(distinct.size(), 42u);
  for (const std::string& settings : distinct)
    EXPECT_EQ(settings.size(), 16u * 1024);

  // The first 20 photos of the doubled watch are the single watch's, byte for byte.
  ASSERT_EQ(once.images.size(), 20u);
  ASSERT_EQ(twice.images.size(), 40u);
  distinct.clear();
  for (const emu::DeviceProfile* profile : {&once, &twice}) {
    for (size_t i = 0; i < profile->images.size(); ++i) {
      const auto bytes = emu::readDeviceFile(profile == &once ? dir_ + "/once" : dir_ + "/twice",
                                             profile->images[i].path);
      ASSERT_TRUE(bytes && bytes->size() == 512u * 1024) << profile->images[i].path;
      EXPECT_EQ(profile->images[i].fileName, twice.images[i].fileName);
      distinct.insert(*bytes);
    }
  }
  EXPECT_EQ(distinct.size(), 40u);
  // Incompressible: every byte value turns up, none of them much more often than the rest.
  std::vector<size_t> counts(256);
  for (unsigned char c : *distinct.begin())
    ++counts[c];
  EXPECT_LT(*std::max_element(counts.begin(), counts.end()), 2 * 512u * 1024 / 256);
  EXPECT_GT(*std::min_element(counts.begin(), counts.end()), 512u * 1024 / 256 / 2);
}

}  // namespace
