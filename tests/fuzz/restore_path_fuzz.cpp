// A restored backup document, run through the restore model onto an emulated blank watch: the
// parser, the transfer with its store requests and nested loops, image files, the idle clock.
#include <glib.h>
#include <glib/gstdio.h>

#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "MvSvcRestoreModel.h"
#include "MvSvcTypes.h"
#include "ScratchDir.h"
#include "emu/EmulatedWatch.h"
#include "emu/RunJournal.h"
#include "emu/SampleWatch.h"
#include "host/Platform.h"

namespace {

// One booted watch per process: each input's restore starts from what the previous ones left,
// as successive restores on one watch do.
struct World {
  static std::string makeDevice(const ScratchDir& scratch) {
    std::string device = scratch.path() + "/blank";
    std::string error;
    if (!emu::createBlankWatch(device, error))
      abort();
    return device;
  }

  World() : device(makeDevice(scratch)), platform(device, MV_SERVICE_APP_ID) {
    platform.log().setEchoToStderr(false);
    launcher::LaunchOptions options;
    options.deviceDir = device;
    options.cloudDir = device + "/cloud";
    std::string error;
    if (!watch.boot(platform, options, error))
      abort();
    trusted = platform.sharedTrustedPath(MV_SERVICE_APP_ID);
  }

  ScratchDir scratch;
  std::string device;
  host::Platform platform;
  emu::EmulatedWatch watch;
  std::string trusted;
};

World& world() {
  static World instance;
  return instance;
}

// Restored images must stay inside the service's directory, whatever their names say. They are
// removed after each input, so that the directory stays small over millions of inputs.
void checkNothingEscapedAndClear(World& w) {
  g_autofree char* parent = g_path_get_dirname(w.trusted.substr(0, w.trusted.size() - 1).c_str());
  g_autoptr(GDir) dir = g_dir_open(parent, 0, nullptr);
  while (const char* name = dir ? g_dir_read_name(dir) : nullptr) {
    if (std::string(name) != "trusted")
      __builtin_trap();
  }
  g_autoptr(GDir) trusted = g_dir_open(w.trusted.c_str(), 0, nullptr);
  while (const char* name = trusted ? g_dir_read_name(trusted) : nullptr)
    g_remove((w.trusted + name).c_str());
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
  checkNothingEscapedAndClear(w);
  // The watch's journal would grow with every input; its writer appends, so it starts again.
  if (truncate((w.device + "/" + emu::RunJournal::kFileName).c_str(), 0) != 0 && errno != ENOENT)
    abort();
  return 0;
}
