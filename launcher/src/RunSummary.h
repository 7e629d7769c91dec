// The end of a launched run: its report for people and scripts, and its exit status. Internal
// to the host platform's launcher.
#ifndef HOST_RUN_SUMMARY_H
#define HOST_RUN_SUMMARY_H

#include "host/DeviceHooks.h"
#include "host/LaunchOptions.h"

namespace host {

class Platform;

// Lets the device finish (it saves the watch and reports what it saw), then prints the summary
// to stdout (or the JSON result, for --json -), appends it to DIR/log/summary.log, writes the
// JSON result where --json asks, and returns the exit status.
int reportRun(Platform& platform,
              const LaunchOptions& options,
              const RunOutcome& outcome,
              DeviceHooks& hooks);

}  // namespace host

#endif
