#ifndef MORVIK_EXPLORE_EXPLORER_H
#define MORVIK_EXPLORE_EXPLORER_H

#include <string>
#include <vector>

#include "Scenario.h"

namespace explore {

// What one explored run broke; no violations means every invariant held.
struct RunVerdict {
  Scenario scenario;
  int status = -1;
  std::vector<std::string> violations;
};

// Runs scenarios through the real morvik-service binary, each in a work directory of its own,
// and checks what every run must hold whatever its schedule: no crash or sanitizer report, an
// exit status and a summary that agree with the run's result, no launch request answered twice,
// each completion reported once, a readable device profile, no file outside the watch and the
// cloud, no temporary file left behind, and every stored set restoring onto a blank watch to
// the watch it came from, but for what the run named as left out. Thread safe: each run works
// on its own directories.
class Explorer {
 public:
  // `workDir` must exist; `serviceBinary` is the morvik-service to run.
  Explorer(std::string serviceBinary, std::string workDir, bool keepRuns);

  // Makes the reference watches and the clean backup that seeded clouds get. False with a
  // one-line reason.
  bool prepare(std::string& error);

  RunVerdict run(const Scenario& scenario) const;

  // Removes the work directory and everything in it.
  void removeWorkDir() const;

 private:
  struct Paths;

  bool runService(const Paths& paths,
                  const std::string& device,
                  const std::string& cloud,
                  const std::string& json,
                  const std::vector<std::string>& launch,
                  uint64_t seed,
                  int& status,
                  std::string& out,
                  std::string& err,
                  std::string& error) const;
  void checkStoredSet(const Scenario& scenario,
                      const Paths& paths,
                      unsigned long long set,
                      const std::vector<std::string>& leftOut,
                      std::vector<std::string>& violations) const;

  std::string serviceBinary_;
  std::string workDir_;
  bool keepRuns_;
  std::string goldenSet_;  // a record file holding a clean backup of the sample watch
};

}  // namespace explore

#endif
