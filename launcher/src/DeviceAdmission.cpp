#include "launcher/DeviceAdmission.h"

#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#include <utility>

#include "MvWatchLayout.h"
#include "host/AtomicFile.h"
#include "host/RecordFile.h"

namespace launcher {

using host::isRecordFileTempName;
using host::removeStaleTempFiles;

namespace {

// What the emulated app's paths start with: the device directory as the platform joins it.
std::string trustedDir(const std::string& deviceDir, const std::string& appId) {
  g_autofree char* dir =
      g_build_filename(deviceDir.c_str(), mvSharedTrustedDir(appId).c_str(), nullptr);
  return std::string(dir) + "/";
}

// "device.json.XXXXXX", as the profile's writer names its temporary file.
bool isProfileTempName(const char* name) {
  const char kProfile[] = "device.json.";
  const size_t prefix = sizeof kProfile - 1;
  if (strncmp(name, kProfile, prefix) != 0 || strlen(name) != prefix + 6)
    return false;
  for (const char* c = name + prefix; *c; ++c) {
    if (!g_ascii_isalnum(*c))
      return false;
  }
  return true;
}

void collect(const std::string& dir,
             const std::vector<std::string>& names,
             std::vector<std::string>* removed) {
  if (!removed)
    return;
  for (const std::string& name : names)
    removed->push_back(dir + "/" + name);
}

void removeStaleFiles(const std::string& deviceDir, std::vector<std::string>* removed) {
  collect(deviceDir, removeStaleTempFiles(deviceDir, isProfileTempName), removed);
  g_autofree char* appsDir = g_build_filename(deviceDir.c_str(), "apps", nullptr);
  g_autoptr(GDir) apps = g_dir_open(appsDir, 0, nullptr);
  if (!apps)
    return;
  while (const char* app = g_dir_read_name(apps)) {
    g_autofree char* trusted =
        g_build_filename(deviceDir.c_str(), mvSharedTrustedDir(app).c_str(), nullptr);
    collect(trusted, removeStaleTempFiles(trusted, isRecordFileTempName), removed);
  }
}

}  // namespace

size_t maxDeviceDirBytes(const std::string& appId) {
  // What follows the directory's own bytes: "/apps/<appId>/shared/trusted/".
  const size_t suffix = trustedDir("d", appId).size() - 1;
  const size_t room = kWatchPathBufferBytes - kTrustedFileNameBytes;
  return room > suffix ? room - suffix : 0;
}

DeviceLock::~DeviceLock() = default;

bool DeviceLock::acquire(const std::string& deviceDir, std::string& error) {
  MvFd fd(open(deviceDir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.get() < 0) {
    error = "device directory '" + deviceDir + "' cannot be opened: " + g_strerror(errno);
    return false;
  }
  if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
    const int failure = errno;
    error = failure == EWOULDBLOCK
                ? "device directory '" + deviceDir +
                      "' is in use by another run; try again when it has ended"
                : "device directory '" + deviceDir + "' cannot be locked: " + g_strerror(failure);
    return false;
  }
  fd_ = std::move(fd);
  return true;
}

bool fitsWatchBuffers(const std::string& deviceDir, const std::string& appId, std::string& error) {
  const std::string path = trustedDir(deviceDir, appId);
  if (path.size() + kTrustedFileNameBytes <= kWatchPathBufferBytes)
    return true;
  error = "device directory '" + deviceDir + "' is too long: the app's files there would need " +
          std::to_string(path.size() + kTrustedFileNameBytes) + " bytes of the watch's " +
          std::to_string(kWatchPathBufferBytes) + "-byte path buffer (at most " +
          std::to_string(maxDeviceDirBytes(appId)) + " bytes of directory)";
  return false;
}

bool admitDevice(const std::string& deviceDir,
                 const std::string& appId,
                 DeviceLock& lock,
                 std::string& error,
                 std::vector<std::string>* removed) {
  if (!fitsWatchBuffers(deviceDir, appId, error))
    return false;
  if (!lock.acquire(deviceDir, error))
    return false;
  removeStaleFiles(deviceDir, removed);
  return true;
}

}  // namespace launcher
