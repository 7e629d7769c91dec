#include "Explorer.h"

#include <fcntl.h>
#include <glib.h>
#include <glib/gstdio.h>
#include <json-glib/json-glib.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <set>

#include "emu/DeviceProfile.h"
#include "emu/SampleWatch.h"
#include "emu/WatchDiff.h"

namespace explore {

namespace {

const char* const kServiceOut = "service.out";
const char* const kServiceErr = "service.err";
const int kRunLimitSeconds = 60;

const char* const kSanitizerMarks[] = {"AddressSanitizer", "LeakSanitizer",
                                       "runtime error:", "UndefinedBehaviorSanitizer"};

std::string path(const std::string& dir, const std::string& name) {
  g_autofree char* joined = g_build_filename(dir.c_str(), name.c_str(), nullptr);
  return joined;
}

bool copyFile(const std::string& from, const std::string& to, std::string& error) {
  g_autofree char* bytes = nullptr;
  gsize length = 0;
  g_autoptr(GError) failure = nullptr;
  if (!g_file_get_contents(from.c_str(), &bytes, &length, &failure) ||
      !g_file_set_contents(to.c_str(), bytes, static_cast<gssize>(length), &failure)) {
    error = failure->message;
    return false;
  }
  return true;
}

void removeTree(const std::string& dir) {
  g_autoptr(GDir) listing = g_dir_open(dir.c_str(), 0, nullptr);
  if (listing) {
    while (const char* name = g_dir_read_name(listing)) {
      const std::string child = path(dir, name);
      if (g_file_test(child.c_str(), G_FILE_TEST_IS_DIR) &&
          !g_file_test(child.c_str(), G_FILE_TEST_IS_SYMLINK))
        removeTree(child);
      else
        g_unlink(child.c_str());
    }
  }
  g_rmdir(dir.c_str());
}

// Names a crashed or careless writer leaves behind: ".incoming-*", "*.XXXXXX" beside a file.
bool isTemporary(const std::string& name) {
  if (name.rfind(".incoming-", 0) == 0)
    return true;
  const size_t dot = name.rfind('.');
  if (dot == std::string::npos || name.size() - dot != 7)
    return false;
  const std::string base = name.substr(0, dot);
  return base == "device.json" || base == "backup.dat" || base == "restore.dat" ||
         base.rfind("set-", 0) == 0;
}

void findTemporaries(const std::string& dir, std::vector<std::string>& found) {
  g_autoptr(GDir) listing = g_dir_open(dir.c_str(), 0, nullptr);
  if (!listing)
    return;
  while (const char* name = g_dir_read_name(listing)) {
    const std::string child = path(dir, name);
    if (g_file_test(child.c_str(), G_FILE_TEST_IS_DIR) &&
        !g_file_test(child.c_str(), G_FILE_TEST_IS_SYMLINK))
      findTemporaries(child, found);
    else if (isTemporary(name))
      found.push_back(child);
  }
}

std::set<std::string> entriesOf(const std::string& dir) {
  std::set<std::string> names;
  g_autoptr(GDir) listing = g_dir_open(dir.c_str(), 0, nullptr);
  while (const char* name = listing ? g_dir_read_name(listing) : nullptr)
    names.insert(name);
  return names;
}

std::string member(JsonObject* object, const char* name) {
  JsonNode* node = object ? json_object_get_member(object, name) : nullptr;
  if (!node || !JSON_NODE_HOLDS_VALUE(node) || json_node_get_value_type(node) != G_TYPE_STRING)
    return std::string();
  return json_node_get_string(node);
}

gint64 integer(JsonObject* object, const char* name, gint64 fallback = -1) {
  JsonNode* node = object ? json_object_get_member(object, name) : nullptr;
  if (!node || !JSON_NODE_HOLDS_VALUE(node) || json_node_get_value_type(node) != G_TYPE_INT64)
    return fallback;
  return json_node_get_int(node);
}

JsonArray* array(JsonObject* object, const char* name) {
  JsonNode* node = object ? json_object_get_member(object, name) : nullptr;
  return node && JSON_NODE_HOLDS_ARRAY(node) ? json_node_get_array(node) : nullptr;
}

template <typename Each>
void forEachObject(JsonArray* list, Each each) {
  for (guint i = 0; list && i < json_array_get_length(list); ++i) {
    JsonNode* element = json_array_get_element(list, i);
    if (JSON_NODE_HOLDS_OBJECT(element))
      each(json_node_get_object(element));
  }
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  gchar** split = g_strsplit(text.c_str(), "\n", -1);
  for (gchar** line = split; *line; ++line)
    lines.push_back(*line);
  g_strfreev(split);
  return lines;
}

bool hasLineStarting(const std::string& text, const std::string& start) {
  for (const std::string& line : linesOf(text)) {
    if (line.rfind(start, 0) == 0)
      return true;
  }
  return false;
}

// The status that a result must carry: how the run ended, and whether anything failed.
int expectedStatus(JsonObject* result) {
  JsonNode* endedNode = json_object_get_member(result, "ended");
  JsonObject* ended =
      endedNode && JSON_NODE_HOLDS_OBJECT(endedNode) ? json_node_get_object(endedNode) : nullptr;
  const std::string by = member(ended, "by");
  if (by == "deadline")
    return 3;
  if (by != "service")
    return -1;
  JsonArray* failures = array(result, "failures");
  return failures && json_array_get_length(failures) > 0 ? 4 : 0;
}

// The run's order of events, checked for what must hold in any schedule.
void checkEvents(JsonObject* result, std::vector<std::string>& violations) {
  JsonNode* scheduleNode = json_object_get_member(result, "schedule");
  JsonObject* schedule = scheduleNode && JSON_NODE_HOLDS_OBJECT(scheduleNode)
                             ? json_node_get_object(scheduleNode)
                             : nullptr;
  JsonArray* events = array(schedule, "events");
  if (!events) {
    violations.push_back("the result has no events");
    return;
  }
  std::map<gint64, int> replies;
  std::map<std::string, int> completions;
  int transfersOpen = 0;
  forEachObject(events, [&](JsonObject* event) {
    const std::string kind = member(event, "kind");
    const std::string name = member(event, "name");
    if (kind == "reply-to-launcher" && ++replies[integer(event, "launch")] == 2)
      violations.push_back("launch request " + std::to_string(integer(event, "launch")) +
                           " was answered twice");
    if (kind == "cloud-callback" && (name == "backup completed" || name == "restore completed"))
      ++completions[name];
    if (kind == "message-sent") {
      const std::string message = member(event, "message");
      if (message == "restore_start" && transfersOpen++ != 0)
        violations.push_back("a transfer began before the last one had finished");
      if (message == "restore_finished" && --transfersOpen != 0)
        violations.push_back("a transfer finished that had not begun");
    }
  });
  if (transfersOpen != 0)
    violations.push_back("a transfer never finished");
  // Each exchange that ran to an end is completed exactly once.
  std::map<std::string, int> ended;
  forEachObject(array(result, "exchanges"), [&](JsonObject* exchange) {
    const std::string outcome = member(exchange, "outcome");
    if (outcome == "succeeded" || outcome == "failed")
      ++ended[member(exchange, "type") == "restore" ? "restore completed" : "backup completed"];
  });
  for (const char* name : {"backup completed", "restore completed"}) {
    if (completions[name] != ended[name])
      violations.push_back(std::string("\"") + name + "\" came " +
                           std::to_string(completions[name]) + " times for " +
                           std::to_string(ended[name]) + " finished exchanges");
  }
}

}  // namespace

struct Explorer::Paths {
  std::string root;     // the run's own directory
  std::string device;   // the watch
  std::string cloud;    // the cloud
  std::string scratch;  // HOME and TMPDIR of the service: must stay empty
};

Explorer::Explorer(std::string serviceBinary, std::string workDir, bool keepRuns)
    : serviceBinary_(std::move(serviceBinary)), workDir_(std::move(workDir)), keepRuns_(keepRuns) {}

bool Explorer::prepare(std::string& error) {
  const std::string golden = path(workDir_, "golden");
  removeTree(golden);
  if (g_mkdir_with_parents(golden.c_str(), 0755) != 0) {
    error = "cannot make " + golden;
    return false;
  }
  const std::string watch = path(golden, "sample");
  const std::string cloud = path(golden, "cloud");
  if (!emu::createSampleWatch(watch, error))
    return false;
  Paths paths{golden, watch, cloud, path(golden, "scratch")};
  g_mkdir_with_parents(paths.scratch.c_str(), 0755);
  int status = -1;
  std::string out, err;
  if (!runService(paths, watch, cloud, path(golden, "result.json"), {"--operation", "backup"}, 0,
                  status, out, err, error))
    return false;
  if (status != 0) {
    error = "the clean backup of the sample watch ended with status " + std::to_string(status);
    return false;
  }
  goldenSet_ = path(cloud, "set-000001.dat");
  if (!g_file_test(goldenSet_.c_str(), G_FILE_TEST_IS_REGULAR)) {
    error = "the clean backup stored no set";
    return false;
  }
  return true;
}

bool Explorer::runService(const Paths& paths,
                          const std::string& device,
                          const std::string& cloud,
                          const std::string& json,
                          const std::vector<std::string>& launch,
                          uint64_t seed,
                          int& status,
                          std::string& out,
                          std::string& err,
                          std::string& error) const {
  std::vector<std::string> args{serviceBinary_, "--device",   device,
                                "--cloud",      cloud,        "--json",
                                json,           "--schedule", std::to_string(seed)};
  args.insert(args.end(), launch.begin(), launch.end());
  std::vector<char*> argv;
  for (std::string& arg : args)
    argv.push_back(&arg[0]);
  argv.push_back(nullptr);
  gchar** env = g_get_environ();
  env = g_environ_setenv(env, "HOME", paths.scratch.c_str(), TRUE);
  env = g_environ_setenv(env, "TMPDIR", paths.scratch.c_str(), TRUE);
  // The run's output goes to files of the explorer's own, beside the watch and the cloud.
  const std::string outPath = path(paths.root, kServiceOut);
  const std::string errPath = path(paths.root, kServiceErr);
  const int outFd = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  const int errFd = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  GPid pid = 0;
  g_autoptr(GError) failure = nullptr;
  const bool spawned =
      outFd >= 0 && errFd >= 0 &&
      g_spawn_async_with_fds(paths.root.c_str(), argv.data(), env, G_SPAWN_DO_NOT_REAP_CHILD,
                             nullptr, nullptr, &pid, -1, outFd, errFd, &failure);
  g_strfreev(env);
  if (outFd >= 0)
    close(outFd);
  if (errFd >= 0)
    close(errFd);
  if (!spawned) {
    error = failure ? failure->message : "cannot open the run's output files";
    return false;
  }
  // A run on the simulated clock takes well under a second; one that takes minutes is stuck.
  const gint64 giveUp = g_get_monotonic_time() + kRunLimitSeconds * G_USEC_PER_SEC;
  int wait = 0;
  while (waitpid(pid, &wait, WNOHANG) == 0) {
    if (g_get_monotonic_time() > giveUp) {
      kill(pid, SIGKILL);
      waitpid(pid, &wait, 0);
      break;
    }
    g_usleep(2000);
  }
  g_spawn_close_pid(pid);
  g_autofree char* stdoutText = nullptr;
  g_autofree char* stderrText = nullptr;
  g_file_get_contents(outPath.c_str(), &stdoutText, nullptr, nullptr);
  g_file_get_contents(errPath.c_str(), &stderrText, nullptr, nullptr);
  out = stdoutText ? stdoutText : "";
  err = stderrText ? stderrText : "";
  status = WIFEXITED(wait) ? WEXITSTATUS(wait) : 1000 + WTERMSIG(wait);
  return true;
}

RunVerdict Explorer::run(const Scenario& scenario) const {
  RunVerdict verdict;
  verdict.scenario = scenario;
  std::vector<std::string>& violations = verdict.violations;
  // Short: the watch's paths must fit its buffers.
  const std::string tag =
      scenario.name.empty()
          ? "seed-" + std::to_string(scenario.seed)
          : "case-" + std::to_string(std::hash<std::string>()(scenario.name) % 1000000);
  Paths paths;
  paths.root = path(workDir_, tag);
  paths.device = path(paths.root, "watch");
  paths.cloud = path(paths.root, "cloud");
  paths.scratch = path(paths.root, "scratch");
  removeTree(paths.root);
  std::string error;
  const bool made = g_mkdir_with_parents(paths.cloud.c_str(), 0755) == 0 &&
                    g_mkdir_with_parents(paths.scratch.c_str(), 0755) == 0 &&
                    (scenario.sampleWatch ? emu::createSampleWatch(paths.device, error)
                                          : emu::createBlankWatch(paths.device, error));
  emu::DeviceProfile profile;
  if (!made || !profile.load(paths.device, error) ||
      (scenario.seededCloud && !copyFile(goldenSet_, path(paths.cloud, "set-000001.dat"), error))) {
    violations.push_back("cannot prepare the run: " + error);
    return verdict;
  }
  profile.faults = scenario.faults;
  if (!profile.save(paths.device, error)) {
    violations.push_back("cannot set the faults: " + error);
    return verdict;
  }
  const std::set<std::string> before = entriesOf(paths.root);

  const std::string json = path(paths.root, "result.json");
  std::string out, err;
  if (!runService(paths, paths.device, paths.cloud, json, scenario.launchArguments(), scenario.seed,
                  verdict.status, out, err, error)) {
    violations.push_back("cannot run the service: " + error);
    return verdict;
  }

  // No crash, no sanitizer report.
  if (verdict.status == 1000 + SIGKILL)
    violations.push_back("the service was still running after " + std::to_string(kRunLimitSeconds) +
                         " s and was killed");
  else if (verdict.status >= 1000)
    violations.push_back("the service died of signal " + std::to_string(verdict.status - 1000));
  for (const char* mark : kSanitizerMarks) {
    if (err.find(mark) != std::string::npos)
      violations.push_back(std::string("the sanitizers reported: ") + mark);
  }

  // The result, the summary and the exit status agree.
  g_autoptr(JsonParser) parser = json_parser_new();
  g_autoptr(GError) failure = nullptr;
  JsonObject* result = nullptr;
  if (!json_parser_load_from_file(parser, json.c_str(), &failure)) {
    violations.push_back(std::string("no JSON result: ") + failure->message);
  } else if (JsonNode* root = json_parser_get_root(parser); JSON_NODE_HOLDS_OBJECT(root)) {
    result = json_node_get_object(root);
  }
  if (result) {
    const gint64 status = integer(result, "status");
    if (status != verdict.status)
      violations.push_back("exit status " + std::to_string(verdict.status) + ", result status " +
                           std::to_string(status));
    const int expected = expectedStatus(result);
    if (expected != status)
      violations.push_back("the result's status " + std::to_string(status) +
                           " does not follow from its end and failures (" +
                           std::to_string(expected) + ")");
    if (!hasLineStarting(out, "status    " + std::to_string(verdict.status)))
      violations.push_back("the summary does not give the exit status");
    forEachObject(array(result, "exchanges"), [&](JsonObject* exchange) {
      const std::string line = "cloud     request " + std::to_string(integer(exchange, "request")) +
                               ", " + member(exchange, "type") + ": ";
      if (!hasLineStarting(out, line))
        violations.push_back("the summary has no line for " + line);
    });
    checkEvents(result, violations);
  }

  // The watch is still readable, nothing was written beside the watch and the cloud, and no
  // writer left a temporary file.
  emu::DeviceProfile after;
  if (!after.load(paths.device, error))
    violations.push_back("device.json no longer loads: " + error);
  std::set<std::string> now = entriesOf(paths.root);
  now.erase("result.json");
  now.erase(kServiceOut);
  now.erase(kServiceErr);
  for (const std::string& name : now) {
    if (!before.count(name))
      violations.push_back("the run wrote " + path(paths.root, name));
  }
  if (!entriesOf(paths.scratch).empty())
    violations.push_back("the run wrote into its HOME or TMPDIR");
  std::vector<std::string> temporaries;
  findTemporaries(paths.device, temporaries);
  findTemporaries(paths.cloud, temporaries);
  for (const std::string& temporary : temporaries)
    violations.push_back("a temporary file was left behind: " + temporary);

  // Every stored set restores the watch it came from, but for what the run named.
  if (result) {
    std::map<gint64, std::vector<std::string>> leftOut;
    forEachObject(array(result, "left_out"), [&](JsonObject* finding) {
      leftOut[integer(finding, "set")].push_back(member(finding, "item"));
    });
    forEachObject(array(result, "exchanges"), [&](JsonObject* exchange) {
      if (member(exchange, "type") == "backup" && member(exchange, "outcome") == "succeeded")
        checkStoredSet(scenario, paths, static_cast<unsigned long long>(integer(exchange, "set")),
                       leftOut[integer(exchange, "set")], violations);
    });
  }
  if (violations.empty() && !keepRuns_)
    removeTree(paths.root);
  return verdict;
}

void Explorer::removeWorkDir() const {
  removeTree(workDir_);
}

void Explorer::checkStoredSet(const Scenario& scenario,
                              const Paths& paths,
                              unsigned long long set,
                              const std::vector<std::string>& leftOut,
                              std::vector<std::string>& violations) const {
  const std::string where = "set " + std::to_string(set) + ": ";
  const std::string check = path(paths.root, "check-" + std::to_string(set));
  const std::string reference = path(check, "reference");
  const std::string blank = path(check, "blank");
  const std::string cloud = path(check, "cloud");
  std::string error;
  g_autofree char* setName = g_strdup_printf("set-%06llu.dat", set);
  if (g_mkdir_with_parents(cloud.c_str(), 0755) != 0 ||
      !copyFile(path(paths.cloud, setName), path(cloud, "set-000001.dat"), error) ||
      !emu::createBlankWatch(blank, error) ||
      !(scenario.sampleWatch ? emu::createSampleWatch(reference, error)
                             : emu::createBlankWatch(reference, error))) {
    violations.push_back(where + "cannot prepare its restore: " + error);
    return;
  }
  Paths checkPaths{check, blank, cloud, paths.scratch};
  int status = -1;
  std::string out, err;
  if (!runService(checkPaths, blank, cloud, path(check, "result.json"), {"--operation", "restore"},
                  scenario.seed, status, out, err, error)) {
    violations.push_back(where + "cannot restore it: " + error);
    return;
  }
  if (status != 0) {
    violations.push_back(where + "its restore onto a blank watch ended with status " +
                         std::to_string(status));
    return;
  }
  // A restore in the same run may have changed an item before the collection read it: the set
  // then holds the watch as it stood mid-run, so an item the run itself changed may differ.
  std::vector<std::string> differences, changedByRun;
  if (!emu::diffWatches(reference, blank, differences, error) ||
      !emu::diffWatches(reference, paths.device, changedByRun, error)) {
    violations.push_back(where + error);
    return;
  }
  auto itemOf = [](const std::string& difference) {
    return difference.substr(0, difference.find(':'));
  };
  std::set<std::string> explained(leftOut.begin(), leftOut.end());
  for (const std::string& change : changedByRun)
    explained.insert(itemOf(change));
  for (const std::string& difference : differences) {
    if (!explained.count(itemOf(difference)))
      violations.push_back(where +
                           "restored, it differs from its watch unannounced: " + difference);
  }
}

}  // namespace explore
