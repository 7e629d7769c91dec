#include "emu/WatchDiff.h"

#include <glib.h>

#include <functional>
#include <map>
#include <optional>

#include "emu/DeviceProfile.h"
#include "emu/SampleWatch.h"

namespace emu {

namespace {

struct Photo {
  std::string bgType;
  std::string path;
};

struct Watch {
  std::string dir;
  DeviceProfile profile;
  std::map<std::string, std::string> faces;      // pkgid -> settings
  std::map<std::string, std::string> watchApps;  // appid -> settings
  std::map<std::string, Photo> photos;           // file name -> photo
  std::map<std::string, std::string> downloads;  // appid -> pkgid

  bool load(const std::string& deviceDir, std::string& error) {
    dir = deviceDir;
    if (!profile.load(dir, error))
      return false;
    // A duplicate keeps the first entry, as the watch face service looks entries up.
    for (const FaceEntry& face : profile.faces)
      faces.emplace(face.pkgId, face.settings);
    for (const WatchAppState& app : profile.watchApps)
      watchApps.emplace(app.appId, app.resultXml);
    for (const BackgroundImage& image : profile.images)
      photos.emplace(image.fileName, Photo{image.bgType, image.path});
    for (const host::PackageInfo& app : profile.packages)
      if (!app.preload)
        downloads.emplace(app.appId, app.pkgId);
    return true;
  }

  std::string config(const char* key) const {
    auto it = profile.config.find(key);
    if (it == profile.config.end())
      return "(unset)";
    return it->second.empty() ? "(empty)" : it->second;
  }

  std::optional<std::string> photoBytes(const Photo& photo) const {
    return readDeviceFile(dir, photo.path);
  }
};

// Walks the union of two maps' keys in order, calling `only` for a key on one side and `both`
// for a key on both.
template <typename Value, typename Only, typename Both>
void compareKeys(const std::map<std::string, Value>& first,
                 const std::map<std::string, Value>& second,
                 Only only,
                 Both both) {
  auto a = first.begin();
  auto b = second.begin();
  while (a != first.end() || b != second.end()) {
    if (b == second.end() || (a != first.end() && a->first < b->first)) {
      only(a->first, true);
      ++a;
    } else if (a == first.end() || b->first < a->first) {
      only(b->first, false);
      ++b;
    } else {
      both(a->first, a->second, b->second);
      ++a;
      ++b;
    }
  }
}

class Differences {
 public:
  Differences(const Watch& first, const Watch& second, std::vector<std::string>& lines)
      : first_(first), second_(second), lines_(lines) {}

  void idleClock() {
    configKey("idle clock", kIdleClockKey);
    configKey("idle face", kWatchfaceNameKey);
  }

  void settings(const char* what,
                const std::map<std::string, std::string>& first,
                const std::map<std::string, std::string>& second) {
    compareKeys(first, second, onlyOn(what),
                [&](const std::string& key, const std::string& a, const std::string& b) {
                  if (a != b)
                    add(what, key, "settings differ");
                });
  }

  void photos() {
    compareKeys(first_.photos, second_.photos, onlyOn("photo"),
                [&](const std::string& name, const Photo& a, const Photo& b) {
                  if (a.bgType != b.bgType)
                    add("photo", name, "bg_type " + a.bgType + " vs " + b.bgType);
                  std::optional<std::string> bytesA = first_.photoBytes(a);
                  std::optional<std::string> bytesB = second_.photoBytes(b);
                  if (!bytesA)
                    add("photo", name, "file missing on " + first_.dir);
                  if (!bytesB)
                    add("photo", name, "file missing on " + second_.dir);
                  if (bytesA && bytesB && *bytesA != *bytesB)
                    add("photo", name, "bytes differ");
                });
  }

  void downloads() {
    compareKeys(first_.downloads, second_.downloads, onlyOn("app"),
                [&](const std::string& appId, const std::string& a, const std::string& b) {
                  if (a != b)
                    add("app", appId, "package " + a + " vs " + b);
                });
  }

 private:
  void configKey(const char* what, const char* key) {
    const std::string a = first_.config(key);
    const std::string b = second_.config(key);
    if (a != b)
      lines_.push_back(std::string(what) + ": " + a + " vs " + b);
  }

  std::function<void(const std::string&, bool)> onlyOn(const char* what) {
    return [this, what](const std::string& key, bool onFirst) {
      add(what, key, "only on " + (onFirst ? first_.dir : second_.dir));
    };
  }

  void add(const char* what, const std::string& key, const std::string& how) {
    lines_.push_back(std::string(what) + " " + key + ": " + how);
  }

  const Watch& first_;
  const Watch& second_;
  std::vector<std::string>& lines_;
};

}  // namespace

bool diffWatches(const std::string& dir1,
                 const std::string& dir2,
                 std::vector<std::string>& differences,
                 std::string& error) {
  differences.clear();
  Watch first;
  Watch second;
  if (!first.load(dir1, error) || !second.load(dir2, error))
    return false;
  Differences diff(first, second, differences);
  diff.idleClock();
  diff.settings("face", first.faces, second.faces);
  diff.settings("watch app", first.watchApps, second.watchApps);
  diff.photos();
  diff.downloads();
  return true;
}

}  // namespace emu
