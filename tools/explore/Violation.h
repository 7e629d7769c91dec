#ifndef MORVIK_EXPLORE_VIOLATION_H
#define MORVIK_EXPLORE_VIOLATION_H

#include <string>
#include <vector>

namespace explore {

// One thing an explored run broke: the invariant, and where the run's result shows it.
struct Violation {
  std::string invariant;
  unsigned request = 0;  // the launch request concerned, 0 for the run as a whole
  std::string field;     // the member of the JSON result, empty when none
  std::string text;

  // "invariant: request N, field F: text", leaving out what is empty; a run of one character
  // longer than 16 is shown as "x...(N times)".
  std::string describe() const;
};

using Violations = std::vector<Violation>;

}  // namespace explore

#endif
