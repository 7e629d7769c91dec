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

// The lines that diff gives for two watches, with their directories written as ONE and TWO.
Lines diff(const std::string& one, const std::string& two) {
  Lines differences;
  std::string error;
  EXPECT_TRUE(emu::diffWatches(one, two, differences, error)) << error;
  for (std::string& line : differences) {
    for (const auto& [name, dir] : {std::make_pair("ONE", one), std::make_pair("TWO", two)}) {
      const size_t at = line.find(dir);
      if (at != std::string::npos)
        line.replace(at, dir.size(), name);
    }
  }
  return differences;
}

// Two sample watches, the same at first; every part of the setup is then changed on one or the
// other, and each change is named, but nothing else: preloaded apps are not part of the setup.
TEST(WatchDiffTest, NamesEveryDifferenceOfTheSetupAndNothingElse) {
  morvik_test::TempDir temp;
  const std::string one = temp.path() + "/one";
  const std::string two = temp.path() + "/two";
  std::string error;
  ASSERT_TRUE(emu::createSampleWatch(one, error) && emu::createSampleWatch(two, error)) << error;
  EXPECT_EQ(diff(one, two), Lines());

  std::string aurora, harbour, harbourOne;
  edit(two, [&](emu::DeviceProfile& profile) {
    aurora = two + "/" + profile.images[0].path;
    harbour = two + "/" + profile.images[1].path;
    profile.config[MV_IDLE_CLOCK_KEY] = "com.talvoro.clock-orbitline";
    profile.config.erase(MV_WATCHFACE_NAME_KEY);
    profile.faces[1].settings.back() = ' ';
    profile.watchApps[1].resultXml += "\n";
    profile.faces.push_back({"com.indie.face.extra", ""});
    profile.faces.erase(profile.faces.begin());
    profile.images[1].bgType = "photo";
    for (auto app = profile.packages.begin(); app != profile.packages.end();) {
      if (app->appId == MV_STORE_APP_ID || app->appId == "com.indie.clock-tidal")
        app = profile.packages.erase(app);
      else if (app->appId == "com.indie.clock-ember")
        (app++)->pkgId = "com.indie.clock-ember2";
      else
        ++app;
    }
    profile.packages.push_back({"com.indie.clock-dune", "com.indie.clock-dune", "watchapp", true});
  });
  edit(one, [&](emu::DeviceProfile& profile) {
    harbourOne = one + "/" + profile.images[1].path;
    profile.images.push_back({"extra.png", profile.images[0].path, "photo"});
  });
  // A photo that is missing or no regular file is a difference, never an error or a hang.
  g_autofree char* bytes = nullptr;
  gsize length = 0;
  ASSERT_TRUE(g_file_get_contents(aurora.c_str(), &bytes, &length, nullptr));
  bytes[length / 2] = static_cast<char>(bytes[length / 2] ^ 1);
  ASSERT_TRUE(g_file_set_contents(aurora.c_str(), bytes, static_cast<gssize>(length), nullptr));
  ASSERT_EQ(g_unlink(harbourOne.c_str()), 0);
  ASSERT_EQ(g_unlink(harbour.c_str()), 0);
  ASSERT_EQ(mkfifo(harbour.c_str(), 0644), 0);

  EXPECT_EQ(
      diff(one, two),
      Lines({"idle clock: com.talvoro.watchface vs com.talvoro.clock-orbitline",
             "idle face: com.talvoro.face.aurora vs (unset)",
             "face com.indie.face.extra: only on TWO", "face com.talvoro.face.aurora: only on ONE",
             "face com.talvoro.face.mono: settings differ at line 5: \"</face>\" vs \"</face> \"",
             "watch app com.talvoro.clock-pacetrail.service: settings differ at line 2: (end) vs "
             "\"\"",
             "photo bg-aurora.jpg: bytes differ: 49152 vs 49152 bytes, first at byte 24576",
             "photo bg-harbour.png: bg_type gallery vs photo",
             "photo bg-harbour.png: file missing on ONE",
             "photo bg-harbour.png: file missing on TWO", "photo extra.png: only on ONE",
             "app com.indie.clock-ember: package com.indie.clock-ember vs com.indie.clock-ember2",
             "app com.indie.clock-tidal: only on ONE"}));
}

}  // namespace
