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

// Loads the watch in `dir`, lets `change` edit it, and saves it.
void edit(const std::string& dir, const std::function<void(emu::DeviceProfile&)>& change) {
  emu::DeviceProfile profile;
  std::string error;
  ASSERT_TRUE(profile.load(dir, error)) << error;
  change(profile);
  ASSERT_TRUE(profile.save(dir, error)) << error;
}

std::string photoPath(const std::string& dir, const std::string& fileName) {
  emu::DeviceProfile profile;
  std::string error;
  EXPECT_TRUE(profile.load(dir, error)) << error;
  for (const emu::BackgroundImage& image : profile.images) {
    if (image.fileName == fileName)
      return dir + "/" + image.path;
  }
  ADD_FAILURE() << "no photo " << fileName;
  return "";
}

// Two sample watches, ONE and TWO, changed by each case; the lines that diff gives for them.
TEST(WatchDiffTest, NamesEveryDifferenceOfTheSetupAndNothingElse) {
  using Change = std::function<void(const std::string& one, const std::string& two)>;
  const struct {
    const char* name;
    Change change;
    Lines lines;
  } cases[] = {
      {"the same", [](const std::string&, const std::string&) {}, {}},
      // Photos compare by name, type and bytes, not by where they lie or their order.
      {"photos moved",
       [](const std::string&, const std::string& two) {
         const std::string moved = "apps/com.talvoro.watchface-service/data/bg-aurora.jpg";
         ASSERT_EQ(g_rename(photoPath(two, "bg-aurora.jpg").c_str(), (two + "/" + moved).c_str()),
                   0);
         edit(two, [&](emu::DeviceProfile& profile) {
           std::swap(profile.images[0], profile.images[1]);
           profile.images[1].path = moved;
         });
       },
       {}},
      {"a blank watch",
       [](const std::string&, const std::string& two) {
         std::string error;
         ASSERT_EQ(g_unlink((two + "/device.json").c_str()), 0);
         ASSERT_TRUE(emu::createBlankWatch(two, error)) << error;
       },
       {"idle face: com.talvoro.face.aurora vs com.talvoro.face.classic",
        "face com.talvoro.face.aurora: only on ONE", "face com.talvoro.face.mono: only on ONE",
        "face com.talvoro.face.nebula: only on ONE",
        "watch app com.talvoro.clock-orbitline.service: settings differ",
        "watch app com.talvoro.clock-pacetrail.service: settings differ",
        "photo bg-aurora.jpg: only on ONE", "photo bg-harbour.png: only on ONE",
        "app com.indie.clock-ember: only on ONE", "app com.indie.clock-tidal: only on ONE"}},
      {"idle clock and settings",
       [](const std::string&, const std::string& two) {
         edit(two, [](emu::DeviceProfile& profile) {
           profile.config[emu::kIdleClockKey] = "com.talvoro.clock-orbitline";
           profile.config.erase(emu::kWatchfaceNameKey);
           profile.faces[1].settings.back() = ' ';
           profile.watchApps[1].resultXml += "\n";
           profile.faces.push_back({"com.indie.face.extra", ""});
         });
       },
       {"idle clock: com.talvoro.watchface vs com.talvoro.clock-orbitline",
        "idle face: com.talvoro.face.aurora vs (unset)", "face com.indie.face.extra: only on TWO",
        "face com.talvoro.face.mono: settings differ",
        "watch app com.talvoro.clock-pacetrail.service: settings differ"}},
      // A photo that is missing or no regular file is a difference, never an error or a hang.
      {"photo bytes, type and files",
       [](const std::string& one, const std::string& two) {
         const std::string aurora = photoPath(two, "bg-aurora.jpg");
         g_autofree char* bytes = nullptr;
         gsize length = 0;
         ASSERT_TRUE(g_file_get_contents(aurora.c_str(), &bytes, &length, nullptr));
         bytes[length / 2] = static_cast<char>(bytes[length / 2] ^ 1);
         ASSERT_TRUE(
             g_file_set_contents(aurora.c_str(), bytes, static_cast<gssize>(length), nullptr));
         ASSERT_EQ(g_unlink(photoPath(one, "bg-harbour.png").c_str()), 0);
         const std::string harbour = photoPath(two, "bg-harbour.png");
         ASSERT_EQ(g_unlink(harbour.c_str()), 0);
         ASSERT_EQ(mkfifo(harbour.c_str(), 0644), 0);
         edit(two, [](emu::DeviceProfile& profile) { profile.images[1].bgType = "photo"; });
       },
       {"photo bg-aurora.jpg: bytes differ", "photo bg-harbour.png: bg_type gallery vs photo",
        "photo bg-harbour.png: file missing on ONE", "photo bg-harbour.png: file missing on TWO"}},
      // Downloaded apps by app and package ID; preloaded apps are not part of the setup.
      {"downloaded apps",
       [](const std::string&, const std::string& two) {
         edit(two, [](emu::DeviceProfile& profile) {
           for (auto app = profile.packages.begin(); app != profile.packages.end();) {
             if (app->appId == emu::kStoreAppId || app->appId == "com.indie.clock-tidal")
               app = profile.packages.erase(app);
             else if (app->appId == "com.indie.clock-ember")
               (app++)->pkgId = "com.indie.clock-ember2";
             else
               ++app;
           }
           profile.packages.push_back(
               {"com.indie.clock-dune", "com.indie.clock-dune", "watchapp", true});
         });
       },
       {"app com.indie.clock-ember: package com.indie.clock-ember vs com.indie.clock-ember2",
        "app com.indie.clock-tidal: only on ONE"}},
  };
  morvik_test::TempDir temp;
  int number = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string one = temp.path() + "/one" + std::to_string(number);
    const std::string two = temp.path() + "/two" + std::to_string(number++);
    std::string error;
    ASSERT_TRUE(emu::createSampleWatch(one, error)) << error;
    ASSERT_TRUE(emu::createSampleWatch(two, error)) << error;
    c.change(one, two);
    Lines expected;
    for (std::string line : c.lines) {
      for (const auto& [name, dir] : {std::make_pair("ONE", one), std::make_pair("TWO", two)}) {
        const size_t at = line.find(name);
        if (at != std::string::npos)
          line.replace(at, 3, dir);
      }
      expected.push_back(line);
    }
    Lines differences;
    EXPECT_TRUE(emu::diffWatches(one, two, differences, error)) << error;
    EXPECT_EQ(differences, expected);
  }
}

}  // namespace
