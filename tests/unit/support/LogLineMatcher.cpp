#include "LogLineMatcher.h"

namespace morvik_test {

namespace {

const char* const kTag = "morvik-service";
const std::string kErrorOpen = "\x1b[0;31m* Critical * ";
const std::string kInfoOpen = "\x1b[0;32m";
const std::string kClose = "\x1b[0;m";

}  // namespace

bool parseServiceLogLine(const host::LogLine& line, ServiceLogLine& parsed) {
  if (line.tag != kTag)
    return false;
  const std::string& text = line.text;
  // "operator()(12) > " holds two '(': the number follows the last one before ") > ".
  size_t colon = text.find(": ");
  size_t close = text.find(") > ");
  if (colon == std::string::npos || close == std::string::npos || close < colon)
    return false;
  size_t open = text.rfind('(', close);
  if (open == std::string::npos || open < colon)
    return false;
  std::string number = text.substr(open + 1, close - open - 1);
  if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos)
    return false;
  parsed.file = text.substr(0, colon);
  parsed.function = text.substr(colon + 2, open - colon - 2);
  parsed.line = std::stoi(number);

  std::string rest = text.substr(close + 4);
  if (rest.size() < kClose.size() ||
      rest.compare(rest.size() - kClose.size(), kClose.size(), kClose) != 0)
    return false;
  rest.resize(rest.size() - kClose.size());
  if (line.priority == 'E' && rest.compare(0, kErrorOpen.size(), kErrorOpen) == 0) {
    parsed.error = true;
    parsed.message = rest.substr(kErrorOpen.size());
    return true;
  }
  if (line.priority == 'I' && rest.compare(0, kInfoOpen.size(), kInfoOpen) == 0) {
    parsed.error = false;
    parsed.message = rest.substr(kInfoOpen.size());
    return true;
  }
  return false;
}

std::vector<std::string> serviceMessages(const host::LogSink& sink) {
  std::vector<std::string> messages;
  for (const host::LogLine& line : sink.lines()) {
    if (line.tag != kTag)
      continue;
    ServiceLogLine parsed;
    if (parseServiceLogLine(line, parsed))
      messages.push_back((parsed.error ? "E " : "I ") + parsed.message);
    else
      messages.push_back("? " + line.text);
  }
  return messages;
}

}  // namespace morvik_test
