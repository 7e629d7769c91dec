#include "emu/SampleWatch.h"

#include <glib.h>
#include <glib/gstdio.h>

#include <vector>

namespace emu {

const char* const kWatchfaceServiceAppId = "com.talvoro.watchface-service";
const char* const kWatchfaceAppId = "com.talvoro.watchface";
const char* const kServiceAppId = "com.talvoro.morvik.service";
const char* const kStoreAppId = "com.talvoro.vendarosvc";

const char* const kIdleClockKey = "db/pel/clocks_set_idle";
const char* const kWatchfaceNameKey = "file/private/com.talvoro.watchface/watchface_name";

namespace {

const char* const kBackgroundDir = "apps/com.talvoro.watchface-service/data/backgrounds";

struct WatchApp {
  const char* pkgId;
  const char* serviceAppId;
};

const WatchApp kPreloadedWatchApps[] = {
    {"com.talvoro.clock-orbitline", "com.talvoro.clock-orbitline.service"},
    {"com.talvoro.clock-pacetrail", "com.talvoro.clock-pacetrail.service"},
};

const CatalogueItem kStoreCatalogue[] = {
    {"com.indie.clock-tidal", "com.indie.clock-tidal", "com.indie.clock-tidal", "watchapp"},
    {"com.indie.clock-ember", "com.indie.clock-ember", "com.indie.clock-ember", "watchapp"},
};

DeviceProfile platformProfile(const std::string& name) {
  DeviceProfile profile;
  profile.name = name;
  profile.packages = {
      {kWatchfaceServiceAppId, kWatchfaceServiceAppId, "svcapp", true},
      {kWatchfaceAppId, kWatchfaceAppId, "watchapp", true},
      {kServiceAppId, kServiceAppId, "svcapp", true},
      {kStoreAppId, kStoreAppId, "svcapp", true},
  };
  for (const WatchApp& app : kPreloadedWatchApps) {
    profile.packages.push_back({app.pkgId, app.pkgId, "watchapp", true});
    profile.packages.push_back({app.pkgId, app.serviceAppId, "svcapp", true});
    profile.watchApps.push_back({app.serviceAppId, app.pkgId, ""});
  }
  for (const CatalogueItem& item : kStoreCatalogue)
    profile.catalogue.push_back(item);
  return profile;
}

// Photo bytes that do not compress, the same on every run.
std::string photoBytes(guint32 seed, size_t size) {
  g_autoptr(GRand) rand = g_rand_new_with_seed(seed);
  std::string bytes(size, '\0');
  for (char& byte : bytes)
    byte = static_cast<char>(g_rand_int_range(rand, 0, 256));
  return bytes;
}

bool prepareDirectory(const std::string& deviceDir, std::string& error) {
  if (g_mkdir_with_parents(deviceDir.c_str(), 0755) != 0) {
    error = "cannot create '" + deviceDir + "'";
    return false;
  }
  g_autofree char* existing =
      g_build_filename(deviceDir.c_str(), DeviceProfile::kFileName, nullptr);
  if (g_file_test(existing, G_FILE_TEST_EXISTS)) {
    error = "'" + deviceDir + "' already holds a watch";
    return false;
  }
  return true;
}

bool writeFile(const std::string& deviceDir, const std::string& relativePath,
               const std::string& bytes, std::string& error) {
  g_autofree char* path = g_build_filename(deviceDir.c_str(), relativePath.c_str(), nullptr);
  g_autofree char* dir = g_path_get_dirname(path);
  g_autoptr(GError) writeError = nullptr;
  if (g_mkdir_with_parents(dir, 0755) != 0 ||
      !g_file_set_contents(path, bytes.data(), static_cast<gssize>(bytes.size()), &writeError)) {
    error = std::string("cannot write '") + path + "'";
    return false;
  }
  return true;
}

}  // namespace

bool createSampleWatch(const std::string& deviceDir, std::string& error) {
  if (!prepareDirectory(deviceDir, error))
    return false;
  DeviceProfile profile = platformProfile("sample");
  profile.config[kIdleClockKey] = kWatchfaceAppId;
  profile.config[kWatchfaceNameKey] = "com.talvoro.face.aurora";

  profile.faces = {
      {"com.talvoro.face.aurora",
       "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<face id=\"aurora\">\n"
       "  <color primary=\"#3FA9F5\" accent=\"#FF6B6B\"/>\n"
       "  <complication slot=\"top\" source=\"steps\"/>\n"
       "  <complication slot=\"bottom\" source=\"battery\"/>\n"
       "  <background ref=\"bg-aurora.jpg\"/>\n</face>\n"},
      {"com.talvoro.face.mono",
       "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<face id=\"mono\">\n"
       "  <hands style=\"baton\" seconds=\"false\"/>\n"
       "  <dial numerals=\"roman\" note=\"quotes \\\" and \\\\ survive\"/>\n</face>\n"},
      {"com.talvoro.face.nebula",
       "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<face id=\"nebula\">\n"
       "  <label text=\"Café 東京 — 24h\"/>\n"
       "  <background ref=\"bg-harbour.png\"/>\n</face>\n"},
  };

  const struct {
    const char* fileName;
    const char* bgType;
    guint32 seed;
    size_t size;
  } photos[] = {
      {"bg-aurora.jpg", "photo", 1, 48 * 1024},
      {"bg-harbour.png", "gallery", 2, 20 * 1024 + 7},
  };
  for (const auto& photo : photos) {
    std::string path = std::string(kBackgroundDir) + "/" + photo.fileName;
    if (!writeFile(deviceDir, path, photoBytes(photo.seed, photo.size), error))
      return false;
    profile.images.push_back({photo.fileName, path, photo.bgType});
  }

  profile.watchApps[0].resultXml =
      "<orbitline version=\"2\"><ring color=\"amber\"/><hands style=\"sweep\"/></orbitline>";
  profile.watchApps[1].resultXml =
      "<pacetrail version=\"1\"><goal km=\"10\"/><units>metric</units></pacetrail>";

  for (const CatalogueItem& item : kStoreCatalogue)
    profile.packages.push_back({item.pkgId, item.appId, item.component, false});

  return profile.save(deviceDir, error);
}

bool createBlankWatch(const std::string& deviceDir, std::string& error) {
  if (!prepareDirectory(deviceDir, error))
    return false;
  DeviceProfile profile = platformProfile("blank");
  profile.config[kIdleClockKey] = kWatchfaceAppId;
  profile.config[kWatchfaceNameKey] = "com.talvoro.face.classic";
  return profile.save(deviceDir, error);
}

}  // namespace emu
