// Files replaced whole, never rewritten in place: a new file is written under a temporary name
// beside its target, locked while it is written, and renamed over the target. A reader sees the
// old file or the whole new one; a writer that dies leaves a temporary file that the next run can
// tell is stale, and removes.
#ifndef HOST_ATOMIC_FILE_H
#define HOST_ATOMIC_FILE_H

#include <stddef.h>

#include <functional>
#include <string>
#include <vector>

#include "MvHandles.h"

namespace host {

// A file being written under a temporary name. Its writer holds an flock on it from creation
// until it is renamed or linked into place, so that removeStaleTempFiles can tell a file a
// crashed writer left (nobody holds its lock) from one a live process is writing. Owns its
// descriptor; the file is removed when this object goes, unless renamed away.
class LockedTempFile {
 public:
  LockedTempFile() = default;
  ~LockedTempFile();
  LockedTempFile(const LockedTempFile&) = delete;
  LockedTempFile& operator=(const LockedTempFile&) = delete;

  // Creates and locks a new file named after `pattern`, whose last "XXXXXX" is replaced.
  bool create(const std::string& pattern, std::string& reason);
  // The same, but the new name is a hard link to the regular file `source` (a symlink there is
  // followed, as a reader would). False when no such link can be made, for instance across file
  // systems or when `source` is no regular file: the caller then copies.
  bool createLinkTo(const std::string& source, const std::string& pattern);
  int fd() const { return fd_.get(); }
  const std::string& path() const { return path_; }
  // Renames the file over `target` while still holding its lock, then closes it.
  bool renameTo(const std::string& target, std::string& reason);
  // Gives the file a second name, `target`, which must not exist (errno in `error`); the
  // temporary name still goes with this object.
  bool linkTo(const std::string& target, int& error);

 private:
  MvFd fd_{-1};
  std::string path_;  // empty once renamed
};

// Writes all `size` bytes, going on after interruptions; false with errno set.
bool writeAll(int fd, const char* data, size_t size);

// What fills a new file through its descriptor; false with a one-line reason.
using FileFiller = std::function<bool(int fd, std::string& reason)>;

// Makes `path` the whole of what `fill` writes into a new file, or leaves it as it was. Nothing
// is synced to disk: a file that a crash cut short must be refused by its reader. False with a
// one-line reason.
bool replaceFile(const std::string& path, const FileFiller& fill, std::string& reason);

// Gives `to` the bytes of the regular file `from`, replacing `to` as replaceFile does: by a hard
// link where both lie on one file system, else by a copy. Only for files that are never
// rewritten in place, or either name would change the other's bytes. False with a one-line
// reason.
bool replaceWithLinkOrCopy(const std::string& from, const std::string& to, std::string& reason);

// Copies the regular file `from` into `fd` byte for byte.
bool copyFileInto(const std::string& from, int fd, std::string& reason);

// Removes the files in `dir` that `isTempName` accepts and that no live process holds locked
// (see LockedTempFile); a file whose writer still runs is never touched. Returns their names.
std::vector<std::string> removeStaleTempFiles(const std::string& dir,
                                              bool (*isTempName)(const char* name));

}  // namespace host

#endif
