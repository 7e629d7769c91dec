// The edges of a run as a user meets them: signals, outputs nobody can take, arguments in any
// locale, names that are not UTF-8, a kill before the watch is saved, linked directories and
// names as long as the file system allows.
#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <json-glib/json-glib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "MvHandles.h"
#include "MvText.h"
#include "ProcessRun.h"
#include "emu/CloudStore.h"
#include "emu/DeviceProfile.h"

namespace {

using morvik_test::hasLine;
using morvik_test::ProcessResult;
using morvik_test::runEmu;
using morvik_test::runProcess;

class EdgeCliTest : public morvik_test::CliFixture {
 protected:
  // Runs `script` under sh with $0 the service, $1 `device` and $2 the cloud.
  ProcessResult shell(const std::string& script, const std::string& device) {
    return runProcess({"/bin/sh", "-c", script, MORVIK_SERVICE_BIN, device, cloud_});
  }

  // Gives photo `index` of the watch `device` a new name, on disk and in its profile.
  void renamePhoto(const std::string& device, size_t index, const std::string& name) {
    emu::DeviceProfile profile;
    std::string error;
    ASSERT_TRUE(profile.load(device, error)) << error;
    emu::BackgroundImage& image = profile.images.at(index);
    g_autofree char* dir = g_path_get_dirname(image.path.c_str());
    const std::string path = std::string(dir) + "/" + name;
    ASSERT_EQ(g_rename((device + "/" + image.path).c_str(), (device + "/" + path).c_str()), 0);
    image.fileName = name;
    image.path = path;
    ASSERT_TRUE(profile.save(device, error)) << error;
  }

  // The service with its standard output on a pipe whose reader has already gone.
  int serviceIntoClosedPipe(const std::string& device, std::string& err) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    MvFd reader(ends[0]);
    MvFd out(ends[1]);
    reader.reset();
    const std::string errPath = root_ + "/closed-pipe.err";
    const pid_t child = fork();
    if (child == 0) {
      dup2(out.get(), STDOUT_FILENO);
      freopen(errPath.c_str(), "w", stderr);
      execl(MORVIK_SERVICE_BIN, MORVIK_SERVICE_BIN, "--device", device.c_str(), "--cloud",
            cloud_.c_str(), "--operation", "info", static_cast<char*>(nullptr));
      _exit(127);
    }
    out.reset();
    int status = 0;
    waitpid(child, &status, 0);
    g_autofree char* text = nullptr;
    g_file_get_contents(errPath.c_str(), &text, nullptr, nullptr);
    err = text ? text : "";
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
};

// Each ends the run as SIGINT does, the summary naming it; SIGPIPE too when another process
// sends it.
TEST_F(EdgeCliTest, EverySignalThatWouldEndTheProcessEndsTheRunByName) {
  const std::string device = watch("waiting", "--sample");
  ASSERT_EQ(runEmu({"fault", device, "watchface-silent"}).status, 0);
  const std::pair<const char*, int> signals[] = {{"HUP", 129},  {"QUIT", 131}, {"USR1", 138},
                                                 {"PIPE", 141}, {"ALRM", 142}, {"TERM", 143}};
  for (const auto& signal : signals) {
    SCOPED_TRACE(signal.first);
    const ProcessResult run =
        shell(std::string("rm -f \"$1/log/dlog.log\"; \"$0\" --device \"$1\" --cloud \"$2\" "
                          "--operation backup --deadline 60 & pid=$!; "
                          "until grep -q 'left unanswered' \"$1/log/dlog.log\" 2>/dev/null; do "
                          "sleep 0.05; done; kill -s ") +
                  signal.first + " $pid; wait $pid",
              device);
    EXPECT_EQ(run.status, signal.second) << run.err;
    EXPECT_TRUE(hasLine(run.out, std::string("interrupted by SIG") + signal.first)) << run.out;
  }
}

TEST_F(EdgeCliTest, AResultThatCannotBeWrittenWholeIsAnErrorOfItsOwn) {
  const std::string device = watch("sample", "--sample");
  ASSERT_EQ(g_mkdir_with_parents(cloud_.c_str(), 0755), 0);
  const struct {
    const char* redirection;
    const char* line;
  } cases[] = {
      {" > /dev/full", "cannot write the summary: No space left on device"},
      {" --json - > /dev/full", "cannot write the JSON result: No space left on device"},
      {" --json \"$2/absent/result.json\"", "cannot write the JSON result"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.redirection);
    const ProcessResult run =
        shell(std::string("\"$0\" --device \"$1\" --cloud \"$2\" --operation info") + c.redirection,
              device);
    EXPECT_EQ(run.status, 5);
    EXPECT_TRUE(hasLine(run.err, c.line)) << run.err;
  }
  std::string err;
  EXPECT_EQ(serviceIntoClosedPipe(device, err), 5);
  EXPECT_TRUE(hasLine(err, "cannot write the summary: Broken pipe")) << err;
}

TEST_F(EdgeCliTest, ArgumentsAreUtf8UnderAnyLocaleAndOtherBytesAreRefusedWhereTheyStand) {
  for (const char* locale : {"C", "C.UTF-8"}) {
    SCOPED_TRACE(locale);
    const std::string device = root_ + "/café-" + locale;
    const std::string env = std::string("LC_ALL=") + locale;
    EXPECT_EQ(runProcess({"/usr/bin/env", env, MORVIK_EMU_BIN, "init", device, "--sample"}).status,
              0);
    EXPECT_EQ(runProcess({"/usr/bin/env", env, MORVIK_SERVICE_BIN, "--device", device, "--cloud",
                          cloud_ + "-é", "--operation", "backup"})
                  .status,
              0);
  }
  const std::string latin1 = root_ + "/caf\xE9";
  const std::string where = "('" + root_ + "/caf\\xE9') is not UTF-8: byte " +
                            std::to_string(latin1.size()) + " is \\xE9";
  const ProcessResult init = runEmu({"init", latin1, "--sample"});
  EXPECT_EQ(init.status, 2);
  EXPECT_EQ(init.err, "morvik-emu: argument 2 " + where + "\n");
  const ProcessResult run = service(latin1, {"--operation", "backup"});
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err, "morvik-service: argument 2 " + where + "\n");
  EXPECT_FALSE(g_file_test(latin1.c_str(), G_FILE_TEST_EXISTS));
}

// Whether every string of `node` that carries its exact bytes beside it follows the text rule
// (MvText.h): shown with \xHH for each byte that is not UTF-8, the bytes in "<member>_base64",
// for a string, a map of strings and an array. Counts the strings that carried bytes.
void expectTextRule(JsonNode* node, const std::string& where, size_t& carried) {
  auto exact = [](JsonNode* base64) {
    gsize length = 0;
    g_autofree guchar* bytes = g_base64_decode(json_node_get_string(base64), &length);
    return std::string(reinterpret_cast<char*>(bytes), length);
  };
  auto expectShown = [&](JsonNode* shown, JsonNode* base64, const std::string& what) {
    ASSERT_TRUE(JSON_NODE_HOLDS_VALUE(shown)) << what;
    const std::string bytes = exact(base64);
    EXPECT_FALSE(g_utf8_validate(bytes.data(), static_cast<gssize>(bytes.size()), nullptr)) << what;
    EXPECT_EQ(json_node_get_string(shown), mvShownText(bytes)) << what;
    ++carried;
  };
  if (JSON_NODE_HOLDS_ARRAY(node)) {
    JsonArray* array = json_node_get_array(node);
    for (guint i = 0; i < json_array_get_length(array); ++i)
      expectTextRule(json_array_get_element(array, i), where, carried);
    return;
  }
  if (!JSON_NODE_HOLDS_OBJECT(node)) {
    if (JSON_NODE_HOLDS_VALUE(node) && json_node_get_value_type(node) == G_TYPE_STRING) {
      EXPECT_EQ(std::string(json_node_get_string(node)).find("\uFFFD"), std::string::npos) << where;
    }
    return;
  }
  JsonObject* object = json_node_get_object(node);
  g_autoptr(GList) names = json_object_get_members(object);
  for (GList* name = names; name; name = name->next) {
    const std::string member = static_cast<const char*>(name->data);
    JsonNode* value = json_object_get_member(object, member.c_str());
    JsonNode* base64 = json_object_get_member(object, (member + "_base64").c_str());
    const std::string what = where + ": " + member;
    if (base64 && JSON_NODE_HOLDS_VALUE(base64)) {
      expectShown(value, base64, what);
    } else if (JSON_NODE_HOLDS_VALUE(value) && json_node_get_value_type(value) == G_TYPE_STRING) {
      EXPECT_EQ(std::string(json_node_get_string(value)).find("\\xE9"), std::string::npos)
          << what << ": bytes shown, but not carried";
    } else if (base64 && JSON_NODE_HOLDS_OBJECT(base64)) {
      JsonObject* values = json_node_get_object(base64);
      g_autoptr(GList) keys = json_object_get_members(values);
      for (GList* key = keys; key; key = key->next) {
        const char* k = static_cast<const char*>(key->data);
        expectShown(json_object_get_member(json_node_get_object(value), k),
                    json_object_get_member(values, k), what + "." + k);
      }
    } else if (base64 && JSON_NODE_HOLDS_ARRAY(base64)) {
      JsonArray* values = json_node_get_array(base64);
      ASSERT_EQ(json_array_get_length(values), json_array_get_length(json_node_get_array(value)));
      for (guint i = 0; i < json_array_get_length(values); ++i) {
        if (!JSON_NODE_HOLDS_NULL(json_array_get_element(values, i)))
          expectShown(json_array_get_element(json_node_get_array(value), i),
                      json_array_get_element(values, i), what + "[" + std::to_string(i) + "]");
      }
    }
    // A map's values carry their bytes in the map beside it.
    if (!(base64 && JSON_NODE_HOLDS_OBJECT(base64)))
      expectTextRule(value, what, carried);
  }
}

// Names, settings and a date in Latin-1, as a watch and a cloud may hold them: every output of
// both programs is UTF-8 and follows the one text rule; each JSON output carries the bytes.
TEST_F(EdgeCliTest, EveryOutputFollowsTheTextRule) {
  const std::string latin = "caf\xE9";
  const std::string shown = "caf\\xE9";
  const std::string one = watch("latin1", "--sample");
  const std::string two = watch("two", "--sample");
  renamePhoto(one, 0, latin + ".jpg");
  emu::DeviceProfile profile;
  std::string error;
  ASSERT_TRUE(profile.load(one, error)) << error;
  profile.faces[0].settings += "\n" + latin;
  profile.config["db/" + latin] = latin;
  profile.faults["image-unreadable"] = "on";
  ASSERT_TRUE(profile.save(one, error)) << error;
  host::CloudRecord record;
  record.key = "key";
  record.date = latin;
  record.value = std::string("{}");
  ASSERT_EQ(g_mkdir(cloud_.c_str(), 0755), 0);
  unsigned long long id = 0;
  ASSERT_TRUE(emu::CloudStore(cloud_).add({record}, id, error)) << error;

  const std::string result = root_ + "/result.json";
  const std::string trace = root_ + "/trace.json";
  const ProcessResult run =
      service(one, {"--operation", "backup", "--json", result, "--trace", trace});
  EXPECT_EQ(run.status, 4) << run.err;
  auto contents = [](const std::string& path) {
    g_autofree char* text = nullptr;
    gsize length = 0;
    EXPECT_TRUE(g_file_get_contents(path.c_str(), &text, &length, nullptr)) << path;
    return std::string(text ? text : "", length);
  };
  const std::vector<std::pair<std::string, std::string>> jsonOutputs = {
      {"--json", contents(result)},
      {"--trace", contents(trace)},
      {"device.json", contents(one + "/device.json")},
      {"show --json", runEmu({"show", one, "--json"}).out},
      {"sets --json", runEmu({"sets", cloud_, "--json"}).out},
      {"diff --json", runEmu({"diff", one, two, "--json"}).out},
  };
  for (const auto& output : jsonOutputs) {
    SCOPED_TRACE(output.first);
    ASSERT_TRUE(
        g_utf8_validate(output.second.data(), static_cast<gssize>(output.second.size()), nullptr));
    // JSON writes the backslash of \xE9 escaped.
    EXPECT_NE(output.second.find("caf\\\\xE9"), std::string::npos);
    g_autoptr(JsonParser) parser = json_parser_new();
    ASSERT_NE(morvik_test::jsonObject(parser, output.second), nullptr);
    size_t carried = 0;
    expectTextRule(json_parser_get_root(parser), output.first, carried);
    EXPECT_GT(carried, 0u);
  }
  const std::vector<std::pair<std::string, std::string>> textOutputs = {
      {"summary", run.out},
      {"show", runEmu({"show", one}).out},
      {"sets", runEmu({"sets", cloud_}).out},
      {"diff", runEmu({"diff", one, two}).out},
  };
  for (const auto& output : textOutputs) {
    SCOPED_TRACE(output.first);
    EXPECT_TRUE(
        g_utf8_validate(output.second.data(), static_cast<gssize>(output.second.size()), nullptr));
    EXPECT_NE(output.second.find(shown), std::string::npos) << output.second;
  }
  EXPECT_TRUE(hasLine(run.out, "left out photo " + shown + ".jpg")) << run.out;
}

// Killed after the watch took the restore in and before it was saved: the journal keeps it, so
// that the watch shows the whole restore, doctor says what happened, and the next run saves it.
TEST_F(EdgeCliTest, ARestoreKilledBeforeTheWatchIsSavedLosesNothing) {
  const std::string sample = watch("sample", "--sample");
  ASSERT_EQ(service(sample, {"--operation", "backup"}).status, 0);
  const std::string blank = watch("blank", "--blank");
  // The cloud's last step waits: the run is killed in that pause.
  ASSERT_EQ(runEmu({"fault", blank, "cloud-delay=800"}).status, 0);
  const ProcessResult killed = shell(
      "\"$0\" --device \"$1\" --cloud \"$2\" --operation restore & pid=$!; "
      "until grep -q 'idle clock set to' \"$1/log/dlog.log\" 2>/dev/null; do sleep 0.05; done; "
      "kill -9 $pid; wait $pid",
      blank);
  ASSERT_EQ(killed.status, 137) << killed.err;
  EXPECT_EQ(runEmu({"diff", sample, blank}).out, "same setup\n");
  ProcessResult doctor = runEmu({"doctor", blank});
  EXPECT_TRUE(hasLine(doctor.out,
                      "interrupted run: it applied 2 configuration values, 2 apps, "
                      "3 settings documents of faces, 2 photos"))
      << doctor.out;

  // Any save of the watch takes the journal in: here the next change of its switches.
  ASSERT_EQ(runEmu({"fault", blank, "clear"}).status, 0);
  doctor = runEmu({"doctor", blank});
  EXPECT_EQ(doctor.status, 0) << doctor.out;
  EXPECT_EQ(runEmu({"diff", sample, blank}).out, "same setup\n");
}

TEST_F(EdgeCliTest, ADirectoryOfTheWatchThatIsALinkIsNeverWrittenThrough) {
  ASSERT_EQ(service(watch("sample", "--sample"), {"--operation", "backup"}).status, 0);
  const char* const linked[] = {"apps/com.talvoro.watchface-service/data/backgrounds",
                                "apps/com.talvoro.morvik.service/shared/trusted"};
  for (const char* relative : linked) {
    SCOPED_TRACE(relative);
    const std::string name = std::to_string(reinterpret_cast<uintptr_t>(relative) % 1000);
    const std::string blank = watch("blank" + name, "--blank");
    const std::string outside = root_ + "/outside" + name;
    const std::string link = blank + "/" + relative;
    g_autofree char* parent = g_path_get_dirname(link.c_str());
    ASSERT_EQ(g_mkdir_with_parents(outside.c_str(), 0755), 0);
    ASSERT_EQ(g_mkdir_with_parents(parent, 0755), 0);
    g_rmdir(link.c_str());
    ASSERT_EQ(symlink(outside.c_str(), link.c_str()), 0);
    const ProcessResult restore = service(blank, {"--operation", "restore"});
    EXPECT_EQ(restore.status, 4) << restore.out;
    EXPECT_TRUE(hasLine(restore.err, std::string(relative) + " in " + blank + " is a link"))
        << restore.err;
    g_autoptr(GDir) dir = g_dir_open(outside.c_str(), 0, nullptr);
    EXPECT_EQ(g_dir_read_name(dir), nullptr);
    const ProcessResult doctor = runEmu({"doctor", blank});
    EXPECT_TRUE(hasLine(doctor.out, std::string("directory ") + relative + " is a link to "))
        << doctor.out;
  }
}

// 255 bytes: the most a name can hold; the restore's own temporary names must not add to it.
TEST_F(EdgeCliTest, APhotoNamedAsLongAsTheFileSystemAllowsComesBack) {
  const std::string sample = watch("sample", "--sample");
  renamePhoto(sample, 0, std::string(251, 'p') + ".jpg");
  ASSERT_EQ(service(sample, {"--operation", "backup"}).status, 0);
  const std::string blank = watch("blank", "--blank");
  const ProcessResult restore = service(blank, {"--operation", "restore"});
  EXPECT_EQ(restore.status, 0) << restore.out;
  EXPECT_EQ(runEmu({"diff", sample, blank}).out, "same setup\n");
}

}  // namespace
