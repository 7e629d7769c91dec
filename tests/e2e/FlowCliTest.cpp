#include <glib.h>
#include <gtest/gtest.h>
#include <json-glib/json-glib.h>

#include <map>
#include <string>
#include <vector>

#include "ProcessRun.h"
#include "emu/CloudStore.h"

namespace {

using morvik_test::hasLine;
using morvik_test::linesOf;
using morvik_test::ProcessResult;
using morvik_test::runEmu;

const char* const kMainKeyMissing = "Restored mainkey string is nullptr";

std::string faceItem(const std::string& pkgId, const std::string& settings) {
  return "{\"pkgid\":\"" + pkgId + "\",\"svcid\":\"com.talvoro.watchface-service\",\"result\":\"" +
         settings + "\"}";
}

class FlowCliTest : public morvik_test::CliFixture {
 protected:
  ProcessResult run(const std::string& device, const std::string& operation) {
    return service(device, {"--operation", operation, "--deadline", "30"});
  }

  // A set in the cloud holding one record per document, as the cloud itself stores them.
  void store(const std::vector<std::string>& documents) {
    std::vector<host::CloudRecord> records;
    for (const std::string& document : documents)
      records.push_back({std::string("key"), std::to_string(g_get_real_time() / 1000), document});
    unsigned long long id = 0;
    std::string error;
    g_mkdir_with_parents(cloud_.c_str(), 0755);
    ASSERT_TRUE(emu::CloudStore(cloud_).add(records, id, error)) << error;
  }

  // The value on `morvik-emu show`'s line that starts with `label`.
  std::string shown(const std::string& device, const std::string& label) {
    ProcessResult show = runEmu({"show", device});
    for (const std::string& line : linesOf(show.out)) {
      if (line.rfind(label, 0) == 0)
        return line.substr(line.find_first_not_of(' ', label.size()));
    }
    ADD_FAILURE() << "no '" << label << "' in " << show.out << show.err;
    return "";
  }

  // The watch face service's settings per face, from the device's disk.
  std::map<std::string, std::string> faces(const std::string& device) {
    std::map<std::string, std::string> found;
    g_autofree char* text = nullptr;
    g_file_get_contents((device + "/device.json").c_str(), &text, nullptr, nullptr);
    g_autoptr(JsonParser) parser = json_parser_new();
    JsonObject* profile = morvik_test::jsonObject(parser, text ? text : "");
    JsonArray* list = profile ? json_object_get_array_member(profile, "faces") : nullptr;
    for (guint i = 0; list && i < json_array_get_length(list); ++i) {
      JsonObject* face = json_array_get_object_element(list, i);
      found[json_object_get_string_member(face, "pkgid")] =
          json_object_get_string_member(face, "settings");
    }
    return found;
  }
};

// Settings are XML and may be Latin-1: one such byte used to make json-glib refuse the whole
// restore; now the setup comes back whole.
TEST_F(FlowCliTest, BackupOfTheSampleRestoredOntoABlankWatchMakesTheSameSetup) {
  const std::string sample = watch("sample", "--sample");
  g_autofree char* profile = nullptr;
  ASSERT_TRUE(g_file_get_contents((sample + "/device.json").c_str(), &profile, nullptr, nullptr));
  std::string text = profile;
  // json-glib reads the octal escape as the byte 0xE9, Latin-1 for 'e' with an acute.
  text.replace(text.find("<face "), 6, "<face note=\\\"caf\\351\\\" ");
  file("sample/device.json", text);
  ProcessResult backup = run(sample, "backup");
  ASSERT_EQ(backup.status, 0) << backup.out;
  ProcessResult sets = runEmu({"sets", cloud_});
  ASSERT_EQ(linesOf(sets.out).size(), 1u) << sets.out;
  EXPECT_EQ(sets.out.rfind("set 1 ", 0), 0u) << sets.out;

  const std::string blank = watch("blank", "--blank");
  EXPECT_EQ(runEmu({"diff", sample, blank}).status, 1);
  ProcessResult restore = run(blank, "restore");
  ASSERT_EQ(restore.status, 0) << restore.out;
  ProcessResult diff = runEmu({"diff", sample, blank});
  EXPECT_EQ(diff.status, 0) << diff.out;
  EXPECT_EQ(diff.out, "same setup\n");
  EXPECT_NE(faces(blank)["com.talvoro.face.aurora"].find("caf\xEF\xBF\xBD"), std::string::npos);
}

// Neither asks anything of the cloud's sets: the service ends itself and the watch stays as it was.
TEST_F(FlowCliTest, InformationAndARestoreFromAnEmptyCloudChangeNothing) {
  const std::string blank = watch("blank", "--blank");
  ProcessResult info = run(blank, "info");
  EXPECT_EQ(info.status, 0) << info.out;
  EXPECT_TRUE(hasLine(info.err, "msg is nullptr!")) << info.err;
  ProcessResult restore = run(blank, "restore");
  EXPECT_EQ(restore.status, 0) << restore.out;
  EXPECT_EQ(runEmu({"sets", cloud_}).out, "no backup sets in " + cloud_ + "\n");
  ProcessResult diff = runEmu({"diff", blank, watch("fresh", "--blank")});
  EXPECT_EQ(diff.status, 0) << diff.out;
}

// A stored document holding raw bytes that are not UTF-8 loses only the item that holds them.
TEST_F(FlowCliTest, AnItemWhoseStoredSettingsAreNotUtf8IsTheOnlyOneLost) {
  store({"{\"watch_main_key\":\"com.talvoro.clock-orbitline\",\"watch_items\":[" +
         faceItem("com.talvoro.face.aurora", "<latin>caf\xe9</latin>") + "," +
         faceItem("com.talvoro.face.mono", "<mono/>") + "]}"});
  const std::string blank = watch("blank", "--blank");
  ProcessResult restore = run(blank, "restore");
  EXPECT_EQ(restore.status, 4) << restore.out;
  EXPECT_TRUE(hasLine(restore.out,
                      "restore   set 1 did not restore face com.talvoro.face.aurora: the "
                      "stored document holds its settings in bytes that are not UTF-8"))
      << restore.out;
  EXPECT_TRUE(hasLine(restore.err,
                      "Backup document is not UTF-8 text: skipped watch item "
                      "[com.talvoro.face.aurora]"))
      << restore.err;
  EXPECT_EQ(faces(blank),
            (std::map<std::string, std::string>{{"com.talvoro.face.mono", "<mono/>"}}));
  EXPECT_EQ(shown(blank, "idle clock"), "com.talvoro.clock-orbitline");
}

TEST_F(FlowCliTest, EachRecordOfASetIsRestoredFromItsOwnDocument) {
  store(
      {"{\"watch_main_key\":\"com.talvoro.clock-orbitline\","
       "\"watch_sub_key\":\"com.talvoro.face.aurora\",\"watch_items\":[" +
           faceItem("com.talvoro.face.aurora", "<first/>") + "]}",
       "{\"watch_sub_key\":\"com.talvoro.face.mono\",\"watch_items\":[" +
           faceItem("com.talvoro.face.aurora", "<second/>") + "," +
           faceItem("com.talvoro.face.mono", "<mono/>") + "]}"});
  const std::string blank = watch("blank", "--blank");
  ProcessResult restore = run(blank, "restore");
  EXPECT_EQ(restore.status, 0) << restore.out;
  EXPECT_TRUE(hasLine(restore.out, "2 records restored")) << restore.out;
  // Three settings messages: one transfer per record, each with its own document's list.
  EXPECT_TRUE(hasLine(restore.out, "received 3 settings")) << restore.out;
  EXPECT_EQ(faces(blank),
            (std::map<std::string, std::string>{{"com.talvoro.face.aurora", "<second/>"},
                                                {"com.talvoro.face.mono", "<mono/>"}}));
  EXPECT_EQ(shown(blank, "idle clock"), "com.talvoro.clock-orbitline");
  EXPECT_EQ(shown(blank, "face name"), "com.talvoro.face.classic");
  EXPECT_FALSE(hasLine(restore.err, kMainKeyMissing)) << restore.err;
}

// The idle clock the document names is written as it is, a watch app too; an empty one is not
// written at all, and the lists are restored either way.
TEST_F(FlowCliTest, TheMainKeyIsWrittenAsStoredOrNotAtAll) {
  const struct {
    const char* mainKey;
    const char* idleClock;
  } cases[] = {{"com.talvoro.clock-pacetrail", "com.talvoro.clock-pacetrail"},
               {"", "com.talvoro.watchface"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.idleClock);
    store({std::string("{\"watch_main_key\":\"") + c.mainKey +
           "\",\"watch_sub_key\":\"com.talvoro.face.mono\",\"watch_items\":[" +
           faceItem("com.talvoro.face.mono", "<mono/>") + "]}"});
    const std::string blank = watch(std::string("blank-") + c.mainKey, "--blank");
    ProcessResult restore = run(blank, "restore");
    EXPECT_EQ(restore.status, 0) << restore.out;
    EXPECT_EQ(hasLine(restore.err, kMainKeyMissing), c.mainKey[0] == '\0') << restore.err;
    EXPECT_EQ(shown(blank, "idle clock"), c.idleClock);
    EXPECT_EQ(shown(blank, "face name"), "com.talvoro.face.classic");
    EXPECT_EQ(faces(blank).count("com.talvoro.face.mono"), 1u);
  }
}

}  // namespace
