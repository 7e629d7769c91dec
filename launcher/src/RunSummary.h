// The end of a launched run: its report for people and scripts, and its exit status. Internal
// to the host platform's launcher.
#ifndef LAUNCHER_RUN_SUMMARY_H
#define LAUNCHER_RUN_SUMMARY_H

#include "launcher/DeviceHooks.h"
#include "launcher/LaunchOptions.h"

namespace host {
class Platform;
}  // namespace host

namespace launcher {

// Lets the device finish (it saves the watch and reports what it saw), then prints the summary
// to stdout (or the JSON result, for --json -), appends it to DIR/log/summary.log, writes the
// JSON result where --json asks, and returns the exit status.
int reportRun(host::Platform& platform,
              const LaunchOptions& options,
              const RunOutcome& outcome,
              DeviceHooks& hooks);

// An app-control reply's result as the summary, the JSON result and the trace name it:
// "succeeded", "failed", "canceled" or "other".
const char* replyResultName(int result);

}  // namespace launcher

#endif
