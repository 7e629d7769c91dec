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
  std::vector<ScenarioRequest> requests;
  std::map<std::string, std::string> faults;
  double deadlineSeconds = 900;  // simulated

  // The service's command line after --device and --cloud.
  std::vector<std::string> launchArguments() const;
  // One line: watch, cloud, requests with their gaps, faults.
  std::string describe() const;
};

// The scenario that `seed` picks: 1 to 3 requests out of backup, restore, info and a
// retail-mode request, 0 to 2 s apart, on a sample or blank watch, some fault switches on.
Scenario scenarioForSeed(uint64_t seed);

// The overlapping-request and lifecycle cases that were once found by hand, each pinned.
const std::vector<Scenario>& namedScenarios();

}  // namespace explore

#endif
