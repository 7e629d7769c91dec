#include "emu/PlatformSwitches.h"

namespace emu {

const std::vector<PlatformSwitch>& platformSwitches() {
  return host::personalitySwitches();
}

bool checkPlatformSetting(const std::string& name, const std::string& value, std::string& error) {
  host::Personality personality;
  return personality.set(name, value, error);
}

}  // namespace emu
