// morvik-emu fault: the watch's fault switches.
#include <string>
#include <vector>

#include "EmuVerbs.h"
#include "emu/DeviceProfile.h"
#include "emu/DirectoryKind.h"
#include "emu/FaultSwitches.h"
#include "launcher/DeviceAdmission.h"

namespace emucli {

namespace {

// "cloud-fail=prepare|keys|...", "cloud-delay=MS", "store-silent".
std::string syntaxOf(const emu::FaultSwitch& fault) {
  std::string syntax = fault.name;
  switch (fault.value) {
    case emu::FaultSwitch::Value::kNone:
      break;
    case emu::FaultSwitch::Value::kMilliseconds:
      syntax += "=MS";
      break;
    case emu::FaultSwitch::Value::kText:
      syntax += "=TEXT";
      break;
    case emu::FaultSwitch::Value::kChoice:
      for (size_t i = 0; i < fault.choices.size(); ++i)
        syntax += (i == 0 ? "=" : "|") + fault.choices[i];
      break;
  }
  return syntax;
}

}  // namespace

int runFault(const Verb& verb, int argc, char** argv) {
  VerbOptions options(verb);
  std::vector<std::pair<std::string, std::string>> names;
  for (const emu::FaultSwitch& fault : emu::faultSwitches())
    names.emplace_back(syntaxOf(fault), fault.help);
  options.choices("NAME", names);
  const int status = options.parse(argc, argv);
  if (status >= 0)
    return status;
  const std::vector<std::string>& args = options.positional();
  if (args.size() < 2)
    return fail("fault needs DIR and NAME[=VALUE], clear [NAME] or list");
  const std::string& deviceDir = args[0];
  emu::DeviceProfile profile;
  std::string error;
  // Changing switches while a run uses the watch would be lost when the run saves it.
  launcher::DeviceLock lock;
  const bool listing = args[1] == "list" && args.size() == 2;
  if (!emu::requireWatch(deviceDir, error) || (!listing && !lock.acquire(deviceDir, error)) ||
      !profile.load(deviceDir, error))
    return fail(error);

  if (listing) {
    for (const emu::FaultSwitch& fault : emu::faultSwitches()) {
      auto set = profile.faults.find(fault.name);
      printf("%-28s %s%s\n", syntaxOf(fault).c_str(), fault.help,
             set == profile.faults.end() ? "" : ("  [set: " + set->second + "]").c_str());
    }
    return kStatusOk;
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
  return kStatusOk;
}

}  // namespace emucli
