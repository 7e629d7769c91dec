// morvik-emu explore: runs the service under many seeded schedules and checks what every run
// must hold.
#include <glib.h>
#include <glib/gstdio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "EmuVerbs.h"
#include "explore/Explorer.h"
#include "host/DeviceAdmission.h"

namespace emucli {

namespace {

// morvik-service beside this binary, installed or in the build tree.
std::string findService() {
  g_autofree char* self = g_file_read_link("/proc/self/exe", nullptr);
  if (!self)
    return std::string();
  g_autofree char* dir = g_path_get_dirname(self);
  for (const char* relative : {"morvik-service", "../service-app/morvik-service"}) {
    g_autofree char* candidate = g_build_filename(dir, relative, nullptr);
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
  return host::fitsWatchBuffers(deepest, error);
}

std::string replayCommand(const explore::Scenario& scenario) {
  return scenario.name.empty() ? "morvik-emu explore --seed " + std::to_string(scenario.seed)
                               : "morvik-emu explore --scenario " + scenario.name;
}

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

  const std::string serviceBinary = service ? *service : findService();
  if (serviceBinary.empty() || !g_file_test(serviceBinary.c_str(), G_FILE_TEST_IS_EXECUTABLE))
    return fail("no morvik-service to run (use --service PATH)");
  std::string workDir;
  if (work) {
    workDir = *work;
    if (!fitsEveryRun(workDir, runs, error))
      return fail(error);
    if (g_mkdir_with_parents(workDir.c_str(), 0755) != 0)
      return fail("cannot make the work directory '" + workDir + "'");
  } else {
    g_autofree char* made = g_dir_make_tmp("morvik-explore-XXXXXX", nullptr);
    if (!made)
      return fail("cannot make a temporary work directory");
    workDir = made;
  }

  explore::Explorer explorer(serviceBinary, workDir, keep);
  if (!explorer.prepare(error))
    return fail(error);

  std::atomic<size_t> next{0};
  std::atomic<size_t> failures{0};
  std::mutex output;
  auto worker = [&] {
    for (size_t i = next++; i < runs.size(); i = next++) {
      const explore::RunVerdict verdict = explorer.run(runs[i]);
      if (verdict.violations.empty())
        continue;
      ++failures;
      std::lock_guard<std::mutex> lock(output);
      const explore::Scenario& run = verdict.scenario;
      printf("FAILED %s (exit status %d): %s\n",
             run.name.empty() ? ("seed " + std::to_string(run.seed)).c_str() : run.name.c_str(),
             verdict.status, run.describe().c_str());
      for (const std::string& violation : verdict.violations)
        printf("  - %s\n", violation.c_str());
      printf("  replay: %s\n", replayCommand(run).c_str());
      fflush(stdout);
    }
  };
  std::vector<std::thread> threads;
  for (guint64 i = 0; i < std::min<guint64>(jobCount, runs.size()); ++i)
    threads.emplace_back(worker);
  for (std::thread& thread : threads)
    thread.join();

  if (failures == 0 && !work && !keep) {
    explorer.removeWorkDir();
  } else if (failures > 0) {
    printf("explore: the failed runs are kept in %s\n", workDir.c_str());
  }
  printf("explore: seeds=%zu failures=%zu\n", runs.size(), failures.load());
  return failures == 0 ? kStatusOk : 1;
}

}  // namespace emucli
