// The service's exchange classes against the emulated watch: its backups collected, and documents
// (hostile ones too) restored onto it through the transferer and the emulated peers.
#include <glib.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "LogLineMatcher.h"
#include "MvSvcBackupModel.h"
#include "MvSvcRestoreModel.h"
#include "MvSvcTypes.h"
#include "MvSvcWatchDataCollector.h"
#include "TempDir.h"
#include "emu/EmulatedWatch.h"
#include "emu/SampleWatch.h"
#include "host/MainLoop.h"
#include "host/Platform.h"

namespace {

const std::nullopt_t kRefused = std::nullopt;

// The lines of `wanted` that `lines` lacks.
std::vector<std::string> missing(const std::vector<std::string>& lines,
                                 const std::vector<std::string>& wanted) {
  std::vector<std::string> absent;
  for (const std::string& line : wanted) {
    if (std::find(lines.begin(), lines.end(), line) == lines.end())
      absent.push_back(line);
  }
  return absent;
}

// An emulated watch booted on a platform of its own; one exists at a time.
struct Device {
  explicit Device(const std::string& dir) : platform(dir, MV_SERVICE_APP_ID) {}
  host::MainLoop loop;
  host::Platform platform;
  emu::EmulatedWatch watch;
};

class HostileRestoreTest : public ::testing::Test {
 protected:
  void SetUp() override { boot("watch", false); }
  void TearDown() override { finish(); }

  // Ends the watch booted before, makes a sample or blank watch in NAME, lets `edit` change it, and
  // boots it.
  void boot(const std::string& name,
            bool sample,
            const std::function<void(emu::DeviceProfile&)>& edit = nullptr) {
    finish();
    on_.reset();
    dir_ = temp_.path() + "/" + name;
    std::string error;
    ASSERT_TRUE(sample ? emu::createSampleWatch(dir_, error) : emu::createBlankWatch(dir_, error))
        << error;
    if (edit) {
      emu::DeviceProfile profile;
      ASSERT_TRUE(profile.load(dir_, error)) << error;
      edit(profile);
      ASSERT_TRUE(profile.save(dir_, error)) << error;
    }
    on_ = std::make_unique<Device>(dir_);
    on_->platform.log().setEchoToStderr(false);
    launcher::LaunchOptions options;
    options.deviceDir = dir_;
    options.cloudDir = temp_.path() + "/cloud";
    ASSERT_TRUE(on_->watch.boot(on_->platform, options, error)) << error;
    trusted_ = on_->platform.sharedTrustedPath(MV_SERVICE_APP_ID);
  }

  // Ends the watch's run and writes it back; the lines of its report.
  std::vector<std::string> finish() {
    launcher::RunReport report;
    if (on_)
      on_->watch.finish(on_->platform, launcher::RunOutcome(), report);
    return report.lines();
  }

  // What the service collects from the watch for a backup, and the document it makes of it.
  std::string collect() {
    {
      bool collected = false;
      MvSvcWatchDataCollector collector;
      collector.setOnCollectCompleted([&](bool, void*) {
        results_ = collector.getResultDataList();
        images_ = collector.getImageDataList();
        collected = true;
      });
      collector.run();
      while (!collected)
        g_main_context_iteration(nullptr, TRUE);
    }
    std::vector<WatchResultData> results = results_;
    std::vector<WatchImageData> images = images_;
    return MvSvcBackupModel(nullptr, results, images).getJsonStr(0);
  }

  void restore(const std::string& document) {
    on_->platform.log().clear();
    MvSvcRestoreModel model(nullptr);
    EXPECT_EQ(model.restoreRecord(0, document.c_str()), "key");
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
  }

  bool loggedError(const std::string& message) {
    return missing(morvik_test::serviceMessages(on_->platform.log()), {"E " + message}).empty();
  }

  morvik_test::TempDir temp_;
  std::unique_ptr<Device> on_;
  std::string dir_;
  std::string trusted_;
  std::vector<WatchResultData> results_;
  std::vector<WatchImageData> images_;
};

// What a watch's setup is made of, one line per item, in order.
std::vector<std::string> setup(const emu::DeviceProfile& profile) {
  std::vector<std::string> lines;
  for (const auto& [key, value] : profile.config)
    lines.push_back("config " + key + " " + value);
  for (const emu::FaceEntry& face : profile.faces)
    lines.push_back("face " + face.pkgId + " [" + face.settings + "]");
  for (const emu::WatchAppState& app : profile.watchApps)
    lines.push_back("watch app " + app.appId + " [" + app.resultXml + "]");
  for (const emu::BackgroundImage& image : profile.images)
    lines.push_back("photo " + image.fileName + " " + image.bgType);
  return lines;
}

// A backup of a sample watch restored onto a blank one makes the same setup, a face whose settings
// are empty and one whose settings are large included; the downloaded apps are installed as such,
// but for one the store no longer knows: the store answers that with a failure and installs
// nothing.
TEST_F(HostileRestoreTest, BackupRestoredOntoABlankWatchMakesTheSameSetup) {
  boot("sample", true, [](emu::DeviceProfile& profile) {
    profile.faces[1].settings.clear();
    while (profile.faces[2].settings.size() < 1024 * 1024)
      profile.faces[2].settings += "<p k=\"v\">\u00e9\n</p>";
    profile.packages.push_back({"com.indie.clock-gone", "com.indie.clock-gone", "watchapp", false});
  });
  const std::string document = collect();
  const std::vector<std::string> sample = setup(on_->watch.profile());

  boot("blank", false);
  restore(document);
  EXPECT_EQ(on_->platform.packages().findApp("com.indie.clock-gone"), nullptr);
  const host::PackageInfo* tidal = on_->platform.packages().findApp("com.indie.clock-tidal");
  ASSERT_NE(tidal, nullptr);
  EXPECT_FALSE(tidal->preload);
  EXPECT_EQ(tidal->component, "watchapp");
  EXPECT_EQ(missing(finish(), {"store     GUID com.indie.clock-gone: "
                               "VENDARO_MESSAGE_RES_ERROR_CAN_NOT_FIND_CONTENT",
                               "store     GUID com.indie.clock-tidal: installed"}),
            std::vector<std::string>());
  const std::vector<std::string> restored = setup(on_->watch.profile());
  ASSERT_EQ(restored.size(), sample.size());
  for (size_t i = 0; i < sample.size(); ++i)
    EXPECT_TRUE(restored[i] == sample[i]) << restored[i].substr(0, 200);
}

// The watch face service hands out only regular files inside the device directory; a photo the
// service cannot count is left out of the backup. Each is named, by the service and the watch.
TEST_F(HostileRestoreTest, PhotosOutsideTheDeviceOrTooLargeAreNamedAndNotBackedUp) {
  const std::string outside = temp_.path() + "/outside-secret";
  ASSERT_TRUE(g_file_set_contents(outside.c_str(), "secret", -1, nullptr));
  std::string dirPath;
  boot("sample", true, [&](emu::DeviceProfile& profile) {
    dirPath = profile.images[0].path + "-dir";
    ASSERT_EQ(mkdir((dir_ + "/" + dirPath).c_str(), 0755), 0);
    ASSERT_EQ(symlink(outside.c_str(), (dir_ + "/link.jpg").c_str()), 0);
    const std::string huge = dir_ + "/huge.jpg";
    ASSERT_TRUE(g_file_set_contents(huge.c_str(), "", 0, nullptr));
    ASSERT_EQ(truncate(huge.c_str(), 2147483648LL), 0);
    profile.images = {{"link.jpg", "link.jpg", "T"},
                      {"up.jpg", "../outside-secret", "T"},
                      {"dir.jpg", dirPath, "T"},
                      {"huge.jpg", "huge.jpg", "T"},
                      {"fine.jpg", profile.images[0].path, "T"}};
  });
  collect();
  ASSERT_EQ(images_.size(), 4u);
  for (size_t i = 0; i < 3; ++i)
    EXPECT_EQ(images_[i].data, "") << images_[i].fileName;
  EXPECT_EQ(images_[3].fileName, "fine.jpg");
  EXPECT_NE(images_[3].data, "");
  EXPECT_TRUE(loggedError("Photo [huge.jpg] is too large to back up (2147483648 bytes)"));
  EXPECT_EQ(missing(finish(), {"watchface photo link.jpg (link.jpg) lies outside the device "
                               "directory: sent as unreadable",
                               "watchface photo up.jpg (../outside-secret) lies outside the device "
                               "directory: sent as unreadable",
                               "watchface photo dir.jpg (" + dirPath +
                                   ") is not a regular file: sent as unreadable",
                               "watchface photo huge.jpg is too large to back up (2147483648 "
                               "bytes)"}),
            std::vector<std::string>());
}

// Every image of one document, and what each leaves in the service's shared trusted directory: a
// plain name is written with the bytes g_base64_decode makes of its data, whatever the data (base64
// wrapped, spaced, unpadded, URL-safe, padded twice, or no base64 at all); anything else is
// refused with its name and writes nothing, inside the directory or out of it, nor through a link,
// a FIFO or a directory already at its place (a hard link is replaced by a file of its own).
TEST_F(HostileRestoreTest, EachImageIsWrittenExactlyOrRefused) {
  const std::string outside = temp_.path() + "/outside.txt";
  ASSERT_TRUE(g_file_set_contents(outside.c_str(), "keep", -1, nullptr));
  ASSERT_EQ(symlink(outside.c_str(), (trusted_ + "planted.jpg").c_str()), 0);
  ASSERT_EQ(mkfifo((trusted_ + "pipe.jpg").c_str(), 0644), 0);
  ASSERT_EQ(mkdir((trusted_ + "dir.jpg").c_str(), 0755), 0);
  const std::string shared = temp_.path() + "/shared.jpg";
  ASSERT_TRUE(g_file_set_contents(shared.c_str(), "keep", -1, nullptr));
  ASSERT_EQ(link(shared.c_str(), (trusted_ + "hard.jpg").c_str()), 0);

  const struct {
    std::string name;
    std::string data;
    std::optional<std::string> written;
  } images[] = {
      {"ok.jpg", "iVBORw==", "\x89PNG"},
      {"empty.png", "", ""},
      {"wrapped.png", "AAEC\\r\\nAwQF\\r\\n", std::string("\0\1\2\3\4\5", 6)},
      {"spaced.png", " iVBO Rw== ", "\x89PNG"},
      {"twice.png", "AAAA", std::string(3, '\0')},  // overwritten by the next
      {"twice.png", "AQID", "\x01\x02\x03"},
      {"../escape.jpg", "AAEC", kRefused},
      {"/tmp/morvik-absolute.jpg", "AAEC", kRefused},
      {"sub/dir.jpg", "AAEC", kRefused},
      {"..", "AAEC", kRefused},
      {".", "AAEC", kRefused},
      {"", "AAEC", kRefused},
      {"planted.jpg", "AAAA", kRefused},
      {"pipe.jpg", "AAAA", kRefused},
      {"dir.jpg", "AAAA", kRefused},
      {"hard.jpg", "AAEC", std::string("\0\1\2", 3)},
      {"unpadded.png", "AAECAwQ", std::string("\0\1\2", 3)},       // the last group lost
      {"url-safe.png", "-_8AAQ__", std::string("\xF0\0\x10", 3)},  // '-' and '_' skipped
      {"padded-twice.png", "AQ==Ag==", "\x01\x02"},
      // Bytes carried beside the text hold a NUL, where g_base64_decode's C string ends.
      {"nul.png", "AQ==\",\"data_base64\":\"QVE9PQBBZz09", "\x01"},
      {"no-base64.png", "!!!!", ""},
  };
  std::string list;
  std::map<std::string, std::string> expected;
  for (const auto& image : images) {
    list += (list.empty() ? "" : ",") + std::string("{\"file_name\":\"") + image.name +
            "\",\"bg_type\":\"photo\",\"data\":\"" + image.data + "\"}";
    if (image.written)
      expected[image.name] = *image.written;
  }
  restore("{\"watch_main_key\":\"com.talvoro.clock-orbitline\",\"watch_custom_bg\":[" + list +
          "]}");

  for (const auto& image : images) {
    if (!image.written) {
      EXPECT_TRUE(loggedError("Failed to decode image file [" + image.name + "]")) << image.name;
    }
  }
  EXPECT_TRUE(loggedError("Image file name is not a plain name"));
  EXPECT_TRUE(loggedError("Failed to open file"));
  std::map<std::string, std::string> written;
  g_autoptr(GDir) dir = g_dir_open(trusted_.c_str(), 0, nullptr);
  while (const char* name = g_dir_read_name(dir)) {
    g_autofree char* bytes = nullptr;
    gsize size = 0;
    struct stat info;
    if (lstat((trusted_ + name).c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
        g_file_get_contents((trusted_ + name).c_str(), &bytes, &size, nullptr))
      written[name] = std::string(bytes, size);
  }
  EXPECT_EQ(written, expected);
  for (const std::string& path : {outside, shared}) {
    g_autofree char* kept = nullptr;
    ASSERT_TRUE(g_file_get_contents(path.c_str(), &kept, nullptr, nullptr));
    EXPECT_STREQ(kept, "keep");
  }
  EXPECT_FALSE(
      g_file_test((temp_.path() + "/watch/apps/" MV_SERVICE_APP_ID "/shared/escape.jpg").c_str(),
                  G_FILE_TEST_EXISTS));
  EXPECT_FALSE(g_file_test("/tmp/morvik-absolute.jpg", G_FILE_TEST_EXISTS));
}

}  // namespace
