// Incoming message-port bundles, as the watch face service could send them, delivered to the
// collector and to the transferer through the platform.
#include <glib.h>
#include <glib/gstdio.h>

#include <stddef.h>
#include <stdint.h>

#include <string>

#include "MvSvcTypes.h"
#include "MvSvcWatchDataCollector.h"
#include "MvSvcWatchDataTransferer.h"
#include "ScratchDir.h"
#include "host/Platform.h"

namespace {

const char* const kLocalPort = "morvik-service::localport";

struct World {
  World() : platform("", MV_SERVICE_APP_ID) {
    platform.log().setEchoToStderr(false);
    imagePath = scratch.path() + "/image.bin";
    g_file_set_contents(imagePath.c_str(), "\x89PNG\r\n", 6, nullptr);
  }

  ScratchDir scratch;
  host::Platform platform;
  std::string imagePath;  // every "file_path" points here: the input must not pick files
};

World& world() {
  static World instance;
  return instance;
}

// Input: entries separated by '\n', each "key=value"; a line without '=' is a key with "".
host::KeyValues parseEntries(const std::string& text, const std::string& imagePath) {
  host::KeyValues entries;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos)
      end = text.size();
    std::string line = text.substr(start, end - start);
    size_t equals = line.find('=');
    std::string key = line.substr(0, equals);
    std::string value = equals == std::string::npos ? std::string() : line.substr(equals + 1);
    if (!key.empty() && key.find('\0') == std::string::npos)
      entries.emplace_back(key, key == "file_path" ? imagePath : value);
    start = end + 1;
  }
  return entries;
}

void deliver(World& w, const host::KeyValues& entries) {
  w.platform.sendToApp(MV_WATCHFACE_SERVICE_APP_ID, "watchface-service::localport", kLocalPort,
                       entries);
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  World& w = world();
  w.platform.log().clear();
  w.platform.record().clear();
  const host::KeyValues entries =
      parseEntries(std::string(reinterpret_cast<const char*>(data), size), w.imagePath);

  {
    int completions = 0;
    auto* collector = new MvSvcWatchDataCollector();
    collector->setOnCollectCompleted([&completions](bool, void*) { ++completions; });
    deliver(w, entries);
    deliver(w, entries);
    // Exactly once, however many "backup_finished" arrive.
    if (completions > 1)
      __builtin_trap();
    delete collector;
  }
  {
    std::vector<WatchResultData> results;
    std::vector<WatchImageData> images;
    std::vector<WatchResultData> downloads;
    auto* transferer = new MvSvcWatchDataTransferer(results, images, downloads);
    int completions = 0;
    transferer->setOnTransferCompleted([&completions](bool, void*) { ++completions; });
    deliver(w, entries);
    if (completions > 1)
      __builtin_trap();
    delete transferer;
  }
  return 0;
}
