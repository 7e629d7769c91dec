#ifndef MORVIK_TEST_LOG_LINE_MATCHER_H
#define MORVIK_TEST_LOG_LINE_MATCHER_H

#include <string>
#include <vector>

#include "host/LogSink.h"

namespace morvik_test {

// A service log line taken apart: "file: function(line) > " + coloured message.
struct ServiceLogLine {
  bool error = false;  // error line (red, "* Critical * "), otherwise information (green)
  std::string file;
  std::string function;
  int line = 0;
  std::string message;
};

// Parses one captured dlog line of the service. Returns false when the line does not have the
// documented shape byte for byte (prefix, escape sequences, priority matching the colour).
bool parseServiceLogLine(const host::LogLine& line, ServiceLogLine& parsed);

// "E message" / "I message" for every line of the service's tag, in order; a line that breaks
// the format, or that the source does not log where its prefix says (whereTheSourceDiffers),
// shows as "? <raw text>: why" so that a test comparing these fails on it.
std::vector<std::string> serviceMessages(const host::LogSink& sink);

// The service's lines in `text`, as its log reader prints them (stderr, the log file), that do
// not have its format or that the source does not log where their prefix says; each with why.
std::vector<std::string> linesTheSourceDoesNotLog(const std::string& text);

// Why the source does not log `line` where its prefix says, or "" when it does: in its file,
// inside a definition of its function (a lambda inside one for "operator()"), on a line that
// logs its message's format or hands a shared step its place (MVSVC_HERE).
std::string whereTheSourceDiffers(const ServiceLogLine& line);

}  // namespace morvik_test

#endif
