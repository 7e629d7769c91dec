#include <glib.h>
#include <gtest/gtest.h>
#include <json-glib/json-glib.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ProcessRun.h"
#include "TempDir.h"

namespace {

using morvik_test::linesOf;
using morvik_test::ProcessResult;
using morvik_test::runEmu;
using morvik_test::runProcess;

const char* const kFaceService = "com.talvoro.watchface-service";
const char* const kMainKeyMissing = "Restored mainkey string is nullptr";

std::string faceItem(const std::string& pkgId, const std::string& settings) {
  return "{\"pkgid\":\"" + pkgId + "\",\"svcid\":\"" + kFaceService + "\",\"result\":\"" +
         settings + "\"}";
}

void putU32(std::string& out, uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8)
    out.push_back(static_cast<char>((value >> shift) & 0xFFu));
}

void putField(std::string& out, const std::string& field) {
  putU32(out, static_cast<uint32_t>(field.size()));
  out += field;
}

uint32_t crc32(const std::string& bytes) {
  uint32_t crc = 0xFFFFFFFFu;
  for (unsigned char byte : bytes) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit)
      crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

// A cloud set holding one record per document, as the cloud itself stores them.
std::string recordFile(const std::vector<std::string>& documents) {
  std::string out = "TVRF";
  putU32(out, 1);
  putU32(out, static_cast<uint32_t>(documents.size()));
  const std::string date = std::to_string(g_get_real_time() / 1000);
  for (const std::string& document : documents) {
    putField(out, "key");
    putField(out, date);
    putField(out, document);
  }
  putU32(out, crc32(out));
  return out;
}

bool hasLine(const std::string& text, const std::string& part) {
  for (const std::string& line : linesOf(text)) {
    if (line.find(part) != std::string::npos)
      return true;
  }
  return false;
}

class FlowCliTest : public ::testing::Test {
 protected:
  std::string watch(const std::string& name, const char* kind) {
    const std::string dir = root_ + "/" + name;
    ProcessResult made = runEmu({"init", dir, kind});
    EXPECT_EQ(made.status, 0) << made.err;
    return dir;
  }

  ProcessResult service(const std::string& device, const std::string& operation) {
    return runProcess({MORVIK_SERVICE_BIN, "--device", device, "--cloud", cloud_, "--operation",
                       operation, "--deadline", "30"});
  }

  std::string file(const std::string& name, const std::string& contents) {
    const std::string path = root_ + "/" + name;
    EXPECT_TRUE(g_file_set_contents(path.c_str(), contents.data(),
                                    static_cast<gssize>(contents.size()), nullptr));
    return path;
  }

  void import(const std::string& document) {
    ProcessResult stored = runEmu({"import", cloud_, file("document.json", document)});
    ASSERT_EQ(stored.status, 0) << stored.err;
  }

  // The value on `morvik-emu show`'s line that starts with `label`.
  std::string shown(const std::string& device, const std::string& label) {
    ProcessResult show = runEmu({"show", device});
    EXPECT_EQ(show.status, 0) << show.err;
    for (const std::string& line : linesOf(show.out)) {
      if (line.rfind(label, 0) == 0)
        return line.substr(line.find_first_not_of(' ', label.size()));
    }
    ADD_FAILURE() << "no '" << label << "' in " << show.out;
    return "";
  }

  // The watch face service's settings per face, from the device's disk.
  std::map<std::string, std::string> faces(const std::string& device) {
    std::map<std::string, std::string> found;
    g_autoptr(JsonParser) parser = json_parser_new();
    g_autoptr(GError) error = nullptr;
    if (!json_parser_load_from_file(parser, (device + "/device.json").c_str(), &error)) {
      ADD_FAILURE() << error->message;
      return found;
    }
    JsonArray* list =
        json_object_get_array_member(json_node_get_object(json_parser_get_root(parser)), "faces");
    for (guint i = 0; i < json_array_get_length(list); ++i) {
      JsonObject* face = json_array_get_object_element(list, i);
      found[json_object_get_string_member(face, "pkgid")] =
          json_object_get_string_member(face, "settings");
    }
    return found;
  }

  morvik_test::TempDir temp_;
  const std::string root_ = temp_.path();
  const std::string cloud_ = root_ + "/cloud";
};

TEST_F(FlowCliTest, BackupOfTheSampleRestoredOntoABlankWatchMakesTheSameSetup) {
  const std::string sample = watch("sample", "--sample");
  ProcessResult backup = service(sample, "backup");
  ASSERT_EQ(backup.status, 0) << backup.out;
  ProcessResult sets = runEmu({"sets", cloud_});
  EXPECT_EQ(sets.status, 0) << sets.err;
  ASSERT_EQ(linesOf(sets.out).size(), 1u) << sets.out;
  EXPECT_EQ(sets.out.rfind("set 1 ", 0), 0u) << sets.out;

  const std::string blank = watch("blank", "--blank");
  EXPECT_EQ(runEmu({"diff", sample, blank}).status, 1);

  ProcessResult restore = service(blank, "restore");
  ASSERT_EQ(restore.status, 0) << restore.out;
  ProcessResult diff = runEmu({"diff", sample, blank});
  EXPECT_EQ(diff.status, 0) << diff.out;
  EXPECT_EQ(diff.out, "same setup\n");
}

// Neither asks anything of the cloud's sets: the service ends itself and the watch stays as it was.
TEST_F(FlowCliTest, InformationAndARestoreFromAnEmptyCloudChangeNothing) {
  const std::string blank = watch("blank", "--blank");
  ProcessResult info = service(blank, "info");
  EXPECT_EQ(info.status, 0) << info.out;
  EXPECT_TRUE(hasLine(info.err, "msg is nullptr!")) << info.err;
  ProcessResult restore = service(blank, "restore");
  EXPECT_EQ(restore.status, 0) << restore.out;
  EXPECT_EQ(runEmu({"sets", cloud_}).out, "no backup sets in " + cloud_ + "\n");
  ProcessResult diff = runEmu({"diff", blank, watch("fresh", "--blank")});
  EXPECT_EQ(diff.status, 0) << diff.out;
}

// Settings are XML and may be Latin-1. One such byte used to make json-glib refuse the whole
// restore; now it travels byte for byte, and a stored document holding raw ones loses only the
// item that holds them.
TEST_F(FlowCliTest, SettingsThatAreNotUtf8LoseNothingElse) {
  const std::string sample = watch("sample", "--sample");
  g_autofree char* profile = nullptr;
  ASSERT_TRUE(g_file_get_contents((sample + "/device.json").c_str(), &profile, nullptr, nullptr));
  std::string text = profile;
  // json-glib reads the octal escape as the byte 0xE9, Latin-1 for 'e' with an acute.
  text.replace(text.find("<face "), 6, "<face note=\\\"caf\\351\\\" ");
  file("sample/device.json", text);
  ASSERT_EQ(service(sample, "backup").status, 0);
  const std::string blank = watch("blank", "--blank");
  ASSERT_EQ(service(blank, "restore").status, 0);
  ProcessResult diff = runEmu({"diff", sample, blank});
  EXPECT_EQ(diff.out, "same setup\n");
  EXPECT_NE(faces(blank)["com.talvoro.face.aurora"].find("caf\xEF\xBF\xBD"), std::string::npos);

  const std::string stored =
      "{\"watch_main_key\":\"com.talvoro.clock-orbitline\",\"watch_items\":[" +
      faceItem("com.talvoro.face.aurora", "<latin>caf\xe9</latin>") + "," +
      faceItem("com.talvoro.face.mono", "<mono/>") + "]}";
  file("cloud/set-000002.dat", recordFile({stored}));
  const std::string other = watch("other", "--blank");
  ProcessResult run = service(other, "restore");
  EXPECT_EQ(run.status, 4) << run.out;
  EXPECT_TRUE(hasLine(run.out,
                      "restore   set 2 did not restore face com.talvoro.face.aurora: the "
                      "stored document holds its settings in bytes that are not UTF-8"))
      << run.out;
  EXPECT_TRUE(hasLine(run.err,
                      "Backup document is not UTF-8 text: skipped watch item "
                      "[com.talvoro.face.aurora]"))
      << run.err;
  EXPECT_EQ(faces(other),
            (std::map<std::string, std::string>{{"com.talvoro.face.mono", "<mono/>"}}));
  EXPECT_EQ(shown(other, "idle clock"), "com.talvoro.clock-orbitline");
}

TEST_F(FlowCliTest, EachRecordOfASetIsRestoredFromItsOwnDocument) {
  const std::string first =
      "{\"watch_main_key\":\"com.talvoro.clock-orbitline\","
      "\"watch_sub_key\":\"com.talvoro.face.aurora\",\"watch_items\":[" +
      faceItem("com.talvoro.face.aurora", "<first/>") + "]}";
  const std::string second = "{\"watch_sub_key\":\"com.talvoro.face.mono\",\"watch_items\":[" +
                             faceItem("com.talvoro.face.aurora", "<second/>") + "," +
                             faceItem("com.talvoro.face.mono", "<mono/>") + "]}";
  ASSERT_EQ(g_mkdir_with_parents(cloud_.c_str(), 0755), 0);
  file("cloud/set-000001.dat", recordFile({first, second}));
  ProcessResult sets = runEmu({"sets", cloud_});
  ASSERT_EQ(sets.status, 0) << sets.out;
  ASSERT_NE(sets.out.find(" 2 records "), std::string::npos) << sets.out;

  const std::string blank = watch("blank", "--blank");
  ProcessResult run = service(blank, "restore");
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_TRUE(hasLine(run.out, "2 records restored")) << run.out;
  // Three settings messages: one transfer per record, each with its own document's list.
  EXPECT_TRUE(hasLine(run.out, "received 3 settings")) << run.out;

  const std::map<std::string, std::string> expected{{"com.talvoro.face.aurora", "<second/>"},
                                                    {"com.talvoro.face.mono", "<mono/>"}};
  EXPECT_EQ(faces(blank), expected);
  EXPECT_EQ(shown(blank, "idle clock"), "com.talvoro.clock-orbitline");
  EXPECT_EQ(shown(blank, "face name"), "com.talvoro.face.classic");
  EXPECT_FALSE(hasLine(run.err, kMainKeyMissing)) << run.err;
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
    import(std::string("{\"watch_main_key\":\"") + c.mainKey +
           "\",\"watch_sub_key\":\"com.talvoro.face.mono\",\"watch_items\":[" +
           faceItem("com.talvoro.face.mono", "<mono/>") + "]}");
    const std::string blank = watch(std::string("blank-") + c.mainKey, "--blank");
    ProcessResult run = service(blank, "restore");
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_EQ(hasLine(run.err, kMainKeyMissing), c.mainKey[0] == '\0') << run.err;
    EXPECT_EQ(shown(blank, "idle clock"), c.idleClock);
    EXPECT_EQ(shown(blank, "face name"), "com.talvoro.face.classic");
    EXPECT_EQ(faces(blank).count("com.talvoro.face.mono"), 1u);
  }
}

}  // namespace
