// morvik-emu: makes and inspects emulated watches.
#include <glib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "emu/CloudStore.h"
#include "emu/DeviceProfile.h"
#include "emu/FaultSwitches.h"
#include "emu/SampleWatch.h"
#include "emu/WatchDiff.h"
#include "host/DeviceAdmission.h"

namespace {

const int kStatusUsage = 2;

const char* const kUsage =
    "usage: morvik-emu init DIR --sample|--blank   make a watch in DIR\n"
    "       morvik-emu show DIR                    print the watch's setup\n"
    "       morvik-emu diff DIR1 DIR2              compare two watches' setups (1: they differ)\n"
    "       morvik-emu fault DIR NAME[=VALUE]       set a fault switch on the watch\n"
    "       morvik-emu fault DIR clear [NAME]       clear one switch, or all\n"
    "       morvik-emu fault DIR list               list the switches, and which are set\n"
    "       morvik-emu sets CLOUD                   list the cloud's backup sets\n"
    "       morvik-emu export CLOUD [--set ID]      print a set's backup document (default: "
    "newest)\n"
    "       morvik-emu import CLOUD FILE            store a backup document as a new set\n";

int fail(const std::string& reason) {
  fprintf(stderr, "morvik-emu: %s\n", reason.c_str());
  return kStatusUsage;
}

std::string fileSize(const std::string& deviceDir, const std::string& relativePath) {
  g_autofree char* path = g_build_filename(deviceDir.c_str(), relativePath.c_str(), nullptr);
  struct stat info;
  if (stat(path, &info) != 0)
    return "missing";
  return std::to_string(static_cast<long long>(info.st_size)) + " bytes";
}

std::string configValue(const emu::DeviceProfile& profile, const char* key) {
  auto it = profile.config.find(key);
  return it == profile.config.end() ? std::string("(unset)") : it->second;
}

int show(const std::string& deviceDir) {
  emu::DeviceProfile profile;
  std::string error;
  if (!profile.load(deviceDir, error))
    return fail(error);

  printf("watch       %s (%s)\n", profile.name.c_str(), deviceDir.c_str());
  printf("idle clock  %s\n", configValue(profile, emu::kIdleClockKey).c_str());
  printf("face name   %s\n", configValue(profile, emu::kWatchfaceNameKey).c_str());

  printf("packages    %zu apps\n", profile.packages.size());
  for (const host::PackageInfo& app : profile.packages)
    printf("  %-40s %-9s %-10s %s\n", app.appId.c_str(), app.component.c_str(),
           app.preload ? "preloaded" : "downloaded", app.pkgId.c_str());

  printf("faces       %zu\n", profile.faces.size());
  for (const emu::FaceEntry& face : profile.faces)
    printf("  %-40s %zu bytes of settings\n", face.pkgId.c_str(), face.settings.size());

  printf("photos      %zu\n", profile.images.size());
  for (const emu::BackgroundImage& image : profile.images)
    printf("  %-40s %-9s %s, %s\n", image.fileName.c_str(), image.bgType.c_str(),
           fileSize(deviceDir, image.path).c_str(), image.path.c_str());

  printf("watch apps  %zu\n", profile.watchApps.size());
  for (const emu::WatchAppState& app : profile.watchApps)
    printf("  %-40s %zu bytes of settings\n", app.appId.c_str(), app.resultXml.size());

  printf("store       %zu in the catalogue\n", profile.catalogue.size());
  for (const emu::CatalogueItem& item : profile.catalogue)
    printf("  %-40s guid %s\n", item.appId.c_str(), item.guid.c_str());

  if (profile.faults.empty())
    printf("faults      none\n");
  for (const auto& fault : profile.faults)
    printf("fault       %s=%s\n", fault.first.c_str(), fault.second.c_str());
  return 0;
}

int init(const std::vector<std::string>& args) {
  if (args.size() != 2)
    return fail("init needs DIR and one of --sample or --blank");
  std::string error;
  host::DeviceLock lock;
  if (g_file_test(args[0].c_str(), G_FILE_TEST_IS_DIR) && !lock.acquire(args[0], error))
    return fail(error);
  bool made;
  if (args[1] == "--sample")
    made = emu::createSampleWatch(args[0], error);
  else if (args[1] == "--blank")
    made = emu::createBlankWatch(args[0], error);
  else
    return fail("init needs --sample or --blank, not '" + args[1] + "'");
  if (!made)
    return fail(error);
  printf("made a %s watch in %s\n", args[1].c_str() + 2, args[0].c_str());
  return 0;
}

const char* valueSyntax(emu::FaultSwitch::Value value) {
  switch (value) {
    case emu::FaultSwitch::Value::kNone:
      return "";
    case emu::FaultSwitch::Value::kMilliseconds:
      return "=MS";
    case emu::FaultSwitch::Value::kText:
      return "=TEXT";
    case emu::FaultSwitch::Value::kChoice:
      return "=STEP";
  }
  return "";
}

int fault(const std::vector<std::string>& args) {
  if (args.size() < 2)
    return fail("fault needs DIR and NAME[=VALUE], clear [NAME] or list");
  const std::string& deviceDir = args[0];
  emu::DeviceProfile profile;
  std::string error;
  host::DeviceLock lock;
  const bool listing = args[1] == "list" && args.size() == 2;
  if ((!listing && !lock.acquire(deviceDir, error)) || !profile.load(deviceDir, error))
    return fail(error);

  if (listing) {
    for (const emu::FaultSwitch& fault : emu::faultSwitches()) {
      std::string syntax = std::string(fault.name) + valueSyntax(fault.value);
      auto set = profile.faults.find(fault.name);
      printf("%-28s %s%s\n", syntax.c_str(), fault.help,
             set == profile.faults.end() ? "" : ("  [set: " + set->second + "]").c_str());
    }
    return 0;
  }
  if (args[1] == "clear" && args.size() <= 3) {
    if (args.size() == 3 && profile.faults.erase(args[2]) == 0)
      return fail("fault switch '" + args[2] + "' is not set");
    if (args.size() == 2)
      profile.faults.clear();
  } else {
    if (args.size() != 2)
      return fail("fault sets one switch at a time");
    std::string name;
    std::string value;
    if (!emu::parseFaultSetting(args[1], name, value, error))
      return fail(error);
    profile.faults[name] = value;
  }
  if (!profile.save(deviceDir, error))
    return fail(error);
  return 0;
}

int diff(const std::vector<std::string>& args) {
  if (args.size() != 2)
    return fail("diff needs DIR1 and DIR2");
  std::vector<std::string> differences;
  std::string error;
  if (!emu::diffWatches(args[0], args[1], differences, error))
    return fail(error);
  if (differences.empty())
    printf("same setup\n");
  for (const std::string& difference : differences)
    printf("%s\n", difference.c_str());
  return differences.empty() ? 0 : 1;
}

bool isDirectory(const std::string& dir) {
  return g_file_test(dir.c_str(), G_FILE_TEST_IS_DIR);
}

// "1732300000123" (milliseconds) -> "2024-11-22 18:26:40 UTC"; other dates as they are.
std::string describeDate(const std::optional<std::string>& date) {
  if (!date)
    return "(no date)";
  if (date->size() < 12 || date->size() > 15 ||
      date->find_first_not_of("0123456789") != std::string::npos)
    return *date;
  g_autoptr(GDateTime) time =
      g_date_time_new_from_unix_utc(std::strtoll(date->c_str(), nullptr, 10) / 1000);
  if (!time)
    return *date;
  g_autofree char* text = g_date_time_format(time, "%Y-%m-%d %H:%M:%S UTC");
  return text;
}

int sets(const std::vector<std::string>& args) {
  if (args.size() != 1)
    return fail("sets needs exactly one CLOUD directory");
  if (!isDirectory(args[0]))
    return fail("cloud directory '" + args[0] + "' does not exist");
  emu::CloudStore store(args[0]);
  std::vector<unsigned long long> ids;
  std::vector<std::string> ignored;
  std::string error;
  if (!store.list(ids, error, &ignored))
    return fail(error);
  for (const std::string& name : ignored)
    fprintf(stderr, "morvik-emu: ignored %s: not the name of a set ID\n", name.c_str());
  if (ids.empty())
    printf("no backup sets in %s\n", args[0].c_str());
  int unreadable = 0;
  for (unsigned long long id : ids) {
    std::vector<host::CloudRecord> records;
    if (!store.read(id, records, error)) {
      ++unreadable;
      printf("set %-6llu %s\n", id, error.c_str());
      continue;
    }
    size_t bytes = 0;
    for (const host::CloudRecord& record : records)
      bytes += record.value ? record.value->size() : 0;
    printf("set %-6llu %zu %-8s %-24s %zu bytes\n", id, records.size(),
           records.size() == 1 ? "record" : "records",
           records.empty() ? "(empty)" : describeDate(records[0].date).c_str(), bytes);
  }
  if (unreadable > 0) {
    fprintf(stderr, "morvik-emu: %d of %zu sets are unreadable\n", unreadable, ids.size());
    return 1;
  }
  return 0;
}

bool parseSetId(const std::string& text, unsigned long long& id) {
  if (text.empty() || text.size() > 18 || text.find_first_not_of("0123456789") != std::string::npos)
    return false;
  id = std::strtoull(text.c_str(), nullptr, 10);
  return true;
}

int exportSet(const std::vector<std::string>& args) {
  if (args.size() != 1 && !(args.size() == 3 && args[1] == "--set"))
    return fail("export needs CLOUD and optionally --set ID");
  if (!isDirectory(args[0]))
    return fail("cloud directory '" + args[0] + "' does not exist");
  emu::CloudStore store(args[0]);
  std::vector<unsigned long long> ids;
  std::string error;
  if (!store.list(ids, error))
    return fail(error);
  unsigned long long id = 0;
  if (args.size() == 3) {
    if (!parseSetId(args[2], id))
      return fail("--set needs a set ID, not '" + args[2] + "'");
    if (std::find(ids.begin(), ids.end(), id) == ids.end())
      return fail("the cloud has no set " + args[2] + " (see: morvik-emu sets CLOUD)");
  } else {
    if (ids.empty())
      return fail("the cloud holds no backup set");
    id = ids.back();
  }
  std::vector<host::CloudRecord> records;
  if (!store.read(id, records, error))
    return fail(error);
  if (records.size() != 1 || !records[0].value)
    return fail("set " + std::to_string(id) + " holds " + std::to_string(records.size()) +
                " records, not one backup document");
  const std::string& document = *records[0].value;
  if (fwrite(document.data(), 1, document.size(), stdout) != document.size() || fflush(stdout) != 0)
    return fail("cannot write the document to stdout");
  return 0;
}

int importSet(const std::vector<std::string>& args) {
  if (args.size() != 2)
    return fail("import needs CLOUD and FILE");
  const std::string& cloudDir = args[0];
  const std::string& file = args[1];
  if (!g_file_test(file.c_str(), G_FILE_TEST_IS_REGULAR))
    return fail("'" + file + "' is not a readable file");
  g_autofree char* contents = nullptr;
  gsize length = 0;
  g_autoptr(GError) readError = nullptr;
  if (!g_file_get_contents(file.c_str(), &contents, &length, &readError))
    return fail(readError->message);
  const std::string document(contents, length);
  if (document.size() > host::kMaxFieldBytes)
    return fail("'" + file + "' is larger than a cloud record can hold");
  if (document.find('\0') != std::string::npos || !g_utf8_validate(contents, length, nullptr))
    return fail("'" + file + "' is not UTF-8 text");
  const size_t start = document.find_first_not_of(" \t\r\n");
  if (start == std::string::npos || document[start] != '{')
    return fail("'" + file + "' is not a backup document (a JSON object)");
  if (!isDirectory(cloudDir) && g_mkdir_with_parents(cloudDir.c_str(), 0755) != 0)
    return fail("cannot create the cloud directory '" + cloudDir + "'");

  host::CloudRecord record;
  record.key = "key";
  record.date = std::to_string(g_get_real_time() / 1000);
  record.value = document;
  emu::CloudStore store(cloudDir);
  unsigned long long id = 0;
  std::string error;
  if (!store.add({record}, id, error))
    return fail(error);
  printf("stored set %llu in %s\n", id, cloudDir.c_str());
  return 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc < 2) {
    fputs(kUsage, stderr);
    return kStatusUsage;
  }
  const std::string command = argv[1];
  std::vector<std::string> args(argv + 2, argv + argc);
  if (command == "--help" || command == "-h") {
    fputs(kUsage, stdout);
    return 0;
  }
  if (command == "init")
    return init(args);
  if (command == "fault")
    return fault(args);
  if (command == "diff")
    return diff(args);
  if (command == "sets")
    return sets(args);
  if (command == "export")
    return exportSet(args);
  if (command == "import")
    return importSet(args);
  if (command == "show") {
    if (args.size() != 1)
      return fail("show needs exactly one DIR");
    return show(args[0]);
  }
  return fail("unknown command '" + command + "' (see --help)");
}
