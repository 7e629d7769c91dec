// Owning handles for the platform's C objects, shared by the service, the emulated watch and the
// tests. Each pointer destroys its object with the platform's own release call when it goes out
// of scope; `get()` lends the handle, `release()` hands ownership back to C code.
#ifndef MV_HANDLES_H
#define MV_HANDLES_H

#include <Ecore.h>
#include <app_control.h>
#include <bundle.h>
#include <glib.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <memory>
#include <type_traits>

struct MvAppControlDeleter {
  void operator()(app_control_h handle) const { app_control_destroy(handle); }
};
using MvAppControlPtr = std::unique_ptr<std::remove_pointer_t<app_control_h>, MvAppControlDeleter>;

struct MvBundleDeleter {
  void operator()(bundle* message) const { bundle_free(message); }
};
using MvBundlePtr = std::unique_ptr<bundle, MvBundleDeleter>;

// Strings the platform allocates with malloc() (app-control extras and operations, vconf values).
struct MvFreeDeleter {
  void operator()(char* text) const { free(text); }
};
using MvCharPtr = std::unique_ptr<char, MvFreeDeleter>;

// Strings and buffers allocated by GLib.
struct MvGFreeDeleter {
  void operator()(void* data) const { g_free(data); }
};
using MvGCharPtr = std::unique_ptr<char, MvGFreeDeleter>;
using MvGBytesPtr = std::unique_ptr<guchar, MvGFreeDeleter>;

struct MvFileCloser {
  void operator()(FILE* file) const { fclose(file); }
};
using MvFilePtr = std::unique_ptr<FILE, MvFileCloser>;

// A file descriptor, closed when it goes; release() hands it on (to fdopen(), say).
class MvFd {
 public:
  explicit MvFd(int fd) : fd_(fd) {}
  ~MvFd() {
    if (fd_ >= 0)
      close(fd_);
  }
  MvFd(const MvFd&) = delete;
  MvFd& operator=(const MvFd&) = delete;

  int get() const { return fd_; }
  int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }
  // Closes the descriptor held and holds `fd` instead.
  void reset(int fd) {
    if (fd_ >= 0)
      close(fd_);
    fd_ = fd;
  }

 private:
  int fd_;
};

struct MvEcoreTimerDeleter {
  void operator()(Ecore_Timer* timer) const { ecore_timer_del(timer); }
};
using MvEcoreTimerPtr = std::unique_ptr<Ecore_Timer, MvEcoreTimerDeleter>;

// A new app-control handle, or null when the platform could not make one.
inline MvAppControlPtr mvCreateAppControl() {
  app_control_h handle = nullptr;
  if (app_control_create(&handle) != APP_CONTROL_ERROR_NONE)
    return MvAppControlPtr();
  return MvAppControlPtr(handle);
}

#endif
