// A watch's device.json, as a user may hand-edit it: loaded, and when it loads, saved and
// loaded again to the same profile.
#include <glib.h>

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>

#include "emu/DeviceProfile.h"

namespace {

const std::string& deviceDir() {
  static const std::string dir = [] {
    g_autofree char* made = g_dir_make_tmp("morvik-fuzz-XXXXXX", nullptr);
    if (!made)
      abort();
    return std::string(made);
  }();
  return dir;
}

// Field by field: a string json-glib decoded into bytes that are not UTF-8 must survive too.
bool sameProfile(const emu::DeviceProfile& a, const emu::DeviceProfile& b) {
  if (a.name != b.name || a.config != b.config || a.faults != b.faults ||
      a.packages.size() != b.packages.size() || a.faces.size() != b.faces.size() ||
      a.images.size() != b.images.size() || a.watchApps.size() != b.watchApps.size() ||
      a.catalogue.size() != b.catalogue.size())
    return false;
  for (size_t i = 0; i < a.packages.size(); ++i) {
    if (a.packages[i].pkgId != b.packages[i].pkgId || a.packages[i].appId != b.packages[i].appId ||
        a.packages[i].component != b.packages[i].component ||
        a.packages[i].preload != b.packages[i].preload)
      return false;
  }
  for (size_t i = 0; i < a.faces.size(); ++i) {
    if (a.faces[i].pkgId != b.faces[i].pkgId || a.faces[i].settings != b.faces[i].settings)
      return false;
  }
  for (size_t i = 0; i < a.images.size(); ++i) {
    if (a.images[i].fileName != b.images[i].fileName || a.images[i].path != b.images[i].path ||
        a.images[i].bgType != b.images[i].bgType)
      return false;
  }
  for (size_t i = 0; i < a.watchApps.size(); ++i) {
    if (a.watchApps[i].appId != b.watchApps[i].appId ||
        a.watchApps[i].pkgId != b.watchApps[i].pkgId ||
        a.watchApps[i].resultXml != b.watchApps[i].resultXml)
      return false;
  }
  for (size_t i = 0; i < a.catalogue.size(); ++i) {
    if (a.catalogue[i].guid != b.catalogue[i].guid ||
        a.catalogue[i].pkgId != b.catalogue[i].pkgId ||
        a.catalogue[i].appId != b.catalogue[i].appId ||
        a.catalogue[i].component != b.catalogue[i].component)
      return false;
  }
  return true;
}

}  // namespace

// GLib is built without frame pointers: only the slow unwinder reaches json-glib's frames.
extern "C" const char* __asan_default_options() {
  return "fast_unwind_on_malloc=0";
}

// json-glib 1.6 leaks the nodes of a second top-level value that it refuses after the root.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:json_parser_load_from_data\n";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string& dir = deviceDir();
  g_autofree char* path = g_build_filename(dir.c_str(), emu::DeviceProfile::kFileName, nullptr);
  if (!g_file_set_contents(path, reinterpret_cast<const char*>(data), static_cast<gssize>(size),
                           nullptr))
    abort();

  emu::DeviceProfile profile;
  std::string error;
  if (!profile.load(dir, error)) {
    // A refusal is one line.
    if (error.empty() || error.find('\n') != std::string::npos)
      __builtin_trap();
    return 0;
  }
  if (!profile.save(dir, error))
    __builtin_trap();
  emu::DeviceProfile again;
  if (!again.load(dir, error) || !sameProfile(again, profile))
    __builtin_trap();
  return 0;
}
