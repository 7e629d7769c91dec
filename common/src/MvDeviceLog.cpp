#include "MvDeviceLog.h"

#include <glib.h>

#include <cctype>
#include <cstdio>

namespace {

const char kEscape = '\x1b';
const char* const kColourReset = "\x1b[0;m";

// A colour sequence that only resets: "ESC[m", "ESC[0m", "ESC[0;m".
bool isReset(const std::string& parameters) {
  return parameters.find_first_not_of("0;") == std::string::npos;
}

// One line of a message, made safe for its stream.
std::string render(const std::string& text, bool colour) {
  std::string out;
  out.reserve(text.size() + 8);
  bool open = false;
  for (size_t i = 0; i < text.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c == kEscape && i + 1 < text.size() && text[i + 1] == '[') {
      size_t end = i + 2;
      while (end < text.size() &&
             (isdigit(static_cast<unsigned char>(text[end])) || text[end] == ';'))
        ++end;
      if (end == text.size())
        break;  // a sequence cut at the line buffer
      if (text[end] == 'm') {
        if (colour) {
          out.append(text, i, end + 1 - i);
          open = !isReset(text.substr(i + 2, end - i - 2));
        }
        i = end;
        continue;
      }
    }
    if (c < 0x20 && c != '\t') {
      out += '^';
      out += static_cast<char>(c + 0x40);
    } else if (c == 0x7f) {
      out += "^?";
    } else {
      out += static_cast<char>(c);
    }
  }
  if (open)
    out += kColourReset;
  return out;
}

bool readNumber(const std::string& text, size_t& at, int& value) {
  while (at < text.size() && text[at] == ' ')
    ++at;
  const size_t start = at;
  while (at < text.size() && isdigit(static_cast<unsigned char>(text[at])) && at - start < 9)
    ++at;
  if (at == start)
    return false;
  value = std::stoi(text.substr(start, at - start));
  return true;
}

bool expect(const std::string& text, size_t& at, const char* literal) {
  if (text.compare(at, std::char_traits<char>::length(literal), literal) != 0)
    return false;
  at += std::char_traits<char>::length(literal);
  return true;
}

// "MM-DD HH:MM:SS.mmm+zzzz"
bool isDeviceLogTime(const std::string& text) {
  static const char kShape[] = "00-00 00:00:00.000+0000";
  if (text.size() != sizeof kShape - 1)
    return false;
  for (size_t i = 0; i < text.size(); ++i) {
    const bool digit = isdigit(static_cast<unsigned char>(text[i]));
    if (kShape[i] == '0'
            ? !digit
            : (kShape[i] == '+' ? text[i] != '+' && text[i] != '-' : text[i] != kShape[i]))
      return false;
  }
  return true;
}

}  // namespace

std::string mvDeviceLogTime() {
  const gint64 now = g_get_real_time();
  g_autoptr(GDateTime) local = g_date_time_new_from_unix_local(now / G_USEC_PER_SEC);
  if (!local)
    return "01-01 00:00:00.000+0000";
  g_autofree char* seconds = g_date_time_format(local, "%m-%d %H:%M:%S");
  g_autofree char* zone = g_date_time_format(local, "%z");
  char millis[8];
  snprintf(millis, sizeof millis, ".%03d", static_cast<int>((now % G_USEC_PER_SEC) / 1000));
  return std::string(seconds) + millis + zone;
}

std::vector<std::string> mvFormatDeviceLogLine(const MvDeviceLogLine& line, bool colour) {
  char ids[48];
  snprintf(ids, sizeof ids, "(P%5d, T%5d): ", line.pid, line.tid);
  std::string tag = line.tag;
  if (tag.size() < 8)
    tag.resize(8, ' ');
  const std::string header = line.time + " " + line.priority + "/" + tag + ids;
  std::vector<std::string> lines;
  size_t start = 0;
  for (;;) {
    const size_t end = line.message.find('\n', start);
    lines.push_back(header + render(line.message.substr(start, end - start), colour));
    if (end == std::string::npos)
      return lines;
    start = end + 1;
  }
}

bool mvParseDeviceLogLine(const std::string& text, MvDeviceLogLine& line) {
  if (text.size() < 28 || !isDeviceLogTime(text.substr(0, 23)) || text[23] != ' ' ||
      mvLogPriorityRank(text[24]) < 0 || text[25] != '/')
    return false;
  // The tag ends at the first "(P<pid>, T<tid>): " that reads whole.
  for (size_t open = text.find("(P", 26); open != std::string::npos;
       open = text.find("(P", open + 1)) {
    size_t at = open + 2;
    int pid = 0;
    int tid = 0;
    if (!readNumber(text, at, pid) || !expect(text, at, ", T") || !readNumber(text, at, tid) ||
        !expect(text, at, "): "))
      continue;
    line.time = text.substr(0, 23);
    line.priority = text[24];
    line.tag = text.substr(26, open - 26);
    line.tag.erase(line.tag.find_last_not_of(' ') + 1);
    line.pid = pid;
    line.tid = tid;
    line.message = text.substr(at);
    return true;
  }
  return false;
}

char mvLogPriorityByName(const std::string& name) {
  static const struct {
    char letter;
    const char* name;
  } kLevels[] = {{'V', "verbose"}, {'D', "debug"}, {'I', "info"},
                 {'W', "warn"},    {'E', "error"}, {'F', "fatal"}};
  g_autofree char* lower = g_ascii_strdown(name.c_str(), -1);
  for (const auto& level : kLevels) {
    if ((name.size() == 1 && g_ascii_toupper(name[0]) == level.letter) ||
        g_strcmp0(lower, level.name) == 0)
      return level.letter;
  }
  return 0;
}

int mvLogPriorityRank(char priority) {
  static const char kOrder[] = "VDIWEF";
  for (int i = 0; kOrder[i] != '\0'; ++i) {
    if (kOrder[i] == priority)
      return i;
  }
  return -1;
}

bool mvIsRunMarker(const MvDeviceLogLine& line) {
  return line.tag == kMvPlatformLogTag && line.message.rfind(kMvRunMarkerPrefix, 0) == 0;
}
