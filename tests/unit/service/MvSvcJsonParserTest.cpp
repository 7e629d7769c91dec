#include "MvSvcJsonParser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "JsonDocumentFixture.h"
#include "MvJsonNesting.h"
#include "MvSvcJsonBuilder.h"
#include "emu/StrictJson.h"

namespace {

using Messages = std::vector<std::string>;
using Results = std::vector<WatchResultData>;
using Images = std::vector<WatchImageData>;

const int kLimit = kMvJsonMaxNesting;
const std::string kTooDeep =
    "E Backup document nests deeper than " + std::to_string(kLimit) + " levels";

std::string repeat(const std::string& piece, int times) {
  std::string text;
  for (int i = 0; i < times; ++i)
    text += piece;
  return text;
}

// The message json-glib itself gives for `text`, or "" when it loads.
std::string jsonGlibError(const std::string& text) {
  g_autoptr(JsonParser) parser = json_parser_new();
  g_autoptr(GError) error = nullptr;
  json_parser_load_from_data(parser, text.data(), static_cast<gssize>(text.size()), &error);
  return error ? error->message : "";
}

std::string build(const Results& results, const Images& images) {
  MvSvcJsonBuilder builder;
  builder.addStringMember("watch_main_key", "A");
  builder.addStringMember("watch_sub_key", "B");
  builder.addResultXmls(results);
  builder.addMyPhotos(images);
  std::string text;
  builder.getJsonMessage(text);
  return text;
}

class MvSvcJsonParserTest : public morvik_test::JsonDocumentFixture {
 protected:
  static std::string mainKey(const MvSvcJsonParser& parser) {
    std::string value = "untouched";
    parser.getStringValue("watch_main_key", value);
    return value;
  }
};

TEST_F(MvSvcJsonParserTest, SortsEntriesAndReadsWhatIsMissingOrForeignAsEmpty) {
  MvSvcJsonParser parser(R"({"watch_main_key":"A","watch_sub_key":5,"watch_items":[)"
                         R"({"pkgid":"d","svcid":"d","result":"downloaded"},)"
                         R"({"pkgid":"f","svcid":"w","result":"<xml/>"},)"
                         R"({"pkgid":"c","svcid":"c","result":"Downloaded"},{"pkgid":"m"},)"
                         R"({"pkgid":5,"svcid":null,"result":{"x":"y"}},7,null,[]],)"
                         R"("watch_custom_bg":[{"file_name":"b.jpg","bg_type":"T2","data":"A=="},)"
                         R"({"file_name":"a.jpg","data":"not base64!"},false]})");
  EXPECT_EQ(parser.getDownloadList(), (Results{{"d", "d", "downloaded"}}));
  EXPECT_EQ(
      parser.getResultRestoreList(),
      (Results{{"f", "w", "<xml/>"}, {"c", "c", "Downloaded"}, {"m", "", ""}, {}, {}, {}, {}}));
  EXPECT_EQ(parser.getImageRestoreList(),
            (Images{{"b.jpg", "T2", "A=="}, {"a.jpg", "", "not base64!"}, {}}));
  EXPECT_EQ(mainKey(parser), "A");
  int number = 0;
  parser.getIntegerValue("watch_sub_key", number);
  EXPECT_EQ(number, 5);
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(MvSvcJsonParserTest, BrokenDocumentsAreLoggedAndGiveNoRecords) {
  const std::string cutOff = build({{"p", "s", "<a>r</a>"}}, {}).substr(0, 40);
  const std::string notArray = "E json_object_get_array_member(watch_items) failed.";
  const struct {
    std::string text;
    Messages messages;
  } cases[] = {
      {cutOff, {"E " + jsonGlibError(cutOff)}},
      {"", {}},
      {R"([{"watch_items":[{"pkgid":"p"}]}])", {}},
      {R"("watch_items")", {}},
      {R"({"watch_items":[]})", {"E Watch item Json object list is empty"}},
      {R"({"watch_items":"x"})", {notArray, "E Watch item Json object list is empty"}},
      {R"({"watch_custom_bg":5})",
       {"E json_object_get_array_member(watch_custom_bg) failed.",
        "E Watch image Json object list is empty"}},
      {R"({"watch_custom_bg":[],"watch_items":[]})",
       {"E Watch item Json object list is empty", "E Watch image Json object list is empty"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 60));
    clearLog();
    MvSvcJsonParser parser(c.text);
    EXPECT_TRUE(parser.getResultRestoreList().empty());
    EXPECT_TRUE(parser.getImageRestoreList().empty());
    EXPECT_TRUE(parser.getDownloadList().empty());
    EXPECT_EQ(mainKey(parser), "untouched");
    EXPECT_EQ(messages(), c.messages);
  }
  EXPECT_NE(jsonGlibError(cutOff), "");
}

TEST_F(MvSvcJsonParserTest, APointerAndALengthAreReadWhereTheyLieAndNoFurther) {
  const std::string text = build({{"p", "s", "r"}}, {{"f", "t", "d"}});
  const std::string buffer = text + "} and bytes that are no JSON";
  MvSvcJsonParser parser(buffer.data(), text.size());
  EXPECT_EQ(parser.getResultRestoreList(), (Results{{"p", "s", "r"}}));
  EXPECT_EQ(parser.getImageRestoreList(), (Images{{"f", "t", "d"}}));
  EXPECT_EQ(messages(), Messages{});
}

// json-glib recurses per level and overflows the stack near 52,000: the check refuses what nests
// deeper than the limit before it parses, reading the text as json-glib's scanner does, so
// brackets inside strings do not count. Whatever nests less is read as usual: an unknown member
// nested 600 deep is ignored like any other.
TEST_F(MvSvcJsonParserTest, NestingBeyondTheLimitIsRefusedBeforeParsing) {
  MvSvcJsonParser unknown(R"({"watch_main_key":"A","later":)" + repeat("[", 600) +
                          repeat("]", 600) +
                          R"(,"watch_items":[{"pkgid":"p","svcid":"s","result":"r"}]})");
  EXPECT_EQ(unknown.getResultRestoreList(), (Results{{"p", "s", "r"}}));
  EXPECT_EQ(mainKey(unknown), "A");

  const std::string brackets = "\"" + repeat("[{", 1024) + "\\\"" + repeat("[", 600) + "\"";
  const std::vector<std::string> loading = {
      repeat("[", kLimit) + repeat("]", kLimit), "[" + brackets + "]",
      "\xEF\xBB\xBF[" + brackets + "]",  // a byte-order mark, which json-glib skips
  };
  for (const std::string& text : loading) {
    SCOPED_TRACE(text.substr(0, 12));
    clearLog();
    MvSvcJsonParser parser(text);
    EXPECT_EQ(messages(), Messages{});
  }
  const int crashing = 200000;
  const std::string deep = repeat("[", crashing) + repeat("]", crashing);
  const std::vector<std::string> refused = {
      repeat("[", kLimit + 1) + repeat("]", kLimit + 1),
      repeat("{\"a\":", crashing) + "1" + repeat("}", crashing),
      repeat("[", crashing),
      repeat("]", crashing) + deep,  // unmatched closers buy no depth
      R"(["\u0\",)" + deep + "]",    // after json-glib's own reading of a short escape
  };
  for (const std::string& text : refused) {
    SCOPED_TRACE(text.substr(0, 12));
    clearLog();
    MvSvcJsonParser parser(text);
    EXPECT_EQ(messages(), Messages{kTooDeep});
  }
}

// Settings are XML and may be Latin-1, or hold any byte: the document stays strict JSON (UTF-8,
// U+001F escaped though json-glib writes it raw) and every byte comes back.
TEST_F(MvSvcJsonParserTest, TextThatIsNotUtf8TravelsByteForByteInValidJson) {
  std::string every;
  for (int c = 1; c < 256; ++c)
    every += static_cast<char>(c);
  const Results results = {{"face.latin", "s", "<x>caf\xe9</x>"},
                           {"face.plain", "s", "<y/>"},
                           {"face.every", "s", every},
                           {"face.\x1f", "s", every.substr(0, 127)}};
  const Images images = {{"ph\xf6to.jpg", "T1", "AAEC"}};
  const std::string text = build(results, images);
  std::string error;
  g_autoptr(JsonNode) strict = emu::parseStrictJson(text, error);
  EXPECT_TRUE(strict) << error;
  EXPECT_NE(
      text.find("\"result\":\"<x>caf\xEF\xBF\xBD</x>\",\"result_base64\":\"PHg+Y2Fm6TwveD4=\""),
      std::string::npos)
      << text;
  EXPECT_EQ(messages(),
            (Messages{"I Watch item [face.latin] is not UTF-8 text: kept byte for byte",
                      "I Watch item [face.every] is not UTF-8 text: kept byte for byte",
                      "I Background image [ph\xEF\xBF\xBDto.jpg] is not UTF-8 text: kept byte for "
                      "byte"}));
  clearLog();
  MvSvcJsonParser parser(text);
  EXPECT_EQ(parser.getResultRestoreList(), results);
  EXPECT_EQ(parser.getImageRestoreList(), images);
  EXPECT_EQ(messages(), Messages{});
}

// Documents stored before that held raw bytes that are not UTF-8: json-glib refuses such a text
// whole; now only the items holding one are skipped, each named. A U+FFFD of the document's own
// (raw or escaped) is no damage, nor is a noncharacter the repair could have used as its mark.
TEST_F(MvSvcJsonParserTest, AStoredDocumentThatIsNotUtf8LosesOnlyItsOwnItems) {
  const std::string text =
      "{\"watch_main_key\":\"main\xff\",\"watch_sub_key\":\"Sub\","
      "\"watch_items\":[{\"pkgid\":\"face.latin\",\"svcid\":\"s\",\"result\":\"caf\xe9\"},"
      "{\"pkgid\":\"face.plain\",\"svcid\":\"s\",\"result\":\"<y/>\"},"
      "{\"pkgid\":\"face.real\",\"svcid\":\"s\",\"result\":\"\xEF\xBF\xBD\\ufffd\"},"
      "{\"pkgid\":\"face.mark\",\"svcid\":\"s\",\"result\":\"\xEF\xB7\x90\\uFDD1\"},"
      "{\"pkgid\":\"wapp\",\"svcid\":\"wapp\",\"result\":\"downloaded\"}],"
      "\"watch_custom_bg\":[{\"file_name\":\"ph\xf6to.jpg\",\"bg_type\":\"T\",\"data\":\"AA==\"},"
      "{\"file_name\":\"ok.jpg\",\"bg_type\":\"T\",\"data\":\"AQ==\"}]}";
  ASSERT_NE(jsonGlibError(text), "");
  MvSvcJsonParser parser(text);
  EXPECT_EQ(parser.getResultRestoreList(),
            (Results{{"face.plain", "s", "<y/>"},
                     {"face.real", "s", "\xEF\xBF\xBD\xEF\xBF\xBD"},
                     {"face.mark", "s", "\xEF\xB7\x90\xEF\xB7\x91"}}));
  EXPECT_EQ(parser.getDownloadList(), (Results{{"wapp", "wapp", "downloaded"}}));
  EXPECT_EQ(parser.getImageRestoreList(), (Images{{"ok.jpg", "T", "AQ=="}}));
  EXPECT_EQ(mainKey(parser), "untouched");
  std::string sub;
  parser.getStringValue("watch_sub_key", sub);
  EXPECT_EQ(sub, "Sub");
  EXPECT_EQ(messages(),
            (Messages{"E Backup document is not UTF-8 text: skipped watch item [face.latin]",
                      "E Backup document is not UTF-8 text: skipped background image "
                      "[ph\xEF\xBF\xBDto.jpg]",
                      "E Backup document is not UTF-8 text: skipped [watch_main_key]"}));

  // A document that holds every noncharacter leaves no mark free: a U+FFFD then counts as
  // repaired, and its item is skipped rather than restored altered.
  std::string every;
  for (int c = 0xFDD0; c <= 0xFDEF; ++c) {
    char escape[8];
    snprintf(escape, sizeof escape, "\\u%04X", c);
    every += escape;
  }
  MvSvcJsonParser crowded(
      "{\"x\":\"" + every +
      "\",\"watch_items\":[{\"result\":\"\xEF\xBF\xBD\"},{\"result\":\"\xe9\"}]}");
  EXPECT_TRUE(crowded.getResultRestoreList().empty());
}

}  // namespace
