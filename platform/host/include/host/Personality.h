#ifndef HOST_PERSONALITY_H
#define HOST_PERSONALITY_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace host {

// One behaviour of the watch platform that its public documentation leaves open (the vendor's
// cloud library is closed), or a limit the device documents. The host behaves as the chosen
// value says; a watch's profile fixes it ("platform" in device.json), the explorer draws it.
struct PersonalitySwitch {
  const char* name;
  // The values it takes; empty for a byte count, which also takes "off".
  std::vector<std::string> choices;
  const char* fallback;  // the value when nothing sets it
  // What the platform's documentation says, and what is our guess.
  const char* documented;
};

// Every switch, in the order tools list them.
const std::vector<PersonalitySwitch>& personalitySwitches();

// The platform's personality for one run. Main loop thread only.
struct Personality {
  enum class CloudRegistration {
    kRefuse,   // a second registration of a running exchange's kind is refused
    kReplace,  // it replaces the earlier one's callbacks
  };
  enum class CloudInitialization {
    kNested,  // initialise and deinitialise are counted; the last deinitialise releases
    kFlat,    // any deinitialise releases the library for everyone
  };
  enum class PortReRegistration {
    kSameId,  // registering a port name again gives the ID it had
    kNewId,   // it gives a new ID
  };

  CloudRegistration cloudRegistration = CloudRegistration::kRefuse;
  CloudInitialization cloudInitialization = CloudInitialization::kNested;
  PortReRegistration portReRegistration = PortReRegistration::kSameId;
  size_t vconfValueLimit = 0;             // bytes of a vconf string value; 0: none
  size_t messageSizeLimit = 0;            // bytes of a message-port message; 0: none
  bool otherPackageServiceLaunch = true;  // another package's service app may be launched
  bool trustedPathSlash = true;           // shared trusted paths end with '/'

  // Sets the switch `name` from its text `value`. False with a one-line reason.
  bool set(const std::string& name, const std::string& value, std::string& error);
  // Sets every switch of `settings`; the others keep their values.
  bool setAll(const std::map<std::string, std::string>& settings, std::string& error);
  // Every switch with its current value, by name.
  std::map<std::string, std::string> settings() const;
};

}  // namespace host

#endif
