#include "host/AtomicFile.h"

#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <glib/gstdio.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

namespace {

const size_t kCopyChunkBytes = 64 * 1024;
// Temporary names are tried this many times before giving up: a cleaner may remove each one.
const int kNameTries = 8;

// Whether `path` still names the file open as `fd` (lstat: a symlink put there is another file).
bool stillNamed(int fd, const char* path) {
  struct stat held, named;
  return fstat(fd, &held) == 0 && lstat(path, &named) == 0 && held.st_dev == named.st_dev &&
         held.st_ino == named.st_ino;
}

// Opens `path` without blocking on a FIFO or taking a terminal, and without following a symlink
// when `follow` is false.
int openForReading(const char* path, bool follow) {
  return open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | (follow ? 0 : O_NOFOLLOW));
}

}  // namespace

LockedTempFile::~LockedTempFile() {
  if (fd_.get() >= 0 && !path_.empty())
    g_unlink(path_.c_str());
}

bool LockedTempFile::create(const std::string& pattern, std::string& reason) {
  // A cleaner may take a new file's lock before its writer does, and remove it: then the name
  // no longer leads to our file, and we make another.
  for (int tries = 0; tries < kNameTries; ++tries) {
    std::string path = pattern;
    MvFd fd(g_mkstemp_full(&path[0], O_RDWR | O_CLOEXEC, 0644));
    if (fd.get() < 0) {
      reason = "cannot create a file like " + pattern + ": " + g_strerror(errno);
      return false;
    }
    if (flock(fd.get(), LOCK_EX) == 0 && stillNamed(fd.get(), path.c_str())) {
      fd_.reset(fd.release());
      path_ = path;
      return true;
    }
  }
  reason = "cannot keep a file like " + pattern + ": something removes each one made";
  return false;
}

bool LockedTempFile::createLinkTo(const std::string& source, const std::string& pattern) {
  const size_t stem = pattern.rfind("XXXXXX");
  if (stem == std::string::npos)
    return false;
  static const char kNameChars[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  for (int tries = 0; tries < kNameTries; ++tries) {
    std::string path = pattern;
    for (size_t i = stem; i < stem + 6; ++i)
      path[i] = kNameChars[g_random_int_range(0, sizeof kNameChars - 1)];
    if (linkat(AT_FDCWD, source.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) != 0) {
      if (errno == EEXIST)
        continue;
      return false;
    }
    MvFd fd(openForReading(path.c_str(), false));
    // Never waits: the source's writer may still hold its lock, and that may be this process.
    if (fd.get() < 0 || flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
      g_unlink(path.c_str());
      return false;
    }
    // As in create(): a cleaner may have removed the name before we held the lock.
    if (!stillNamed(fd.get(), path.c_str()))
      continue;
    struct stat held;
    if (fstat(fd.get(), &held) != 0 || !S_ISREG(held.st_mode)) {
      g_unlink(path.c_str());
      return false;
    }
    fd_.reset(fd.release());
    path_ = path;
    return true;
  }
  return false;
}

bool LockedTempFile::renameTo(const std::string& target, std::string& reason) {
  // Renamed while still locked: until then a cleaner must leave it alone.
  if (g_rename(path_.c_str(), target.c_str()) != 0) {
    reason = "cannot rename " + path_ + " to " + target + ": " + g_strerror(errno);
    return false;
  }
  // rename() does nothing when both names already lead to this file (a link made from the
  // target's own file): then the temporary name goes by itself.
  if (stillNamed(fd_.get(), path_.c_str()))
    g_unlink(path_.c_str());
  path_.clear();
  // close() is where a failed write-back shows.
  if (mvReleaseNow(fd_) != 0) {
    reason = "cannot write " + target + ": " + g_strerror(errno);
    return false;
  }
  return true;
}

bool LockedTempFile::linkTo(const std::string& target, int& error) {
  if (link(path_.c_str(), target.c_str()) == 0)
    return true;
  error = errno;
  return false;
}

bool writeAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t written = write(fd, data, size);
    if (written < 0 && errno == EINTR)
      continue;
    if (written < 0)
      return false;
    data += written;
    size -= static_cast<size_t>(written);
  }
  return true;
}

bool replaceFile(const std::string& path, const FileFiller& fill, std::string& reason) {
  if (path.empty()) {
    reason = "no path to write";
    return false;
  }
  LockedTempFile temp;
  return temp.create(path + ".XXXXXX", reason) && fill(temp.fd(), reason) &&
         temp.renameTo(path, reason);
}

bool replaceWithLinkOrCopy(const std::string& from, const std::string& to, std::string& reason) {
  LockedTempFile linked;
  if (!to.empty() && linked.createLinkTo(from, to + ".XXXXXX"))
    return linked.renameTo(to, reason);
  return replaceFile(
      to, [&from](int fd, std::string& why) { return copyFileInto(from, fd, why); }, reason);
}

bool copyFileInto(const std::string& from, int out, std::string& reason) {
  MvFd in(openForReading(from.c_str(), true));
  struct stat info;
  if (in.get() < 0 || fstat(in.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
    reason = "cannot read " + from + ": not a readable regular file";
    return false;
  }
  auto failed = [&] {
    reason = "cannot copy " + from + ": " + g_strerror(errno);
    return false;
  };
  // In the kernel where it can; a plain copy where the file systems do not allow it.
  for (;;) {
    const ssize_t copied =
        copy_file_range(in.get(), nullptr, out, nullptr, kCopyChunkBytes * 64, 0);
    if (copied == 0)
      return true;
    if (copied < 0 && errno == EINTR)
      continue;
    if (copied < 0)
      break;
  }
  if (errno != EXDEV && errno != ENOSYS && errno != EINVAL && errno != EOPNOTSUPP)
    return failed();
  std::string chunk(kCopyChunkBytes, '\0');
  for (;;) {
    const ssize_t got = read(in.get(), &chunk[0], chunk.size());
    if (got < 0 && errno == EINTR)
      continue;
    if (got < 0)
      return failed();
    if (got == 0)
      return true;
    if (!writeAll(out, chunk.data(), static_cast<size_t>(got)))
      return failed();
  }
}

std::vector<std::string> removeStaleTempFiles(const std::string& dir,
                                              bool (*isTempName)(const char* name)) {
  std::vector<std::string> removed;
  g_autoptr(GDir) listing = g_dir_open(dir.c_str(), 0, nullptr);
  if (!listing)
    return removed;
  while (const char* name = g_dir_read_name(listing)) {
    if (!isTempName(name))
      continue;
    g_autofree char* path = g_build_filename(dir.c_str(), name, nullptr);
    MvFd fd(openForReading(path, false));
    struct stat held;
    // A live writer holds the lock: only a file nobody holds, still under its name, goes.
    if (fd.get() < 0 || flock(fd.get(), LOCK_EX | LOCK_NB) != 0 || fstat(fd.get(), &held) != 0 ||
        !S_ISREG(held.st_mode) || !stillNamed(fd.get(), path))
      continue;
    if (g_unlink(path) == 0)
      removed.push_back(name);
  }
  return removed;
}

}  // namespace host
