#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <json-glib/json-glib.h>

#include <string>
#include <vector>

#include <utime.h>

#include "ProcessRun.h"
#include "emu/CloudStore.h"
#include "emu/DeviceProfile.h"

namespace {

using morvik_test::jsonObject;
using morvik_test::linesOf;
using morvik_test::ProcessResult;
using morvik_test::runEmu;

using EmuCliTest = morvik_test::CliFixture;

TEST_F(EmuCliTest, OptionsAreConventionalAndBadInputIsOneLineAndStatusTwo) {
  const std::string sample = watch("sample", "--sample");
  const struct {
    std::vector<std::string> args;
    std::string reason;
  } refused[] = {
      {{"--bogus"}, "morvik-emu: unknown option --bogus"},
      {{"show", sample, "--bogus"}, "morvik-emu: show: unknown option --bogus"},
      {{"log", sample, "--level=E", "--level", "W"}, "--level is given more than once"},
      {{"log", sample, "--run"}, "missing argument for --run"},
      {{"init", root_ + "/h", "--heavy=0"}, "--heavy needs N from 1 to 16, not '0'"},
      {{"init", root_ + "/h", "--sample", "--blank"}, "not both"},
      {{"init", sample, "--blank"}, "morvik-emu: '" + sample + "' already holds a watch"},
      {{"frobnicate"}, "unknown command 'frobnicate'"},
      {{"fault", sample, "cloud-fail=upload-later"}, "prepare, keys, upload, download, complete"},
      {{"fault", sample, "cloud-delay=soon"}, "milliseconds"},
      {{"diff", sample}, "morvik-emu: diff needs DIR1 and DIR2"},
      {{"diff", sample, root_ + "/nowhere"}, "nowhere/device.json"},
      // A parameter that looks like an option follows "--".
      {{"show", "--", "--help"}, "--help/device.json"},
  };
  for (const auto& c : refused) {
    ProcessResult run = runEmu(c.args);
    EXPECT_EQ(run.status, 2) << c.reason;
    EXPECT_EQ(linesOf(run.err).size(), 1u) << run.err;
    EXPECT_NE(run.err.find(c.reason), std::string::npos) << run.err;
    EXPECT_EQ(run.out, "");
  }
}

TEST_F(EmuCliTest, ShowSetsAndDiffSpeakJson) {
  const std::string sample = watch("sample", "--sample");
  const std::string blank = watch("blank", "--blank");
  ASSERT_EQ(runEmu({"fault", sample, "watchapp-late=300"}).status, 0);
  g_unlink((sample + "/apps/com.talvoro.watchface-service/data/backgrounds/bg-aurora.jpg").c_str());

  ProcessResult run = runEmu({"show", sample, "--json"});
  ASSERT_EQ(run.status, 0) << run.err;
  g_autoptr(JsonParser) shown = json_parser_new();
  JsonObject* watch = jsonObject(shown, run.out);
  ASSERT_NE(watch, nullptr);
  EXPECT_STREQ(json_object_get_string_member(watch, "idle_clock"), "com.talvoro.watchface");
  JsonArray* photos = json_object_get_array_member(watch, "photos");
  ASSERT_EQ(json_array_get_length(photos), 2u);
  EXPECT_TRUE(json_object_get_null_member(json_array_get_object_element(photos, 0), "file_bytes"));
  EXPECT_GT(json_object_get_int_member(json_array_get_object_element(photos, 1), "file_bytes"), 0);
  EXPECT_STREQ(json_object_get_string_member(json_object_get_object_member(watch, "faults"),
                                             "watchapp-late"),
               "300");

  run = runEmu({"diff", blank, sample, "--json"});
  EXPECT_EQ(run.status, 1);
  g_autoptr(JsonParser) diffed = json_parser_new();
  JsonObject* diff = jsonObject(diffed, run.out);
  ASSERT_NE(diff, nullptr);
  EXPECT_FALSE(json_object_get_boolean_member(diff, "same"));
  EXPECT_GT(json_array_get_length(json_object_get_array_member(diff, "differences")), 2u);

  const std::string document = file("doc.json", "{\"a\":1}");
  ASSERT_EQ(runEmu({"import", cloud_, document}).status, 0);
  ASSERT_EQ(runEmu({"import", cloud_, document}).status, 0);
  file("cloud/set-000002.dat", "TVRF");
  run = runEmu({"sets", "--json", cloud_});
  EXPECT_EQ(run.status, 1);
  g_autoptr(JsonParser) listed = json_parser_new();
  JsonObject* sets = jsonObject(listed, run.out);
  ASSERT_NE(sets, nullptr);
  JsonArray* list = json_object_get_array_member(sets, "sets");
  ASSERT_EQ(json_array_get_length(list), 2u);
  EXPECT_EQ(json_object_get_int_member(json_array_get_object_element(list, 0), "value_bytes"), 7);
  JsonObject* bad = json_array_get_object_element(list, 1);
  EXPECT_EQ(json_object_get_int_member(bad, "id"), 2);
  EXPECT_TRUE(json_object_has_member(bad, "error"));
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

  EXPECT_EQ(runEmu({"doctor", root_ + "/absent"}).status, 2);

  // A cloud: a document that is not strict JSON, an unreadable set, a writer's file left behind.
  ASSERT_EQ(g_mkdir(cloud_.c_str(), 0755), 0);
  EXPECT_EQ(runEmu({"doctor", cloud_}).out, "no findings: " + cloud_ + " is a cloud with 0 sets\n");
  emu::CloudStore store(cloud_);
  unsigned long long id = 0;
  for (const char* value : {"{\"a\":1}", "{'a':1}", "{}"}) {
    host::CloudRecord record;
    record.key = "key";
    record.value = std::string(value);
    ASSERT_TRUE(store.add({record}, id, error)) << error;
  }
  ASSERT_TRUE(g_file_set_contents(store.setPath(3).c_str(), "TVRF", 4, nullptr));
  const std::string left = cloud_ + "/.incoming-1-0x1.dat";
  ASSERT_TRUE(g_file_set_contents(left.c_str(), "", 0, nullptr));
  struct utimbuf old = {1000, 1000};
  ASSERT_EQ(utime(left.c_str(), &old), 0);
  run = runEmu({"doctor", cloud_});
  EXPECT_EQ(run.status, 1);
  const std::vector<std::string> lines = linesOf(run.out);
  ASSERT_EQ(lines.size(), 3u) << run.out;
  EXPECT_EQ(lines[0], "set 2: its document is not strict JSON: line 1, column 2: ''' is not JSON");
  EXPECT_EQ(lines[1].rfind("set 3 is unreadable: ", 0), 0u) << lines[1];
  EXPECT_EQ(lines[2].rfind("stale temporary file .incoming-1-0x1.dat (untouched for ", 0), 0u)
      << lines[2];
}

// Output that does not arrive is no success: every command that prints fails with status 3 on a
// full disk, and says why on one line.
TEST_F(EmuCliTest, AFailedWriteOfAnyOutputIsStatusThree) {
  const std::string sample = watch("sample", "--sample");
  ASSERT_EQ(runEmu({"import", cloud_, file("doc.json", "{\"a\":1}")}).status, 0);
  ASSERT_EQ(morvik_test::runProcess({MORVIK_SERVICE_BIN, "--device", sample, "--cloud", cloud_,
                                     "--operation", "backup"})
                .status,
            0);
  const std::vector<std::vector<std::string>> commands = {{"show", sample},
                                                          {"show", sample, "--json"},
                                                          {"diff", sample, sample},
                                                          {"diff", sample, sample, "--json"},
                                                          {"sets", cloud_},
                                                          {"sets", cloud_, "--json"},
                                                          {"export", cloud_},
                                                          {"export", cloud_, "--pretty"},
                                                          {"log", sample},
                                                          {"doctor", sample},
                                                          {"doctor", cloud_},
                                                          {"fault", sample, "list"},
                                                          {"init", root_ + "/new", "--blank"},
                                                          {"import", cloud_, root_ + "/doc.json"},
                                                          {"--help"},
                                                          {"show", "--help"},
                                                          {"--version"}};
  for (const std::vector<std::string>& command : commands) {
    std::vector<std::string> args = {"/bin/sh", "-c", "exec \"$0\" \"$@\" > /dev/full",
                                     MORVIK_EMU_BIN};
    args.insert(args.end(), command.begin(), command.end());
    const ProcessResult run = morvik_test::runProcess(args);
    EXPECT_EQ(run.status, 3) << command[0] << " " << command.back();
    EXPECT_EQ(run.err, "morvik-emu: cannot write the output: No space left on device\n")
        << command[0];
  }
}

}  // namespace
