// morvik-emu platform: the watch's platform personality.
#include <string>
#include <vector>

#include "EmuVerbs.h"
#include "emu/DeviceProfile.h"
#include "emu/PlatformSwitches.h"
#include "launcher/DeviceAdmission.h"

namespace emucli {

namespace {

std::string syntaxOf(const emu::PlatformSwitch& entry) {
  if (entry.choices.empty())
    return std::string(entry.name) + "=BYTES|off";
  std::string text = std::string(entry.name) + "=";
  for (size_t i = 0; i < entry.choices.size(); ++i)
    text += (i == 0 ? "" : "|") + entry.choices[i];
  return text;
}

}  // namespace

int runPlatform(const Verb& verb, int argc, char** argv) {
  VerbOptions options(verb);
  std::vector<std::pair<std::string, std::string>> names;
  for (const host::PersonalitySwitch& entry : host::personalitySwitches())
    names.emplace_back(syntaxOf(entry), std::string("default ") + entry.fallback);
  options.choices("NAME", names);
  const int status = options.parse(argc, argv);
  if (status >= 0)
    return status;
  const std::vector<std::string>& args = options.positional();
  if (args.size() < 2)
    return fail("platform needs DIR and NAME=VALUE, clear [NAME] or list");
  const std::string& deviceDir = args[0];
  emu::DeviceProfile profile;
  std::string error;
  // Changing the personality while a run uses the watch would be lost when the run saves it.
  launcher::DeviceLock lock;
  const bool listing = args[1] == "list" && args.size() == 2;
  if ((!listing && !lock.acquire(deviceDir, error)) || !profile.load(deviceDir, error))
    return fail(error);

  if (listing) {
    for (const emu::PlatformSwitch& entry : emu::platformSwitches()) {
      auto set = profile.platform.find(entry.name);
      printf("%-36s %s (default %s)%s\n", syntaxOf(entry).c_str(), entry.documented, entry.fallback,
             set == profile.platform.end() ? "" : ("  [set: " + set->second + "]").c_str());
    }
    return kStatusOk;
  }
  if (args[1] == "clear" && args.size() <= 3) {
    if (args.size() == 3 && profile.platform.erase(args[2]) == 0)
      return fail("platform switch '" + args[2] + "' is not set");
    if (args.size() == 2)
      profile.platform.clear();
  } else {
    if (args.size() != 2)
      return fail("platform sets one switch at a time");
    const size_t equals = args[1].find('=');
    if (equals == std::string::npos)
      return fail("platform needs NAME=VALUE, not '" + args[1] + "' (see 'platform DIR list')");
    const std::string name = args[1].substr(0, equals);
    const std::string value = args[1].substr(equals + 1);
    if (!emu::checkPlatformSetting(name, value, error))
      return fail(error);
    profile.platform[name] = value;
  }
  if (!profile.save(deviceDir, error))
    return fail(error);
  return kStatusOk;
}

}  // namespace emucli
