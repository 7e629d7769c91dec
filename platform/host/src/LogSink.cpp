#include "host/LogSink.h"

namespace host {

LogSink::LogSink(const std::string& filePath) {
  if (!filePath.empty())
    file_.reset(fopen(filePath.c_str(), "a"));
}

LogSink::~LogSink() = default;

void LogSink::write(char priority, const std::string& tag, const std::string& text, double at) {
  lines_.push_back({priority, tag, text, at});
  if (file_) {
    fprintf(file_.get(), "%c/%s: %s\n", priority, tag.c_str(), text.c_str());
    fflush(file_.get());
  }
  if (echoToStderr_)
    fprintf(stderr, "%c/%s: %s\n", priority, tag.c_str(), text.c_str());
}

std::vector<std::string> LogSink::texts(const std::string& tag) const {
  std::vector<std::string> result;
  for (const LogLine& line : lines_) {
    if (line.tag == tag)
      result.push_back(line.text);
  }
  return result;
}

}  // namespace host
