#include "MvSvcJsonBuilder.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "JsonDocumentFixture.h"

namespace {

using Messages = std::vector<std::string>;

class MvSvcJsonBuilderTest : public morvik_test::JsonDocumentFixture {
 protected:
  // The backup flow's calling order.
  static std::string build(const std::string& mainKey,
                           const std::string& subKey,
                           const std::vector<WatchResultData>& results,
                           const std::vector<WatchImageData>& images) {
    std::unique_ptr<MvSvcJsonBuilder> builder(new MvSvcJsonBuilder());
    builder->addStringMember("watch_main_key", mainKey);
    builder->addStringMember("watch_sub_key", subKey);
    builder->addResultXmls(results);
    builder->addMyPhotos(images);
    std::string text;
    builder->getJsonMessage(text);
    return text;
  }
};

TEST_F(MvSvcJsonBuilderTest, EmptyListsLeaveTheirMembersOutAndAreLogged) {
  EXPECT_EQ(build("A", "B", {}, {}), R"({"watch_main_key":"A","watch_sub_key":"B"})");
  EXPECT_EQ(messages(), (Messages{"E Result list is empty", "E Image backup list is empty"}));
}

TEST_F(MvSvcJsonBuilderTest, OneWatchRecordWithoutImages) {
  EXPECT_EQ(build("A", "B", {{"p", "s", "r"}}, {}),
            R"({"watch_main_key":"A","watch_sub_key":"B",)"
            R"("watch_items":[{"pkgid":"p","svcid":"s","result":"r"}]})");
  EXPECT_EQ(messages(), Messages{"E Image backup list is empty"});
}

TEST_F(MvSvcJsonBuilderTest, RecordsKeepTheirOrderDuplicatesAndEmptyStrings) {
  const std::vector<WatchResultData> results{
      {"p", "s", "r"}, {"p", "s", "r"}, {"", "", ""}, {"wapp7qx2lm", "wapp7qx2lm", "downloaded"}};
  const std::vector<WatchImageData> images{{"bg_0001.jpg", "T1", "AAEC/w=="},
                                           {"bg_0002.png", "", ""}};
  EXPECT_EQ(build("", "", results, images),
            R"({"watch_main_key":"","watch_sub_key":"","watch_items":[)"
            R"({"pkgid":"p","svcid":"s","result":"r"},)"
            R"({"pkgid":"p","svcid":"s","result":"r"},)"
            R"({"pkgid":"","svcid":"","result":""},)"
            R"({"pkgid":"wapp7qx2lm","svcid":"wapp7qx2lm","result":"downloaded"}],)"
            R"("watch_custom_bg":[{"file_name":"bg_0001.jpg","bg_type":"T1","data":"AAEC/w=="},)"
            R"({"file_name":"bg_0002.png","bg_type":"","data":""}]})");
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(MvSvcJsonBuilderTest, LaterListsReplaceEarlierArraysUnlessEmpty) {
  MvSvcJsonBuilder builder;
  builder.addResultXmls({{"first", "s", "r"}});
  builder.addResultXmls({{"second", "s", "r"}});
  builder.addMyPhotos({{"first.jpg", "T", "AA=="}});
  builder.addMyPhotos({});
  std::string text;
  builder.getJsonMessage(text);
  EXPECT_EQ(text, R"({"watch_items":[{"pkgid":"second","svcid":"s","result":"r"}],)"
                  R"("watch_custom_bg":[{"file_name":"first.jpg","bg_type":"T","data":"AA=="}]})");
  EXPECT_EQ(messages(), Messages{"E Image backup list is empty"});
}

TEST_F(MvSvcJsonBuilderTest, TextIsStableUntilAMemberIsAdded) {
  MvSvcJsonBuilder builder;
  builder.addStringMember("watch_main_key", "A");
  std::string first = "replaced";
  std::string second;
  builder.getJsonMessage(first);
  builder.getJsonMessage(second);
  EXPECT_EQ(first, R"({"watch_main_key":"A"})");
  EXPECT_EQ(second, first);

  builder.addIntegerMember("count", -1);
  builder.getJsonMessage(second);
  EXPECT_EQ(second, R"({"watch_main_key":"A","count":-1})");
}

TEST_F(MvSvcJsonBuilderTest, SettingsTextTravelsAsOneEscapedString) {
  EXPECT_EQ(build("A", "B", {{"p", "s", "<a x=\"1\">C:\\dir\n</a>\t"}}, {{"f", "t", "d"}}),
            R"({"watch_main_key":"A","watch_sub_key":"B",)"
            R"("watch_items":[{"pkgid":"p","svcid":"s","result":"<a x=\"1\">C:\\dir\n</a>\t"}],)"
            R"("watch_custom_bg":[{"file_name":"f","bg_type":"t","data":"d"}]})");
}

}  // namespace
