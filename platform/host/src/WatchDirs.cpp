#include "host/WatchDirs.h"

#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "MvHandles.h"

namespace host {

bool checkWatchDirectory(const std::string& deviceDir,
                         const std::string& relative,
                         bool create,
                         std::string& error) {
  // The watch's root is where the user put it, a link or not.
  MvFd dir(open(deviceDir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (dir.get() < 0) {
    error = "cannot open " + deviceDir + ": " + g_strerror(errno);
    return false;
  }
  std::string reached;
  g_auto(GStrv) components = g_strsplit(relative.c_str(), "/", -1);
  for (char** component = components; *component; ++component) {
    if (**component == '\0')
      continue;
    reached += (reached.empty() ? "" : "/") + std::string(*component);
    if (create && mkdirat(dir.get(), *component, 0755) != 0 && errno != EEXIST) {
      error = "cannot make " + reached + " in " + deviceDir + ": " + g_strerror(errno);
      return false;
    }
    MvFd next(openat(dir.get(), *component, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (next.get() < 0) {
      const int why = errno;
      struct stat info;
      const bool link =
          fstatat(dir.get(), *component, &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(info.st_mode);
      error = reached + " in " + deviceDir +
              (link ? std::string(" is a link, not a directory of the watch")
                    : std::string(": ") + g_strerror(why));
      return false;
    }
    dir.reset(next.release());
  }
  return true;
}

}  // namespace host
