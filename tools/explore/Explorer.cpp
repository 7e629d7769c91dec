#include "Explorer.h"

#include <fcntl.h>
#include <glib.h>
#include <glib/gstdio.h>
#include <json-glib/json-glib.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <set>

#include "Invariants.h"
#include "MvHandles.h"
#include "ResultJson.h"
#include "emu/CloudStore.h"
#include "emu/DeviceProfile.h"
#include "emu/SampleWatch.h"
#include "emu/WatchDiff.h"

namespace explore {

namespace {

const int kRunLimitSeconds = 60;
// One byte over the documented vconf limit, so that a restore under it loses the idle clock.
const std::string kLongIdleClock = "com.talvoro.clock." + std::string(4079, 'x');

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

std::set<std::string> entriesOf(const std::string& dir) {
  std::set<std::string> names;
  g_autoptr(GDir) listing = g_dir_open(dir.c_str(), 0, nullptr);
  while (const char* name = listing ? g_dir_read_name(listing) : nullptr)
    names.insert(name);
  return names;
}

// The service's command line after its binary: the watch, the cloud, the JSON result and the
// trace in `dir`, the schedule, then `launch`.
std::vector<std::string> serviceArgs(const std::string& device,
                                     const std::string& cloud,
                                     const std::string& dir,
                                     uint64_t seed,
                                     const std::vector<std::string>& launch) {
  std::vector<std::string> args{"--device",   device,
                                "--cloud",    cloud,
                                "--json",     path(dir, kRunResult),
                                "--trace",    path(dir, kRunTrace),
                                "--schedule", std::to_string(seed)};
  args.insert(args.end(), launch.begin(), launch.end());
  return args;
}

// A watch for a run: sample or blank, with the scenario's faults and platform.
bool makeWatch(const std::string& device,
               bool sample,
               const std::map<std::string, std::string>& faults,
               const std::map<std::string, std::string>& platform,
               std::string& error) {
  emu::DeviceProfile profile;
  if (!(sample ? emu::createSampleWatch(device, error) : emu::createBlankWatch(device, error)) ||
      !profile.load(device, error))
    return false;
  profile.faults = faults;
  profile.platform = platform;
  return profile.save(device, error);
}

// What a run begins with: its watch, and its photos' bytes.
bool itemsBefore(const std::string& device, RunItems& items, std::string& error) {
  if (!items.watch.load(device, error))
    return false;
  items.deviceDir = device;
  g_autofree char* resolved = realpath(device.c_str(), nullptr);
  items.resolvedDeviceDir = resolved ? resolved : device;
  for (const emu::BackgroundImage& image : items.watch.images) {
    std::optional<std::string> bytes = emu::readDeviceFile(device, image.path);
    if (bytes)
      items.photos[image.fileName] = std::move(*bytes);
  }
  return true;
}

// What a run leaves: each set of its cloud, its records merged as a restore applies them (a
// set that cannot be read is left out: the run's own audit names it), and what the service's
// shared directory holds.
void itemsAfter(const std::string& cloudDir, RunItems& items) {
  g_autofree char* shared =
      g_build_filename(items.deviceDir.c_str(), "apps", MV_SERVICE_APP_ID, "shared", nullptr);
  g_autoptr(GDir) listing = g_dir_open(shared, 0, nullptr);
  while (const char* name = listing ? g_dir_read_name(listing) : nullptr)
    items.serviceShared.push_back(name);
  const emu::CloudStore cloud(cloudDir);
  std::vector<unsigned long long> ids;
  std::string error;
  cloud.list(ids, error);
  for (unsigned long long id : ids) {
    std::vector<host::CloudRecord> records;
    if (!cloud.read(id, records, error))
      continue;
    emu::BackupDocument merged;
    for (const host::CloudRecord& record : records) {
      emu::BackupDocument document;
      if (document.read(record.value.value_or(""), error))
        merged.merge(document);
    }
    items.sets[id] = merged;
  }
}

}  // namespace

// What one service process left: its exit, its output and its JSON result.
struct Explorer::Output {
  int status = -1;
  int signal = 0;
  bool stuck = false;
  std::string out, err;
  std::vector<std::string> writes;
};

Explorer::Explorer(std::string serviceBinary, std::string workDir, bool keepRuns)
    : serviceBinary_(std::move(serviceBinary)), workDir_(std::move(workDir)), keepRuns_(keepRuns) {}

bool Explorer::prepare(std::string& error, std::string& note) {
  std::string reason;
  if (!audit_.start(reason))
    note = "writes outside a run's directories are looked for only in its HOME and TMPDIR (" +
           reason + "; root can watch every file system)";
  const std::string golden = path(workDir_, "golden");
  removeTree(golden);
  return cleanBackup(path(golden, "sample"), false, goldenSet_, error) &&
         cleanBackup(path(golden, "long-idle-clock"), true, longIdleClockSet_, error);
}

bool Explorer::cleanBackup(const std::string& dir,
                           bool longIdleClock,
                           std::string& set,
                           std::string& error) const {
  const std::string watch = path(dir, "watch");
  const std::string cloud = path(dir, "cloud");
  const std::string scratch = path(dir, "scratch");
  if (g_mkdir_with_parents(scratch.c_str(), 0755) != 0) {
    error = "cannot make " + scratch;
    return false;
  }
  if (!emu::createSampleWatch(watch, error))
    return false;
  if (longIdleClock) {
    // From a watch that stores any value: the idle clock a limited watch cannot take.
    emu::DeviceProfile profile;
    if (!profile.load(watch, error))
      return false;
    profile.config[MV_IDLE_CLOCK_KEY] = kLongIdleClock;
    profile.platform["vconf-value-limit"] = "off";
    if (!profile.save(watch, error))
      return false;
  }
  Output output;
  const std::string json = path(dir, kRunResult);
  if (!runService(dir, scratch, serviceArgs(watch, cloud, dir, 0, {"--operation", "backup"}),
                  output, error))
    return false;
  const std::string what = std::string("the clean backup of the sample watch") +
                           (longIdleClock ? " with a long idle clock" : "");
  if (output.status != 0) {
    // Say what went wrong: the run's own failures, or how it died.
    std::string why = output.signal ? "died of " + signalName(output.signal)
                                    : "ended with status " + std::to_string(output.status);
    g_autoptr(JsonParser) parser = json_parser_new();
    if (json_parser_load_from_file(parser, json.c_str(), nullptr) &&
        JSON_NODE_HOLDS_OBJECT(json_parser_get_root(parser))) {
      JsonArray* failures = array(json_node_get_object(json_parser_get_root(parser)), "failures");
      for (guint i = 0; failures && i < json_array_get_length(failures); ++i)
        why += std::string(i == 0 ? ": " : "; ") + json_array_get_string_element(failures, i);
    }
    const std::string sanitizer = sanitizerReport(output.err);
    error =
        what + " " + why + (sanitizer.empty() ? "" : "; " + sanitizer) + " (kept in " + dir + ")";
    return false;
  }
  set = path(cloud, "set-000001.dat");
  if (!g_file_test(set.c_str(), G_FILE_TEST_IS_REGULAR)) {
    error = what + " stored no set";
    return false;
  }
  return true;
}

bool Explorer::runService(const std::string& root,
                          const std::string& scratch,
                          const std::vector<std::string>& serviceArgv,
                          Output& output,
                          std::string& error) const {
  std::vector<std::string> args{serviceBinary_};
  args.insert(args.end(), serviceArgv.begin(), serviceArgv.end());
  std::vector<char*> argv;
  for (std::string& arg : args)
    argv.push_back(&arg[0]);
  argv.push_back(nullptr);
  g_auto(GStrv) env = g_get_environ();
  env = g_environ_setenv(env, "HOME", scratch.c_str(), TRUE);
  env = g_environ_setenv(env, "TMPDIR", scratch.c_str(), TRUE);
  // The run's output goes to files of the explorer's own, beside the watch and the cloud.
  const std::string outPath = path(root, kRunOut);
  const std::string errPath = path(root, kRunErr);
  MvFd outFd(open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  MvFd errFd(open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  g_autoptr(GError) failure = nullptr;
  const pid_t pid = audit_.spawnWatched([&]() -> pid_t {
    GPid child = 0;
    if (outFd.get() < 0 || errFd.get() < 0 ||
        !g_spawn_async_with_fds(root.c_str(), argv.data(), env, G_SPAWN_DO_NOT_REAP_CHILD, nullptr,
                                nullptr, &child, -1, outFd.get(), errFd.get(), &failure))
      return 0;
    return child;
  });
  outFd.reset();
  errFd.reset();
  if (pid <= 0) {
    error = failure ? failure->message : "cannot open the run's output files";
    return false;
  }
  // A run on the simulated clock takes well under a second; one that takes minutes is stuck.
  const gint64 giveUp = g_get_monotonic_time() + kRunLimitSeconds * G_USEC_PER_SEC;
  // Waited for without reaping: the process ID stays its own until its writes are taken. The
  // exit wakes the wait through a pidfd, so that no run waits out a polling interval.
  const MvFd exitFd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  siginfo_t ended = {};
  while (waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         ended.si_pid == 0) {
    const gint64 leftMs = (giveUp - g_get_monotonic_time()) / 1000;
    if (!output.stuck && leftMs <= 0) {
      kill(pid, SIGKILL);
      output.stuck = true;
    }
    struct pollfd exit = {exitFd.get(), POLLIN, 0};
    if (exitFd.get() < 0 || poll(&exit, 1, output.stuck ? -1 : static_cast<int>(leftMs) + 1) < 0)
      g_usleep(2000);
  }
  output.writes = audit_.takeWrites(pid);
  int wait = 0;
  waitpid(pid, &wait, 0);
  g_spawn_close_pid(pid);
  g_autofree char* stdoutText = nullptr;
  g_autofree char* stderrText = nullptr;
  g_file_get_contents(outPath.c_str(), &stdoutText, nullptr, nullptr);
  g_file_get_contents(errPath.c_str(), &stderrText, nullptr, nullptr);
  output.out = stdoutText ? stdoutText : "";
  output.err = stderrText ? stderrText : "";
  output.status = WIFEXITED(wait) ? WEXITSTATUS(wait) : -1;
  output.signal = WIFSIGNALED(wait) && !output.stuck ? WTERMSIG(wait) : 0;
  return true;
}

RunVerdict Explorer::run(const Scenario& scenario) const {
  RunVerdict verdict;
  verdict.scenario = scenario;
  // Short: the watch's paths must fit its buffers.
  const std::string tag =
      scenario.name.empty()
          ? "seed-" + std::to_string(scenario.seed)
          : "case-" + std::to_string(std::hash<std::string>()(scenario.name) % 1000000);
  RunFacts run;
  run.scenario = &verdict.scenario;
  run.workDir = workDir_;
  run.root = path(workDir_, tag);
  run.device = path(run.root, "watch");
  run.cloud = path(run.root, "cloud");
  run.scratch = path(run.root, "scratch");
  removeTree(run.root);
  std::string error;
  if (g_mkdir_with_parents(run.cloud.c_str(), 0755) != 0 ||
      g_mkdir_with_parents(run.scratch.c_str(), 0755) != 0 ||
      !makeWatch(run.device, scenario.sampleWatch, scenario.faults, scenario.platform, error) ||
      (scenario.seededCloud && !copyFile(scenario.longIdleClock ? longIdleClockSet_ : goldenSet_,
                                         path(run.cloud, "set-000001.dat"), error)) ||
      !itemsBefore(run.device, run.items, error)) {
    verdict.violations.push_back({"a run to judge", 0, "", "cannot prepare the run: " + error});
    return verdict;
  }
  run.entriesBefore = entriesOf(run.root);

  const std::string json = path(run.root, kRunResult);
  Output output;
  if (!runService(
          run.root, run.scratch,
          serviceArgs(run.device, run.cloud, run.root, scenario.seed, scenario.launchArguments()),
          output, error)) {
    verdict.violations.push_back({"a run to judge", 0, "", "cannot run the service: " + error});
    return verdict;
  }
  verdict.status = run.status = output.status;
  verdict.signal = run.signal = output.signal;
  run.stuck = output.stuck;
  run.out = std::move(output.out);
  run.err = std::move(output.err);
  run.writes = std::move(output.writes);
  run.audited = audit_.active();

  g_autoptr(JsonParser) parser = json_parser_new();
  g_autoptr(GError) failure = nullptr;
  if (!json_parser_load_from_file(parser, json.c_str(), &failure))
    run.resultError = failure->message;
  else if (JsonNode* root = json_parser_get_root(parser); JSON_NODE_HOLDS_OBJECT(root))
    run.result = json_node_get_object(root);
  else
    run.resultError = "not a JSON object";
  forEachObject(array(run.result, "exchanges"), [&](JsonObject* exchange) {
    verdict.outcomes.push_back(member(exchange, "outcome"));
  });
  itemsAfter(run.cloud, run.items);
  run.checkStoredSet = [&](unsigned long long set, const std::vector<std::string>& leftOut,
                           Violations& violations) {
    checkStoredSet(scenario, run.root, run.cloud, run.device, run.scratch, set, leftOut,
                   violations);
  };

  for (const Invariant& invariant : invariants())
    invariant.check(run, invariant.name, verdict.violations);
  if (verdict.violations.empty()) {
    if (!keepRuns_)
      removeTree(run.root);
    return verdict;
  }
  // The run's own trace first, then its check restores'.
  std::vector<std::string> traces{path(run.root, kRunTrace)};
  for (const std::string& entry : entriesOf(run.root)) {
    if (entry.rfind("check-", 0) == 0)
      traces.push_back(path(path(run.root, entry), kRunTrace));
  }
  for (const std::string& trace : traces) {
    if (g_file_test(trace.c_str(), G_FILE_TEST_IS_REGULAR))
      verdict.traces.push_back(trace);
  }
  return verdict;
}

void Explorer::removeWorkDir() const {
  removeTree(workDir_);
}

void Explorer::checkStoredSet(const Scenario& scenario,
                              const std::string& root,
                              const std::string& runCloud,
                              const std::string& runDevice,
                              const std::string& scratch,
                              unsigned long long set,
                              const std::vector<std::string>& leftOut,
                              Violations& violations) const {
  const char* const invariant = "stored sets restore their watch";
  auto report = [&](const std::string& text) {
    violations.push_back(
        {invariant, 0, "exchanges.set", "set " + std::to_string(set) + ": " + text});
  };
  const std::string check = path(root, "check-" + std::to_string(set));
  const std::string reference = path(check, "reference");
  const std::string blank = path(check, "blank");
  const std::string cloud = path(check, "cloud");
  std::string error;
  g_autofree char* setName = g_strdup_printf("set-%06llu.dat", set);
  // The check restores under the run's personality, without its faults: the set must put back
  // everything it holds but what the device's limits lose, each for its limit's reason.
  RunItems blankItems;
  if (g_mkdir_with_parents(cloud.c_str(), 0755) != 0 ||
      !copyFile(path(runCloud, setName), path(cloud, "set-000001.dat"), error) ||
      !makeWatch(blank, false, {}, scenario.platform, error) ||
      !itemsBefore(blank, blankItems, error) ||
      !(scenario.sampleWatch ? emu::createSampleWatch(reference, error)
                             : emu::createBlankWatch(reference, error))) {
    report("cannot prepare its restore: " + error);
    return;
  }
  Output output;
  const std::string json = path(check, kRunResult);
  if (!runService(check, scratch,
                  serviceArgs(blank, cloud, check, scenario.seed, {"--operation", "restore"}),
                  output, error)) {
    report("cannot restore it: " + error);
    return;
  }
  // Every output of the check restore is watched as the run's own is.
  const std::string sanitizer = sanitizerReport(output.err);
  if (!sanitizer.empty())
    report("its restore onto a blank watch: " + sanitizer);
  g_autofree char* work = g_canonicalize_filename(workDir_.c_str(), nullptr);
  for (const std::string& written : output.writes) {
    if (written.rfind(std::string(work) + "/", 0) != 0)
      report("its restore onto a blank watch wrote " + written);
  }
  if (output.signal || output.stuck) {
    report("its restore onto a blank watch " + (output.signal
                                                    ? "died of " + signalName(output.signal)
                                                    : std::string("was stuck and killed")));
    return;
  }
  itemsAfter(cloud, blankItems);
  const DeviceLimits limits(scenario);
  for (const std::string& file : limits.misplacedFiles(blankItems))
    report("its restore onto a blank watch left " + file +
           " beside the service's trusted "
           "directory");
  const ItemLosses lost = limits.restoreLosses(blankItems.sets[1], blankItems);
  std::map<std::string, std::string> notRestored;
  g_autoptr(JsonParser) parser = json_parser_new();
  if (json_parser_load_from_file(parser, json.c_str(), nullptr) &&
      JSON_NODE_HOLDS_OBJECT(json_parser_get_root(parser))) {
    forEachObject(array(json_node_get_object(json_parser_get_root(parser)), "not_restored"),
                  [&](JsonObject* finding) {
                    notRestored[member(finding, "item")] = member(finding, "reason");
                  });
  }
  std::set<std::string> explained(leftOut.begin(), leftOut.end());
  for (const ItemLoss& loss : lost) {
    explained.insert(loss.item);
    auto found = notRestored.find(loss.item);
    if (found == notRestored.end() || found->second != loss.reason)
      report("its restore onto a blank watch " +
             (found == notRestored.end() ? "put back " + loss.item
                                         : "lost " + loss.item + " as \"" + found->second + "\"") +
             ", though the " + loss.rule + " rule loses it as \"" + loss.reason + "\"");
    notRestored.erase(loss.item);
  }
  for (const auto& finding : notRestored)
    report("its restore onto a blank watch did not restore " + finding.first + " (" +
           finding.second + "), and no limit explains it");
  const int expected = lost.empty() ? 0 : 4;
  if (output.status != expected) {
    report("its restore onto a blank watch ended with status " + std::to_string(output.status) +
           ", not " + std::to_string(expected));
    return;
  }
  // A restore in the same run may have changed an item before the collection read it: the set
  // then holds the watch as it stood mid-run, so an item the run itself changed may differ.
  std::vector<std::string> differences, changedByRun;
  if (!emu::diffWatches(reference, blank, differences, error) ||
      !emu::diffWatches(reference, runDevice, changedByRun, error)) {
    report(error);
    return;
  }
  auto itemOf = [](const std::string& difference) {
    return difference.substr(0, difference.find(':'));
  };
  for (const std::string& change : changedByRun)
    explained.insert(itemOf(change));
  for (const std::string& difference : differences) {
    if (!explained.count(itemOf(difference)))
      report("restored, it differs from its watch unannounced: " + difference);
  }
}

}  // namespace explore
