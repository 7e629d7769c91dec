#include "LogLineMatcher.h"

#include <glib.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

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
    std::string differs;
    if (!parseServiceLogLine(line, parsed))
      messages.push_back("? " + line.text);
    else if (!(differs = whereTheSourceDiffers(parsed)).empty())
      messages.push_back("? " + line.text + ": " + differs);
    else
      messages.push_back((parsed.error ? "E " : "I ") + parsed.message);
  }
  return messages;
}

std::vector<std::string> linesTheSourceDoesNotLog(const std::string& text) {
  static const std::regex shape(
      R"(([EI])/morvik-service\([^)]*\): ([^:]+): (.+)\((\d+)\) > (\* Critical \* )?(.*))");
  std::vector<std::string> wrong;
  std::istringstream in(text);
  std::smatch match;
  for (std::string each; std::getline(in, each);) {
    if (each.find("/morvik-service(") == std::string::npos)
      continue;
    if (!std::regex_search(each, match, shape) || (match[1] == "E") != match[5].matched) {
      wrong.push_back(each + ": not a line of the service's format");
      continue;
    }
    const std::string differs =
        whereTheSourceDiffers({match[1] == "E", match[2], match[3], std::stoi(match[4]), match[6]});
    if (!differs.empty())
      wrong.push_back(each + ": " + differs);
  }
  return wrong;
}

std::string whereTheSourceDiffers(const ServiceLogLine& line) {
  static std::map<std::string, std::vector<std::string>> sources;
  std::vector<std::string>& text = sources[line.file];
  std::ifstream source(text.empty() ? MORVIK_SOURCE_DIR "/service-app/src/" + line.file : "");
  for (std::string each; std::getline(source, each);)
    text.push_back(each);
  const std::string where = "line " + std::to_string(line.line);
  if (line.line < 1 || static_cast<size_t>(line.line) > text.size())
    return "no " + where + " in service-app/src/" + line.file;
  const std::string& logged = text[line.line - 1];
  // The first string on the line, as the compiler reads it, with its conversions as wildcards.
  std::string format;
  for (size_t at = logged.find('"') + 1; at != 0 && at < logged.size() && logged[at] != '"'; ++at) {
    if (logged[at] == '%' && at + 1 < logged.size()) {
      format += '*';
      at = logged.find_first_not_of("lzh", at + 1);
    } else {
      format += logged[at] == '\\' ? logged[++at] : logged[at];
    }
  }
  if (logged.find("MVSVC_HERE") == std::string::npos &&
      !g_pattern_match_simple(format.c_str(), line.message.c_str()))
    return where + " logs no such message: " + logged;
  // The definition around it starts at the last line that does at the margin; a lambda
  // encloses the line when the brace it opens is still open there.
  bool lambda = false;
  long depth = 0, lowest = 0;
  for (size_t at = line.line - 1; at-- > 0;) {
    const std::string& above = text[at];
    depth +=
        std::count(above.begin(), above.end(), '}') - std::count(above.begin(), above.end(), '{');
    lambda = lambda || (depth < lowest && above.find("](") != std::string::npos);
    lowest = std::min(lowest, depth);
    if (above.empty() || above[0] == ' ' || above[0] == '#' || above[0] == '/')
      continue;
    if (above[0] == '}' || above.find('(') == std::string::npos)
      return where + " is in no function";
    const std::string head = above.substr(0, above.find('('));
    const size_t colons = head.rfind("::");
    const std::string name = colons == std::string::npos ? head : head.substr(colons + 2);
    std::string signature;
    for (size_t next = at; next < text.size() && signature.find('{') == std::string::npos; ++next)
      signature += text[next];
    // A shared step takes its caller's place and never names itself; nor does a helper outside
    // the classes.
    if (colons == std::string::npos || signature.find("MvSvcSourceLocation") != std::string::npos)
      return where + " is in " + name + ", which logs for its caller";
    const std::string shown = lambda ? "operator()" : name;
    if (line.function != shown)
      return where + " is in " + shown + ", not " + line.function;
    // Where a handler is a lambda or a member stands in for the design's, the design's name.
    const std::map<std::string, std::string> designed = {
        {"Failed to collect watch backup data", "operator()"},
        {"Failed to get watch main vconf key", "getJsonStr"},
        {"Failed to get watch sub key", "getJsonStr"},
    };
    auto member = designed.find(line.message);
    if (member != designed.end() && member->second != line.function)
      return line.message + " belongs to " + member->second + ", not " + line.function;
    return "";
  }
  return where + " is in no function";
}

}  // namespace morvik_test
