#include "WriteAudit.h"

#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <limits.h>
#include <string.h>
#include <sys/fanotify.h>
#include <unistd.h>

namespace explore {

WriteAudit::WriteAudit() = default;

WriteAudit::~WriteAudit() = default;

bool WriteAudit::start(std::string& reason) {
  MvFd fd(fanotify_init(FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK | FAN_UNLIMITED_QUEUE,
                        O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0) {
    reason = std::string("fanotify: ") + strerror(errno);
    return false;
  }
  // A mark per file system: one on "/" covers every directory of the same disk.
  const char* places[] = {"/", "/tmp", "/dev/shm", "/var/tmp", g_get_tmp_dir(), g_get_home_dir()};
  for (const char* place : places) {
    if (place &&
        fanotify_mark(fd.get(), FAN_MARK_ADD | FAN_MARK_FILESYSTEM, FAN_CLOSE_WRITE, AT_FDCWD,
                      place) != 0 &&
        errno != ENOENT) {
      reason = std::string("fanotify on ") + place + ": " + strerror(errno);
      return false;
    }
  }
  fd_ = std::move(fd);
  return true;
}

pid_t WriteAudit::spawnWatched(const std::function<pid_t()>& spawn) {
  std::lock_guard<std::mutex> lock(mutex_);
  // Held across the spawn: no drain can drop the new process's first events.
  const pid_t pid = spawn();
  if (pid > 0 && fd_.get() >= 0)
    writes_[pid];
  return pid;
}

std::vector<std::string> WriteAudit::takeWrites(pid_t pid) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (fd_.get() < 0)
    return {};
  // A reaped process's closes are queued before its parent learns of its end.
  drainLocked();
  std::vector<std::string> taken;
  auto found = writes_.find(pid);
  if (found != writes_.end()) {
    taken = std::move(found->second);
    writes_.erase(found);
  }
  if (overflowed_)
    taken.push_back("(the audit lost events: the queue overflowed)");
  return taken;
}

void WriteAudit::drainLocked() {
  alignas(struct fanotify_event_metadata) char buffer[64 * 1024];
  for (;;) {
    const ssize_t length = read(fd_.get(), buffer, sizeof buffer);
    if (length <= 0)
      return;
    auto* event = reinterpret_cast<struct fanotify_event_metadata*>(buffer);
    ssize_t left = length;
    for (; FAN_EVENT_OK(event, left); event = FAN_EVENT_NEXT(event, left)) {
      if (event->mask & FAN_Q_OVERFLOW)
        overflowed_ = true;
      if (event->fd < 0)
        continue;
      MvFd written(event->fd);
      auto watched = writes_.find(event->pid);
      if (watched != writes_.end()) {
        char link[64];
        char target[PATH_MAX];
        g_snprintf(link, sizeof link, "/proc/self/fd/%d", event->fd);
        const ssize_t size = readlink(link, target, sizeof target - 1);
        if (size > 0)
          watched->second.emplace_back(target, static_cast<size_t>(size));
      }
    }
  }
}

}  // namespace explore
