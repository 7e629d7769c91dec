#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "MvJsonNesting.h"
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

// What import refuses json-glib would take (or crash on), and it would not come back the same.
TEST_F(CloudCliTest, BadInputGetsOneLineAndANonZeroStatusAndStoresNothing) {
  expectRefused(emu({"sets", cloud_}), "does not exist");
  ASSERT_EQ(g_mkdir(cloud_.c_str(), 0755), 0);
  expectRefused(emu({"export", cloud_}), "no backup set");
  expectRefused(emu({"sets"}), "sets needs");
  expectRefused(emu({"import", cloud_}), "import needs");
  expectRefused(emu({"import", cloud_, root_ + "/absent.json"}), "not a readable file");
  const struct {
    std::string document;
    std::string reason;
  } cases[] = {
      {"hello", "not a backup document"},
      {std::string("{\0}", 3), "UTF-8"},
      {"{\"a\":\"\xe9\"}", "UTF-8"},
      {"{\"watch_main_key\": 5", "line 1, column 21: the text ends inside the object"},
      {"{\n  \"a\": [1,\n  2,,]}", "line 3, column 5: unexpected character"},
      {"{\"a\":\n \"x\\6y\"}", "line 2, column 4: an escape that is not JSON"},
      {"{\"a\":\"x\ty\"}", "line 1, column 8: a raw control character"},
      {"{'a':1}", "line 1, column 2: ''' is not JSON"},
      {"{} // x", "line 1, column 4: '/' is not JSON"},
      {"{\"a\":12345678901234567890}", "the number 12345678901234567890 is out"},
      {"{\"a\":1e400}", "the number 1e400 is out of range"},
      {std::string(100000, '['), "line 1, column " + std::to_string(kMvJsonMaxNesting + 1) +
                                     ": nests deeper than " + std::to_string(kMvJsonMaxNesting)},
      {"[1]", "not a JSON object"},
      {"{\"a\":1}{\"b\":2}", "line 1, column 8: a second JSON text begins here"},
      {"{\"a\":1}\n\n\"b\"", "line 3, column 1: a second JSON text"},
  };
  for (const auto& c : cases)
    expectRefused(emu({"import", cloud_, file("document.json", c.document)}), c.reason);
  EXPECT_EQ(emu({"sets", cloud_}).out, "no backup sets in " + cloud_ + "\n");

  ASSERT_EQ(emu({"import", cloud_, file("doc.json", "{}")}).status, 0);
  expectRefused(emu({"export", cloud_, "--set", "7"}), "no set 7");
  expectRefused(emu({"export", cloud_, "--set", "x"}), "--set needs a set ID");
  expectRefused(emu({"export", cloud_, "--set=1", "--set", "1"}), "--set is given more than once");
  EXPECT_EQ(emu({"export", cloud_, "--set=1"}).out, "{}");
}

// A restore takes the set it is given; a deleted set's ID is never given again; a document comes
// from standard input as from a file.
TEST_F(CloudCliTest, SetsAreChosenByIdDeletedAndImportedFromStandardInput) {
  const std::string sample = watch("sample", "--sample");
  ASSERT_EQ(service(sample, {"--operation", "backup"}).status, 0);
  auto importStdin = [&](const std::string& document) {
    return morvik_test::runProcess({"/bin/sh", "-c", "exec \"$0\" import \"$1\" - < \"$2\"",
                                    MORVIK_EMU_BIN, cloud_, file("in.json", document)});
  };
  EmuRun run = importStdin("{\"watch_main_key\":\"com.x\"}");
  EXPECT_EQ(run.out, "stored set 2 in " + cloud_ + "\n") << run.err;
  expectRefused(importStdin("{}{}"), "'standard input' is not a backup document: line 1, column 3");

  // Set 1 is the sample's backup, older than set 2: only --set 1 restores the sample.
  const std::string blank = watch("blank", "--blank");
  run = service(blank, {"--operation", "restore", "--set", "1"});
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_TRUE(morvik_test::hasLine(run.out, "request 1, restore: set 1: ")) << run.out;
  EXPECT_EQ(emu({"diff", sample, blank}).out, "same setup\n");

  EXPECT_EQ(emu({"sets", cloud_, "--delete", "2"}).out, "deleted set 2 from " + cloud_ + "\n");
  expectRefused(emu({"sets", cloud_, "--delete", "2"}), "the cloud has no set 2");
  expectRefused(emu({"sets", cloud_, "--delete", "x"}), "--delete needs a set ID, not 'x'");
  expectRefused(service(blank, {"--operation", "restore", "--set", "2"}), "has no set 2");
  run = emu({"sets", cloud_});
  EXPECT_EQ(morvik_test::linesOf(run.out).size(), 1u) << run.out;
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(importStdin("{}").out, "stored set 3 in " + cloud_ + "\n");
  ASSERT_EQ(emu({"sets", cloud_, "--delete=3"}).status, 0);
  ASSERT_EQ(service(sample, {"--operation", "backup"}).status, 0);
  EXPECT_EQ(emu({"export", cloud_, "--set", "4"}).status, 0);
}

}  // namespace
