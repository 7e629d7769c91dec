#include "host/LogSink.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "MvDeviceLog.h"
#include "host/HostLog.h"

namespace host {

namespace {

bool stderrIsTerminal() {
  static const bool terminal = isatty(STDERR_FILENO) == 1;
  return terminal;
}

// The argument as a shell reads it back.
std::string quoted(const char* argument) {
  const std::string text = argument;
  if (!text.empty() && text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                              "0123456789_@%+=:,./-") == std::string::npos)
    return text;
  g_autofree char* shell = g_shell_quote(argument);
  return shell;
}

}  // namespace

LogSink::LogSink(const std::string& filePath) : filePath_(filePath) {}

LogSink::~LogSink() = default;

void LogSink::openFile() {
  const std::string path = filePath_;
  filePath_.clear();
  if (path.empty())
    return;
  // Made with the first line, so a run refused before it leaves nothing behind; a link planted
  // at the log's name is not followed, nor is a FIFO waited on.
  g_autofree char* dir = g_path_get_dirname(path.c_str());
  if (g_mkdir_with_parents(dir, 0755) != 0)
    return;
  MvFd fd(open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
               0644));
  struct stat info;
  if (fd.get() < 0 || fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode))
    return;
  file_.reset(fdopen(fd.get(), "a"));
  if (file_)
    fd.release();
}

void LogSink::write(char priority, const std::string& tag, const std::string& text, double at) {
  append({priority, tag, text, at}, echoToStderr_);
}

void LogSink::beginRun(int argc, char* argv[]) {
  std::string text = kMvRunMarkerPrefix;
  for (int i = 0; i < argc; ++i) {
    if (i == 0) {
      g_autofree char* program = g_path_get_basename(argv[0]);
      text += quoted(program);
    } else {
      text += " " + quoted(argv[i]);
    }
  }
  append({'I', kHostLogTag, text, 0}, false);
}

void LogSink::append(const LogLine& line, bool echo) {
  lines_.push_back(line);
  if (!filePath_.empty())
    openFile();
  if (!file_ && !echo)
    return;
  const MvDeviceLogLine formatted{
      mvDeviceLogTime(),          line.priority, line.tag, static_cast<int>(getpid()),
      static_cast<int>(gettid()), line.text};
  if (file_) {
    for (const std::string& text : mvFormatDeviceLogLine(formatted, false))
      fprintf(file_.get(), "%s\n", text.c_str());
    fflush(file_.get());
  }
  if (echo) {
    for (const std::string& text : mvFormatDeviceLogLine(formatted, stderrIsTerminal()))
      fprintf(stderr, "%s\n", text.c_str());
  }
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
