#ifndef EMU_DEVICE_PROFILE_H
#define EMU_DEVICE_PROFILE_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/PackageDatabase.h"

namespace emu {

// A watch face installed in the watch face service, with its settings document.
struct FaceEntry {
  std::string pkgId;
  std::string settings;
};

// A custom background photo held by the watch face service.
struct BackgroundImage {
  std::string fileName;
  std::string path;  // relative to the device directory
  std::string bgType;
};

// What a preloaded watch app answers to a backup request, and what a restore gave it.
struct WatchAppState {
  std::string appId;  // the watch app's service app, the request target
  std::string pkgId;
  std::string resultXml;
};

// An app the store can install by its GUID.
struct CatalogueItem {
  std::string guid;
  std::string pkgId;
  std::string appId;
  std::string component;
};

// A watch's disk: DEVICE/device.json and the files it names. The schema is documented in the
// README.
struct DeviceProfile {
  static const char* const kFileName;
  static const int kFormatVersion = 1;
  // A profile is text: its settings documents, not its photos. Bigger is no profile.
  static const size_t kMaxFileBytes = 64u << 20;

  std::string name;
  std::map<std::string, std::string> config;
  std::vector<host::PackageInfo> packages;
  std::vector<FaceEntry> faces;
  std::vector<BackgroundImage> images;
  std::vector<WatchAppState> watchApps;
  std::vector<CatalogueItem> catalogue;
  std::map<std::string, std::string> faults;
  // The platform's personality on this watch (host::Personality's switches), by name.
  std::map<std::string, std::string> platform;

  // Reads DIR/device.json, a regular file of at most kMaxFileBytes, and takes in what a run that
  // died left in its journal (RunJournal). Returns false with a one-line reason. A string that is
  // not UTF-8 is carried as the README describes, so what loads saves and loads again the same.
  bool load(const std::string& deviceDir, std::string& error);
  // Writes DIR/device.json through a temporary file and a rename, so a reader never sees half
  // a profile; then removes the journal, which the profile now holds.
  bool save(const std::string& deviceDir, std::string& error) const;
};

// The bytes of the file at `relativePath` in `deviceDir` (a photo), or none when it is not a
// regular file: a FIFO left at a photo's path must not block whoever reads it.
std::optional<std::string> readDeviceFile(const std::string& deviceDir,
                                          const std::string& relativePath);

}  // namespace emu

#endif
