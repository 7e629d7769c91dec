#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "LogLineMatcher.h"
#include "MvSvcRestoreModel.h"
#include "MvSvcTypes.h"
#include "TempDir.h"
#include "emu/EmulatedWatch.h"
#include "emu/SampleWatch.h"
#include "host/MainLoop.h"
#include "host/Platform.h"

namespace {

// Hostile backup documents restored onto an emulated blank watch, through the restore model,
// the real transferer and the emulated peers.
class HostileRestoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(emu::createBlankWatch(device_, error)) << error;
    platform_.log().setEchoToStderr(false);
    host::LaunchOptions options;
    options.deviceDir = device_;
    options.cloudDir = temp_.path() + "/cloud";
    ASSERT_TRUE(watch_.boot(platform_, options, error)) << error;
    trusted_ = platform_.sharedTrustedPath(MVSVC_SERVICE_APP_ID);
  }

  void TearDown() override { finish(); }

  void finish() {
    host::RunReport report;
    watch_.finish(platform_, host::RunOutcome(), report);
  }

  void restore(const std::string& document) {
    MvSvcRestoreModel model(nullptr);
    EXPECT_EQ(model.restoreRecord(0, document.c_str()), "key");
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
  }

  std::vector<std::string> errors() {
    std::vector<std::string> result;
    for (const std::string& message : morvik_test::serviceMessages(platform_.log())) {
      if (message.rfind("E ", 0) == 0)
        result.push_back(message.substr(2));
    }
    return result;
  }

  bool loggedError(const std::string& message) {
    std::vector<std::string> all = errors();
    return std::find(all.begin(), all.end(), message) != all.end();
  }

  std::string idleClock() {
    std::string value;
    platform_.config().get("db/pel/clocks_set_idle", value);
    return value;
  }

  static std::string image(const std::string& name, const std::string& data = "AAEC") {
    return "{\"file_name\":\"" + name + "\",\"bg_type\":\"photo\",\"data\":\"" + data + "\"}";
  }

  morvik_test::TempDir temp_;
  const std::string device_ = temp_.path() + "/watch";
  host::MainLoop loop_;
  host::Platform platform_{device_, MVSVC_SERVICE_APP_ID};
  emu::EmulatedWatch watch_;
  std::string trusted_;
};

TEST_F(HostileRestoreTest, ImageNamesThatLeaveTheDirectoryAreRefusedAndNothingLandsOutside) {
  const std::vector<std::string> hostile = {
      "../escape.jpg", "/tmp/morvik-absolute.jpg", "sub/dir.jpg", "..", ".", ""};
  std::string images = image("ok.jpg");
  for (const std::string& name : hostile)
    images += "," + image(name);
  restore("{\"watch_main_key\":\"\",\"watch_custom_bg\":[" + images + "]}");

  for (const std::string& name : hostile)
    EXPECT_TRUE(loggedError("Failed to decode image file [" + name + "]")) << name;
  EXPECT_TRUE(g_file_test((trusted_ + "ok.jpg").c_str(), G_FILE_TEST_IS_REGULAR));
  EXPECT_FALSE(g_file_test((device_ + "/apps/" MVSVC_SERVICE_APP_ID "/shared/escape.jpg").c_str(),
                           G_FILE_TEST_EXISTS));
  EXPECT_FALSE(g_file_test("/tmp/morvik-absolute.jpg", G_FILE_TEST_EXISTS));
  g_autoptr(GDir) dir = g_dir_open(trusted_.c_str(), 0, nullptr);
  std::vector<std::string> written;
  while (const char* name = g_dir_read_name(dir))
    written.push_back(name);
  EXPECT_EQ(written, std::vector<std::string>{"ok.jpg"});
}

TEST_F(HostileRestoreTest, ALinkPlantedAtARestoreTargetIsNotFollowed) {
  const std::string outside = temp_.path() + "/outside.txt";
  ASSERT_TRUE(g_file_set_contents(outside.c_str(), "keep", -1, nullptr));
  ASSERT_EQ(symlink(outside.c_str(), (trusted_ + "planted.jpg").c_str()), 0);
  restore("{\"watch_custom_bg\":[" + image("planted.jpg", "AAAA") + "]}");
  EXPECT_TRUE(loggedError("Failed to decode image file [planted.jpg]"));
  g_autofree char* contents = nullptr;
  ASSERT_TRUE(g_file_get_contents(outside.c_str(), &contents, nullptr, nullptr));
  EXPECT_STREQ(contents, "keep");
}

TEST_F(HostileRestoreTest, BrokenDocumentsChangeNothingAndSayWhy) {
  const std::string before = idleClock();
  const struct {
    std::string document;
    std::string error;
  } cases[] = {
      {std::string(100000, '[') + std::string(100000, ']'),
       "Backup document nests deeper than 512 levels"},
      {"{\"watch_main_key\":\"com.talvoro.clock-orbitline\",\"watch_items\":[{\"pkgid\":", ""},
      {"{\"watch_main_key\":\"com.talvoro.clock-orbitline\xff\xfe\"}", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.document.substr(0, 60));
    platform_.log().clear();
    restore(c.document);
    EXPECT_EQ(idleClock(), before);
    if (!c.error.empty()) {
      EXPECT_TRUE(loggedError(c.error));
    }
    EXPECT_TRUE(loggedError("Restored mainkey string is nullptr"));
  }
}

// Wrapped base64 (76 columns, as mail and many tools write it) decodes exactly; anything else
// that is not padded standard base64 is refused, whitespace or not.
TEST_F(HostileRestoreTest, DamagedBase64IsRefusedRatherThanWrittenAsGarbage) {
  const std::vector<std::string> damaged = {
      "!!!!", "AAA", "AA=A", "A===", "AAAA====", "AA-_", "AAAAAA", "AA=\\nA", "AA\\tA", "A A A"};
  std::string photo(200, '\0');
  for (size_t i = 0; i < photo.size(); ++i)
    photo[i] = static_cast<char>(i * 37);
  g_autofree gchar* encoded =
      g_base64_encode(reinterpret_cast<const guchar*>(photo.data()), photo.size());
  std::string wrapped;
  for (const char* at = encoded; *at; at += std::min<size_t>(76, strlen(at)))
    wrapped += std::string(at, std::min<size_t>(76, strlen(at))) + "\\r\\n";
  std::string images = image("good.png", "iVBORw==") + "," + image("empty.png", "") + "," +
                       image("wrapped.png", wrapped) + "," + image("spaced.png", " iVBO Rw== ");
  for (size_t i = 0; i < damaged.size(); ++i)
    images += "," + image("bad-" + std::to_string(i) + ".png", damaged[i]);
  restore("{\"watch_custom_bg\":[" + images + "]}");
  for (size_t i = 0; i < damaged.size(); ++i)
    EXPECT_TRUE(loggedError("Failed to decode image file [bad-" + std::to_string(i) + ".png]"))
        << damaged[i];
  EXPECT_TRUE(loggedError("Failed to decode base64 string"));
  EXPECT_TRUE(g_file_test((trusted_ + "good.png").c_str(), G_FILE_TEST_IS_REGULAR));
  EXPECT_TRUE(g_file_test((trusted_ + "empty.png").c_str(), G_FILE_TEST_IS_REGULAR));
  for (const char* name : {"wrapped.png", "spaced.png"})
    EXPECT_FALSE(loggedError(std::string("Failed to decode image file [") + name + "]")) << name;
  g_autofree char* written = nullptr;
  gsize size = 0;
  ASSERT_TRUE(g_file_get_contents((trusted_ + "wrapped.png").c_str(), &written, &size, nullptr));
  EXPECT_EQ(std::string(written, size), photo);
  EXPECT_FALSE(g_file_test((trusted_ + "bad-0.png").c_str(), G_FILE_TEST_EXISTS));
}

TEST_F(HostileRestoreTest, WrongMemberTypesReadAsMissing) {
  restore(
      "{\"watch_main_key\":7,\"watch_sub_key\":{},\"watch_items\":{\"pkgid\":\"p\"},"
      "\"watch_custom_bg\":[5,null,{\"file_name\":3,\"data\":\"AAAA\"}]}");
  EXPECT_TRUE(loggedError("json_object_get_array_member(watch_items) failed."));
  EXPECT_TRUE(loggedError("Restored mainkey string is nullptr"));
  // The three image elements carry no usable name: none is written.
  EXPECT_TRUE(loggedError("Failed to decode image file []"));
  g_autoptr(GDir) dir = g_dir_open(trusted_.c_str(), 0, nullptr);
  EXPECT_EQ(g_dir_read_name(dir), nullptr);
}

TEST_F(HostileRestoreTest, ThousandsOfImagesAndDuplicateNamesAreAllHandled) {
  std::string images;
  for (int i = 0; i < 2000; ++i)
    images += (i ? "," : "") + image("bg-" + std::to_string(i % 1000) + ".png", "AAEC");
  restore("{\"watch_main_key\":\"com.talvoro.clock-orbitline\",\"watch_custom_bg\":[" + images +
          "]}");
  int files = 0;
  g_autoptr(GDir) dir = g_dir_open(trusted_.c_str(), 0, nullptr);
  while (g_dir_read_name(dir))
    ++files;
  EXPECT_EQ(files, 1000);
  for (const std::string& error : errors())
    EXPECT_EQ(error.find("image"), std::string::npos) << error;
  EXPECT_EQ(idleClock(), "com.talvoro.clock-orbitline");
}

TEST_F(HostileRestoreTest, AHugeSettingsDocumentArrivesWhole) {
  // The same settings as JSON text and as the watch face must receive them.
  std::string escaped = "<face>";
  std::string settings = "<face>";
  while (settings.size() < 4 * 1024 * 1024) {
    escaped += "<p k=\\\"v\\\">\\u00e9\\n</p>";
    settings += "<p k=\"v\">\u00e9\n</p>";
  }
  escaped += "</face>";
  settings += "</face>";
  restore(
      "{\"watch_main_key\":\"com.talvoro.watchface\",\"watch_sub_key\":\"com.talvoro.face.big\","
      "\"watch_items\":[{\"pkgid\":\"com.talvoro.face.big\",\"svcid\":"
      "\"com.talvoro.watchface-service\",\"result\":\"" +
      escaped + "\"}]}");
  finish();
  const std::vector<emu::FaceEntry>& faces = watch_.profile().faces;
  ASSERT_EQ(faces.size(), 1u);
  EXPECT_EQ(faces[0].pkgId, "com.talvoro.face.big");
  EXPECT_TRUE(faces[0].settings == settings) << faces[0].settings.size() << " bytes arrived";
}

}  // namespace
