// morvik-emu explore: runs the service under many seeded schedules and checks what every run
// must hold.
#include <glib.h>
#include <glib/gstdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "EmuVerbs.h"
#include "MvWatchNames.h"
#include "explore/Explorer.h"
#include "explore/Invariants.h"
#include "launcher/DeviceAdmission.h"

namespace emucli {

namespace {

// morvik-service beside this binary, installed or in the build tree.
std::string findService() {
  g_autofree char* self = g_file_read_link("/proc/self/exe", nullptr);
  if (!self)
    return std::string();
  g_autofree char* dir = g_path_get_dirname(self);
  for (const char* relative : {"morvik-service", "../service-app/morvik-service"}) {
    g_autofree char* joined = g_build_filename(dir, relative, nullptr);
    g_autofree char* candidate = g_canonicalize_filename(joined, nullptr);
    if (g_file_test(candidate, G_FILE_TEST_IS_EXECUTABLE))
      return candidate;
  }
  return std::string();
}

bool parseCount(const std::optional<std::string>& text,
                const char* name,
                guint64 min,
                guint64 max,
                guint64& value,
                std::string& error) {
  if (!text)
    return true;
  if (!g_ascii_string_to_unsigned(text->c_str(), 10, min, max, &value, nullptr)) {
    error = std::string("--") + name + " needs a whole number from " + std::to_string(min) +
            " to " + std::to_string(max) + ", not '" + *text + "'";
    return false;
  }
  return true;
}

// Each run's watch lies at WORK/seed-S/watch (or case-N/watch, no longer): the service must
// accept it, or every run would fail without saying why.
bool fitsEveryRun(const std::string& workDir,
                  const std::vector<explore::Scenario>& runs,
                  std::string& error) {
  guint64 highestSeed = 999999;
  for (const explore::Scenario& run : runs)
    highestSeed = std::max<guint64>(highestSeed, run.seed);
  g_autofree char* deepest = g_build_filename(
      workDir.c_str(), ("seed-" + std::to_string(highestSeed)).c_str(), "watch", nullptr);
  return launcher::fitsWatchBuffers(deepest, MV_SERVICE_APP_ID, error);
}

// A command that reproduces `scenario` with the same service binary: through scripts/explore
// and its preset when the binary is one of the build tree's, through morvik-emu otherwise.
std::string replayCommand(const explore::Scenario& scenario, const std::string& service) {
  const std::string which = scenario.name.empty() ? "--seed " + std::to_string(scenario.seed)
                                                  : "--scenario " + scenario.name;
  const std::string tail = "/service-app/morvik-service";
  const size_t build = service.rfind("/build/");
  if (build != std::string::npos && service.size() > tail.size() &&
      service.compare(service.size() - tail.size(), tail.size(), tail) == 0) {
    const std::string preset = service.substr(build + 7, service.size() - tail.size() - build - 7);
    if (!preset.empty() && preset.find('/') == std::string::npos)
      return "scripts/explore " + preset + " " + which + " --service " + service;
  }
  return "morvik-emu explore " + which + " --service " + service;
}

std::string runName(const explore::Scenario& scenario) {
  return scenario.name.empty() ? "seed " + std::to_string(scenario.seed) : scenario.name;
}

// Where the picture of `trace` goes: beside it, named after it.
std::string pictureOf(const std::string& trace) {
  const size_t dot = trace.rfind(".json");
  return (dot == std::string::npos ? trace : trace.substr(0, dot)) + ".svg";
}

// How the service ended, as a person reads it.
std::string endOf(const explore::RunVerdict& verdict) {
  if (verdict.signal)
    return "killed by " + explore::signalName(verdict.signal);
  return "exit status " + std::to_string(verdict.status);
}

// What the runs did, counted: statuses, outcomes, clouds and the platform switches' values.
class Mix {
 public:
  void add(const explore::RunVerdict& verdict) {
    ++statuses_[verdict.signal ? explore::signalName(verdict.signal)
                               : std::to_string(verdict.status)];
    for (const std::string& outcome : verdict.outcomes)
      ++outcomes_[outcome];
    for (const auto& setting : verdict.scenario.platform)
      ++platform_[setting.first + "=" + valueClass(setting.second)];
    const explore::Scenario& scenario = verdict.scenario;
    ++clouds_[!scenario.seededCloud    ? "empty"
              : scenario.longIdleClock ? "a backup with a 4097-byte idle clock"
                                       : "a backup"];
  }

  void print() const {
    printf("explore: statuses %s\n", join(statuses_).c_str());
    printf("explore: outcomes %s\n", join(outcomes_).c_str());
    printf("explore: clouds %s\n", join(clouds_).c_str());
    if (!platform_.empty())
      printf("explore: platform %s\n", join(platform_).c_str());
  }

 private:
  static std::string join(const std::map<std::string, size_t>& counts) {
    std::string text;
    for (const auto& count : counts)
      text += (text.empty() ? "" : ", ") + count.first + ": " + std::to_string(count.second);
    return text.empty() ? "none" : text;
  }

  // A byte count that is neither off nor the documented 4096 is one drawn to bite.
  static std::string valueClass(const std::string& value) {
    const bool bytes = !value.empty() && value.find_first_not_of("0123456789") == std::string::npos;
    return bytes && value != "4096" ? "bites" : value;
  }

  std::map<std::string, size_t> statuses_, outcomes_, clouds_, platform_;
};

}  // namespace

int runExplore(const Verb& verb, int argc, char** argv) {
  std::optional<std::string> seeds, seed, first, jobs, scenario, service, work;
  bool keep = false;
  VerbOptions options(verb);
  options.value("seeds", "N", "How many seeds to run (default 100)", &seeds);
  options.value("first", "S", "The first seed of the range (default 1)", &first);
  options.value("seed", "S", "Runs this one seed (a replay)", &seed);
  options.value("scenario", "NAME", "Runs a named case, or all of them with 'all'", &scenario);
  options.value("jobs", "J", "Runs so many at once (default: the number of processors)", &jobs);
  options.value("service", "PATH", "The morvik-service to run (default: the one beside this)",
                &service);
  options.value("work", "DIR", "Where the runs happen (default: a new temporary directory)", &work);
  options.flag("keep", "Keeps every run's directory, not only the failed ones'", &keep);
  std::vector<std::pair<std::string, std::string>> names{{"all", "every case below"}};
  for (const explore::Scenario& named : explore::namedScenarios())
    names.emplace_back(named.name, std::string());
  options.choices("NAME", names);
  const int parsed = options.parse(argc, argv);
  if (parsed >= 0)
    return parsed;
  if (!options.positional().empty())
    return fail("explore takes no parameters");

  std::string error;
  guint64 count = 100, firstSeed = 1, oneSeed = 0, jobCount = g_get_num_processors();
  if (!parseCount(seeds, "seeds", 1, 10000000, count, error) ||
      !parseCount(first, "first", 0, G_MAXUINT64 - 10000000, firstSeed, error) ||
      !parseCount(seed, "seed", 0, G_MAXUINT64, oneSeed, error) ||
      !parseCount(jobs, "jobs", 1, 64, jobCount, error))
    return fail(error);

  std::vector<explore::Scenario> runs;
  if (scenario) {
    for (const explore::Scenario& named : explore::namedScenarios()) {
      if (*scenario == "all" || *scenario == named.name) {
        runs.push_back(named);
        if (seed)
          runs.back().seed = oneSeed;
      }
    }
    if (runs.empty())
      return fail("no scenario named '" + *scenario + "'");
  } else if (seed) {
    runs.push_back(explore::scenarioForSeed(oneSeed));
  } else {
    for (guint64 i = 0; i < count; ++i)
      runs.push_back(explore::scenarioForSeed(firstSeed + i));
  }

  g_autofree char* given = service ? g_canonicalize_filename(service->c_str(), nullptr) : nullptr;
  const std::string serviceBinary = given ? std::string(given) : findService();
  if (serviceBinary.empty() || !g_file_test(serviceBinary.c_str(), G_FILE_TEST_IS_EXECUTABLE))
    return fail("no morvik-service to run (use --service PATH)");
  std::string workDir;
  if (work) {
    // Absolute and without links: runs start in their own directories, and the audit of writes
    // sees real paths.
    g_autofree char* absolute = g_canonicalize_filename(work->c_str(), nullptr);
    const bool existed = g_file_test(absolute, G_FILE_TEST_EXISTS);
    if (!fitsEveryRun(absolute, runs, error))
      return fail(error);
    if (g_mkdir_with_parents(absolute, 0755) != 0)
      return fail("cannot make the work directory '" + *work + "'");
    g_autofree char* real = realpath(absolute, nullptr);
    workDir = real ? real : absolute;
    if (!fitsEveryRun(workDir, runs, error)) {
      if (!existed)
        g_rmdir(absolute);
      return fail(error);
    }
  } else {
    g_autofree char* made = g_dir_make_tmp("morvik-explore-XXXXXX", nullptr);
    if (!made)
      return fail("cannot make a temporary work directory");
    workDir = made;
  }

  explore::Explorer explorer(serviceBinary, workDir, keep);
  std::string note;
  if (!explorer.prepare(error, note))
    return fail(error);
  if (!note.empty())
    printf("explore: note: %s\n", note.c_str());
  // A replay shows what it runs, passing or not.
  const bool replay = runs.size() == 1;

  std::atomic<size_t> next{0};
  std::atomic<size_t> failures{0};
  std::mutex output;
  Mix mix;
  auto worker = [&] {
    for (size_t i = next++; i < runs.size(); i = next++) {
      const explore::RunVerdict verdict = explorer.run(runs[i]);
      std::lock_guard<std::mutex> lock(output);
      mix.add(verdict);
      const explore::Scenario& run = verdict.scenario;
      if (verdict.violations.empty()) {
        if (replay)
          printf("passed %s (%s): %s\n  platform: %s\n", runName(run).c_str(),
                 endOf(verdict).c_str(), run.describe().c_str(), run.describePlatform().c_str());
        continue;
      }
      ++failures;
      printf("FAILED %s (%s): %s\n  platform: %s\n", runName(run).c_str(), endOf(verdict).c_str(),
             run.describe().c_str(), run.describePlatform().c_str());
      for (const explore::Violation& violation : verdict.violations)
        printf("  - %s\n", violation.describe().c_str());
      for (const std::string& trace : verdict.traces)
        printf("  trace: %s (draw it: morvik-emu timeline %s -o %s)\n", trace.c_str(),
               trace.c_str(), pictureOf(trace).c_str());
      printf("  replay: %s\n", replayCommand(run, serviceBinary).c_str());
      fflush(stdout);
    }
  };
  std::vector<std::thread> threads;
  for (guint64 i = 0; i < std::min<guint64>(jobCount, runs.size()); ++i)
    threads.emplace_back(worker);
  for (std::thread& thread : threads)
    thread.join();

  mix.print();
  if (failures == 0 && !work && !keep) {
    explorer.removeWorkDir();
  } else if (failures > 0) {
    printf("explore: the failed runs are kept in %s\n", workDir.c_str());
  }
  printf("explore: seeds=%zu failures=%zu\n", runs.size(), failures.load());
  return failures == 0 ? kStatusOk : 1;
}

}  // namespace emucli
