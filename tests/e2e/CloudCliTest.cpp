#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ProcessRun.h"

namespace {

using EmuRun = morvik_test::ProcessResult;

EmuRun emu(std::vector<std::string> args) {
  return morvik_test::runEmu(std::move(args));
}

// A failure in the documented shape: a non-zero status and one line on stderr naming `reason`.
void expectRefused(const EmuRun& run, const std::string& reason) {
  EXPECT_NE(run.status, 0);
  EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
  EXPECT_NE(run.err.find(reason), std::string::npos) << run.err;
}

using CloudCliTest = morvik_test::CliFixture;

TEST_F(CloudCliTest, ImportedDocumentsBecomeSetsThatExportByteForByte) {
  const std::string first =
      "{\"watch_main_key\":\"caf\xc3\xa9\",\"n\":[1.5,-2,true,null],\"e\":\"\\u00e9\\n\"}";
  const std::string second = "  {\"watch_main_key\":\"caf\xc3\xa9\"}\n";
  EmuRun run = emu({"import", cloud_, file("first.json", first)});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "stored set 1 in " + cloud_ + "\n");
  ASSERT_EQ(emu({"import", cloud_, file("second.json", second)}).status, 0);

  run = emu({"sets", cloud_});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out.rfind("set 1 ", 0), 0u) << run.out;
  EXPECT_NE(run.out.find("\nset 2 "), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("1 record"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find(" UTC "), std::string::npos) << run.out;

  run = emu({"export", cloud_});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, second);
  run = emu({"export", cloud_, "--set", "1"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, first);

  // A pretty export imports back as the next set, and its bytes are kept too.
  const EmuRun pretty = emu({"export", cloud_, "--set", "1", "--pretty"});
  EXPECT_NE(pretty.out.find("\n  \"n\" : [\n    1.5,"), std::string::npos) << pretty.out;
  ASSERT_EQ(emu({"import", cloud_, file("pretty.json", pretty.out)}).status, 0);
  EXPECT_EQ(emu({"export", cloud_, "--set", "3"}).out, pretty.out);
  EXPECT_EQ(emu({"export", cloud_, "--set", "3", "--pretty"}).out, pretty.out);
}

TEST_F(CloudCliTest, BadInputGetsOneLineAndANonZeroStatus) {
  const EmuRun empty = emu({"sets", cloud_});
  expectRefused(empty, "does not exist");
  ASSERT_EQ(g_mkdir(cloud_.c_str(), 0755), 0);
  EmuRun run = emu({"sets", cloud_});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "no backup sets in " + cloud_ + "\n");
  expectRefused(emu({"export", cloud_}), "no backup set");
  expectRefused(emu({"sets"}), "sets needs");
  expectRefused(emu({"import", cloud_}), "import needs");
  expectRefused(emu({"import", cloud_, root_ + "/absent.json"}), "not a readable file");
  expectRefused(emu({"import", cloud_, file("text.txt", "hello")}), "not a backup document");
  expectRefused(emu({"import", cloud_, file("nul.json", std::string("{\0}", 3))}), "UTF-8");
  expectRefused(emu({"import", cloud_, file("latin1.json", "{\"a\":\"\xe9\"}")}), "UTF-8");
  EXPECT_EQ(emu({"sets", cloud_}).out, "no backup sets in " + cloud_ + "\n");

  ASSERT_EQ(emu({"import", cloud_, file("doc.json", "{}")}).status, 0);
  expectRefused(emu({"export", cloud_, "--set", "7"}), "no set 7");
  expectRefused(emu({"export", cloud_, "--set", "x"}), "--set needs a set ID");
  expectRefused(emu({"export", cloud_, "--set=1", "--set", "1"}), "--set is given more than once");
  EXPECT_EQ(emu({"export", cloud_, "--set=1"}).out, "{}");
}

// What import refuses json-glib would take (or crash on), and it would not come back the same.
TEST_F(CloudCliTest, ImportTakesStrictJsonOnlyAndSaysWhere) {
  const struct {
    const char* name;
    std::string document;
    const char* reason;
  } cases[] = {
      {"cut.json", "{\"watch_main_key\": 5", "line 1, column 21: the text ends inside the object"},
      {"syntax.json", "{\n  \"a\": [1,\n  2,,]}", "line 3, column 5: unexpected character"},
      {"octal.json", "{\"a\":\n \"x\\6y\"}", "line 2, column 4: an escape that is not JSON"},
      {"control.json", "{\"a\":\"x\ty\"}", "line 1, column 8: a raw control character"},
      {"quotes.json", "{'a':1}", "line 1, column 2: ''' is not JSON"},
      {"comment.json", "{} // x", "line 1, column 4: '/' is not JSON"},
      {"wraps.json", "{\"a\":12345678901234567890}", "the number 12345678901234567890 is out"},
      {"infinite.json", "{\"a\":1e400}", "the number 1e400 is out of range"},
      {"deep.json", std::string(100000, '['), "line 1, column 513: nests deeper than 512"},
      {"array.json", "[1]", "not a JSON object"},
  };
  for (const auto& c : cases)
    expectRefused(emu({"import", cloud_, file(c.name, c.document)}), c.reason);
  EXPECT_FALSE(g_file_test((cloud_ + "/set-000001.dat").c_str(), G_FILE_TEST_EXISTS));
}

TEST_F(CloudCliTest, ADamagedSetIsReportedNotExported) {
  ASSERT_EQ(emu({"import", cloud_, file("doc.json", "{\"ok\":true}")}).status, 0);
  ASSERT_EQ(emu({"import", cloud_, file("doc2.json", "{\"ok\":2}")}).status, 0);
  const std::string second = cloud_ + "/set-000002.dat";
  g_autofree char* bytes = nullptr;
  gsize size = 0;
  ASSERT_TRUE(g_file_get_contents(second.c_str(), &bytes, &size, nullptr));
  bytes[size / 2] ^= 0x40;
  ASSERT_TRUE(g_file_set_contents(second.c_str(), bytes, static_cast<gssize>(size), nullptr));

  EmuRun run = emu({"sets", cloud_});
  expectRefused(run, "1 of 2 sets are unreadable");
  EXPECT_NE(run.out.find("set 2      set 2 is unreadable"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("bad checksum"), std::string::npos) << run.out;
  expectRefused(emu({"export", cloud_}), "bad checksum");
  EXPECT_EQ(emu({"export", cloud_, "--set", "1"}).out, "{\"ok\":true}");
  // The next set still gets a new ID.
  ASSERT_EQ(emu({"import", cloud_, file("doc3.json", "{}")}).out,
            "stored set 3 in " + cloud_ + "\n");
}

TEST_F(CloudCliTest, CloudFaultSwitchesAreListedAndChecked) {
  const std::string watch = root_ + "/watch";
  ASSERT_EQ(emu({"init", watch, "--blank"}).status, 0);
  EmuRun run = emu({"fault", watch, "list"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("cloud-fail=STEP"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("cloud-delay=MS"), std::string::npos) << run.out;
  expectRefused(emu({"fault", watch, "cloud-fail=upload-later"}),
                "prepare, keys, upload, download, complete");
  expectRefused(emu({"fault", watch, "cloud-delay=soon"}), "milliseconds");
  ASSERT_EQ(emu({"fault", watch, "cloud-fail=download"}).status, 0);
  EXPECT_NE(emu({"fault", watch, "list"}).out.find("[set: download]"), std::string::npos);
}

}  // namespace
