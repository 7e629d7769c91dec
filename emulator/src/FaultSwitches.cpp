#include "emu/FaultSwitches.h"

#include <algorithm>
#include <cctype>

namespace emu {

const std::vector<FaultSwitch>& faultSwitches() {
  static const std::vector<FaultSwitch> switches = {
      {"cloud-fail",
       FaultSwitch::Value::kChoice,
       "the cloud agent makes that step of the exchange fail",
       {"prepare", "keys", "upload", "download", "complete"}},
      {"cloud-complete-early",
       FaultSwitch::Value::kNone,
       "the cloud agent reports a restore's end while the service is still restoring",
       {}},
      {"cloud-delay",
       FaultSwitch::Value::kMilliseconds,
       "each step of the cloud agent waits MS before it runs",
       {}},
      {"watchface-silent",
       FaultSwitch::Value::kNone,
       "the watch face service never answers a backup",
       {}},
      {"watchface-finish-early",
       FaultSwitch::Value::kNone,
       "the watch face service sends \"restore_finished\" while the service waits on the store",
       {}},
      {"watchapp-late",
       FaultSwitch::Value::kMilliseconds,
       "the preloaded watch apps answer after MS",
       {}},
      {"watchapp-missing",
       FaultSwitch::Value::kNone,
       "the two preloaded watch apps are not installed",
       {}},
      {"store-silent", FaultSwitch::Value::kNone, "the store never replies", {}},
      {"store-error",
       FaultSwitch::Value::kText,
       "the store's install replies fail with \"errorMsg\" TEXT",
       {}},
      {"image-unreadable", FaultSwitch::Value::kNone, "one background image path is a FIFO", {}},
  };
  return switches;
}

bool parseFaultSetting(const std::string& setting,
                       std::string& name,
                       std::string& value,
                       std::string& error) {
  const size_t equals = setting.find('=');
  name = setting.substr(0, equals);
  value = equals == std::string::npos ? std::string() : setting.substr(equals + 1);
  const auto& switches = faultSwitches();
  auto found = std::find_if(switches.begin(), switches.end(),
                            [&](const FaultSwitch& candidate) { return name == candidate.name; });
  if (found == switches.end()) {
    error = "unknown fault switch '" + name + "' (see: morvik-emu fault DIR list)";
    return false;
  }
  const bool hasValue = equals != std::string::npos;
  switch (found->value) {
    case FaultSwitch::Value::kNone:
      if (hasValue) {
        error = name + " takes no value";
        return false;
      }
      value = "on";
      return true;
    case FaultSwitch::Value::kMilliseconds:
      if (value.empty() || value.size() > 9 || !std::all_of(value.begin(), value.end(), [](char c) {
            return isdigit(static_cast<unsigned char>(c)) != 0;
          })) {
        error = name + " needs a whole number of milliseconds, as " + name + "=MS";
        return false;
      }
      return true;
    case FaultSwitch::Value::kText:
      if (value.empty()) {
        error = name + " needs a text, as " + name + "=TEXT";
        return false;
      }
      return true;
    case FaultSwitch::Value::kChoice:
      if (std::find(found->choices.begin(), found->choices.end(), value) == found->choices.end()) {
        std::string choices;
        for (const std::string& choice : found->choices)
          choices += (choices.empty() ? "" : ", ") + choice;
        error = name + " needs one of: " + choices;
        return false;
      }
      return true;
  }
  return false;
}

std::string faultValue(const std::map<std::string, std::string>& faults,
                       const std::string& name,
                       const std::string& fallback) {
  auto it = faults.find(name);
  return it == faults.end() ? fallback : it->second;
}

}  // namespace emu
