// morvik-emu: makes and inspects emulated watches.
#include <glib.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "emu/DeviceProfile.h"
#include "emu/FaultSwitches.h"
#include "emu/SampleWatch.h"

namespace {

const int kStatusUsage = 2;

const char* const kUsage =
    "usage: morvik-emu init DIR --sample|--blank   make a watch in DIR\n"
    "       morvik-emu show DIR                    print the watch's setup\n"
    "       morvik-emu fault DIR NAME[=VALUE]       set a fault switch on the watch\n"
    "       morvik-emu fault DIR clear [NAME]       clear one switch, or all\n"
    "       morvik-emu fault DIR list               list the switches, and which are set\n";

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
  if (!profile.load(deviceDir, error))
    return fail(error);

  if (args[1] == "list" && args.size() == 2) {
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
  if (command == "show") {
    if (args.size() != 1)
      return fail("show needs exactly one DIR");
    return show(args[0]);
  }
  return fail("unknown command '" + command + "' (see --help)");
}
