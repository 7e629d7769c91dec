#include "Floor.h"

#include <glib.h>
#include <json-glib/json-glib.h>
#include <stdio.h>

#include <vector>

#include "CpuTime.h"
#include "MvHandles.h"
#include "MvSvcTypes.h"
#include "ProcessMemory.h"
#include "emu/DeviceProfile.h"
#include "emu/SampleWatch.h"

namespace bench {

namespace {

// Milliseconds since the previous call, recorded as "<name>_ms"; total() adds the whole span's
// wall time ("total_ms") and CPU time ("cpu_ms").
class PhaseClock {
 public:
  explicit PhaseClock(Measurement& measurement)
      : measurement_(measurement),
        start_(g_get_monotonic_time()),
        last_(start_),
        startCpuMs_(cpuTimeMs()) {}

  void lap(const char* name) {
    const gint64 now = g_get_monotonic_time();
    measurement_.set(std::string(name) + "_ms", static_cast<double>(now - last_) / 1000);
    last_ = now;
  }
  void total() {
    measurement_.set("total_ms", static_cast<double>(last_ - start_) / 1000);
    measurement_.set("cpu_ms", cpuTimeMs() - startCpuMs_);
  }

 private:
  Measurement& measurement_;
  gint64 start_;
  gint64 last_;
  double startCpuMs_;
};

bool writeFile(const std::string& path, const char* bytes, size_t size) {
  MvFilePtr file(fopen(path.c_str(), "wb"));
  if (!file)
    return false;
  const bool written = fwrite(bytes, 1, size, file.get()) == size;
  return mvReleaseNow(file) == 0 && written;
}

JsonObject* watchItem(const std::string& pkgId,
                      const std::string& svcId,
                      const std::string& result) {
  JsonObject* item = json_object_new();
  json_object_set_string_member(item, "pkgid", pkgId.c_str());
  json_object_set_string_member(item, "svcid", svcId.c_str());
  json_object_set_string_member(item, "result", result.c_str());
  return item;
}

// The document the service writes for `profile`, with the photos already in base64; each photo's
// text goes as the tree takes its copy.
JsonNode* buildDocument(const emu::DeviceProfile& profile, std::vector<MvGCharPtr>& photos) {
  JsonObject* root = json_object_new();
  json_object_set_string_member(root, "watch_main_key",
                                profile.config.at(MV_IDLE_CLOCK_KEY).c_str());
  json_object_set_string_member(root, "watch_sub_key",
                                profile.config.at(MV_WATCHFACE_NAME_KEY).c_str());
  JsonArray* items = json_array_new();
  for (const emu::FaceEntry& face : profile.faces) {
    json_array_add_object_element(
        items, watchItem(face.pkgId, MV_WATCHFACE_SERVICE_APP_ID, face.settings));
  }
  for (const emu::WatchAppState& app : profile.watchApps)
    json_array_add_object_element(items, watchItem(app.pkgId, app.appId, app.resultXml));
  for (const host::PackageInfo& package : profile.packages) {
    if (!package.preload && package.component == "watchapp")
      json_array_add_object_element(items, watchItem(package.pkgId, package.pkgId, "downloaded"));
  }
  json_object_set_array_member(root, "watch_items", items);

  JsonArray* images = json_array_new();
  for (size_t i = 0; i < profile.images.size(); ++i) {
    JsonObject* image = json_object_new();
    json_object_set_string_member(image, "file_name", profile.images[i].fileName.c_str());
    json_object_set_string_member(image, "bg_type", profile.images[i].bgType.c_str());
    json_object_set_string_member(image, "data", photos[i].get());
    photos[i].reset();
    json_array_add_object_element(images, image);
  }
  json_object_set_array_member(root, "watch_custom_bg", images);
  JsonNode* node = json_node_new(JSON_NODE_OBJECT);
  json_node_take_object(node, root);
  return node;
}

}  // namespace

bool measureFloor(const std::string& deviceDir,
                  const std::string& workDir,
                  Measurement& measurement,
                  std::string& error) {
  emu::DeviceProfile profile;
  if (!profile.load(deviceDir, error))
    return false;
  resetPeakMemory();
  const long baselineKb = readResidentMemory().currentKb;
  PhaseClock clock(measurement);

  std::vector<MvGCharPtr> photos;
  for (const emu::BackgroundImage& image : profile.images) {
    g_autofree gchar* bytes = nullptr;
    gsize size = 0;
    const std::string path = deviceDir + "/" + image.path;
    if (!g_file_get_contents(path.c_str(), &bytes, &size, nullptr)) {
      error = "cannot read " + path;
      return false;
    }
    photos.emplace_back(g_base64_encode(reinterpret_cast<const guchar*>(bytes), size));
  }
  clock.lap("encode");

  // The generator holds the tree: both go before the text is read back, so that json-glib's own
  // peak is the tree beside one text, never two.
  gsize length = 0;
  MvGCharPtr text;
  {
    g_autoptr(JsonNode) document = buildDocument(profile, photos);
    g_autoptr(JsonGenerator) generator = json_generator_new();
    json_generator_set_root(generator, document);
    text.reset(json_generator_to_data(generator, &length));
  }
  clock.lap("generate");

  const std::string documentPath = workDir + "/document.json";
  if (!writeFile(documentPath, text.get(), length)) {
    error = "cannot write " + documentPath;
    return false;
  }
  text.reset();
  clock.lap("write");

  gchar* contents = nullptr;
  if (!g_file_get_contents(documentPath.c_str(), &contents, &length, nullptr)) {
    error = "cannot read " + documentPath + " back";
    return false;
  }
  MvGCharPtr readBack(contents);
  clock.lap("read");

  g_autoptr(JsonParser) parser = json_parser_new();
  if (!json_parser_load_from_data(parser, readBack.get(), static_cast<gssize>(length), nullptr)) {
    error = "json-glib cannot parse its own document";
    return false;
  }
  readBack.reset();
  clock.lap("parse");

  JsonObject* root = json_node_get_object(json_parser_get_root(parser));
  JsonArray* images = json_object_get_array_member(root, "watch_custom_bg");
  for (guint i = 0; i < json_array_get_length(images); ++i) {
    JsonObject* image = json_array_get_object_element(images, i);
    gsize size = 0;
    g_autofree guchar* bytes = g_base64_decode(json_object_get_string_member(image, "data"), &size);
    const std::string path = workDir + "/" + json_object_get_string_member(image, "file_name");
    if (!writeFile(path, reinterpret_cast<const char*>(bytes), size)) {
      error = "cannot write " + path;
      return false;
    }
  }
  clock.lap("decode");
  clock.total();

  measurement.set("doc_bytes", static_cast<double>(length));
  measurement.set("baseline_kb", static_cast<double>(baselineKb));
  measurement.set("peak_kb", static_cast<double>(readResidentMemory().peakKb));
  return true;
}

}  // namespace bench
