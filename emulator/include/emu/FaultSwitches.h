#ifndef EMU_FAULT_SWITCHES_H
#define EMU_FAULT_SWITCHES_H

#include <map>
#include <string>
#include <vector>

namespace emu {

// A way to make the emulated watch or cloud misbehave, set per watch in its profile's "faults".
struct FaultSwitch {
  enum class Value {
    kNone,          // a flag: NAME
    kMilliseconds,  // NAME=MS, a whole number
    kText,          // NAME=TEXT, any non-empty text
    kChoice,        // NAME=one of `choices`
  };

  const char* name;
  Value value;
  const char* help;
  std::vector<std::string> choices;
};

// Every switch the emulator knows, in the order `morvik-emu fault DIR list` shows them.
const std::vector<FaultSwitch>& faultSwitches();

// Checks "NAME" or "NAME=VALUE" against the table and splits it. Returns false with a one-line
// reason.
bool parseFaultSetting(const std::string& setting,
                       std::string& name,
                       std::string& value,
                       std::string& error);

// The value of a set switch, or `fallback` when it is not set. Flags read as "on".
std::string faultValue(const std::map<std::string, std::string>& faults,
                       const std::string& name,
                       const std::string& fallback = std::string());

}  // namespace emu

#endif
