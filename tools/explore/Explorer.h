#ifndef MORVIK_EXPLORE_EXPLORER_H
#define MORVIK_EXPLORE_EXPLORER_H

#include <string>
#include <vector>

#include "Scenario.h"
#include "Violation.h"
#include "WriteAudit.h"

namespace explore {

// What one explored run broke; no violations means every invariant held.
struct RunVerdict {
  Scenario scenario;
  int status = -1;  // the exit status, when the service exited
  int signal = 0;   // the signal that ended it
  Violations violations;
  std::vector<std::string> outcomes;  // each cloud request's outcome, for the mix
  // A failed run's traces, kept in its directory: its own, then each check restore's.
  std::vector<std::string> traces;
};

// Runs scenarios through the real morvik-service binary, each in a work directory of its own
// with the scenario's platform personality in its device.json, and checks every invariant of
// invariants() on each run (Invariants.h). Thread safe: each run works on its own directories.
class Explorer {
 public:
  // `workDir` must exist; `serviceBinary` is the morvik-service to run.
  Explorer(std::string serviceBinary, std::string workDir, bool keepRuns);

  // Makes the clean backups that seeded clouds get (of the sample watch, and of the sample watch
  // with an idle clock longer than vconf's documented limit, from a watch without that limit),
  // and starts the audit of writes. False with a one-line reason. `note` says, when it is not
  // empty, what the audit cannot watch.
  bool prepare(std::string& error, std::string& note);

  RunVerdict run(const Scenario& scenario) const;

  // Removes the work directory and everything in it.
  void removeWorkDir() const;

 private:
  struct Output;

  bool runService(const std::string& root,
                  const std::string& scratch,
                  const std::vector<std::string>& args,
                  Output& output,
                  std::string& error) const;
  // Backs up a new sample watch in `dir`; `set` gets the path of the set it stored.
  bool cleanBackup(const std::string& dir,
                   bool longIdleClock,
                   std::string& set,
                   std::string& error) const;
  void checkStoredSet(const Scenario& scenario,
                      const std::string& root,
                      const std::string& cloud,
                      const std::string& device,
                      const std::string& scratch,
                      unsigned long long set,
                      const std::vector<std::string>& leftOut,
                      Violations& violations) const;

  std::string serviceBinary_;
  std::string workDir_;
  bool keepRuns_;
  std::string goldenSet_;         // a record file holding a clean backup of the sample watch
  std::string longIdleClockSet_;  // the same, of the sample watch with a long idle clock
  mutable WriteAudit audit_;
};

}  // namespace explore

#endif
