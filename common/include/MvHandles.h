// Owning handles for every C object the project holds, in every room: the service, the host
// platform, the emulated watch, the tools, the benchmark and the tests. An owner releases its
// object with the object's own release call when it goes; `get()` lends the object, `release()`
// hands ownership back to C code. Nothing else calls a release function by hand:
// scripts/check-house fails on one, and scripts/house/releases.allow names each exception.
//
// GLib's own owners stay the choice for locals: g_autoptr for the GObject and json-glib types,
// GError, GDir, GMainLoop, GSource and GOptionContext, g_autofree for GLib's strings, g_auto(GStrv)
// for string vectors. This header gives what they lack: owners that live in fields, containers
// and return values, and owners of the platform's and the C library's handles.
//
// A release whose result matters (fclose's flush, close's write-back, a destroy whose failure is
// logged) goes through mvReleaseNow(), which releases at once and returns the call's result.
#ifndef MV_HANDLES_H
#define MV_HANDLES_H

#include <Ecore.h>
#include <app_control.h>
#include <bundle.h>
#include <glib.h>
#include <json-glib/json-glib.h>
#include <pkgmgr-info.h>
#include <stdio.h>
#include <stdlib.h>
#include <talvoro_cloud.h>
#include <unistd.h>

#include <memory>
#include <type_traits>

// Releases a `T*` with `Release`, the object's own release call.
template <typename T, auto Release>
struct MvReleaser {
  void operator()(T* object) const { Release(object); }
};

// A unique owner of a `T*` that `Release` gives back.
template <typename T, auto Release>
using MvOwned = std::unique_ptr<T, MvReleaser<T, Release>>;

// Releases what `owner` holds (it must hold one) now, and returns what the release call returns.
template <typename T, auto Release>
auto mvReleaseNow(MvOwned<T, Release>& owner) {
  return Release(owner.release());
}

// The platform's handles.
using MvAppControlPtr = MvOwned<std::remove_pointer_t<app_control_h>, app_control_destroy>;
using MvBundlePtr = MvOwned<bundle, bundle_free>;
using MvCloudListPtr =
    MvOwned<std::remove_pointer_t<talvoro_cloud_list_h>, talvoro_cloud_list_destroy>;
using MvCloudRecordPtr =
    MvOwned<std::remove_pointer_t<talvoro_cloud_record_h>, talvoro_cloud_record_destroy>;
using MvAppInfoFilterPtr =
    MvOwned<std::remove_pointer_t<pkgmgrinfo_appinfo_filter_h>, pkgmgrinfo_appinfo_filter_destroy>;
using MvEcoreTimerPtr = MvOwned<Ecore_Timer, ecore_timer_del>;
using MvEinaIteratorPtr = MvOwned<Eina_Iterator, eina_iterator_free>;

// Strings the platform allocates with malloc() (app-control extras and operations, vconf values,
// trusted paths), and the C library's buffers.
using MvCharPtr = MvOwned<char, free>;
using MvFilePtr = MvOwned<FILE, fclose>;

// GLib's strings and buffers, objects and json-glib's boxed types.
using MvGCharPtr = MvOwned<char, g_free>;
using MvGBytesPtr = MvOwned<guchar, g_free>;
template <typename T>
using MvGObjectPtr = MvOwned<T, g_object_unref>;
using MvJsonNodePtr = MvOwned<JsonNode, json_node_unref>;
using MvJsonObjectPtr = MvOwned<JsonObject, json_object_unref>;
using MvGOptionContextPtr = MvOwned<GOptionContext, g_option_context_free>;

inline void mvFreeGString(GString* text) {
  g_string_free(text, TRUE);
}
using MvGStringPtr = MvOwned<GString, mvFreeGString>;

// The text `text` holds, in GLib's buffer of its own; the GString goes.
inline MvGCharPtr mvTakeGStringText(MvGStringPtr text) {
  return MvGCharPtr(g_string_free(text.release(), FALSE));
}

// A source attached to a context: detached (destroyed) and unreferenced when it goes, so that its
// callback can never run after its owner. g_autoptr(GSource) only drops a reference, and leaves
// an attached source running.
inline void mvDetachGSource(GSource* source) {
  g_source_destroy(source);
  g_source_unref(source);
}
using MvGSourcePtr = MvOwned<GSource, mvDetachGSource>;

// A unique owner of a handle that is a plain value, `kNone` when it holds none.
template <typename T, T kNone, auto Release>
class MvValueHandle {
 public:
  MvValueHandle() = default;
  explicit MvValueHandle(T value) : value_(value) {}
  ~MvValueHandle() { reset(); }
  MvValueHandle(MvValueHandle&& other) noexcept : value_(other.release()) {}
  MvValueHandle& operator=(MvValueHandle&& other) noexcept {
    reset(other.release());
    return *this;
  }

  T get() const { return value_; }
  explicit operator bool() const { return value_ != kNone; }
  T release() {
    const T value = value_;
    value_ = kNone;
    return value;
  }
  // Releases the handle held and holds `value` instead.
  void reset(T value = kNone) {
    if (value_ != kNone)
      Release(value_);
    value_ = value;
  }

 private:
  T value_ = kNone;
};

template <typename T, T kNone, auto Release>
auto mvReleaseNow(MvValueHandle<T, kNone, Release>& owner) {
  return Release(owner.release());
}

// A file descriptor, closed when it goes; release() hands it on (to fdopen(), say). The one
// owner of a descriptor in the project; mvReleaseNow() gives close()'s result, where a failed
// write-back shows.
using MvFd = MvValueHandle<int, -1, close>;

// A GLib source ID (g_timeout_add, g_idle_add, g_unix_fd_add...), removed when it goes. A
// callback that ends its own source by returning G_SOURCE_REMOVE calls release() first, since
// GLib then removes it.
using MvGSourceId = MvValueHandle<guint, 0u, g_source_remove>;

// A new app-control handle, or null when the platform could not make one.
inline MvAppControlPtr mvCreateAppControl() {
  app_control_h handle = nullptr;
  if (app_control_create(&handle) != APP_CONTROL_ERROR_NONE)
    return MvAppControlPtr();
  return MvAppControlPtr(handle);
}

#endif
