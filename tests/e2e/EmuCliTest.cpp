#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <json-glib/json-glib.h>
#include <utime.h>

#include <algorithm>
#include <string>
#include <vector>

#include "ProcessRun.h"
#include "TempDir.h"
#include "emu/CloudStore.h"
#include "emu/DeviceProfile.h"

namespace {

using morvik_test::linesOf;
using morvik_test::ProcessResult;
using morvik_test::runEmu;

// The JSON object on `out`; a failure when there is none.
JsonObject* objectOf(JsonParser* parser, const std::string& out) {
  g_autoptr(GError) error = nullptr;
  if (!json_parser_load_from_data(parser, out.c_str(), -1, &error)) {
    ADD_FAILURE() << error->message << "\n" << out;
    return nullptr;
  }
  return json_node_get_object(json_parser_get_root(parser));
}

class EmuCliTest : public ::testing::Test {
 protected:
  std::string watch(const std::string& name, const char* kind) {
    const std::string dir = temp_.path() + "/" + name;
    ProcessResult made = runEmu({"init", dir, kind});
    EXPECT_EQ(made.status, 0) << made.err;
    return dir;
  }

  morvik_test::TempDir temp_;
};

TEST_F(EmuCliTest, OptionsAreConventional) {
  const std::string sample = watch("sample", "--sample");
  ProcessResult run = runEmu({"--version"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, std::string("morvik-emu ") + MORVIK_VERSION + "\n");
  // Help per verb, even where a directory is expected.
  run = runEmu({"show", "--help"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("morvik-emu show [OPTION"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("--json"), std::string::npos) << run.out;
  run = runEmu({"--help"});
  EXPECT_EQ(run.status, 0);
  EXPECT_NE(run.out.find("  doctor   DIR|CLOUD"), std::string::npos) << run.out;

  const struct {
    std::vector<std::string> args;
    const char* reason;
  } refused[] = {
      {{"--bogus"}, "morvik-emu: unknown option --bogus"},
      {{"show", sample, "--bogus"}, "morvik-emu: show: unknown option --bogus"},
      {{"log", sample, "--level=E", "--level", "W"}, "--level is given more than once"},
      {{"log", sample, "--run"}, "missing argument for --run"},
      {{"init", temp_.path() + "/h", "--heavy=0"}, "--heavy needs N from 1 to 16, not '0'"},
      {{"init", temp_.path() + "/h", "--blank", "--heavy=2"}, "--heavy takes no N there"},
      {{"init", temp_.path() + "/h", "--sample", "--blank"}, "not both"},
      {{"frobnicate"}, "unknown command 'frobnicate'"},
  };
  for (const auto& c : refused) {
    run = runEmu(c.args);
    EXPECT_EQ(run.status, 2) << c.reason;
    EXPECT_EQ(linesOf(run.err).size(), 1u) << run.err;
    EXPECT_NE(run.err.find(c.reason), std::string::npos) << run.err;
  }
  // A parameter that looks like an option follows "--".
  run = runEmu({"show", "--", "--help"});
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(run.err.find("--help/device.json"), std::string::npos) << run.err;
}

TEST_F(EmuCliTest, ShowSetsAndDiffSpeakJson) {
  const std::string sample = watch("sample", "--sample");
  const std::string blank = watch("blank", "--blank");
  ASSERT_EQ(runEmu({"fault", sample, "watchapp-late=300"}).status, 0);
  g_unlink((sample + "/apps/com.talvoro.watchface-service/data/backgrounds/bg-aurora.jpg").c_str());

  ProcessResult run = runEmu({"show", sample, "--json"});
  ASSERT_EQ(run.status, 0) << run.err;
  g_autoptr(JsonParser) shown = json_parser_new();
  JsonObject* watch = objectOf(shown, run.out);
  ASSERT_NE(watch, nullptr);
  EXPECT_STREQ(json_object_get_string_member(watch, "name"), "sample");
  EXPECT_STREQ(json_object_get_string_member(watch, "idle_clock"), "com.talvoro.watchface");
  JsonArray* packages = json_object_get_array_member(watch, "packages");
  ASSERT_GT(json_array_get_length(packages), 0u);
  JsonObject* first = json_array_get_object_element(packages, 0);
  for (const char* member : {"appid", "pkgid", "component", "preload"})
    EXPECT_TRUE(json_object_has_member(first, member)) << member;
  JsonArray* photos = json_object_get_array_member(watch, "photos");
  ASSERT_EQ(json_array_get_length(photos), 2u);
  EXPECT_TRUE(json_object_get_null_member(json_array_get_object_element(photos, 0), "file_bytes"));
  EXPECT_GT(json_object_get_int_member(json_array_get_object_element(photos, 1), "file_bytes"), 0);
  EXPECT_EQ(json_array_get_length(json_object_get_array_member(watch, "faces")), 3u);
  EXPECT_EQ(json_array_get_length(json_object_get_array_member(watch, "watch_apps")), 2u);
  EXPECT_GT(json_array_get_length(json_object_get_array_member(watch, "store_catalogue")), 0u);
  EXPECT_STREQ(json_object_get_string_member(json_object_get_object_member(watch, "faults"),
                                             "watchapp-late"),
               "300");
  run = runEmu({"diff", blank, sample, "--json"});
  EXPECT_EQ(run.status, 1);
  g_autoptr(JsonParser) diffed = json_parser_new();
  JsonObject* diff = objectOf(diffed, run.out);
  ASSERT_NE(diff, nullptr);
  EXPECT_FALSE(json_object_get_boolean_member(diff, "same"));
  EXPECT_GT(json_array_get_length(json_object_get_array_member(diff, "differences")), 2u);
  EXPECT_STREQ(json_array_get_string_element(json_object_get_array_member(diff, "watches"), 1),
               sample.c_str());
  run = runEmu({"diff", "--json", blank, blank});
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(json_object_get_boolean_member(objectOf(diffed, run.out), "same"));

  const std::string cloud = temp_.path() + "/cloud";
  const std::string document = temp_.path() + "/doc.json";
  ASSERT_TRUE(g_file_set_contents(document.c_str(), "{\"a\":1}", -1, nullptr));
  ASSERT_EQ(runEmu({"import", cloud, document}).status, 0);
  ASSERT_EQ(runEmu({"import", cloud, document}).status, 0);
  ASSERT_TRUE(g_file_set_contents((cloud + "/set-000002.dat").c_str(), "TVRF", 4, nullptr));
  run = runEmu({"sets", "--json", cloud});
  EXPECT_EQ(run.status, 1);
  g_autoptr(JsonParser) listed = json_parser_new();
  JsonObject* sets = objectOf(listed, run.out);
  ASSERT_NE(sets, nullptr);
  JsonArray* list = json_object_get_array_member(sets, "sets");
  ASSERT_EQ(json_array_get_length(list), 2u);
  JsonObject* good = json_array_get_object_element(list, 0);
  EXPECT_EQ(json_object_get_int_member(good, "id"), 1);
  EXPECT_EQ(json_object_get_int_member(good, "records"), 1);
  EXPECT_EQ(json_object_get_int_member(good, "value_bytes"), 7);
  EXPECT_NE(std::string(json_object_get_string_member(good, "date_utc")).find(" UTC"),
            std::string::npos);
  JsonObject* bad = json_array_get_object_element(list, 1);
  EXPECT_EQ(json_object_get_int_member(bad, "id"), 2);
  EXPECT_TRUE(json_object_has_member(bad, "error"));
  EXPECT_FALSE(json_object_has_member(bad, "records"));
}

TEST_F(EmuCliTest, LogShowsRunsTagsAndLevels) {
  const std::string sample = watch("sample", "--sample");
  const std::string cloud = temp_.path() + "/cloud";
  for (const char* operation : {"backup", "none"}) {
    ProcessResult run =
        morvik_test::runProcess({MORVIK_SERVICE_BIN, "--device", sample, "--cloud", cloud,
                                 "--operation", operation, "--deadline", "0.5"});
    ASSERT_NE(run.status, -1);
  }
  ProcessResult run = runEmu({"log", sample, "--run", "1", "--tag", "emu-watchface"});
  ASSERT_EQ(run.status, 0) << run.err;
  std::vector<std::string> lines = linesOf(run.out);
  ASSERT_EQ(lines.size(), 2u) << run.out;
  EXPECT_NE(lines[0].find(" I/morvik-host(P"), std::string::npos) << lines[0];
  EXPECT_NE(lines[0].find("): run begins: morvik-service --device " + sample), std::string::npos);
  EXPECT_NE(lines[1].find(" I/emu-watchface(P"), std::string::npos) << lines[1];
  EXPECT_NE(lines[1].find("): backup request: sending 3 faces and 2 photos"), std::string::npos);

  run = runEmu({"log", sample, "--last", "--level=error"});
  ASSERT_EQ(run.status, 0) << run.err;
  lines = linesOf(run.out);
  ASSERT_EQ(lines.size(), 2u) << run.out;
  EXPECT_NE(lines[0].find("--operation none"), std::string::npos) << lines[0];
  EXPECT_NE(lines[1].find(" E/morvik-service(P"), std::string::npos) << lines[1];
  EXPECT_NE(lines[1].find("msg is nullptr!"), std::string::npos) << lines[1];

  const size_t all = linesOf(runEmu({"log", sample}).out).size();
  EXPECT_EQ(all, linesOf(runEmu({"log", sample, "--run", "1"}).out).size() +
                     linesOf(runEmu({"log", sample, "--run", "2"}).out).size());
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"log", sample, "--run", "3"},
           {"log", sample, "--run", "1", "--last"},
           {"log", sample, "--level", "loud"},
           {"log", temp_.path()},
       })
    EXPECT_EQ(runEmu(args).status, 2) << args.back();
}

TEST_F(EmuCliTest, DoctorNamesEachFinding) {
  const std::string sample = watch("sample", "--sample");
  ProcessResult run = runEmu({"doctor", sample});
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(run.out, "no findings: " + sample + " is a healthy watch\n");

  emu::DeviceProfile profile;
  std::string error;
  ASSERT_TRUE(profile.load(sample, error)) << error;
  ASSERT_EQ(profile.catalogue.front().pkgId, "com.indie.clock-tidal");
  profile.catalogue.erase(profile.catalogue.begin());
  profile.faults["store-silent"] = "";
  ASSERT_TRUE(profile.save(sample, error)) << error;
  const emu::BackgroundImage photo = profile.images[0];
  ASSERT_EQ(g_unlink((sample + "/" + photo.path).c_str()), 0);
  run = runEmu({"doctor", sample});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(linesOf(run.out),
            (std::vector<std::string>{
                "photo " + photo.fileName + ": " + photo.path + " is missing",
                "app com.indie.clock-tidal: downloaded, but the store catalogue has no "
                "com.indie.clock-tidal (a restore cannot install it)",
                "fault switch store-silent is set"}));

  // The heavy watch is healthy, and its blank counterpart's store can install its apps.
  const std::string heavy = temp_.path() + "/heavy";
  const std::string heavyBlank = temp_.path() + "/heavy-blank";
  ASSERT_EQ(runEmu({"init", heavy, "--heavy"}).status, 0);
  ASSERT_EQ(runEmu({"init", "--blank", heavyBlank, "--heavy"}).status, 0);
  EXPECT_EQ(runEmu({"doctor", heavy}).status, 0);
  emu::DeviceProfile blank;
  ASSERT_TRUE(profile.load(heavy, error)) << error;
  ASSERT_TRUE(blank.load(heavyBlank, error)) << error;
  EXPECT_TRUE(blank.faces.empty());
  int downloaded = 0;
  for (const host::PackageInfo& app : profile.packages) {
    if (app.preload)
      continue;
    ++downloaded;
    EXPECT_TRUE(
        std::any_of(blank.catalogue.begin(), blank.catalogue.end(),
                    [&](const emu::CatalogueItem& item) { return item.pkgId == app.pkgId; }))
        << app.pkgId;
  }
  EXPECT_EQ(downloaded, 10);

  // A cloud: an unreadable set, a document that is not JSON, a temporary file left behind.
  const std::string cloud = temp_.path() + "/cloud";
  ASSERT_EQ(g_mkdir(cloud.c_str(), 0755), 0);
  EXPECT_EQ(runEmu({"doctor", cloud}).out, "no findings: " + cloud + " is a cloud with 0 sets\n");
  emu::CloudStore store(cloud);
  unsigned long long id = 0;
  for (const char* value : {"{\"a\":1}", "{'a':1}", "{}"}) {
    host::CloudRecord record;
    record.key = "key";
    record.value = std::string(value);
    ASSERT_TRUE(store.add({record}, id, error)) << error;
  }
  ASSERT_TRUE(g_file_set_contents(store.setPath(3).c_str(), "TVRF", 4, nullptr));
  const std::string left = cloud + "/.incoming-1-0x1.dat";
  ASSERT_TRUE(g_file_set_contents(left.c_str(), "", 0, nullptr));
  struct utimbuf old = {1000, 1000};
  ASSERT_EQ(utime(left.c_str(), &old), 0);
  run = runEmu({"doctor", cloud});
  EXPECT_EQ(run.status, 1);
  const std::vector<std::string> lines = linesOf(run.out);
  ASSERT_EQ(lines.size(), 3u) << run.out;
  EXPECT_EQ(lines[0], "set 2: its document is not strict JSON: line 1, column 2: ''' is not JSON");
  EXPECT_EQ(lines[1].rfind("set 3 is unreadable: ", 0), 0u) << lines[1];
  EXPECT_EQ(lines[2].rfind("stale temporary file .incoming-1-0x1.dat (untouched for ", 0), 0u)
      << lines[2];
  EXPECT_EQ(runEmu({"doctor", temp_.path() + "/absent"}).status, 2);
}

}  // namespace
