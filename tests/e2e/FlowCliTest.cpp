#include <glib.h>
#include <gtest/gtest.h>
#include <json-glib/json-glib.h>

#include <map>
#include <string>
#include <vector>

#include "MvJsonNesting.h"
#include "ProcessRun.h"
#include "emu/CloudStore.h"
#include "host/RecordFile.h"

namespace {

using morvik_test::hasLine;
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

  // The next set in the cloud, holding one record per document, written as a record file
  // directly: the cloud itself would refuse some of them.
  void store(const std::vector<std::string>& documents) {
    std::vector<host::CloudRecord> records;
    for (const std::string& document : documents)
      records.push_back({std::string("key"), std::to_string(g_get_real_time() / 1000), document});
    emu::CloudStore cloud(cloud_);
    std::vector<unsigned long long> ids;
    std::string error;
    g_mkdir_with_parents(cloud_.c_str(), 0755);
    ASSERT_TRUE(cloud.list(ids, error)) << error;
    ASSERT_TRUE(
        host::writeRecordFile(cloud.setPath(ids.empty() ? 1 : ids.back() + 1), records, error))
        << error;
  }

  // A member of the watch's profile on disk, "faces" (settings by face) or "config".
  std::map<std::string, std::string> saved(const std::string& device, const char* member) {
    std::map<std::string, std::string> found;
    g_autofree char* text = nullptr;
    g_file_get_contents((device + "/device.json").c_str(), &text, nullptr, nullptr);
    g_autoptr(JsonParser) parser = json_parser_new();
    JsonObject* profile = morvik_test::jsonObject(parser, text ? text : "");
    JsonNode* node = profile ? json_object_get_member(profile, member) : nullptr;
    if (node && JSON_NODE_HOLDS_OBJECT(node)) {
      JsonObject* map = json_node_get_object(node);
      g_autoptr(GList) keys = json_object_get_members(map);
      for (GList* key = keys; key; key = key->next) {
        const char* name = static_cast<const char*>(key->data);
        found[name] = json_object_get_string_member(map, name);
      }
    }
    for (guint i = 0; node && JSON_NODE_HOLDS_ARRAY(node) &&
                      i < json_array_get_length(json_node_get_array(node));
         ++i) {
      JsonObject* face = json_array_get_object_element(json_node_get_array(node), i);
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

  const std::string blank = watch("blank", "--blank");
  EXPECT_EQ(runEmu({"diff", sample, blank}).status, 1);
  ProcessResult restore = run(blank, "restore");
  ASSERT_EQ(restore.status, 0) << restore.out;
  ProcessResult diff = runEmu({"diff", sample, blank});
  EXPECT_EQ(diff.status, 0) << diff.out;
  EXPECT_EQ(diff.out, "same setup\n");
  EXPECT_NE(saved(blank, "faces")["com.talvoro.face.aurora"].find("caf\\xE9"), std::string::npos);
}

// A set stored as the cloud stores it, restored onto a blank watch: what the watch holds after.
TEST_F(FlowCliTest, EachStoredSetRestoresExactlyWhatItsDocumentsSay) {
  using Faces = std::map<std::string, std::string>;
  const std::string mono = faceItem("com.talvoro.face.mono", "<mono/>");
  const struct {
    const char* name;
    std::vector<std::string> documents;
    int status;
    Faces faces;
    const char* idleClock;
    std::string line;  // on the summary, or on the service's log when it ends with "!"
  } cases[] = {
      // One transfer per record, each with its own document's list: three settings messages.
      {"records",
       {"{\"watch_main_key\":\"com.talvoro.clock-orbitline\",\"watch_sub_key\":\"com.talvoro."
        "face.aurora\",\"watch_items\":[" +
            faceItem("com.talvoro.face.aurora", "<first/>") + "]}",
        "{\"watch_sub_key\":\"com.talvoro.face.mono\",\"watch_items\":[" +
            faceItem("com.talvoro.face.aurora", "<second/>") + "," + mono + "]}"},
       0,
       {{"com.talvoro.face.aurora", "<second/>"}, {"com.talvoro.face.mono", "<mono/>"}},
       "com.talvoro.clock-orbitline",
       "received 3 settings"},
      // Raw bytes that are not UTF-8 lose only the item that holds them.
      {"latin1",
       {"{\"watch_main_key\":\"com.talvoro.clock-orbitline\",\"watch_items\":[" +
        faceItem("com.talvoro.face.aurora", "<latin>caf\xe9</latin>") + "," + mono + "]}"},
       4,
       {{"com.talvoro.face.mono", "<mono/>"}},
       "com.talvoro.clock-orbitline",
       "did not restore face com.talvoro.face.aurora: the stored document holds its settings in "
       "bytes that are not UTF-8"},
      // A watch app as the idle clock is written as it is; an empty one is not written at all.
      {"watch app",
       {"{\"watch_main_key\":\"com.talvoro.clock-pacetrail\",\"watch_items\":[" + mono + "]}"},
       0,
       {{"com.talvoro.face.mono", "<mono/>"}},
       "com.talvoro.clock-pacetrail",
       "restored"},
      {"empty",
       {"{\"watch_main_key\":\"\",\"watch_items\":[" + mono + "]}"},
       0,
       {{"com.talvoro.face.mono", "<mono/>"}},
       "com.talvoro.watchface",
       "Restored mainkey string is nullptr!"},
      // The idle-change message of the first record arrives after the second wrote the key:
      // the last record's word holds.
      {"idle clock by the last record",
       {"{\"watch_main_key\":\"com.talvoro.watchface\",\"watch_sub_key\":\"com.talvoro.face."
        "mono\",\"watch_items\":[" +
            mono + "]}",
        "{\"watch_main_key\":\"com.talvoro.clock-pacetrail\",\"watch_sub_key\":\"\"}"},
       0,
       {{"com.talvoro.face.mono", "<mono/>"}},
       "com.talvoro.clock-pacetrail",
       "received 1 settings"},
      // Documents the service cannot use restore nothing they meant to: a failed restore.
      {"not a list",
       {"{\"watch_main_key\":\"com.talvoro.clock-pacetrail\",\"watch_items\":\"notalist\"}"},
       4,
       {},
       "com.talvoro.clock-pacetrail",
       "record 1: watch_items is not a list (the service could not use it)"},
      {"foreign", {"{\"foo\":1}"}, 4, {}, "com.talvoro.watchface", "record 1: it holds no setup"},
      // A second record too deep for json-glib: refused, and the first one's restore is kept.
      {"deep second record",
       {"{\"watch_main_key\":\"com.talvoro.clock-orbitline\",\"watch_items\":[" + mono + "]}",
        std::string(100000, '[') + std::string(100000, ']')},
       4,
       {{"com.talvoro.face.mono", "<mono/>"}},
       "com.talvoro.clock-orbitline",
       "record 2: not a backup document: nests deeper than " + std::to_string(kMvJsonMaxNesting) +
           " levels"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    store(c.documents);
    const std::string blank = watch(c.name, "--blank");
    ProcessResult restore = run(blank, "restore");
    EXPECT_EQ(restore.status, c.status) << restore.out;
    const std::string line = c.line;
    if (line.back() == '!')
      EXPECT_TRUE(hasLine(restore.err, line.substr(0, line.size() - 1))) << restore.err;
    else
      EXPECT_TRUE(hasLine(restore.out, line)) << restore.out;
    // The blank watch's idle clock stays only when no record had a main key to write.
    EXPECT_EQ(hasLine(restore.err, kMainKeyMissing),
              std::string(c.idleClock) == "com.talvoro.watchface");
    EXPECT_EQ(saved(blank, "faces"), c.faces);
    const std::map<std::string, std::string> config = saved(blank, "config");
    EXPECT_EQ(config.at("db/pel/clocks_set_idle"), c.idleClock);
    EXPECT_EQ(config.at("file/private/com.talvoro.watchface/watchface_name"),
              "com.talvoro.face.classic");
  }
}

}  // namespace

namespace {

// What import refuses can still reach a watch in a set written directly: each ends truthfully,
// a restore that json-glib reads (it takes more than JSON) or a failure naming the record, and a
// watch that is saved and reads again.
TEST_F(FlowCliTest, DocumentsImportRefusesRestoreOrFailByNameFromASetWrittenDirectly) {
  const std::string key = "\"watch_main_key\":";
  const struct {
    std::string document;
    int status;
  } cases[] = {
      {"hello", 4},
      {"{" + key + " 5", 4},
      {"{" + key + "\"com.talvoro.clock-pacet\\162ail\"}", 0},
      {"{" + key + "\"com.talvoro.clock-pacetrail\",\"a\":\"x\ty\"}", 0},
      {"{'watch_main_key':'com.talvoro.clock-pacetrail'}", 0},
      {"{" + key + "\"com.talvoro.clock-pacetrail\"} // x", 4},
      {"{" + key + "\"com.talvoro.clock-pacetrail\",\"a\":12345678901234567890}", 0},
      {"{" + key + "\"com.talvoro.clock-pacetrail\",\"a\":1e400}", 0},
      {std::string(100000, '['), 4},
      {"[1]", 4},
  };
  int index = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.document.substr(0, 60));
    store({c.document});
    const std::string blank = watch("hostile" + std::to_string(index++), "--blank");
    const ProcessResult restore = run(blank, "restore");
    EXPECT_EQ(restore.status, c.status) << restore.out;
    EXPECT_EQ(hasLine(restore.out, "record 1: "), c.status == 4) << restore.out;
    EXPECT_EQ(saved(blank, "config").at("db/pel/clocks_set_idle"),
              c.status == 0 ? "com.talvoro.clock-pacetrail" : "com.talvoro.watchface");
    EXPECT_EQ(runEmu({"show", blank}).status, 0);
  }
}

}  // namespace
