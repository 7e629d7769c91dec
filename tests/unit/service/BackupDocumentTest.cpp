#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "JsonDocumentFixture.h"
#include "MvSvcBackupModel.h"

namespace {

using Messages = std::vector<std::string>;

class BackupDocumentTest : public morvik_test::JsonDocumentFixture {};

// The document as the backup model builds it when the cloud asks for it: the idle clock read
// then (the main key from "db/pel/clocks_set_idle", the sub key from the watch face
// application's face name), then the records in order, duplicates and empty strings kept, and
// settings text escaped into one string.
TEST_F(BackupDocumentTest, ModelWritesTheIdleClockAndTheRecordsInTheFormat) {
  platform().config().set("db/pel/clocks_set_idle", "com.talvoro.watchface");
  platform().config().set("file/private/com.talvoro.watchface/watchface_name", "face.aurora");
  std::vector<WatchResultData> results{
      {"p", "s", "r"}, {"p", "s", "r"}, {"", "", ""}, {"w", "w", "<a x=\"1\">C:\\d\n</a>\t"}};
  std::vector<WatchImageData> images{{"bg_0001.jpg", "T1", "AAEC/w=="}, {"bg_0002.png", "", ""}};
  MvSvcBackupModel model(nullptr, results, images);
  EXPECT_TRUE(results.empty() && images.empty());
  clearLog();
  const std::string text = model.getJsonStr(0);
  EXPECT_EQ(text,
            R"({"watch_main_key":"com.talvoro.watchface","watch_sub_key":"face.aurora",)"
            R"("watch_items":[{"pkgid":"p","svcid":"s","result":"r"},)"
            R"({"pkgid":"p","svcid":"s","result":"r"},{"pkgid":"","svcid":"","result":""},)"
            R"({"pkgid":"w","svcid":"w","result":"<a x=\"1\">C:\\d\n</a>\t"}],)"
            R"("watch_custom_bg":[{"file_name":"bg_0001.jpg","bg_type":"T1","data":"AAEC/w=="},)"
            R"({"file_name":"bg_0002.png","bg_type":"","data":""}]})");
  EXPECT_EQ(model.getJsonStr(7), text);
  EXPECT_EQ(messages(), Messages{});
}

// Nothing to read and nothing collected: both keys are still there, empty, and each gap is
// logged before the document is built.
TEST_F(BackupDocumentTest, ModelDocumentWithoutIdleClockOrRecords) {
  std::vector<WatchResultData> results;
  std::vector<WatchImageData> images;
  MvSvcBackupModel model(nullptr, results, images);
  clearLog();
  EXPECT_EQ(model.getJsonStr(0), R"({"watch_main_key":"","watch_sub_key":""})");
  EXPECT_EQ(messages(),
            (Messages{"E Failed to get watch main vconf key", "E Failed to get watch sub key",
                      "E Result list is empty", "E Image backup list is empty"}));
}

}  // namespace
