#ifndef BENCH_MEASUREMENT_H
#define BENCH_MEASUREMENT_H

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace bench {

// Named figures of one measured run, in the order they were added: phase times in
// milliseconds ("<phase>_ms"), "total_ms", CPU time in milliseconds ("cpu_ms"), and resident
// memory ("baseline_kb", "peak_kb").
class Measurement {
 public:
  void set(const std::string& name, double value);
  bool has(const std::string& name) const;
  // 0 when absent.
  double get(const std::string& name) const;
  const std::vector<std::pair<std::string, double>>& values() const { return values_; }

  // Memory the run took above the resident size it started from, in bytes.
  double peakAboveBaselineBytes() const;

  // One line, "morvik-bench-result name=value ...", that a parent reads back with parse().
  std::string format() const;
  // Reads the result line out of a child's whole output. False with a one-line reason.
  static bool parse(const std::string& output, Measurement& measurement, std::string& error);

  // The median, and the minimum, of each figure over `runs` (all of them measured the same
  // way): each figure on its own, so a minimum's figures may come from different runs.
  static Measurement median(const std::vector<Measurement>& runs);
  static Measurement minimum(const std::vector<Measurement>& runs);

 private:
  // Each figure of the first run, set to `pick` of that figure's samples, sorted, over all runs.
  static Measurement reduce(const std::vector<Measurement>& runs,
                            const std::function<double(const std::vector<double>&)>& pick);

  std::vector<std::pair<std::string, double>> values_;
};

}  // namespace bench

#endif
