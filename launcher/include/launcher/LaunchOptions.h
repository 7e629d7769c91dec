#ifndef LAUNCHER_LAUNCH_OPTIONS_H
#define LAUNCHER_LAUNCH_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/BoundaryRecord.h"

namespace launcher {

// One launch request of a run.
struct LaunchRequest {
  std::string operation;  // empty: a request without an operation
  host::KeyValues extras;
  double delaySeconds = 0;  // after the previous request (after start for the first)
  std::optional<unsigned long long> setId = std::nullopt;  // a restore's set; none: the newest
};

// The command line of a launched service app.
struct LaunchOptions {
  enum class Action { kRun, kHelp, kVersion };

  Action action = Action::kRun;
  std::string deviceDir;
  std::string cloudDir;
  std::vector<LaunchRequest> requests;
  double deadlineSeconds = 120;
  std::string jsonPath;                  // empty: no JSON result; "-": standard output
  std::string tracePath;                 // empty: no trace of the run
  std::optional<uint64_t> scheduleSeed;  // deliveries on a seeded schedule, simulated clock
  std::vector<std::string> arguments;    // as given, for the log's run marker
};

// The longest deadline or gap a command line may ask for, in seconds.
constexpr double kMaxLaunchSeconds = 7 * 24 * 60 * 60;

// Parses argv (without argv[0]). Returns false with a one-line reason on bad input.
bool parseLaunchOptions(const std::vector<std::string>& args,
                        LaunchOptions& options,
                        std::string& error);

// Short names of the cloud operations: "backup", "restore", "info".
std::string expandOperation(const std::string& name);

// The --help text: options, operations and exit statuses.
std::string launchUsage(const std::string& program);

}  // namespace launcher

#endif
