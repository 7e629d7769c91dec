#ifndef MORVIK_EXPLORE_ORACLE_H
#define MORVIK_EXPLORE_ORACLE_H

#include <json-glib/json-glib.h>

#include <vector>

#include "DeviceLimits.h"
#include "Scenario.h"
#include "Violation.h"

namespace explore {

// A reference model of the service's documented rules (the README's decisions), written apart
// from the service's code. From a scenario and the deliveries its schedule produced (the trace
// in the run's JSON result: when each launch request, message and cloud callback reached the
// service), it predicts what the service must answer to each launch request and when, each
// cloud request's outcome and failed step, how and when the run ends, what its audit may and
// must find, and its exit status; every difference from the result is a violation naming the
// request and the field. `items` tells what the device's limits are weighed against.
Violations judgeRun(const Scenario& scenario, JsonObject* result, const RunItems& items);

// How one platform switch changes the model: one small rule per switch.
struct PlatformRule {
  const char* switchName;
  const char* rule;
};

// A rule for every switch of host::personalitySwitches().
const std::vector<PlatformRule>& platformRules();

}  // namespace explore

#endif
