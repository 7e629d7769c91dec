#include "MvSvcJsonParser.h"

#include <gtest/gtest.h>
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "JsonDocumentFixture.h"
#include "MvSvcJsonBuilder.h"
#include "MvSvcJsonNesting.h"

namespace {

using Messages = std::vector<std::string>;
using Results = std::vector<WatchResultData>;
using Images = std::vector<WatchImageData>;

const int kLimit = MvSvcJsonParser::kMaxNesting;
const std::string kTooDeep =
    "E Backup document nests deeper than " + std::to_string(kLimit) + " levels";

std::string repeat(const std::string& piece, int times) {
  std::string text;
  for (int i = 0; i < times; ++i)
    text += piece;
  return text;
}

// The message json-glib itself gives for `text`.
std::string jsonGlibError(const std::string& text) {
  JsonParser* parser = json_parser_new();
  GError* error = nullptr;
  json_parser_load_from_data(parser, text.data(), static_cast<gssize>(text.size()), &error);
  std::string message = error ? error->message : "";
  g_clear_error(&error);
  g_object_unref(parser);
  return message;
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
  static std::string stringValue(const MvSvcJsonParser& parser, const std::string& key) {
    std::string value = "untouched";
    parser.getStringValue(key, value);
    return value;
  }
};

TEST_F(MvSvcJsonParserTest, DocumentWithOnlyTheKeys) {
  MvSvcJsonParser parser(R"({"watch_main_key":"A","watch_sub_key":"B"})");
  EXPECT_EQ(stringValue(parser, "watch_main_key"), "A");
  EXPECT_EQ(stringValue(parser, "watch_sub_key"), "B");
  EXPECT_EQ(stringValue(parser, "missing"), "untouched");
  EXPECT_TRUE(parser.getResultRestoreList().empty());
  EXPECT_TRUE(parser.getImageRestoreList().empty());
  EXPECT_TRUE(parser.getDownloadList().empty());
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(MvSvcJsonParserTest, OnlyExactlyDownloadedEntriesGoToTheDownloadList) {
  MvSvcJsonParser parser(R"({"watch_items":[)"
                         R"({"pkgid":"d","svcid":"d","result":"downloaded"},)"
                         R"({"pkgid":"f","svcid":"w","result":"<xml/>"},)"
                         R"({"pkgid":"c","svcid":"c","result":"Downloaded"},)"
                         R"({"pkgid":"m","svcid":"m"}]})");
  EXPECT_EQ(parser.getDownloadList(), (Results{{"d", "d", "downloaded"}}));
  EXPECT_EQ(parser.getResultRestoreList(),
            (Results{{"f", "w", "<xml/>"}, {"c", "c", "Downloaded"}, {"m", "m", ""}}));
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(MvSvcJsonParserTest, MissingForeignOrNonObjectElementsGiveEmptyFields) {
  MvSvcJsonParser parser(R"({"watch_items":[{"pkgid":"p","svcid":"s"},)"
                         R"({"pkgid":5,"svcid":null,"result":{"x":"y"}},7,"text",null,[]],)"
                         R"("watch_custom_bg":[{"file_name":"f"},false,{"data":["x"]}]})");
  EXPECT_EQ(parser.getResultRestoreList(), (Results{{"p", "s", ""}, {}, {}, {}, {}, {}}));
  EXPECT_EQ(parser.getImageRestoreList(), (Images{{"f", "", ""}, {}, {}}));
  EXPECT_TRUE(parser.getDownloadList().empty());
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(MvSvcJsonParserTest, ImagesKeepDocumentOrderAndUndecodedData) {
  MvSvcJsonParser parser(R"({"watch_custom_bg":[)"
                         R"({"file_name":"b.jpg","bg_type":"T2","data":"AAEC/w=="},)"
                         R"({"file_name":"a.jpg","bg_type":"T1","data":"not base64!"}]})");
  EXPECT_EQ(parser.getImageRestoreList(),
            (Images{{"b.jpg", "T2", "AAEC/w=="}, {"a.jpg", "T1", "not base64!"}}));
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(MvSvcJsonParserTest, BuilderDocumentsComeBackFieldByField) {
  const std::string settings =
      std::string("<?xml version=\"1.0\"?>\r\n<face name='Ünï \"cødé\"'>") +
      "C:\\dir\\\t日本 😀\x01\x1f\x7f</face>\n";
  const Results results{{"face1", "com.talvoro.watchface-service", settings},
                        {"wapp7", "wapp7", "downloaded"},
                        {"wapp8", "wapp8", "Downloaded"},
                        {"", "", ""},
                        {"face2", "com.talvoro.watchface-service", "\\\"\\u0041\""},
                        {"wapp9", "wapp9", "downloaded"}};
  const Images images{{"bg_0001.jpg", "T1", "AAEC/w=="}, {"bg 2.png", "", "\n"}};

  MvSvcJsonParser parser(build(results, images));
  EXPECT_EQ(parser.getResultRestoreList(),
            (Results{results[0], results[2], results[3], results[4]}));
  EXPECT_EQ(parser.getDownloadList(), (Results{results[1], results[5]}));
  EXPECT_EQ(parser.getImageRestoreList(), images);
  EXPECT_EQ(stringValue(parser, "watch_main_key"), "A");
  EXPECT_EQ(stringValue(parser, "watch_sub_key"), "B");
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(MvSvcJsonParserTest, BrokenDocumentsAreLoggedAndGiveNoRecords) {
  const std::string cutOff = build({{"p", "s", "<a>r</a>"}}, {}).substr(0, 40);
  const struct Case {
    std::string text;
    Messages messages;
  } cases[] = {
      {cutOff, {"E " + jsonGlibError(cutOff)}},
      {R"({"watch_items":[{"pkgid":"p"})",
       {"E " + jsonGlibError(R"({"watch_items":[{"pkgid":"p"})")}},
      {"", {}},
      {"  ", {}},
      {R"([{"watch_items":[{"pkgid":"p"}]}])", {}},
      {R"("watch_items")", {}},
      {"5", {}},
      {R"({"watch_items":[]})", {"E Watch item Json object list is empty"}},
      {R"({"watch_items":"x"})",
       {"E json_object_get_array_member(watch_items) failed.",
        "E Watch item Json object list is empty"}},
      {R"({"watch_items":null})",
       {"E json_object_get_array_member(watch_items) failed.",
        "E Watch item Json object list is empty"}},
      {R"({"watch_items":{"pkgid":"p"}})",
       {"E json_object_get_array_member(watch_items) failed.",
        "E Watch item Json object list is empty"}},
      {R"({"watch_custom_bg":[]})", {"E Watch image Json object list is empty"}},
      {R"({"watch_custom_bg":5})",
       {"E json_object_get_array_member(watch_custom_bg) failed.",
        "E Watch image Json object list is empty"}},
      {R"({"watch_custom_bg":[],"watch_items":[]})",
       {"E Watch item Json object list is empty", "E Watch image Json object list is empty"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    clearLog();
    MvSvcJsonParser parser(c.text);
    EXPECT_TRUE(parser.getResultRestoreList().empty());
    EXPECT_TRUE(parser.getImageRestoreList().empty());
    EXPECT_TRUE(parser.getDownloadList().empty());
    EXPECT_EQ(stringValue(parser, "watch_main_key"), "untouched");
    EXPECT_EQ(messages(), c.messages);
  }
  EXPECT_NE(jsonGlibError(cutOff), "");
}

TEST_F(MvSvcJsonParserTest, TypedGettersReadTopLevelMembersOfTheirTypeOnly) {
  MvSvcJsonParser parser(R"({"n":-1,"t":true,"f":false,"s":"x"})");
  int number = 0;
  bool t = false;
  bool f = true;
  parser.getIntegerValue("n", number);
  parser.getBooleanValue("t", t);
  parser.getBooleanValue("f", f);
  EXPECT_EQ(number, -1);
  EXPECT_TRUE(t);
  EXPECT_FALSE(f);
  EXPECT_EQ(stringValue(parser, "n"), "untouched");

  number = 7;
  parser.getIntegerValue("s", number);
  parser.getIntegerValue("missing", number);
  EXPECT_EQ(number, 7);

  MvSvcJsonParser empty;
  bool flag = true;
  empty.getIntegerValue("n", number);
  empty.getBooleanValue("t", flag);
  EXPECT_EQ(number, 7);
  EXPECT_TRUE(flag);
  EXPECT_EQ(stringValue(empty, "s"), "untouched");
}

TEST_F(MvSvcJsonParserTest, LoadsAppendRecordsAndAFailedLoadLeavesNoDocument) {
  MvSvcJsonParser parser;
  parser.setJsonMessage(build({{"p1", "s", "r"}, {"d1", "d1", "downloaded"}}, {{"f1", "t", "d"}}));
  parser.setJsonMessage(R"({"watch_main_key":"second","watch_items":[{"pkgid":"p2"}]})");
  EXPECT_EQ(parser.getResultRestoreList(), (Results{{"p1", "s", "r"}, {"p2", "", ""}}));
  EXPECT_EQ(parser.getDownloadList(), (Results{{"d1", "d1", "downloaded"}}));
  EXPECT_EQ(parser.getImageRestoreList(), (Images{{"f1", "t", "d"}}));
  EXPECT_EQ(stringValue(parser, "watch_main_key"), "second");

  parser.setJsonMessage(R"({"watch_main_key":"third")");
  EXPECT_EQ(stringValue(parser, "watch_main_key"), "untouched");
  EXPECT_EQ(parser.getResultRestoreList().size(), 2u);
  EXPECT_EQ(messages(), Messages{"E " + jsonGlibError(R"({"watch_main_key":"third")")});
}

TEST_F(MvSvcJsonParserTest, APointerAndALengthAreReadWhereTheyLieAndNoFurther) {
  const std::string text = build({{"p", "s", "r"}}, {{"f", "t", "d"}});
  const std::string buffer = text + "} and bytes that are no JSON";
  MvSvcJsonParser parser(buffer.data(), text.size());
  EXPECT_EQ(parser.getResultRestoreList(), (Results{{"p", "s", "r"}}));
  EXPECT_EQ(parser.getImageRestoreList(), (Images{{"f", "t", "d"}}));
  EXPECT_EQ(messages(), Messages{});
}

TEST_F(MvSvcJsonParserTest, ListsAreTheParsersOwnAndCanBeTaken) {
  MvSvcJsonParser parser(build({{"p", "s", "r"}, {"d", "d", "downloaded"}}, {{"f", "t", "d"}}));
  EXPECT_EQ(&parser.getResultRestoreList(), &parser.getResultRestoreList());
  EXPECT_EQ(parser.getResultRestoreList(), parser.getResultRestoreList());

  Results taken;
  Images images;
  Results downloads;
  taken.swap(parser.getResultRestoreList());
  images.swap(parser.getImageRestoreList());
  downloads.swap(parser.getDownloadList());
  EXPECT_EQ(taken, (Results{{"p", "s", "r"}}));
  EXPECT_EQ(images, (Images{{"f", "t", "d"}}));
  EXPECT_EQ(downloads, (Results{{"d", "d", "downloaded"}}));
  EXPECT_TRUE(parser.getResultRestoreList().empty());
  EXPECT_TRUE(parser.getImageRestoreList().empty());
  EXPECT_TRUE(parser.getDownloadList().empty());
}

TEST_F(MvSvcJsonParserTest, NestingUpToTheLimitLoadsAndOneLevelMoreIsRefused) {
  for (const std::string opener : {"[", "{\"k\":"}) {
    const std::string closer = opener == "[" ? "]" : "}";
    SCOPED_TRACE(opener);
    // The root object is the first level.
    const std::string deep = R"({"watch_main_key":"A","deep":)" + repeat(opener, kLimit - 1) + "1" +
                             repeat(closer, kLimit - 1) + "}";
    const std::string deeper = R"({"watch_main_key":"A","deep":)" + repeat(opener, kLimit) + "1" +
                               repeat(closer, kLimit) + "}";
    clearLog();
    MvSvcJsonParser accepted(deep);
    EXPECT_EQ(stringValue(accepted, "watch_main_key"), "A");
    EXPECT_EQ(messages(), Messages{});

    MvSvcJsonParser refused(deeper);
    EXPECT_EQ(stringValue(refused, "watch_main_key"), "untouched");
    EXPECT_EQ(messages(), Messages{kTooDeep});
  }
}

TEST_F(MvSvcJsonParserTest, RefusalAfterALoadLeavesNoDocument) {
  MvSvcJsonParser parser(R"({"watch_main_key":"A","watch_items":[{"pkgid":"p"}]})");
  parser.setJsonMessage(R"({"watch_items":[{"pkgid":"q"}],"x":)" + repeat("[", kLimit) +
                        repeat("]", kLimit) + "}");
  EXPECT_EQ(stringValue(parser, "watch_main_key"), "untouched");
  EXPECT_EQ(parser.getResultRestoreList(), (Results{{"p", "", ""}}));
  EXPECT_EQ(messages(), Messages{kTooDeep});
}

TEST_F(MvSvcJsonParserTest, BracketsInsideStringsDoNotCount) {
  const std::string settings =
      repeat("[{", 2 * kLimit) + "\\\"" + repeat("[", kLimit) + "\"" + repeat("{", kLimit) + "\\";
  MvSvcJsonParser parser(build({{"p", "s", settings}}, {{repeat("[", kLimit + 1), "t", "d"}}));
  EXPECT_EQ(parser.getResultRestoreList(), (Results{{"p", "s", settings}}));
  EXPECT_EQ(parser.getImageRestoreList().size(), 1u);
  EXPECT_EQ(messages(), Messages{});
}

// Depths far beyond the point where json-glib's recursion overflows the stack: loading any of
// these would crash the test.
TEST_F(MvSvcJsonParserTest, PathologicalNestingIsRefusedWithoutACrash) {
  const int crashing = 200000;
  const std::string deepArrays = repeat("[", crashing) + repeat("]", crashing);
  const std::vector<std::string> texts{
      deepArrays,
      repeat("{\"a\":", crashing) + "1" + repeat("}", crashing),
      repeat("[", crashing),
      // Unmatched closers buy no depth.
      repeat("]", crashing) + deepArrays,
      // json-glib's lenient lexing: these end the string, or never start one, where a plain
      // scan would see the brackets as string content.
      R"(["\u0\",)" + deepArrays + "]",
      R"(['"',)" + deepArrays + "]",
      R"([/*"*/)" + deepArrays + "]",
      R"(["\ud800\\",)" + deepArrays + "]",
  };
  for (const std::string& text : texts) {
    SCOPED_TRACE(text.substr(0, 12));
    clearLog();
    MvSvcJsonParser parser(text);
    EXPECT_EQ(messages(), Messages{kTooDeep});
  }
}

// Settings are XML and may be Latin-1: the document stays valid JSON (UTF-8) and every byte
// comes back.
TEST_F(MvSvcJsonParserTest, TextThatIsNotUtf8TravelsByteForByteInValidJson) {
  const Results results = {{"face.latin", "s", "<x>caf\xe9</x>"}, {"face.plain", "s", "<y/>"}};
  const Images images = {{"ph\xf6to.jpg", "T1", "AAEC"}};
  const std::string text = build(results, images);
  EXPECT_TRUE(g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr));
  EXPECT_NE(
      text.find("\"result\":\"<x>caf\xEF\xBF\xBD</x>\",\"result_base64\":\"PHg+Y2Fm6TwveD4=\""),
      std::string::npos)
      << text;
  EXPECT_EQ(messages(),
            (Messages{"I Watch item [face.latin] is not UTF-8 text: kept byte for byte",
                      "I Background image [ph\xEF\xBF\xBDto.jpg] is not UTF-8 text: kept byte for "
                      "byte"}));
  clearLog();
  MvSvcJsonParser parser(text);
  EXPECT_EQ(parser.getResultRestoreList(), results);
  EXPECT_EQ(parser.getImageRestoreList(), images);
  EXPECT_EQ(messages(), Messages{});
}

// Documents stored before that held raw bytes that are not UTF-8: json-glib refuses such a text
// whole; now only the items holding one are skipped, each named.
TEST_F(MvSvcJsonParserTest, AStoredDocumentThatIsNotUtf8LosesOnlyItsOwnItems) {
  const std::string text =
      "{\"watch_main_key\":\"main\xff\",\"watch_sub_key\":\"Sub\","
      "\"watch_items\":[{\"pkgid\":\"face.latin\",\"svcid\":\"s\",\"result\":\"caf\xe9\"},"
      "{\"pkgid\":\"face.plain\",\"svcid\":\"s\",\"result\":\"<y/>\"},"
      "{\"pkgid\":\"wapp\",\"svcid\":\"wapp\",\"result\":\"downloaded\"}],"
      "\"watch_custom_bg\":[{\"file_name\":\"ph\xf6to.jpg\",\"bg_type\":\"T\",\"data\":\"AA==\"},"
      "{\"file_name\":\"ok.jpg\",\"bg_type\":\"T\",\"data\":\"AQ==\"}]}";
  ASSERT_NE(jsonGlibError(text), "");
  MvSvcJsonParser parser(text);
  EXPECT_EQ(parser.getResultRestoreList(), (Results{{"face.plain", "s", "<y/>"}}));
  EXPECT_EQ(parser.getDownloadList(), (Results{{"wapp", "wapp", "downloaded"}}));
  EXPECT_EQ(parser.getImageRestoreList(), (Images{{"ok.jpg", "T", "AQ=="}}));
  EXPECT_EQ(stringValue(parser, "watch_main_key"), "untouched");
  EXPECT_EQ(stringValue(parser, "watch_sub_key"), "Sub");
  EXPECT_EQ(messages(),
            (Messages{"E Backup document is not UTF-8 text: skipped watch item [face.latin]",
                      "E Backup document is not UTF-8 text: skipped background image "
                      "[ph\xEF\xBF\xBDto.jpg]",
                      "E Backup document is not UTF-8 text: skipped [watch_main_key]"}));
}

// After a byte json-glib reads in its own way, the check still reads as json-glib does: the
// brackets of a later string do not count, so nothing json-glib accepts is refused.
TEST_F(MvSvcJsonParserTest, JsonGlibQuirksDoNotMakeLaterStringsCount) {
  const std::string brackets = "\"" + repeat("[", 2 * kLimit) + "\"";
  const std::vector<std::string> quirks = {
      "\xEF\xBB\xBF",  // a byte-order mark, which json-glib skips
      "",
  };
  const std::vector<std::string> values = {
      R"("\ud800x")",  // a lone surrogate takes the next byte
      R"("\u0\")",     // a short \u ends at the byte after its digits
      R"("\q")",       // an unknown escape
      R"("\377")",     // an octal escape
      R"('a"[b')",     // single quotes, a double quote inside
      R"(/ [[ / 1)",   // a comment, from "/" to "/"
  };
  for (const std::string& start : quirks) {
    for (const std::string& value : values) {
      const std::string text =
          start + R"({"watch_main_key":"A","q":)" + value + R"(,"s":)" + brackets + "}";
      SCOPED_TRACE(text.substr(0, 40));
      ASSERT_EQ(jsonGlibError(text), "");
      clearLog();
      MvSvcJsonParser parser(text);
      EXPECT_EQ(stringValue(parser, "watch_main_key"), "A");
      EXPECT_EQ(messages(), Messages{});
    }
  }
}

// json-glib 1.6 leaks the nodes of a second top-level value that it refuses; random texts hold
// some. What json-glib allocates meanwhile is no leak of ours.
class JsonGlibLeaksIgnored {
 public:
  JsonGlibLeaksIgnored() {
#if defined(__SANITIZE_ADDRESS__)
    __lsan_disable();
#endif
  }
  ~JsonGlibLeaksIgnored() {
#if defined(__SANITIZE_ADDRESS__)
    __lsan_enable();
#endif
  }
};

// The maximum depth of what json-glib parsed, for texts holding one value.
int parsedDepth(JsonNode* node) {
  int deepest = 0;
  if (JSON_NODE_HOLDS_ARRAY(node)) {
    JsonArray* array = json_node_get_array(node);
    for (guint i = 0; i < json_array_get_length(array); ++i)
      deepest = std::max(deepest, parsedDepth(json_array_get_element(array, i)));
  } else if (JSON_NODE_HOLDS_OBJECT(node)) {
    GList* values = json_object_get_values(json_node_get_object(node));
    for (GList* value = values; value; value = value->next)
      deepest = std::max(deepest, parsedDepth(static_cast<JsonNode*>(value->data)));
    g_list_free(values);
  } else {
    return 0;
  }
  return deepest + 1;
}

// Random texts built from the pieces json-glib's scanner treats specially: for each one it
// accepts, the check finds exactly the depth json-glib built.
TEST(MvSvcJsonNestingTest, AgreesWithJsonGlibOnEveryTextItAccepts) {
  const char* const pieces[] = {"[", "]",      "{",   "}", "\"", "'",    "\\",  "/",
                                "u", "d8",     "dc",  "0", "Z",  ",",    ":",   "1",
                                " ", "\"a\":", "\\u", "*", "\n", "\\\"", "true"};
  GRand* random = g_rand_new_with_seed(13);
  int accepted = 0;
  for (int round = 0; round < 60000; ++round) {
    std::string text;
    const int count = g_rand_int_range(random, 1, 15);
    for (int i = 0; i < count; ++i)
      text += pieces[g_rand_int_range(random, 0, G_N_ELEMENTS(pieces))];
    // One value only: json-glib also parses values after the first, without showing them.
    const std::string wrapped = "[" + text + "]";
    int depth = 0;
    {
      JsonGlibLeaksIgnored ignored;
      if (!jsonGlibError(text).empty() || !jsonGlibError(wrapped).empty())
        continue;
      JsonParser* parser = json_parser_new();
      json_parser_load_from_data(parser, text.data(), static_cast<gssize>(text.size()), nullptr);
      JsonNode* root = json_parser_get_root(parser);
      depth = root ? parsedDepth(root) : 0;
      g_object_unref(parser);
    }
    ++accepted;
    EXPECT_FALSE(mvsvcJsonNestsDeeperThan(text.data(), text.size(), depth)) << text;
    if (depth > 0) {
      EXPECT_TRUE(mvsvcJsonNestsDeeperThan(text.data(), text.size(), depth - 1)) << text;
    }
  }
  g_rand_free(random);
  EXPECT_GT(accepted, 500);
}

TEST_F(MvSvcJsonParserTest, LenientButShallowDocumentsStillLoad) {
  MvSvcJsonParser parser("{'watch_main_key':'A' /* [[ */, \"watch_items\":[{'pkgid':'p'}]}");
  EXPECT_EQ(stringValue(parser, "watch_main_key"), "A");
  EXPECT_EQ(parser.getResultRestoreList(), (Results{{"p", "", ""}}));
  EXPECT_EQ(messages(), Messages{});
}

}  // namespace
