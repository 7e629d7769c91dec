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

// Line `index` (from 0) of `text`, if it has one.
std::optional<std::string> lineAt(const std::string& text, size_t index) {
  size_t start = 0;
  for (size_t i = 0; i < index; ++i) {
    start = text.find('\n', start);
    if (start == std::string::npos)
      return std::nullopt;
    ++start;
  }
  return text.substr(start, text.find('\n', start) - start);
}

std::string escapedByte(char c) {
  char text[8];
  g_snprintf(text, sizeof text, "\\x%02x", static_cast<unsigned char>(c));
  return text;
}

// A line as the text output shows it: quoted, control bytes escaped, long ones cut.
std::string quoted(const std::optional<std::string>& line) {
  if (!line)
    return "(end)";
  const size_t kShown = 60;
  const bool cut = line->size() > kShown;
  std::string shown = "\"";
  for (const char c : line->substr(0, kShown)) {
    if (c == '"' || c == '\\')
      shown += std::string("\\") + c;
    else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
      shown += escapedByte(c);
    else
      shown += c;
  }
  return shown + (cut ? "...\"" : "\"");
}

class Differences {
 public:
  Differences(const Watch& first, const Watch& second, std::vector<WatchDifference>& lines)
      : first_(first), second_(second), lines_(lines) {}

  void idleClock() {
    configKey("idle clock", MV_IDLE_CLOCK_KEY);
    configKey("idle face", MV_WATCHFACE_NAME_KEY);
  }

  void settings(const char* what,
                const std::map<std::string, std::string>& first,
                const std::map<std::string, std::string>& second) {
    compareKeys(first, second, onlyOn(what),
                [&](const std::string& key, const std::string& a, const std::string& b) {
                  if (a != b)
                    settingsDiffer(what, key, a, b);
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
                    bytesDiffer(name, *bytesA, *bytesB);
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
      lines_.push_back({what, std::string(what) + ": " + a + " vs " + b});
  }

  void settingsDiffer(const char* what,
                      const std::string& key,
                      const std::string& a,
                      const std::string& b) {
    size_t line = 0;
    std::optional<std::string> lineA, lineB;
    do {
      lineA = lineAt(a, line);
      lineB = lineAt(b, line);
      ++line;
    } while (lineA == lineB && (lineA || lineB));
    WatchDifference& difference = add(what, key,
                                      "settings differ at line " + std::to_string(line) + ": " +
                                          quoted(lineA) + " vs " + quoted(lineB));
    difference.line = line;
    difference.firstLine = lineA;
    difference.secondLine = lineB;
  }

  void bytesDiffer(const std::string& name, const std::string& a, const std::string& b) {
    size_t at = 0;
    while (at < a.size() && at < b.size() && a[at] == b[at])
      ++at;
    WatchDifference& difference =
        add("photo", name,
            "bytes differ: " + std::to_string(a.size()) + " vs " + std::to_string(b.size()) +
                " bytes, first at byte " + std::to_string(at));
    difference.firstSize = a.size();
    difference.secondSize = b.size();
    difference.firstDifferingByte = at;
  }

  std::function<void(const std::string&, bool)> onlyOn(const char* what) {
    return [this, what](const std::string& key, bool onFirst) {
      add(what, key, "only on " + (onFirst ? first_.dir : second_.dir));
    };
  }

  WatchDifference& add(const char* what, const std::string& key, const std::string& how) {
    const std::string item = std::string(what) + " " + key;
    lines_.push_back({item, item + ": " + how});
    return lines_.back();
  }

  const Watch& first_;
  const Watch& second_;
  std::vector<WatchDifference>& lines_;
};

}  // namespace

bool diffWatches(const std::string& dir1,
                 const std::string& dir2,
                 std::vector<WatchDifference>& differences,
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

namespace emu {

bool diffWatches(const std::string& dir1,
                 const std::string& dir2,
                 std::vector<std::string>& differences,
                 std::string& error) {
  std::vector<WatchDifference> found;
  if (!diffWatches(dir1, dir2, found, error))
    return false;
  differences.clear();
  for (WatchDifference& difference : found)
    differences.push_back(std::move(difference.text));
  return true;
}

}  // namespace emu
