#ifndef EMU_PLATFORM_SWITCHES_H
#define EMU_PLATFORM_SWITCHES_H

#include <string>
#include <vector>

#include "host/Personality.h"

namespace emu {

// What a watch's profile may fix about the platform it runs on ("platform" in device.json): the
// host's switches, as the tools list, set and draw them.
using PlatformSwitch = host::PersonalitySwitch;

// Every switch, in the order tools list them.
const std::vector<PlatformSwitch>& platformSwitches();

// False with a one-line reason when the switch `name` does not take `value`.
bool checkPlatformSetting(const std::string& name, const std::string& value, std::string& error);

}  // namespace emu

#endif
