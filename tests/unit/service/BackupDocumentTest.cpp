#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "JsonDocumentFixture.h"
#include "MvSvcBackupModel.h"
#include "MvSvcJsonBuilder.h"

namespace {

using Messages = std::vector<std::string>;
using Results = std::vector<WatchResultData>;
using Images = std::vector<WatchImageData>;

class BackupDocumentTest : public morvik_test::JsonDocumentFixture {};

// The builder in the backup flow's calling order: the format, member by member.
TEST_F(BackupDocumentTest, BuilderWritesTheFormat) {
  const struct {
    Results results;
    Images images;
    std::string text;
    Messages messages;
  } cases[] = {
      {{}, {}, "", {"E Result list is empty", "E Image backup list is empty"}},
      {{{"p", "s", "r"}},
       {},
       R"(,"watch_items":[{"pkgid":"p","svcid":"s","result":"r"}])",
       {"E Image backup list is empty"}},
      // Order, duplicates and empty strings kept; settings text escaped into one string.
      {{{"p", "s", "r"}, {"p", "s", "r"}, {"", "", ""}, {"w", "w", "<a x=\"1\">C:\\d\n</a>\t"}},
       {{"bg_0001.jpg", "T1", "AAEC/w=="}, {"bg_0002.png", "", ""}},
       R"(,"watch_items":[{"pkgid":"p","svcid":"s","result":"r"},)"
       R"({"pkgid":"p","svcid":"s","result":"r"},{"pkgid":"","svcid":"","result":""},)"
       R"({"pkgid":"w","svcid":"w","result":"<a x=\"1\">C:\\d\n</a>\t"}],)"
       R"("watch_custom_bg":[{"file_name":"bg_0001.jpg","bg_type":"T1","data":"AAEC/w=="},)"
       R"({"file_name":"bg_0002.png","bg_type":"","data":""}])",
       {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    clearLog();
    MvSvcJsonBuilder builder;
    builder.addStringMember("watch_main_key", "A");
    builder.addStringMember("watch_sub_key", "");
    builder.addResultXmls(c.results);
    builder.addMyPhotos(c.images);
    std::string text = "replaced";
    builder.getJsonMessage(text);
    EXPECT_EQ(text, R"({"watch_main_key":"A","watch_sub_key":"")" + c.text + "}");
    EXPECT_EQ(messages(), c.messages);
  }
}

// The backup model reads the idle clock when the cloud asks for the document: the main key from
// "db/pel/clocks_set_idle", the sub key from the watch face application's face name.
TEST_F(BackupDocumentTest, ModelDocumentCarriesTheIdleClockAndTheLists) {
  platform().config().set("db/pel/clocks_set_idle", "com.talvoro.watchface");
  platform().config().set("file/private/com.talvoro.watchface/watchface_name", "face.aurora");
  Results results{{"p", "s", "r"}};
  Images images{{"f", "t", "d"}};
  MvSvcBackupModel model(nullptr, results, images);
  EXPECT_TRUE(results.empty() && images.empty());
  const std::string text = model.getJsonStr(0);
  EXPECT_EQ(text, R"({"watch_main_key":"com.talvoro.watchface","watch_sub_key":"face.aurora",)"
                  R"("watch_items":[{"pkgid":"p","svcid":"s","result":"r"}],)"
                  R"("watch_custom_bg":[{"file_name":"f","bg_type":"t","data":"d"}]})");
  EXPECT_EQ(model.getJsonStr(7), text);
}

TEST_F(BackupDocumentTest, ModelDocumentWithoutIdleClockOrRecords) {
  Results results;
  Images images;
  MvSvcBackupModel model(nullptr, results, images);
  clearLog();
  EXPECT_EQ(model.getJsonStr(0), R"({"watch_main_key":"","watch_sub_key":""})");
  EXPECT_EQ(messages(),
            (Messages{"E Failed to get watch main vconf key", "E Failed to get watch sub key",
                      "E Result list is empty", "E Image backup list is empty"}));
}

}  // namespace
