#ifndef MV_DEVICE_LOG_H
#define MV_DEVICE_LOG_H

#include <string>
#include <vector>

// One line of the device's log as its log reader prints it ("threadtime"):
//   "11-22 18:26:40.123+0100 I/morvik-service(P 4242, T 4242): message"
struct MvDeviceLogLine {
  std::string time;  // "11-22 18:26:40.123+0100", local time
  char priority = 'I';
  std::string tag;
  int pid = 0;
  int tid = 0;
  std::string message;
};

// The current local time in the line's shape.
std::string mvDeviceLogTime();

// The lines of `line` as they are written: one per line of its message, each with the whole
// header, as the device's log reader prints a multi-line message. With `colour` the message's
// own colour sequences pass and an open colour is reset at the end of each line (a message cut
// at the line buffer may have lost its reset); without, they are removed. Other control
// characters are shown in caret notation ("^[") so that no message can drive a terminal.
std::vector<std::string> mvFormatDeviceLogLine(const MvDeviceLogLine& line, bool colour);

// Reads a line written by mvFormatDeviceLogLine(). False when it is not in that shape.
bool mvParseDeviceLogLine(const std::string& text, MvDeviceLogLine& line);

// The priority letter for a level's letter or name ("e", "error", "W", "warn", ...); 0 when
// there is no such level. Levels rise V, D, I, W, E, F.
char mvLogPriorityByName(const std::string& name);
int mvLogPriorityRank(char priority);

// The platform's own tag in the device's log...
constexpr const char kMvPlatformLogTag[] = "morvik-host";
// ...which also opens each run, with this prefix before the run's arguments.
constexpr const char kMvRunMarkerPrefix[] = "run begins: ";
bool mvIsRunMarker(const MvDeviceLogLine& line);

#endif
