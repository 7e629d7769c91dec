#ifndef MORVIK_EXPLORE_WRITE_AUDIT_H
#define MORVIK_EXPLORE_WRITE_AUDIT_H

#include <sys/types.h>

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "MvHandles.h"

namespace explore {

// Every file that a watched process writes, wherever it lies, through fanotify on the file
// systems that hold the root, the temporary directories and HOME. Needs root; without it the
// audit stays off and says why. Thread safe.
class WriteAudit {
 public:
  WriteAudit();
  ~WriteAudit();

  WriteAudit(const WriteAudit&) = delete;
  WriteAudit& operator=(const WriteAudit&) = delete;

  // Starts watching; false with a one-line reason when the system does not allow it.
  bool start(std::string& reason);
  bool active() const { return fd_.get() >= 0; }

  // Runs `spawn`, which returns the new process's ID (0 on failure), and watches that process
  // from its first write on.
  pid_t spawnWatched(const std::function<pid_t()>& spawn);
  // The files that process `pid` wrote (closed after writing), once it has been reaped; it is
  // no longer watched after.
  std::vector<std::string> takeWrites(pid_t pid);

 private:
  void drainLocked();

  MvFd fd_;
  std::mutex mutex_;
  std::map<pid_t, std::vector<std::string>> writes_;
  bool overflowed_ = false;
};

}  // namespace explore

#endif
