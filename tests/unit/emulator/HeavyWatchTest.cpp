#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "TempDir.h"
#include "emu/DeviceProfile.h"
#include "emu/SampleWatch.h"
#include "emu/WatchDiff.h"

namespace {

std::string fileBytes(const std::string& path) {
  g_autofree char* bytes = nullptr;
  gsize size = 0;
  EXPECT_TRUE(g_file_get_contents(path.c_str(), &bytes, &size, nullptr)) << path;
  return bytes ? std::string(bytes, size) : std::string();
}

class HeavyWatchTest : public ::testing::Test {
 protected:
  emu::DeviceProfile load(const std::string& dir) {
    emu::DeviceProfile profile;
    std::string error;
    EXPECT_TRUE(profile.load(dir, error)) << error;
    return profile;
  }

  morvik_test::TempDir temp_;
};

// The benchmark compares runs and sizes: the watch must be the same every time, of the stated
// shape, with photos that do not compress.
TEST_F(HeavyWatchTest, HasTheReferenceShapeAndTheSameBytesEveryTime) {
  const std::string first = temp_.path() + "/first";
  const std::string second = temp_.path() + "/second";
  std::string error;
  ASSERT_TRUE(emu::createHeavyWatch(first, 1, error)) << error;
  ASSERT_TRUE(emu::createHeavyWatch(second, 1, error)) << error;
  EXPECT_EQ(fileBytes(first + "/device.json"), fileBytes(second + "/device.json"));

  const emu::DeviceProfile profile = load(first);
  ASSERT_EQ(profile.faces.size(), 40u);
  std::set<std::string> settings;
  for (const emu::FaceEntry& face : profile.faces) {
    EXPECT_EQ(face.settings.size(), 16u * 1024) << face.pkgId;
    settings.insert(face.settings);
  }
  EXPECT_EQ(settings.size(), 40u);
  for (const emu::WatchAppState& app : profile.watchApps)
    EXPECT_EQ(app.resultXml.size(), 16u * 1024) << app.appId;

  ASSERT_EQ(profile.images.size(), 20u);
  std::set<std::string> photos;
  for (const emu::BackgroundImage& image : profile.images) {
    const std::string bytes = fileBytes(first + "/" + image.path);
    EXPECT_EQ(bytes.size(), 512u * 1024) << image.fileName;
    EXPECT_EQ(bytes, fileBytes(second + "/" + image.path)) << image.fileName;
    photos.insert(bytes);
    // Incompressible: every byte value turns up, none of them much more often than the rest.
    std::vector<size_t> counts(256);
    for (unsigned char c : bytes)
      ++counts[c];
    EXPECT_LT(*std::max_element(counts.begin(), counts.end()), 2 * bytes.size() / 256);
    EXPECT_GT(*std::min_element(counts.begin(), counts.end()), bytes.size() / 256 / 2);
  }
  EXPECT_EQ(photos.size(), 20u);

  size_t downloaded = 0;
  for (const host::PackageInfo& package : profile.packages)
    downloaded += !package.preload && package.component == "watchapp";
  EXPECT_EQ(downloaded, 10u);
}

TEST_F(HeavyWatchTest, PhotosScaleByTheFactorAndTheBlankCanInstallEveryDownloadedApp) {
  const std::string heavy = temp_.path() + "/heavy";
  const std::string blank = temp_.path() + "/blank";
  std::string error;
  EXPECT_FALSE(emu::createHeavyWatch(heavy, 0, error));
  ASSERT_TRUE(emu::createHeavyWatch(heavy, 3, error)) << error;
  ASSERT_TRUE(emu::createHeavyBlankWatch(blank, error)) << error;
  const emu::DeviceProfile profile = load(heavy);
  EXPECT_EQ(profile.images.size(), 60u);

  const emu::DeviceProfile empty = load(blank);
  EXPECT_TRUE(empty.faces.empty() && empty.images.empty());
  std::set<std::string> catalogue;
  for (const emu::CatalogueItem& item : empty.catalogue)
    catalogue.insert(item.pkgId);
  for (const host::PackageInfo& package : profile.packages) {
    if (!package.preload && package.component == "watchapp") {
      EXPECT_EQ(catalogue.count(package.pkgId), 1u) << package.pkgId;
    }
  }
  std::vector<std::string> differences;
  ASSERT_TRUE(emu::diffWatches(heavy, blank, differences, error)) << error;
  EXPECT_FALSE(differences.empty());
}

}  // namespace
