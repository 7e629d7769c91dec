#include "host/LogSink.h"

#include <fcntl.h>
#include <glib.h>
#include <glib/gstdio.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

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
  const int fd =
      open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644);
  struct stat info;
  if (fd < 0 || fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
    if (fd >= 0)
      close(fd);
    return;
  }
  file_.reset(fdopen(fd, "a"));
  if (!file_)
    close(fd);
}

void LogSink::write(char priority, const std::string& tag, const std::string& text, double at) {
  lines_.push_back({priority, tag, text, at});
  if (!filePath_.empty())
    openFile();
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
