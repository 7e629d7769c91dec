#ifndef LAUNCHER_DEVICE_ADMISSION_H
#define LAUNCHER_DEVICE_ADMISSION_H

#include <stddef.h>

#include <string>
#include <vector>

#include "MvHandles.h"

namespace launcher {

// The watch's apps build file paths in buffers of this many bytes...
constexpr size_t kWatchPathBufferBytes = 128;
// ...and keep this much of one for a file name in their shared trusted directory ("backup.dat",
// "restore.dat" and the NUL, with room to spare).
constexpr size_t kTrustedFileNameBytes = 16;

// The longest device directory (as named, without a trailing slash) whose shared trusted
// directory for `appId` leaves a file name room in the watch's buffer.
size_t maxDeviceDirBytes(const std::string& appId);

// False with a one-line reason, the same in every tool, when `deviceDir` is too long for the
// paths of `appId` to fit the watch's buffers.
bool fitsWatchBuffers(const std::string& deviceDir, const std::string& appId, std::string& error);

// One process at a time on a device directory: an flock on the directory itself, so nothing is
// created for it. Held until this object goes (or the process ends, however it ends).
class DeviceLock {
 public:
  DeviceLock() = default;
  ~DeviceLock();
  DeviceLock(const DeviceLock&) = delete;
  DeviceLock& operator=(const DeviceLock&) = delete;

  // Does not wait: false with a one-line reason when the directory cannot be opened or another
  // process holds it.
  bool acquire(const std::string& deviceDir, std::string& error);

 private:
  MvFd fd_;  // the locked directory, while held
};

// Admits a run of `appId` on `deviceDir`, before anything is written there: refuses, with a
// one-line reason, a directory whose paths would not fit the watch's buffers (never truncated)
// or that another run holds. Then removes the temporary files that crashed runs left (the
// profile's and the record files' in every app's shared trusted directory), whose writers'
// locks are free; their paths go to `removed` when given.
bool admitDevice(const std::string& deviceDir,
                 const std::string& appId,
                 DeviceLock& lock,
                 std::string& error,
                 std::vector<std::string>* removed = nullptr);

}  // namespace launcher

#endif
