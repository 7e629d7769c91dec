#include "Measurement.h"

#include <glib.h>
#include <string.h>

#include <algorithm>
#include <sstream>

namespace bench {

namespace {

const char* const kResultPrefix = "morvik-bench-result ";

}  // namespace

void Measurement::set(const std::string& name, double value) {
  for (auto& entry : values_) {
    if (entry.first == name) {
      entry.second = value;
      return;
    }
  }
  values_.emplace_back(name, value);
}

bool Measurement::has(const std::string& name) const {
  return std::any_of(values_.begin(), values_.end(),
                     [&name](const auto& entry) { return entry.first == name; });
}

double Measurement::get(const std::string& name) const {
  for (const auto& entry : values_) {
    if (entry.first == name)
      return entry.second;
  }
  return 0;
}

double Measurement::peakAboveBaselineBytes() const {
  return std::max(0.0, get("peak_kb") - get("baseline_kb")) * 1024;
}

std::string Measurement::format() const {
  std::string line = kResultPrefix;
  for (size_t i = 0; i < values_.size(); ++i) {
    char number[G_ASCII_DTOSTR_BUF_SIZE];
    g_ascii_formatd(number, sizeof number, "%.3f", values_[i].second);
    line += (i ? " " : "") + values_[i].first + "=" + number;
  }
  return line;
}

bool Measurement::parse(const std::string& output, Measurement& measurement, std::string& error) {
  std::istringstream lines(output);
  std::string line;
  std::string found;
  while (std::getline(lines, line)) {
    if (line.rfind(kResultPrefix, 0) == 0)
      found = line.substr(strlen(kResultPrefix));
  }
  if (found.empty()) {
    error = "the run reported no result";
    return false;
  }
  Measurement parsed;
  std::istringstream fields(found);
  std::string field;
  while (fields >> field) {
    const size_t equals = field.find('=');
    const std::string number = equals == std::string::npos ? "" : field.substr(equals + 1);
    char* end = nullptr;
    const double value = g_ascii_strtod(number.c_str(), &end);
    if (equals == 0 || number.empty() || *end != '\0') {
      error = "unreadable result field '" + field + "'";
      return false;
    }
    parsed.set(field.substr(0, equals), value);
  }
  measurement = std::move(parsed);
  return true;
}

Measurement Measurement::reduce(const std::vector<Measurement>& runs,
                                const std::function<double(const std::vector<double>&)>& pick) {
  Measurement result;
  if (runs.empty())
    return result;
  for (const auto& entry : runs.front().values()) {
    std::vector<double> samples;
    for (const Measurement& run : runs)
      samples.push_back(run.get(entry.first));
    std::sort(samples.begin(), samples.end());
    result.set(entry.first, pick(samples));
  }
  return result;
}

Measurement Measurement::median(const std::vector<Measurement>& runs) {
  return reduce(runs, [](const std::vector<double>& sorted) {
    const size_t middle = sorted.size() / 2;
    return sorted.size() % 2 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
  });
}

Measurement Measurement::minimum(const std::vector<Measurement>& runs) {
  return reduce(runs, [](const std::vector<double>& sorted) { return sorted.front(); });
}

}  // namespace bench
