// morvik-bench: speed and memory of a backup and a restore of the heavy reference watch,
// against the floor of what they cannot avoid. Each run is a child process of this one.
#include <Ecore.h>
#include <Ecore_File.h>
#include <glib.h>
#include <glib/gstdio.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "Floor.h"
#include "MeasuredFlow.h"
#include "Measurement.h"
#include "MvCommandLine.h"
#include "emu/CloudStore.h"
#include "emu/SampleWatch.h"
#include "emu/WatchDiff.h"

namespace {

const int kPhotoFactors[] = {1, 2, 4, 8};
// Per unit of document, a larger watch may cost this much more than the 1x watch and still
// count as growing linearly: runs on a shared machine vary by a third, while growth with the
// square of the size would cost four times as much per unit at 4x, eight times at 8x.
const double kLinearTolerance = 1.5;
const double kBytesPerMb = 1e6;

const int kDefaultRuns = 5;
const int kMaxRuns = 100;

const char* const kSummary =
    "Builds the heavy reference watch (40 faces with 16 KiB settings, 10 downloaded apps,\n"
    "20 photos of 512 KiB) at 1x, 2x, 4x and 8x its photos and measures each size N times,\n"
    "the sizes taking turns. Each run measures the floor (what a backup and a restore cannot\n"
    "avoid, done directly with GLib and json-glib), then a backup and its restore onto a blank\n"
    "watch, each in a child process through the service as it runs on the emulated watch.\n"
    "Each child reports its CPU time (user and system), its wall time and its peak memory.\n"
    "It prints the minimum and the median of each figure.";

const char* const kDescription =
    "The last line is the 1x watch's, from the minima:\n"
    "  ratio=R rss_per_doc=M doc_mb=D backup_ms=B restore_ms=S floor_ms=F cpu_ratio=R\n"
    "  wall_ratio=W restore_rss_per_doc=N\n"
    "with B, S and F CPU milliseconds, R = (B + S) / F, W the same ratio of wall times,\n"
    "M the larger peak memory above the baseline (backup or restore) / document bytes, and\n"
    "N the restore's alone.\n"
    "\n"
    "Exit status: 0 when measured, 1 when a run failed, 2 for bad options.";

struct Options {
  int runs = kDefaultRuns;
  std::string workDir;
  gboolean help = FALSE;
  gboolean version = FALSE;
  // Each value option may be given once.
  bool runsGiven = false;
  bool workGiven = false;
};

// The three measurements of one size of the watch, reduced over its runs one way. The ratio
// that counts is of CPU time: a busy neighbour stretches wall time, hardly CPU time.
struct Figures {
  bench::Measurement backup;
  bench::Measurement restore;
  bench::Measurement floor;

  double flowCpuMs() const { return backup.get("cpu_ms") + restore.get("cpu_ms"); }
  double ratio() const { return flowCpuMs() / floor.get("cpu_ms"); }
  double wallRatio() const {
    return (backup.get("total_ms") + restore.get("total_ms")) / floor.get("total_ms");
  }
};

struct SizeResult {
  int photoFactor = 0;
  double documentBytes = 0;
  Figures minima;
  Figures medians;

  double documentMb() const { return documentBytes / kBytesPerMb; }
  double perDocument(const bench::Measurement& run) const {
    return run.peakAboveBaselineBytes() / documentBytes;
  }
  double memoryPerDocument(const Figures& figures) const {
    return std::max(perDocument(figures.backup), perDocument(figures.restore));
  }
};

bool fail(const std::string& message) {
  fprintf(stderr, "morvik-bench: %s\n", message.c_str());
  return false;
}

gboolean refuse(GError** error, const std::string& message) {
  g_set_error_literal(error, G_OPTION_ERROR, G_OPTION_ERROR_BAD_VALUE, message.c_str());
  return FALSE;
}

gboolean onRuns(const gchar* name, const gchar* value, gpointer data, GError** error) {
  Options& options = *static_cast<Options*>(data);
  if (options.runsGiven)
    return refuse(error, mvRepeatedOption(name));
  char* end = nullptr;
  const long runs = strtol(value, &end, 10);
  if (end == value || *end != '\0' || runs < 1 || runs > kMaxRuns)
    return refuse(error, std::string(name) + " needs a number from 1 to " +
                             std::to_string(kMaxRuns) + ", not '" + value + "'");
  options.runs = static_cast<int>(runs);
  options.runsGiven = true;
  return TRUE;
}

gboolean onWork(const gchar* name, const gchar* value, gpointer data, GError** error) {
  Options& options = *static_cast<Options*>(data);
  if (options.workGiven)
    return refuse(error, mvRepeatedOption(name));
  if (!*value)
    return refuse(error, std::string(name) + " needs a directory");
  options.workDir = value;
  options.workGiven = true;
  return TRUE;
}

// False with the reason printed as one line; --help and --version print and exit here.
bool parseOptions(int argc, char* argv[], Options& options) {
  const GOptionEntry entries[] = {
      {"runs", 0, 0, G_OPTION_ARG_CALLBACK, reinterpret_cast<gpointer>(&onRuns),
       "Measure each size N times (1 to 100, default 5)", "N"},
      {"work", 0, 0, G_OPTION_ARG_CALLBACK, reinterpret_cast<gpointer>(&onWork),
       "Keep the watches in DIR, which must not exist (default: removed at the end)", "DIR"},
      {"version", 0, 0, G_OPTION_ARG_NONE, &options.version, "Print the version and exit", nullptr},
      {"help", 'h', 0, G_OPTION_ARG_NONE, &options.help, "Print this help and exit", nullptr},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  g_autoptr(GOptionContext) context = g_option_context_new(nullptr);
  g_option_context_set_summary(context, kSummary);
  g_option_context_set_description(context, kDescription);
  // Our own --help, printed as it is: GLib's converts it to the locale's character set.
  g_option_context_set_help_enabled(context, FALSE);
  GOptionGroup* group = g_option_group_new("morvik-bench", "", "", &options, nullptr);
  g_option_group_add_entries(group, entries);
  g_option_context_set_main_group(context, group);
  g_autoptr(GError) error = nullptr;
  if (!g_option_context_parse(context, &argc, &argv, &error))
    return fail(std::string(error->message) + " (see --help)");
  if (options.help) {
    g_autofree gchar* help = g_option_context_get_help(context, TRUE, nullptr);
    std::string text = help;
    const std::string ellipsis = "\u2026";
    for (size_t at; (at = text.find(ellipsis)) != std::string::npos;)
      text.replace(at, ellipsis.size(), "...");
    fputs(text.c_str(), stdout);
    exit(0);
  }
  if (options.version) {
    printf("morvik-bench %s\n", MORVIK_VERSION);
    exit(0);
  }
  if (argc > 1)
    return fail(std::string("unexpected argument '") + argv[1] + "' (see --help)");
  return true;
}

// Runs this program again with `args` and reads the child's result line.
bool runChild(const std::vector<std::string>& args,
              bench::Measurement& measurement,
              std::string& error) {
  // The previous run's files are written back first, so that no run pays for another's.
  sync();
  g_autofree gchar* self = g_file_read_link("/proc/self/exe", nullptr);
  std::vector<gchar*> argv{self};
  for (const std::string& arg : args)
    argv.push_back(const_cast<gchar*>(arg.c_str()));
  argv.push_back(nullptr);
  g_autofree gchar* out = nullptr;
  g_autofree gchar* err = nullptr;
  gint status = 0;
  g_autoptr(GError) spawnError = nullptr;
  if (!self || !g_spawn_sync(nullptr, argv.data(), nullptr, G_SPAWN_DEFAULT, nullptr, nullptr, &out,
                             &err, &status, &spawnError)) {
    error = std::string("cannot start a run: ") +
            (spawnError ? spawnError->message : "no path to this program");
    return false;
  }
  if (!g_spawn_check_wait_status(status, nullptr)) {
    g_strstrip(err);
    const char* lastLine = strrchr(err, '\n');
    error = lastLine ? lastLine + 1 : err;
    if (error.empty())
      error = "a run failed without saying why";
    return false;
  }
  return bench::Measurement::parse(out, measurement, error);
}

// Bytes of the document in the newest set of `cloudDir`.
bool storedDocumentBytes(const std::string& cloudDir, double& bytes, std::string& error) {
  emu::CloudStore store(cloudDir);
  std::vector<unsigned long long> ids;
  std::vector<host::CloudRecord> records;
  if (!store.list(ids, error) || ids.empty() || !store.read(ids.back(), records, error) ||
      records.size() != 1 || !records[0].value) {
    if (error.empty())
      error = "the backup stored no document in " + cloudDir;
    return false;
  }
  bytes = static_cast<double>(records[0].value->size());
  return true;
}

// The floor on `sample`, then one backup of it and its restore onto a new blank watch, which
// must then have the same setup: the floor and the service take turns, so that both meet the
// same state of the machine.
bool runOnce(const std::string& sample,
             const std::string& runDir,
             bench::Measurement& backup,
             bench::Measurement& restore,
             bench::Measurement& floor,
             double& documentBytes,
             std::string& error) {
  const std::string cloud = runDir + "/cloud";
  const std::string blank = runDir + "/blank";
  const std::string floorDir = runDir + "/floor";
  if (g_mkdir_with_parents(cloud.c_str(), 0755) != 0 ||
      g_mkdir_with_parents(floorDir.c_str(), 0755) != 0) {
    error = "cannot create directories in " + runDir;
    return false;
  }
  if (!emu::createHeavyBlankWatch(blank, error))
    return false;
  if (!runChild({"--child", "floor", sample, floorDir}, floor, error))
    return false;
  if (!runChild(
          {"--child", "backup", "--device", sample, "--cloud", cloud, "--operation", "backup"},
          backup, error) ||
      !storedDocumentBytes(cloud, documentBytes, error) ||
      !runChild(
          {"--child", "restore", "--device", blank, "--cloud", cloud, "--operation", "restore"},
          restore, error))
    return false;
  std::vector<std::string> differences;
  if (!emu::diffWatches(sample, blank, differences, error))
    return false;
  if (!differences.empty()) {
    error = "the restored watch differs: " + differences.front();
    return false;
  }
  if (floor.get("doc_bytes") != documentBytes) {
    error = "the floor's document has " + std::to_string(floor.get("doc_bytes")) +
            " bytes, the service's " + std::to_string(documentBytes) + ": not the same data";
    return false;
  }
  return true;
}

std::string sizeDir(const Options& options, int photoFactor) {
  return options.workDir + "/x" + std::to_string(photoFactor);
}

// Measures every size `options.runs` times. The sizes take turns (run 1 of each size, then run
// 2 of each, ...), so that each size's runs are spread over the whole invocation and a slow
// spell of the machine does not fall on all the runs of one size.
bool measureSizes(const Options& options, std::vector<SizeResult>& sizes) {
  struct Runs {
    std::vector<bench::Measurement> backups, restores, floors;
  };
  std::vector<Runs> runs(std::size(kPhotoFactors));
  sizes.assign(std::size(kPhotoFactors), SizeResult());
  std::string error;
  for (size_t i = 0; i < sizes.size(); ++i) {
    sizes[i].photoFactor = kPhotoFactors[i];
    if (!emu::createHeavyWatch(sizeDir(options, kPhotoFactors[i]) + "/sample", kPhotoFactors[i],
                               error))
      return fail(error);
  }
  for (int run = 1; run <= options.runs; ++run) {
    for (size_t i = 0; i < sizes.size(); ++i) {
      const int factor = sizes[i].photoFactor;
      fprintf(stderr, "morvik-bench: run %d of %d, %dx photos\n", run, options.runs, factor);
      const std::string runDir = sizeDir(options, factor) + "/run" + std::to_string(run);
      bench::Measurement backup, restore, floor;
      if (!runOnce(sizeDir(options, factor) + "/sample", runDir, backup, restore, floor,
                   sizes[i].documentBytes, error))
        return fail(std::to_string(factor) + "x, run " + std::to_string(run) + ": " + error);
      runs[i].backups.push_back(backup);
      runs[i].restores.push_back(restore);
      runs[i].floors.push_back(floor);
      ecore_file_recursive_rm(runDir.c_str());
    }
  }
  for (size_t i = 0; i < sizes.size(); ++i) {
    sizes[i].minima = {bench::Measurement::minimum(runs[i].backups),
                       bench::Measurement::minimum(runs[i].restores),
                       bench::Measurement::minimum(runs[i].floors)};
    sizes[i].medians = {bench::Measurement::median(runs[i].backups),
                        bench::Measurement::median(runs[i].restores),
                        bench::Measurement::median(runs[i].floors)};
  }
  return true;
}

std::string fixed(const char* format, int factor, double value) {
  g_autofree gchar* text = g_strdup_printf(format, factor, value);
  return text;
}

void printTable(const char* title, const std::vector<SizeResult>& sizes, Figures SizeResult::*of) {
  printf("\n%s (cpu: CPU ms; the phases and wall: wall ms)\n", title);
  printf(
      "photos  doc MB | backup cpu  collect  build  upload   wall | restore cpu  download  parse  "
      "transfer   wall | floor cpu   wall | ratio  wall | peak/doc backup restore floor\n");
  for (const SizeResult& size : sizes) {
    const Figures& f = size.*of;
    printf(
        "%5dx  %6.1f | %10.0f  %7.0f  %5.0f  %6.0f  %5.0f | %11.0f  %8.0f  %5.0f  %8.0f  %5.0f | "
        "%9.0f  %5.0f | %5.2f  %4.2f |          %6.2f  %6.2f %5.2f\n",
        size.photoFactor, size.documentMb(), f.backup.get("cpu_ms"), f.backup.get("collect_ms"),
        f.backup.get("build_ms"), f.backup.get("upload_ms"), f.backup.get("total_ms"),
        f.restore.get("cpu_ms"), f.restore.get("download_ms"), f.restore.get("parse_ms"),
        f.restore.get("transfer_ms"), f.restore.get("total_ms"), f.floor.get("cpu_ms"),
        f.floor.get("total_ms"), f.ratio(), f.wallRatio(), size.perDocument(f.backup),
        size.perDocument(f.restore), size.perDocument(f.floor));
  }
}

void printReport(const Options& options, const std::vector<SizeResult>& sizes) {
  printf("\nmorvik-bench: heavy reference watch, %d run%s per size in turn, the floor first\n",
         options.runs, options.runs == 1 ? "" : "s");
  printTable("minimum of each figure", sizes, &SizeResult::minima);
  printTable("median of each figure", sizes, &SizeResult::medians);
  const bench::Measurement& floor = sizes.front().minima.floor;
  printf(
      "\nfloor at 1x (minima, wall): encode %.0f ms, generate %.0f, write %.0f, read %.0f, "
      "parse %.0f, decode %.0f\n",
      floor.get("encode_ms"), floor.get("generate_ms"), floor.get("write_ms"), floor.get("read_ms"),
      floor.get("parse_ms"), floor.get("decode_ms"));

  const SizeResult& base = sizes.front();
  bool linear = true;
  std::string timeLine, memoryLine;
  for (const SizeResult& size : sizes) {
    const double msPerMb = size.minima.flowCpuMs() / size.documentMb();
    const double memory = size.memoryPerDocument(size.minima);
    timeLine += fixed(" %dx %.1f", size.photoFactor, msPerMb);
    memoryLine += fixed(" %dx %.2f", size.photoFactor, memory);
    linear = linear && msPerMb <= kLinearTolerance * base.minima.flowCpuMs() / base.documentMb() &&
             memory <= kLinearTolerance * base.memoryPerDocument(base.minima);
  }
  printf("scaling (minima): backup+restore CPU ms per doc MB%s; peak per doc byte%s: %s\n",
         timeLine.c_str(), memoryLine.c_str(), linear ? "linear" : "NOT linear");
  const Figures& best = base.minima;
  printf(
      "ratio=%.2f rss_per_doc=%.2f doc_mb=%.1f backup_ms=%.0f restore_ms=%.0f floor_ms=%.0f "
      "cpu_ratio=%.2f wall_ratio=%.2f restore_rss_per_doc=%.2f\n",
      best.ratio(), base.memoryPerDocument(best), base.documentMb(), best.backup.get("cpu_ms"),
      best.restore.get("cpu_ms"), best.floor.get("cpu_ms"), best.ratio(), best.wallRatio(),
      base.perDocument(best.restore));
}

int childMain(int argc, char* argv[]) {
  const std::string kind = argc > 2 ? argv[2] : "";
  if (kind == "floor" && argc == 5) {
    bench::Measurement measurement;
    std::string error;
    if (!bench::measureFloor(argv[3], argv[4], measurement, error)) {
      fprintf(stderr, "morvik-bench: the floor: %s\n", error.c_str());
      return 1;
    }
    printf("%s\n", measurement.format().c_str());
    return 0;
  }
  if (kind == "backup" || kind == "restore")
    return bench::runMeasuredFlow(kind, std::vector<std::string>(argv + 3, argv + argc));
  fprintf(stderr, "morvik-bench: unknown child run '%s'\n", kind.c_str());
  return 2;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc > 1 && strcmp(argv[1], "--child") == 0)
    return childMain(argc, argv);
  Options options;
  if (!parseOptions(argc, argv, options))
    return 2;
  const bool temporary = options.workDir.empty();
  if (temporary) {
    g_autoptr(GError) error = nullptr;
    g_autofree gchar* dir = g_dir_make_tmp("morvik-bench-XXXXXX", &error);
    if (!dir) {
      fail(std::string("cannot make a work directory: ") + error->message);
      return 1;
    }
    options.workDir = dir;
  } else if (g_file_test(options.workDir.c_str(), G_FILE_TEST_EXISTS)) {
    fail("'" + options.workDir + "' already exists");
    return 2;
  }
  // Only for removing directories: no system modules, which would look for D-Bus.
  ecore_app_no_system_modules();
  ecore_file_init();
  std::vector<SizeResult> sizes;
  const bool measured = measureSizes(options, sizes);
  if (temporary)
    ecore_file_recursive_rm(options.workDir.c_str());
  ecore_file_shutdown();
  if (!measured)
    return 1;
  printReport(options, sizes);
  return 0;
}
