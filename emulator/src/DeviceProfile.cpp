#include "emu/DeviceProfile.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <json-glib/json-glib.h>

namespace emu {

const char* const DeviceProfile::kFileName = "device.json";

namespace {

// Reads the members of one JSON object, remembering the first problem as a one-line reason.
class ObjectReader {
 public:
  ObjectReader(JsonObject* object, std::string where, std::string& error)
      : object_(object), where_(std::move(where)), error_(error) {}

  bool string(const char* member, std::string& value, bool required = true) {
    JsonNode* node = json_object_get_member(object_, member);
    if (!node)
      return !required || fail(std::string("lacks \"") + member + "\"");
    if (!JSON_NODE_HOLDS_VALUE(node) || json_node_get_value_type(node) != G_TYPE_STRING)
      return fail(std::string("\"") + member + "\" must be a string");
    value = json_node_get_string(node);
    return true;
  }

  bool boolean(const char* member, bool& value) {
    JsonNode* node = json_object_get_member(object_, member);
    if (!node)
      return true;
    if (!JSON_NODE_HOLDS_VALUE(node) || json_node_get_value_type(node) != G_TYPE_BOOLEAN)
      return fail(std::string("\"") + member + "\" must be true or false");
    value = json_node_get_boolean(node);
    return true;
  }

  // Calls `each` with a reader per element of the array member; a missing member is empty.
  template <typename Each>
  bool objects(const char* member, Each each) {
    JsonNode* node = json_object_get_member(object_, member);
    if (!node)
      return true;
    if (!JSON_NODE_HOLDS_ARRAY(node))
      return fail(std::string("\"") + member + "\" must be an array");
    JsonArray* array = json_node_get_array(node);
    for (guint i = 0; i < json_array_get_length(array); ++i) {
      JsonNode* element = json_array_get_element(array, i);
      std::string where = where_ + "." + member + "[" + std::to_string(i) + "]";
      if (!JSON_NODE_HOLDS_OBJECT(element))
        return fail(std::string("\"") + member + "\" must hold objects");
      ObjectReader reader(json_node_get_object(element), where, error_);
      if (!each(reader))
        return false;
    }
    return true;
  }

  bool stringMap(const char* member, std::map<std::string, std::string>& values) {
    JsonNode* node = json_object_get_member(object_, member);
    if (!node)
      return true;
    if (!JSON_NODE_HOLDS_OBJECT(node))
      return fail(std::string("\"") + member + "\" must be an object");
    ObjectReader reader(json_node_get_object(node), where_ + "." + member, error_);
    g_autoptr(GList) names = json_object_get_members(json_node_get_object(node));
    for (GList* name = names; name; name = name->next) {
      const char* key = static_cast<const char*>(name->data);
      if (!reader.string(key, values[key]))
        return false;
    }
    return true;
  }

  bool fail(const std::string& what) {
    error_ = where_ + " " + what;
    return false;
  }

 private:
  JsonObject* object_;
  std::string where_;
  std::string& error_;
};

// json-glib quotes the offending text in its messages, line breaks included.
std::string oneLine(const char* message) {
  std::string line;
  for (const char* c = message; *c; ++c) {
    if (*c == '\n')
      line += "\\n";
    else if (static_cast<unsigned char>(*c) < 0x20)
      line += ' ';
    else
      line += *c;
  }
  return line;
}

void addStringMember(JsonBuilder* builder, const char* name, const std::string& value) {
  json_builder_set_member_name(builder, name);
  json_builder_add_string_value(builder, value.c_str());
}

void addStringMap(JsonBuilder* builder,
                  const char* name,
                  const std::map<std::string, std::string>& values) {
  json_builder_set_member_name(builder, name);
  json_builder_begin_object(builder);
  for (const auto& entry : values)
    addStringMember(builder, entry.first.c_str(), entry.second);
  json_builder_end_object(builder);
}

}  // namespace

bool DeviceProfile::load(const std::string& deviceDir, std::string& error) {
  *this = DeviceProfile();
  g_autofree char* path = g_build_filename(deviceDir.c_str(), kFileName, nullptr);
  g_autoptr(JsonParser) parser = json_parser_new();
  g_autoptr(GError) parseError = nullptr;
  if (!json_parser_load_from_file(parser, path, &parseError)) {
    // The message names the file already.
    error = oneLine(parseError->message);
    return false;
  }
  JsonNode* root = json_parser_get_root(parser);
  if (!root || !JSON_NODE_HOLDS_OBJECT(root)) {
    error = std::string(path) + ": not a JSON object";
    return false;
  }
  JsonObject* object = json_node_get_object(root);
  JsonNode* format = json_object_get_member(object, "format");
  if (!format || !JSON_NODE_HOLDS_VALUE(format) ||
      json_node_get_value_type(format) != G_TYPE_INT64 ||
      json_node_get_int(format) != kFormatVersion) {
    error =
        std::string(path) + ": not a device profile of format " + std::to_string(kFormatVersion);
    return false;
  }

  ObjectReader reader(object, kFileName, error);
  return reader.string("name", name) && reader.stringMap("config", config) &&
         reader.objects("packages",
                        [&](ObjectReader& item) {
                          host::PackageInfo info;
                          bool ok = item.string("pkgid", info.pkgId) &&
                                    item.string("appid", info.appId) &&
                                    item.string("component", info.component) &&
                                    item.boolean("preload", info.preload);
                          packages.push_back(info);
                          return ok;
                        }) &&
         reader.objects("faces",
                        [&](ObjectReader& item) {
                          FaceEntry face;
                          bool ok = item.string("pkgid", face.pkgId) &&
                                    item.string("settings", face.settings);
                          faces.push_back(face);
                          return ok;
                        }) &&
         reader.objects("images",
                        [&](ObjectReader& item) {
                          BackgroundImage image;
                          bool ok = item.string("file_name", image.fileName) &&
                                    item.string("path", image.path) &&
                                    item.string("bg_type", image.bgType);
                          images.push_back(image);
                          return ok;
                        }) &&
         reader.objects("watch_apps",
                        [&](ObjectReader& item) {
                          WatchAppState app;
                          bool ok = item.string("appid", app.appId) &&
                                    item.string("pkgid", app.pkgId) &&
                                    item.string("result_xml", app.resultXml);
                          watchApps.push_back(app);
                          return ok;
                        }) &&
         reader.objects("store_catalogue",
                        [&](ObjectReader& item) {
                          CatalogueItem entry;
                          bool ok = item.string("guid", entry.guid) &&
                                    item.string("pkgid", entry.pkgId) &&
                                    item.string("appid", entry.appId) &&
                                    item.string("component", entry.component);
                          catalogue.push_back(entry);
                          return ok;
                        }) &&
         reader.stringMap("faults", faults);
}

bool DeviceProfile::save(const std::string& deviceDir, std::string& error) const {
  g_autoptr(JsonBuilder) builder = json_builder_new();
  json_builder_begin_object(builder);
  json_builder_set_member_name(builder, "format");
  json_builder_add_int_value(builder, kFormatVersion);
  addStringMember(builder, "name", name);
  addStringMap(builder, "config", config);

  json_builder_set_member_name(builder, "packages");
  json_builder_begin_array(builder);
  for (const host::PackageInfo& info : packages) {
    json_builder_begin_object(builder);
    addStringMember(builder, "pkgid", info.pkgId);
    addStringMember(builder, "appid", info.appId);
    addStringMember(builder, "component", info.component);
    json_builder_set_member_name(builder, "preload");
    json_builder_add_boolean_value(builder, info.preload);
    json_builder_end_object(builder);
  }
  json_builder_end_array(builder);

  json_builder_set_member_name(builder, "faces");
  json_builder_begin_array(builder);
  for (const FaceEntry& face : faces) {
    json_builder_begin_object(builder);
    addStringMember(builder, "pkgid", face.pkgId);
    addStringMember(builder, "settings", face.settings);
    json_builder_end_object(builder);
  }
  json_builder_end_array(builder);

  json_builder_set_member_name(builder, "images");
  json_builder_begin_array(builder);
  for (const BackgroundImage& image : images) {
    json_builder_begin_object(builder);
    addStringMember(builder, "file_name", image.fileName);
    addStringMember(builder, "path", image.path);
    addStringMember(builder, "bg_type", image.bgType);
    json_builder_end_object(builder);
  }
  json_builder_end_array(builder);

  json_builder_set_member_name(builder, "watch_apps");
  json_builder_begin_array(builder);
  for (const WatchAppState& app : watchApps) {
    json_builder_begin_object(builder);
    addStringMember(builder, "appid", app.appId);
    addStringMember(builder, "pkgid", app.pkgId);
    addStringMember(builder, "result_xml", app.resultXml);
    json_builder_end_object(builder);
  }
  json_builder_end_array(builder);

  json_builder_set_member_name(builder, "store_catalogue");
  json_builder_begin_array(builder);
  for (const CatalogueItem& entry : catalogue) {
    json_builder_begin_object(builder);
    addStringMember(builder, "guid", entry.guid);
    addStringMember(builder, "pkgid", entry.pkgId);
    addStringMember(builder, "appid", entry.appId);
    addStringMember(builder, "component", entry.component);
    json_builder_end_object(builder);
  }
  json_builder_end_array(builder);

  addStringMap(builder, "faults", faults);
  json_builder_end_object(builder);

  g_autoptr(JsonNode) root = json_builder_get_root(builder);
  g_autoptr(JsonGenerator) generator = json_generator_new();
  json_generator_set_pretty(generator, TRUE);
  json_generator_set_root(generator, root);
  gsize length = 0;
  g_autofree char* text = json_generator_to_data(generator, &length);

  g_autofree char* path = g_build_filename(deviceDir.c_str(), kFileName, nullptr);
  g_autoptr(GError) writeError = nullptr;
  // g_file_set_contents writes a temporary file and renames it over the profile.
  if (!g_file_set_contents(path, text, static_cast<gssize>(length), &writeError)) {
    error = std::string(path) + ": " + writeError->message;
    return false;
  }
  return true;
}

}  // namespace emu
