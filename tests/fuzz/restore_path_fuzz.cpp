// A restored backup document, run through the restore model onto an emulated blank watch: the
// parser, the transfer with its store requests and nested loops, image files, the idle clock.
#include <glib.h>

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>

#include "MvSvcRestoreModel.h"
#include "MvSvcTypes.h"
#include "emu/EmulatedWatch.h"
#include "emu/SampleWatch.h"
#include "host/Platform.h"

namespace {

struct World {
  static std::string makeDevice() {
    g_autofree char* dir = g_dir_make_tmp("morvik-fuzz-XXXXXX", nullptr);
    std::string device = std::string(dir) + "/blank";
    std::string error;
    if (!emu::createBlankWatch(device, error))
      abort();
    return device;
  }

  World() : device(makeDevice()), platform(device, MVSVC_SERVICE_APP_ID) {
    platform.log().setEchoToStderr(false);
    host::LaunchOptions options;
    options.deviceDir = device;
    options.cloudDir = device + "/cloud";
    std::string error;
    if (!watch.boot(platform, options, error))
      abort();
    trusted = platform.sharedTrustedPath(MVSVC_SERVICE_APP_ID);
  }

  std::string device;
  host::Platform platform;
  emu::EmulatedWatch watch;
  std::string trusted;
};

World& world() {
  static World instance;
  return instance;
}

// Restored images must stay inside the service's directory, whatever their names say.
void checkNothingEscaped(World& w) {
  g_autofree char* parent = g_path_get_dirname(w.trusted.substr(0, w.trusted.size() - 1).c_str());
  g_autoptr(GDir) dir = g_dir_open(parent, 0, nullptr);
  while (const char* name = dir ? g_dir_read_name(dir) : nullptr) {
    if (std::string(name) != "trusted")
      __builtin_trap();
  }
}

}  // namespace

// GLib is built without frame pointers: only the slow unwinder reaches its frames.
extern "C" const char* __asan_default_options() {
  return "fast_unwind_on_malloc=0";
}

// json-glib 1.6 leaks the nodes of a second top-level value that it refuses after the root.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:json_parser_load_from_data\n";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  World& w = world();
  w.platform.log().clear();
  w.platform.record().clear();
  std::string document(reinterpret_cast<const char*>(data), size);
  {
    MvSvcRestoreModel model(nullptr);
    if (model.restoreRecord(0, document.c_str()) != "key")
      __builtin_trap();
  }
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
  checkNothingEscaped(w);
  return 0;
}
