#include "host/LaunchOptions.h"

#include <glib.h>

#include <cmath>

namespace host {

namespace {

// The vendor cloud's operations, by the short names the command line accepts.
const char* const kOperationPrefix = "http://talvoro.com/appcontrol/operation/talvoro_cloud/";

bool parseSeconds(const std::string& text, double& seconds) {
  if (text.empty())
    return false;
  char* end = nullptr;
  double value = g_ascii_strtod(text.c_str(), &end);
  if (*end != '\0' || !std::isfinite(value) || value < 0)
    return false;
  seconds = value;
  return true;
}

}  // namespace

std::string expandOperation(const std::string& name) {
  if (name == "backup")
    return std::string(kOperationPrefix) + "backup";
  if (name == "restore")
    return std::string(kOperationPrefix) + "restore";
  if (name == "info")
    return std::string(kOperationPrefix) + "get_backup_info";
  if (name == "none")
    return std::string();
  return name;
}

bool parseLaunchOptions(const std::vector<std::string>& args,
                        LaunchOptions& options,
                        std::string& error) {
  options = LaunchOptions();
  options.requests.emplace_back();
  bool hasOperation = false;

  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--help" || arg == "-h") {
      options.help = true;
      return true;
    }
    if (i + 1 >= args.size()) {
      error =
          arg.rfind("--", 0) == 0 ? arg + " needs a value" : "unexpected argument '" + arg + "'";
      return false;
    }
    const std::string& value = args[++i];
    if (arg == "--device") {
      options.deviceDir = value;
    } else if (arg == "--cloud") {
      options.cloudDir = value;
    } else if (arg == "--deadline") {
      if (!parseSeconds(value, options.deadlineSeconds) || options.deadlineSeconds == 0) {
        error = "--deadline needs a positive number of seconds, not '" + value + "'";
        return false;
      }
    } else if (arg == "--operation") {
      if (hasOperation) {
        error = "a launch request has one --operation; use --then SECONDS before the next";
        return false;
      }
      if (value.empty()) {
        error = "--operation needs backup, restore, info, none or an operation URI";
        return false;
      }
      options.requests.back().operation = expandOperation(value);
      hasOperation = true;
    } else if (arg == "--extra") {
      size_t equals = value.find('=');
      if (equals == std::string::npos || equals == 0) {
        error = "--extra needs KEY=VALUE, not '" + value + "'";
        return false;
      }
      options.requests.back().extras.emplace_back(value.substr(0, equals),
                                                  value.substr(equals + 1));
    } else if (arg == "--then") {
      if (!hasOperation) {
        error = "--then follows a launch request with its --operation";
        return false;
      }
      LaunchRequest next;
      if (!parseSeconds(value, next.delaySeconds)) {
        error = "--then needs a number of seconds, not '" + value + "'";
        return false;
      }
      options.requests.push_back(next);
      hasOperation = false;
    } else {
      error = "unknown option '" + arg + "'";
      return false;
    }
  }

  if (options.deviceDir.empty()) {
    error = "--device DIR is required";
    return false;
  }
  if (options.cloudDir.empty()) {
    error = "--cloud DIR is required";
    return false;
  }
  if (!hasOperation) {
    error = "every launch request needs --operation";
    return false;
  }
  return true;
}

const char* launchUsage() {
  return "usage: morvik-service --device DIR --cloud DIR --operation OP [--extra KEY=VALUE]...\n"
         "                      [--then SECONDS --operation OP [--extra KEY=VALUE]...]...\n"
         "                      [--deadline SECONDS]\n"
         "\n"
         "Runs the service on the emulated watch DIR against the emulated cloud DIR.\n"
         "  --operation OP     backup, restore, info (get backup information), none (a request\n"
         "                     without an operation), or a full operation URI\n"
         "  --extra KEY=VALUE  extra data of the launch request (repeatable)\n"
         "  --then SECONDS     starts another launch request, SECONDS after the previous one\n"
         "  --deadline SECONDS ends a run that has not ended by itself (default 120)\n"
         "\n"
         "Exit status: 0 the service ended itself, 3 the deadline passed first,\n"
         "2 bad usage or an unusable device or cloud directory.\n";
}

}  // namespace host
