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
#include "ProcessRun.h"
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

// A Latin-1 photo name (a supported case) in what the run reports: shown as \xE9, its bytes in
// "item_base64".
TEST_F(EdgeCliTest, NamesThatAreNotUtf8LeaveTheJsonResultValid) {
  const std::string device = watch("latin1", "--sample");
  renamePhoto(device, 0, "caf\xE9.jpg");
  ASSERT_EQ(runEmu({"fault", device, "image-unreadable"}).status, 0);
  const ProcessResult run = service(device, {"--operation", "backup", "--json", "-"});
  EXPECT_EQ(run.status, 4) << run.err;
  ASSERT_TRUE(g_utf8_validate(run.out.data(), static_cast<gssize>(run.out.size()), nullptr));
  g_autoptr(JsonParser) parser = json_parser_new();
  JsonObject* result = morvik_test::jsonObject(parser, run.out);
  ASSERT_NE(result, nullptr);
  JsonObject* left =
      json_array_get_object_element(json_object_get_array_member(result, "left_out"), 0);
  EXPECT_STREQ(json_object_get_string_member(left, "item"), "photo caf\\xE9.jpg");
  g_autofree char* exact =
      g_base64_encode(reinterpret_cast<const guchar*>("photo caf\xE9.jpg"), 14);
  EXPECT_STREQ(json_object_get_string_member(left, "item_base64"), exact);
  EXPECT_TRUE(hasLine(run.out, "left out photo caf\\\\xE9.jpg")) << run.out;
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
