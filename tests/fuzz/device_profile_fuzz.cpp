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

// Every member of a profile in one string (each field with its length), so that any field
// lost or changed on the way round shows.
std::string everything(const emu::DeviceProfile& p) {
  std::string all;
  auto add = [&all](const std::string& field) {
    all += std::to_string(field.size()) + ":" + field;
  };
  add(p.name);
  for (const auto& entry : p.config) {
    add(entry.first);
    add(entry.second);
  }
  for (const host::PackageInfo& info : p.packages) {
    add(info.pkgId);
    add(info.appId);
    add(info.component);
    add(info.preload ? "preload" : "downloaded");
  }
  for (const emu::FaceEntry& face : p.faces) {
    add(face.pkgId);
    add(face.settings);
  }
  for (const emu::BackgroundImage& image : p.images) {
    add(image.fileName);
    add(image.path);
    add(image.bgType);
  }
  for (const emu::WatchAppState& app : p.watchApps) {
    add(app.appId);
    add(app.pkgId);
    add(app.resultXml);
  }
  for (const emu::CatalogueItem& item : p.catalogue) {
    add(item.guid);
    add(item.pkgId);
    add(item.appId);
    add(item.component);
  }
  for (const auto& entry : p.faults) {
    add(entry.first);
    add(entry.second);
  }
  return all;
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
  emu::DeviceProfile again;
  if (!profile.save(dir, error) || !again.load(dir, error) ||
      everything(again) != everything(profile))
    __builtin_trap();
  return 0;
}
