#include "host/Personality.h"

#include <algorithm>
#include <cctype>

namespace host {

namespace {

const char* const kCloudRegistration = "cloud-registration";
const char* const kCloudInitialization = "cloud-initialization";
const char* const kPortReRegistration = "port-reregistration";
const char* const kVconfValueLimit = "vconf-value-limit";
const char* const kMessageSizeLimit = "message-size-limit";
const char* const kOtherPackageService = "other-package-service";
const char* const kTrustedPathSlash = "trusted-path-slash";

// A byte count: "off" (0) or a whole number up to a gigabyte.
bool parseBytes(const std::string& text, size_t& bytes) {
  if (text == "off") {
    bytes = 0;
    return true;
  }
  if (text.empty() || text.size() > 10 || !std::all_of(text.begin(), text.end(), [](char c) {
        return isdigit(static_cast<unsigned char>(c)) != 0;
      }))
    return false;
  const unsigned long long value = std::stoull(text);
  if (value == 0 || value > (1ull << 30))
    return false;
  bytes = static_cast<size_t>(value);
  return true;
}

std::string bytesText(size_t bytes) {
  return bytes == 0 ? "off" : std::to_string(bytes);
}

}  // namespace

const std::vector<PersonalitySwitch>& personalitySwitches() {
  static const std::vector<PersonalitySwitch> switches = {
      {kCloudRegistration,
       {"refuse", "replace"},
       "refuse",
       "guessed: the vendor's library is closed; a second registration of a kind already "
       "registered may be refused or may replace the first"},
      {kCloudInitialization,
       {"nested", "flat"},
       "nested",
       "guessed: initialise and deinitialise may be counted, or one deinitialise may release "
       "the library"},
      {kPortReRegistration,
       {"same-id", "new-id"},
       "same-id",
       "undocumented: the port API returns an ID for a name, and does not say whether "
       "registering the name again keeps it"},
      {kVconfValueLimit, {}, "off", "documented: a vconf string value holds at most 4 KiB"},
      {kMessageSizeLimit,
       {},
       "off",
       "documented: message-port messages should stay under 4 KB; beyond the limit the send "
       "fails with MESSAGE_PORT_ERROR_MAX_EXCEEDED"},
      {kOtherPackageService,
       {"allow", "refuse"},
       "allow",
       "documented: since wearable 3.0 another package's service app may not be launchable"},
      {kTrustedPathSlash,
       {"yes", "no"},
       "yes",
       "undocumented: whether a shared trusted path ends with '/'"},
  };
  return switches;
}

bool Personality::set(const std::string& name, const std::string& value, std::string& error) {
  const auto& switches = personalitySwitches();
  auto found = std::find_if(switches.begin(), switches.end(),
                            [&](const PersonalitySwitch& entry) { return name == entry.name; });
  if (found == switches.end()) {
    error = "unknown platform switch '" + name + "'";
    return false;
  }
  if (found->choices.empty()) {
    size_t bytes = 0;
    if (!parseBytes(value, bytes)) {
      error = name + " needs a byte count from 1 to 1073741824, or off";
      return false;
    }
    (name == kVconfValueLimit ? vconfValueLimit : messageSizeLimit) = bytes;
    return true;
  }
  auto choice = std::find(found->choices.begin(), found->choices.end(), value);
  if (choice == found->choices.end()) {
    std::string list;
    for (const std::string& each : found->choices)
      list += (list.empty() ? "" : ", ") + each;
    error = name + " needs one of: " + list;
    return false;
  }
  const bool first = choice == found->choices.begin();
  if (name == kCloudRegistration)
    cloudRegistration = first ? CloudRegistration::kRefuse : CloudRegistration::kReplace;
  else if (name == kCloudInitialization)
    cloudInitialization = first ? CloudInitialization::kNested : CloudInitialization::kFlat;
  else if (name == kPortReRegistration)
    portReRegistration = first ? PortReRegistration::kSameId : PortReRegistration::kNewId;
  else if (name == kOtherPackageService)
    otherPackageServiceLaunch = first;
  else if (name == kTrustedPathSlash)
    trustedPathSlash = first;
  return true;
}

bool Personality::setAll(const std::map<std::string, std::string>& settings, std::string& error) {
  for (const auto& setting : settings) {
    if (!set(setting.first, setting.second, error))
      return false;
  }
  return true;
}

std::map<std::string, std::string> Personality::settings() const {
  return {
      {kCloudRegistration, cloudRegistration == CloudRegistration::kRefuse ? "refuse" : "replace"},
      {kCloudInitialization,
       cloudInitialization == CloudInitialization::kNested ? "nested" : "flat"},
      {kPortReRegistration,
       portReRegistration == PortReRegistration::kSameId ? "same-id" : "new-id"},
      {kVconfValueLimit, bytesText(vconfValueLimit)},
      {kMessageSizeLimit, bytesText(messageSizeLimit)},
      {kOtherPackageService, otherPackageServiceLaunch ? "allow" : "refuse"},
      {kTrustedPathSlash, trustedPathSlash ? "yes" : "no"},
  };
}

}  // namespace host
