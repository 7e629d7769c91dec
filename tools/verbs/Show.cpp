// morvik-emu show: a watch's setup, as text or JSON.
#include <glib.h>
#include <sys/stat.h>

#include <string>

#include "EmuVerbs.h"
#include "MvText.h"
#include "emu/DeviceProfile.h"
#include "emu/DirectoryKind.h"
#include "emu/SampleWatch.h"

namespace emucli {

namespace {

// The size of DIR/PATH, or -1 when there is no such file.
long long fileSize(const std::string& deviceDir, const std::string& relativePath) {
  g_autofree char* path = g_build_filename(deviceDir.c_str(), relativePath.c_str(), nullptr);
  struct stat info;
  return stat(path, &info) == 0 ? static_cast<long long>(info.st_size) : -1;
}

const std::string* configValue(const emu::DeviceProfile& profile, const char* key) {
  auto it = profile.config.find(key);
  return it == profile.config.end() ? nullptr : &it->second;
}

int showJson(const std::string& dir, const emu::DeviceProfile& profile) {
  g_autoptr(JsonBuilder) builder = json_builder_new();
  json_builder_begin_object(builder);
  addString(builder, "watch", dir);
  addString(builder, "name", profile.name);
  addStringOrNull(builder, "idle_clock", configValue(profile, MV_IDLE_CLOCK_KEY));
  addStringOrNull(builder, "face_name", configValue(profile, MV_WATCHFACE_NAME_KEY));

  json_builder_set_member_name(builder, "packages");
  json_builder_begin_array(builder);
  for (const host::PackageInfo& app : profile.packages) {
    json_builder_begin_object(builder);
    addString(builder, "appid", app.appId);
    addString(builder, "pkgid", app.pkgId);
    addString(builder, "component", app.component);
    json_builder_set_member_name(builder, "preload");
    json_builder_add_boolean_value(builder, app.preload);
    json_builder_end_object(builder);
  }
  json_builder_end_array(builder);

  json_builder_set_member_name(builder, "faces");
  json_builder_begin_array(builder);
  for (const emu::FaceEntry& face : profile.faces) {
    json_builder_begin_object(builder);
    addString(builder, "pkgid", face.pkgId);
    addInt(builder, "settings_bytes", static_cast<long long>(face.settings.size()));
    json_builder_end_object(builder);
  }
  json_builder_end_array(builder);

  json_builder_set_member_name(builder, "photos");
  json_builder_begin_array(builder);
  for (const emu::BackgroundImage& image : profile.images) {
    json_builder_begin_object(builder);
    addString(builder, "file_name", image.fileName);
    addString(builder, "bg_type", image.bgType);
    addString(builder, "path", image.path);
    const long long size = fileSize(dir, image.path);
    json_builder_set_member_name(builder, "file_bytes");
    if (size < 0)
      json_builder_add_null_value(builder);
    else
      json_builder_add_int_value(builder, size);
    json_builder_end_object(builder);
  }
  json_builder_end_array(builder);

  json_builder_set_member_name(builder, "watch_apps");
  json_builder_begin_array(builder);
  for (const emu::WatchAppState& app : profile.watchApps) {
    json_builder_begin_object(builder);
    addString(builder, "appid", app.appId);
    addString(builder, "pkgid", app.pkgId);
    addInt(builder, "settings_bytes", static_cast<long long>(app.resultXml.size()));
    json_builder_end_object(builder);
  }
  json_builder_end_array(builder);

  json_builder_set_member_name(builder, "store_catalogue");
  json_builder_begin_array(builder);
  for (const emu::CatalogueItem& item : profile.catalogue) {
    json_builder_begin_object(builder);
    addString(builder, "guid", item.guid);
    addString(builder, "pkgid", item.pkgId);
    addString(builder, "appid", item.appId);
    addString(builder, "component", item.component);
    json_builder_end_object(builder);
  }
  json_builder_end_array(builder);

  json_builder_set_member_name(builder, "faults");
  json_builder_begin_object(builder);
  for (const auto& fault : profile.faults)
    addString(builder, fault.first.c_str(), fault.second);
  json_builder_end_object(builder);
  json_builder_end_object(builder);
  return printJson(builder);
}

std::string describeSize(long long size) {
  return size < 0 ? std::string("missing") : std::to_string(size) + " bytes";
}

int showText(const std::string& dir, const emu::DeviceProfile& profile) {
  const std::string* idle = configValue(profile, MV_IDLE_CLOCK_KEY);
  const std::string* faceName = configValue(profile, MV_WATCHFACE_NAME_KEY);
  printf("watch       %s (%s)\n", mvShownText(profile.name).c_str(), dir.c_str());
  printf("idle clock  %s\n", idle ? mvShownText(*idle).c_str() : "(unset)");
  printf("face name   %s\n", faceName ? mvShownText(*faceName).c_str() : "(unset)");

  printf("packages    %zu apps\n", profile.packages.size());
  for (const host::PackageInfo& app : profile.packages)
    printf("  %-40s %-9s %-10s %s\n", mvShownText(app.appId).c_str(),
           mvShownText(app.component).c_str(), app.preload ? "preloaded" : "downloaded",
           mvShownText(app.pkgId).c_str());

  printf("faces       %zu\n", profile.faces.size());
  for (const emu::FaceEntry& face : profile.faces)
    printf("  %-40s %zu bytes of settings\n", mvShownText(face.pkgId).c_str(),
           face.settings.size());

  printf("photos      %zu\n", profile.images.size());
  for (const emu::BackgroundImage& image : profile.images)
    printf("  %-40s %-9s %s, %s\n", mvShownText(image.fileName).c_str(),
           mvShownText(image.bgType).c_str(), describeSize(fileSize(dir, image.path)).c_str(),
           mvShownText(image.path).c_str());

  printf("watch apps  %zu\n", profile.watchApps.size());
  for (const emu::WatchAppState& app : profile.watchApps)
    printf("  %-40s %zu bytes of settings\n", mvShownText(app.appId).c_str(), app.resultXml.size());

  printf("store       %zu in the catalogue\n", profile.catalogue.size());
  for (const emu::CatalogueItem& item : profile.catalogue)
    printf("  %-40s guid %s\n", mvShownText(item.appId).c_str(), mvShownText(item.guid).c_str());

  if (profile.faults.empty())
    printf("faults      none\n");
  for (const auto& fault : profile.faults)
    printf("fault       %s=%s\n", mvShownText(fault.first).c_str(),
           mvShownText(fault.second).c_str());
  return kStatusOk;
}

}  // namespace

int runShow(const Verb& verb, int argc, char** argv) {
  bool json = false;
  VerbOptions options(verb);
  options.flag("json", "Print the setup as JSON", &json);
  const int status = options.parse(argc, argv);
  if (status >= 0)
    return status;
  if (options.positional().size() != 1)
    return fail("show needs exactly one DIR");
  const std::string& dir = options.positional()[0];
  emu::DeviceProfile profile;
  std::string error;
  if (!emu::requireWatch(dir, error) || !profile.load(dir, error))
    return fail(error);
  return json ? showJson(dir, profile) : showText(dir, profile);
}

}  // namespace emucli
