#ifndef MORVIK_EXPLORE_SCENARIO_H
#define MORVIK_EXPLORE_SCENARIO_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace explore {

// One launch request of a scenario.
struct ScenarioRequest {
  std::string operation;    // backup, restore, info or none
  bool retailMode = false;  // with the extra data "retail-mode"
  double gapSeconds = 0;    // after the previous request
};

// What one explored run does: its watch, its cloud, its requests and fault switches. Its seed
// also drives the run's delivery schedule, so a scenario replays exactly.
struct Scenario {
  std::string name;  // a named case; empty for a seeded one
  uint64_t seed = 0;
  bool sampleWatch = true;   // otherwise a blank watch
  bool seededCloud = false;  // the cloud holds a clean backup of the sample watch
  // That backup's idle clock is one byte longer than vconf's documented limit: it came from a
  // watch without the limit.
  bool longIdleClock = false;
  std::vector<ScenarioRequest> requests;
  std::map<std::string, std::string> faults;
  // The platform's personality, by switch (emu::platformSwitches()); a switch left out
  // takes its fallback.
  std::map<std::string, std::string> platform;
  double deadlineSeconds = 900;  // simulated

  // The service's command line after --device and --cloud.
  std::vector<std::string> launchArguments() const;
  // One line: watch, cloud, requests with their gaps, faults.
  std::string describe() const;
  // One line: every switch of the personality with its value.
  std::string describePlatform() const;
  // The value of platform switch `name`, its fallback when the scenario leaves it out.
  std::string platformValue(const std::string& name) const;
};

// The scenario that `seed` picks. Most seeds make one request that should end in success; on
// top of that come overlaps (2 or 3 requests out of backup, restore, info and a retail-mode
// request, 0 to 2 s apart), fault switches, and a value for every platform switch, its default
// on most seeds, drawn from a stream of its own so that a new switch leaves the other draws as
// they were. A byte limit is off, the documented 4096, or a size that bites on the sample
// watch's messages.
Scenario scenarioForSeed(uint64_t seed);

// The overlapping-request and lifecycle cases that were once found by hand, each pinned.
const std::vector<Scenario>& namedScenarios();

}  // namespace explore

#endif
