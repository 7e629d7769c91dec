#ifndef HOST_LAUNCH_OPTIONS_H
#define HOST_LAUNCH_OPTIONS_H

#include <string>
#include <vector>

#include "host/BoundaryRecord.h"

namespace host {

// One launch request of a run.
struct LaunchRequest {
  std::string operation;  // empty: a request without an operation
  KeyValues extras;
  double delaySeconds = 0;  // after the previous request (after start for the first)
};

// The command line of a launched service app.
struct LaunchOptions {
  std::string deviceDir;
  std::string cloudDir;
  std::vector<LaunchRequest> requests;
  double deadlineSeconds = 120;
  bool help = false;
};

// Parses argv (without argv[0]). Returns false with a one-line reason on bad input.
bool parseLaunchOptions(const std::vector<std::string>& args,
                        LaunchOptions& options,
                        std::string& error);

// Short names of the cloud operations: "backup", "restore", "info".
std::string expandOperation(const std::string& name);

const char* launchUsage();

}  // namespace host

#endif
