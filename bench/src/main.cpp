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
#include <string>
#include <vector>

#include "Floor.h"
#include "MeasuredFlow.h"
#include "Measurement.h"
#include "emu/CloudStore.h"
#include "emu/SampleWatch.h"
#include "emu/WatchDiff.h"

namespace {

const int kPhotoFactors[] = {1, 2, 4};
// Per unit of document, a larger watch may cost this much more than the 1x watch and still
// count as growing linearly: runs on a shared machine vary by a third, while growth with the
// square of the size would cost four times as much per unit at 4x.
const double kLinearTolerance = 1.5;
const double kBytesPerMb = 1e6;

const char* const kUsage =
    "usage: morvik-bench [--runs N] [--work DIR]\n"
    "\n"
    "Builds the heavy reference watch (40 faces with 16 KiB settings, 10 downloaded apps,\n"
    "20 photos of 512 KiB) at 1x, 2x and 4x its photos; backs each up and restores it onto a\n"
    "blank watch N times (default 5), each run in a child process through the service as it\n"
    "runs on the emulated watch; measures the floor on the same data; prints the medians.\n"
    "The last line is the 1x watch's:\n"
    "  ratio=R rss_per_doc=M doc_mb=D backup_ms=B restore_ms=S floor_ms=F\n"
    "with R = (B + S) / F and M = peak memory above the baseline / document bytes.\n"
    "--work DIR keeps the watches in DIR (which must not exist); by default they go to a\n"
    "temporary directory that is removed at the end.\n";

struct Options {
  int runs = 5;
  std::string workDir;
};

// The medians at one size of the watch.
struct SizeResult {
  int photoFactor = 0;
  double documentBytes = 0;
  bench::Measurement backup;
  bench::Measurement restore;
  bench::Measurement floor;

  double documentMb() const { return documentBytes / kBytesPerMb; }
  double flowMs() const { return backup.get("total_ms") + restore.get("total_ms"); }
  double ratio() const { return flowMs() / floor.get("total_ms"); }
  double perDocument(const bench::Measurement& run) const {
    return run.peakAboveBaselineBytes() / documentBytes;
  }
  double memoryPerDocument() const { return std::max(perDocument(backup), perDocument(restore)); }
};

bool fail(const std::string& message) {
  fprintf(stderr, "morvik-bench: %s\n", message.c_str());
  return false;
}

bool parseOptions(int argc, char* argv[], Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      fputs(kUsage, stdout);
      exit(0);
    }
    if (arg != "--runs" && arg != "--work")
      return fail("unexpected argument '" + arg + "' (see --help)");
    if (i + 1 >= argc)
      return fail(arg + " needs a value (see --help)");
    const std::string value = argv[++i];
    if (arg == "--runs") {
      char* end = nullptr;
      const long runs = strtol(value.c_str(), &end, 10);
      if (*end != '\0' || runs < 1 || runs > 100)
        return fail("--runs needs a number from 1 to 100, not '" + value + "'");
      options.runs = static_cast<int>(runs);
    } else {
      options.workDir = value;
    }
  }
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

// One backup of `sample` and its restore onto a new blank watch, which must then have the
// same setup; then the floor on the same data.
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
  if (!runChild({"--child", "floor", sample, floorDir}, floor, error))
    return false;
  if (floor.get("doc_bytes") != documentBytes) {
    error = "the floor's document has " + std::to_string(floor.get("doc_bytes")) +
            " bytes, the service's " + std::to_string(documentBytes) + ": not the same data";
    return false;
  }
  return true;
}

bool measureSize(const Options& options, int photoFactor, SizeResult& result) {
  const std::string sizeDir = options.workDir + "/x" + std::to_string(photoFactor);
  const std::string sample = sizeDir + "/sample";
  std::string error;
  if (!emu::createHeavyWatch(sample, photoFactor, error))
    return fail(error);
  std::vector<bench::Measurement> backups, restores, floors;
  for (int run = 1; run <= options.runs; ++run) {
    fprintf(stderr, "morvik-bench: %dx photos, run %d of %d\n", photoFactor, run, options.runs);
    const std::string runDir = sizeDir + "/run" + std::to_string(run);
    bench::Measurement backup, restore, floor;
    if (!runOnce(sample, runDir, backup, restore, floor, result.documentBytes, error))
      return fail(std::to_string(photoFactor) + "x, run " + std::to_string(run) + ": " + error);
    backups.push_back(backup);
    restores.push_back(restore);
    floors.push_back(floor);
    ecore_file_recursive_rm(runDir.c_str());
  }
  result.photoFactor = photoFactor;
  result.backup = bench::Measurement::median(backups);
  result.restore = bench::Measurement::median(restores);
  result.floor = bench::Measurement::median(floors);
  return true;
}

std::string fixed(const char* format, int factor, double value) {
  g_autofree gchar* text = g_strdup_printf(format, factor, value);
  return text;
}

void printReport(const Options& options, const std::vector<SizeResult>& sizes) {
  printf("\nmorvik-bench: heavy reference watch, medians of %d run%s per size\n\n", options.runs,
         options.runs == 1 ? "" : "s");
  printf(
      "photos  doc MB | backup ms  collect  build  upload | restore ms  download  parse  "
      "transfer | floor ms | ratio | peak/doc backup restore floor\n");
  for (const SizeResult& size : sizes) {
    printf(
        "%5dx  %6.1f | %9.0f  %7.0f  %5.0f  %6.0f | %10.0f  %8.0f  %5.0f  %8.0f | %8.0f | "
        "%5.2f |          %6.2f  %6.2f %5.2f\n",
        size.photoFactor, size.documentMb(), size.backup.get("total_ms"),
        size.backup.get("collect_ms"), size.backup.get("build_ms"), size.backup.get("upload_ms"),
        size.restore.get("total_ms"), size.restore.get("download_ms"), size.restore.get("parse_ms"),
        size.restore.get("transfer_ms"), size.floor.get("total_ms"), size.ratio(),
        size.perDocument(size.backup), size.perDocument(size.restore),
        size.perDocument(size.floor));
  }
  const bench::Measurement& floor = sizes.front().floor;
  printf(
      "\nfloor at 1x: encode %.0f ms, generate %.0f, write %.0f, read %.0f, parse %.0f, "
      "decode %.0f\n",
      floor.get("encode_ms"), floor.get("generate_ms"), floor.get("write_ms"), floor.get("read_ms"),
      floor.get("parse_ms"), floor.get("decode_ms"));

  const SizeResult& base = sizes.front();
  bool linear = true;
  std::string timeLine, memoryLine;
  for (const SizeResult& size : sizes) {
    const double msPerMb = size.flowMs() / size.documentMb();
    timeLine += fixed(" %dx %.1f", size.photoFactor, msPerMb);
    memoryLine += fixed(" %dx %.2f", size.photoFactor, size.memoryPerDocument());
    linear = linear && msPerMb <= kLinearTolerance * base.flowMs() / base.documentMb() &&
             size.memoryPerDocument() <= kLinearTolerance * base.memoryPerDocument();
  }
  printf("scaling: backup+restore ms per doc MB%s; peak per doc byte%s: %s\n", timeLine.c_str(),
         memoryLine.c_str(), linear ? "linear" : "NOT linear");
  printf("ratio=%.2f rss_per_doc=%.2f doc_mb=%.1f backup_ms=%.0f restore_ms=%.0f floor_ms=%.0f\n",
         base.ratio(), base.memoryPerDocument(), base.documentMb(), base.backup.get("total_ms"),
         base.restore.get("total_ms"), base.floor.get("total_ms"));
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
  bool measured = true;
  for (int factor : kPhotoFactors) {
    SizeResult size;
    if (!(measured = measureSize(options, factor, size)))
      break;
    sizes.push_back(size);
  }
  if (temporary)
    ecore_file_recursive_rm(options.workDir.c_str());
  ecore_file_shutdown();
  if (!measured)
    return 1;
  printReport(options, sizes);
  return 0;
}
