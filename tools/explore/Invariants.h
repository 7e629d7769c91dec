#ifndef MORVIK_EXPLORE_INVARIANTS_H
#define MORVIK_EXPLORE_INVARIANTS_H

#include <json-glib/json-glib.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "DeviceLimits.h"
#include "Scenario.h"
#include "Violation.h"

namespace explore {

// What the explorer has each service run write in its directory, beside the watch and the cloud.
inline constexpr const char* kRunResult = "result.json";
inline constexpr const char* kRunTrace = "trace.json";  // kept with a failed run, to be drawn
inline constexpr const char* kRunOut = "service.out";
inline constexpr const char* kRunErr = "service.err";

// What one explored run left to judge: its scenario, its directories, how the service ended,
// what it printed, and its JSON result.
struct RunFacts {
  const Scenario* scenario = nullptr;
  std::string workDir;  // the explorer's, holding every run's directory
  std::string root;     // the run's own directory
  std::string device;   // the watch
  std::string cloud;    // the cloud
  std::string scratch;  // HOME and TMPDIR of the service: must stay empty
  int status = -1;      // the exit status, when the service exited
  int signal = 0;       // the signal that ended it, 0 when it exited
  bool stuck = false;   // killed by the explorer's own watchdog
  std::string out, err;
  JsonObject* result = nullptr;         // null when the run left none
  RunItems items;                       // what the run began with and its cloud ended with
  std::string resultError;              // why there is none
  std::set<std::string> entriesBefore;  // of `root`, before the run
  std::vector<std::string> writes;      // every file the service wrote, when audited
  bool audited = false;
  // Restores the stored set `set` onto a blank watch and compares it with the run's watch,
  // but for the items named in `leftOut`.
  std::function<
      void(unsigned long long set, const std::vector<std::string>& leftOut, Violations& violations)>
      checkStoredSet;
};

// One thing every explored run must hold. To add one, write a function that reports through
// `violations` and add it to the list in Invariants.cpp: it then holds for every seed.
struct Invariant {
  const char* name;
  void (*check)(const RunFacts& run, const char* name, Violations& violations);
};

const std::vector<Invariant>& invariants();

// The first lines of a sanitizer's report in `text` (its kind, and its first frame in our
// code), or "" when there is none.
std::string sanitizerReport(const std::string& text);

// "SIGSEGV" for 11.
std::string signalName(int signal);

}  // namespace explore

#endif
