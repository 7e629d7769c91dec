#include "emu/SampleWatch.h"

#include <glib.h>
#include <glib/gstdio.h>

#include <string.h>

#include <iterator>
#include <vector>

namespace emu {

const char* const kBackgroundDir = "apps/com.talvoro.watchface-service/data/backgrounds";

namespace {

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

DeviceProfile platformProfile(const std::string& name,
                              const std::vector<CatalogueItem>& catalogue) {
  DeviceProfile profile;
  profile.name = name;
  profile.packages = {
      {MV_WATCHFACE_SERVICE_APP_ID, MV_WATCHFACE_SERVICE_APP_ID, "svcapp", true},
      {MV_WATCHFACE_APP_ID, MV_WATCHFACE_APP_ID, "watchapp", true},
      {MV_SERVICE_APP_ID, MV_SERVICE_APP_ID, "svcapp", true},
      {MV_STORE_APP_ID, MV_STORE_APP_ID, "svcapp", true},
  };
  for (const WatchApp& app : kPreloadedWatchApps) {
    profile.packages.push_back({app.pkgId, app.pkgId, "watchapp", true});
    profile.packages.push_back({app.pkgId, app.serviceAppId, "svcapp", true});
    profile.watchApps.push_back({app.serviceAppId, app.pkgId, ""});
  }
  profile.catalogue = catalogue;
  return profile;
}

std::vector<CatalogueItem> sampleCatalogue() {
  return std::vector<CatalogueItem>(std::begin(kStoreCatalogue), std::end(kStoreCatalogue));
}

// The heavy watch's downloaded apps, all in the store.
std::vector<CatalogueItem> heavyCatalogue() {
  std::vector<CatalogueItem> catalogue;
  for (int i = 1; i <= 10; ++i) {
    g_autofree char* pkgId = g_strdup_printf("com.indie.clock-heavy%02d", i);
    catalogue.push_back({pkgId, pkgId, pkgId, "watchapp"});
  }
  return catalogue;
}

// A settings document of exactly `size` bytes, different for each face.
std::string heavySettings(int face, size_t size) {
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<face id=\"heavy-" +
                     std::to_string(face) + "\">\n";
  const std::string end = "</face>\n";
  for (int slot = 0;; ++slot) {
    g_autofree char* line =
        g_strdup_printf("  <complication slot=\"s%04d\" source=\"steps\" color=\"#%06X\"/>\n", slot,
                        (face * 7919 + slot * 104729) & 0xFFFFFF);
    if (text.size() + strlen(line) + end.size() > size)
      break;
    text += line;
  }
  text.append(size - text.size() - end.size(), ' ');
  return text + end;
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

bool writeFile(const std::string& deviceDir,
               const std::string& relativePath,
               const std::string& bytes,
               std::string& error) {
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

bool createBlank(const std::string& deviceDir,
                 const std::vector<CatalogueItem>& catalogue,
                 std::string& error) {
  if (!prepareDirectory(deviceDir, error))
    return false;
  DeviceProfile profile = platformProfile("blank", catalogue);
  profile.config[MV_IDLE_CLOCK_KEY] = MV_WATCHFACE_APP_ID;
  profile.config[MV_WATCHFACE_NAME_KEY] = "com.talvoro.face.classic";
  return profile.save(deviceDir, error);
}

}  // namespace

bool createSampleWatch(const std::string& deviceDir, std::string& error) {
  if (!prepareDirectory(deviceDir, error))
    return false;
  DeviceProfile profile = platformProfile("sample", sampleCatalogue());
  profile.config[MV_IDLE_CLOCK_KEY] = MV_WATCHFACE_APP_ID;
  profile.config[MV_WATCHFACE_NAME_KEY] = "com.talvoro.face.aurora";

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
  return createBlank(deviceDir, sampleCatalogue(), error);
}

bool createHeavyWatch(const std::string& deviceDir, int photoFactor, std::string& error) {
  if (photoFactor < 1) {
    error = "the photo factor must be at least 1";
    return false;
  }
  if (!prepareDirectory(deviceDir, error))
    return false;
  DeviceProfile profile = platformProfile("heavy", heavyCatalogue());
  profile.config[MV_IDLE_CLOCK_KEY] = MV_WATCHFACE_APP_ID;
  profile.config[MV_WATCHFACE_NAME_KEY] = "com.talvoro.face.heavy01";

  for (int face = 1; face <= 40; ++face) {
    g_autofree char* pkgId = g_strdup_printf("com.talvoro.face.heavy%02d", face);
    profile.faces.push_back({pkgId, heavySettings(face, 16 * 1024)});
  }
  for (int photo = 1; photo <= 20 * photoFactor; ++photo) {
    g_autofree char* fileName = g_strdup_printf("bg-heavy%03d.jpg", photo);
    const std::string path = std::string(kBackgroundDir) + "/" + fileName;
    if (!writeFile(deviceDir, path, photoBytes(1000 + photo, 512 * 1024), error))
      return false;
    profile.images.push_back({fileName, path, photo % 2 ? "photo" : "gallery"});
  }
  profile.watchApps[0].resultXml = heavySettings(41, 16 * 1024);
  profile.watchApps[1].resultXml = heavySettings(42, 16 * 1024);
  for (const CatalogueItem& item : profile.catalogue)
    profile.packages.push_back({item.pkgId, item.appId, item.component, false});
  return profile.save(deviceDir, error);
}

bool createHeavyBlankWatch(const std::string& deviceDir, std::string& error) {
  return createBlank(deviceDir, heavyCatalogue(), error);
}

}  // namespace emu
