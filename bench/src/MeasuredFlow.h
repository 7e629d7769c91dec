#ifndef BENCH_MEASURED_FLOW_H
#define BENCH_MEASURED_FLOW_H

#include <string>
#include <vector>

#include "Measurement.h"
#include "host/Platform.h"

namespace bench {

// Phases of a finished backup read off the platform's record: "collect" (launch request to the
// answer the service gives once it has the watch data), "build" (to the document's log line,
// logged once the text is generated), "upload" (the record file, the cloud storing it, the exit).
bool backupPhases(host::Platform& platform, Measurement& phases, std::string& error);
// Phases of a finished restore: "download" (launch request to the restoration callback: the
// cloud fetched the set and wrote the record file), "parse" (reading the record file and the
// document, to the first request the service sends), "transfer" (installs, settings, photos,
// the record list back, the exit).
bool restorePhases(host::Platform& platform, Measurement& phases, std::string& error);

// A child process's whole job: runs the service with `launchArgs` (the launcher's own
// arguments) as morvik-service would on the emulated watch, with the dlog echo off, and prints
// the phases, the total, the CPU time ("cpu_ms", from the loaded watch to the end of the run)
// and the memory as a result line. `kind` is "backup" or "restore".
// Returns the exit status.
int runMeasuredFlow(const std::string& kind, const std::vector<std::string>& launchArgs);

}  // namespace bench

#endif
