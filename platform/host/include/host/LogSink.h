#ifndef HOST_LOG_SINK_H
#define HOST_LOG_SINK_H

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "MvHandles.h"

namespace host {

// One dlog line as the service wrote it.
struct LogLine {
  char priority;  // Tizen's letter: 'V', 'D', 'I', 'W', 'E', 'F'
  std::string tag;
  std::string text;
  double at;  // seconds since the platform started
};

// Where dlog lines go on the host: the device's log file, stderr, and an in-memory capture that
// tests read. Main loop thread only.
class LogSink {
 public:
  // Appends to `filePath` when it is not empty, from the first line on.
  explicit LogSink(const std::string& filePath);
  ~LogSink();

  // One line in the device log's format. Colour reaches stderr only when it is a terminal.
  void write(char priority, const std::string& tag, const std::string& text, double at);
  // The line that opens a run in the log file, naming the program and its arguments; it is not
  // echoed, as stderr holds one run.
  void beginRun(int argc, char* argv[]);

  void setEchoToStderr(bool echo) { echoToStderr_ = echo; }
  const std::vector<LogLine>& lines() const { return lines_; }
  // The texts of the captured lines with `tag`, in order.
  std::vector<std::string> texts(const std::string& tag) const;
  void clear() { lines_.clear(); }

 private:
  void append(const LogLine& line, bool echo);

  void openFile();

  std::string filePath_;  // until the first line opens it
  MvFilePtr file_;
  bool echoToStderr_ = true;
  std::vector<LogLine> lines_;
};

}  // namespace host

#endif
