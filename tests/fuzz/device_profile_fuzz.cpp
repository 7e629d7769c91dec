// A watch's device.json, as a user may hand-edit it: loaded, and when it loads, saved and
// loaded again to the same profile.
#include <glib.h>

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>

#include "ScratchDir.h"
#include "emu/DeviceProfile.h"

namespace {

const std::string& deviceDir() {
  static const ScratchDir dir;
  return dir.path();
}

}  // namespace

// GLib is built without frame pointers: only the slow unwinder reaches json-glib's frames.
extern "C" const char* __asan_default_options() {
  return "fast_unwind_on_malloc=0";
}

// json-glib 1.6 leaks the nodes of a second top-level value that it refuses after the root.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:json_parser_load_from_file\n";
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
  if (!again.load(dir, error) || again.config != profile.config ||
      again.packages.size() != profile.packages.size() ||
      again.faces.size() != profile.faces.size() || again.images.size() != profile.images.size() ||
      again.faults != profile.faults)
    __builtin_trap();
  return 0;
}
