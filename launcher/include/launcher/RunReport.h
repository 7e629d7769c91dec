#ifndef LAUNCHER_RUN_REPORT_H
#define LAUNCHER_RUN_REPORT_H

#include <json-glib/json-glib.h>

#include <string>
#include <vector>

#include "MvHandles.h"

namespace launcher {

// Exit statuses of a launched run.
enum ExitStatus {
  kStatusSucceeded = 0,      // the service ended itself and every flow succeeded
  kStatusCreateRefused = 1,  // onCreate() returned false
  kStatusUsage = 2,          // bad command line, or an unusable device or cloud directory
  kStatusDeadline = 3,       // the deadline passed before the service ended itself
  kStatusFlowFailed = 4,     // the service ended itself, but a flow failed or was left undone
  kStatusOutputFailed = 5,   // the summary or the JSON result could not be written whole
  kStatusSignalBase = 128,   // + N: ended by signal N
};

// What a launched run did, as the launcher and the emulated watch saw it: summary lines for
// people, the same facts as one JSON object for scripts, and whether a flow failed. Main loop
// thread only.
class RunReport {
 public:
  RunReport();
  ~RunReport();

  RunReport(const RunReport&) = delete;
  RunReport& operator=(const RunReport&) = delete;

  // A summary line: `area` in a column of its own, then `text` (bytes that are not UTF-8 shown
  // as \xHH).
  void line(const std::string& area, const std::string& text);
  // A line that names a failure; it is also listed under "failures" in the JSON.
  void failure(const std::string& area, const std::string& text);
  bool failed() const { return !failures_.empty(); }

  // Sets the JSON member `name` to `node`, which the report takes over.
  void set(const std::string& name, JsonNode* node);
  // Sets the JSON member `name` to `bytes` as text (MvText.h's rule).
  void setText(const std::string& name, const std::string& bytes);

  // The summary lines, in order.
  const std::vector<std::string>& lines() const { return lines_; }
  // The JSON object, with "failures" added, as compact or indented text.
  std::string json(bool pretty) const;

 private:
  std::vector<std::string> lines_;
  std::vector<std::string> failures_;
  MvJsonObjectPtr members_;
};

// A JSON node for a string (as text: MvText.h's rule), an integer, a number or a boolean, owned
// by the caller.
JsonNode* jsonString(const std::string& text);
JsonNode* jsonInt(gint64 value);
JsonNode* jsonDouble(double value);
JsonNode* jsonBool(bool value);

}  // namespace launcher

#endif
