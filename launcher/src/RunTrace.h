// A launched run as a timeline: the Chrome trace-event format, which Perfetto and chrome://tracing
// open. Internal to the launcher.
#ifndef LAUNCHER_RUN_TRACE_H
#define LAUNCHER_RUN_TRACE_H

#include <string>

#include "launcher/LaunchOptions.h"
#include "launcher/RunReport.h"

namespace host {
class Platform;
}  // namespace host

namespace launcher {

// The process ID every event of a run carries; each app has a thread (track) of its own.
constexpr int kTraceProcessId = 1;

// The run's boundary record as trace-event JSON: one track per app (the launcher, the service,
// each app it talked to, the cloud library), each launch request, reply, message, store wait and
// cloud callback an event with its data as arguments, each delivery a flow from its sender to its
// receiver named after what it carries. Events come in the order they happened.
std::string runTraceJson(const host::Platform& platform);

// Writes the trace where --trace asks (nothing without it); a write that fails is a failure of
// the run, named in `report`.
void writeRunTrace(const host::Platform& platform, const LaunchOptions& options, RunReport& report);

}  // namespace launcher

#endif
