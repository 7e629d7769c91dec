#include "emu/DeviceProfile.h"

#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <glib/gstdio.h>
#include <json-glib/json-glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "MvHandles.h"
#include "MvText.h"
#include "emu/OutsideText.h"
#include "emu/RunJournal.h"
#include "host/AtomicFile.h"
#include "host/Personality.h"

namespace emu {

const char* const DeviceProfile::kFileName = "device.json";

namespace {

std::string exactBytes(const char* base64) {
  gsize length = 0;
  g_autofree guchar* bytes = g_base64_decode(base64, &length);
  return std::string(reinterpret_cast<const char*>(bytes), length);
}

// The whole of a regular file of at most `limit` bytes. A FIFO, a device or a link to one is
// refused at once, never read or waited on.
bool readProfileText(const char* path, size_t limit, std::string& text, std::string& error) {
  MvFd fd(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  if (fd.get() < 0) {
    error = std::string("cannot open ") + path + ": " + g_strerror(errno);
    return false;
  }
  struct stat info;
  bool ok = fstat(fd.get(), &info) == 0 && S_ISREG(info.st_mode);
  if (!ok)
    error = std::string(path) + ": not a regular file";
  else if (static_cast<unsigned long long>(info.st_size) > limit)
    error = std::string(path) + ": larger than " + std::to_string(limit >> 20) + " MiB";
  ok = ok && static_cast<unsigned long long>(info.st_size) <= limit;
  std::string bytes;
  // Read to the end, not to the size seen: the file may change, but never past the limit.
  char chunk[64 * 1024];
  while (ok) {
    const ssize_t got = read(fd.get(), chunk, sizeof chunk);
    if (got < 0 && errno == EINTR)
      continue;
    if (got <= 0) {
      if (got < 0)
        error = std::string("cannot read ") + path + ": " + g_strerror(errno);
      ok = got == 0;
      break;
    }
    bytes.append(chunk, static_cast<size_t>(got));
    if (bytes.size() > limit) {
      error = std::string(path) + ": larger than " + std::to_string(limit >> 20) + " MiB";
      ok = false;
    }
  }
  if (ok)
    text.swap(bytes);
  return ok;
}

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
    const std::string exactName = mvExactMember(member);
    JsonNode* exact = json_object_get_member(object_, exactName.c_str());
    if (exact && JSON_NODE_HOLDS_VALUE(exact) && json_node_get_value_type(exact) == G_TYPE_STRING)
      value = exactBytes(json_node_get_string(exact));
    else
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
    const std::string exactName = mvExactMember(member);
    JsonNode* exact = json_object_get_member(object_, exactName.c_str());
    JsonObject* exactValues =
        exact && JSON_NODE_HOLDS_OBJECT(exact) ? json_node_get_object(exact) : nullptr;
    g_autoptr(GList) names = json_object_get_members(json_node_get_object(node));
    for (GList* name = names; name; name = name->next) {
      const char* key = static_cast<const char*>(name->data);
      // A name cannot carry its bytes beside it: json-glib's escapes are the only way to one
      // that is not UTF-8, and it would not survive a save.
      if (!g_utf8_validate(key, -1, nullptr))
        return fail(std::string("\"") + member + "\" has a name that is not UTF-8 text");
      if (!reader.string(key, values[key]))
        return false;
      JsonNode* bytes = exactValues ? json_object_get_member(exactValues, key) : nullptr;
      if (bytes && JSON_NODE_HOLDS_VALUE(bytes) && json_node_get_value_type(bytes) == G_TYPE_STRING)
        values[key] = exactBytes(json_node_get_string(bytes));
    }
    return true;
  }

  // Names come from the file and may hold line breaks: the reason stays one line.
  bool fail(const std::string& what) {
    error_.clear();
    for (const char c : where_ + " " + what) {
      if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
        char escaped[8];
        snprintf(escaped, sizeof(escaped), "\\u%04x", static_cast<unsigned char>(c));
        error_ += escaped;
      } else {
        error_ += c;
      }
    }
    return false;
  }

 private:
  JsonObject* object_;  // the document's
  std::string where_;
  std::string& error_;
};

// Each switch of "platform" must be one the host knows, with a value it takes, and no
// configuration value may be longer than such a platform stores.
bool validPlatform(const std::map<std::string, std::string>& settings,
                   const std::map<std::string, std::string>& config,
                   std::string& error) {
  host::Personality personality;
  std::string reason;
  if (!personality.setAll(settings, reason)) {
    error = std::string(DeviceProfile::kFileName) + ": platform: " + reason;
    return false;
  }
  const size_t limit = personality.vconfValueLimit;
  for (const auto& entry : config) {
    if (limit != 0 && entry.second.size() > limit) {
      error = std::string(DeviceProfile::kFileName) + ": config: the value of '" + entry.first +
              "' is " + std::to_string(entry.second.size()) +
              " bytes, more than the platform's vconf-value-limit of " + std::to_string(limit);
      return false;
    }
  }
  return true;
}

}  // namespace

bool DeviceProfile::load(const std::string& deviceDir, std::string& error) {
  *this = DeviceProfile();
  g_autofree char* path = g_build_filename(deviceDir.c_str(), kFileName, nullptr);
  std::string text;
  if (!readProfileText(path, kMaxFileBytes, text, error))
    return false;
  std::string refusal;
  if (!admitJsonText(text.data(), text.size(), kMaxFileBytes, refusal)) {
    error = std::string(path) + ": " + refusal;
    return false;
  }
  g_autoptr(JsonParser) parser = json_parser_new();
  g_autoptr(GError) parseError = nullptr;
  if (!json_parser_load_from_data(parser, text.data(), static_cast<gssize>(text.size()),
                                  &parseError)) {
    // json-glib names the text "<data>"; say which file it was, as it does for a file.
    const std::string message = oneLine(parseError->message);
    const std::string unnamed = "<data>";
    error = message.compare(0, unnamed.size(), unnamed) == 0 ? path + message.substr(unnamed.size())
                                                             : std::string(path) + ": " + message;
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
  const bool read = reader.string("name", name) && reader.stringMap("config", config) &&
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
                    reader.stringMap("faults", faults) && reader.stringMap("platform", platform) &&
                    validPlatform(platform, config, error);
  // What a run applied and did not live to save.
  return read && RunJournal::replay(deviceDir, *this, error);
}

bool DeviceProfile::save(const std::string& deviceDir, std::string& error) const {
  g_autoptr(JsonBuilder) builder = json_builder_new();
  json_builder_begin_object(builder);
  json_builder_set_member_name(builder, "format");
  json_builder_add_int_value(builder, kFormatVersion);
  mvJsonAddText(builder, "name", name);
  mvJsonAddTextMap(builder, "config", config);

  json_builder_set_member_name(builder, "packages");
  json_builder_begin_array(builder);
  for (const host::PackageInfo& info : packages) {
    json_builder_begin_object(builder);
    mvJsonAddText(builder, "pkgid", info.pkgId);
    mvJsonAddText(builder, "appid", info.appId);
    mvJsonAddText(builder, "component", info.component);
    json_builder_set_member_name(builder, "preload");
    json_builder_add_boolean_value(builder, info.preload);
    json_builder_end_object(builder);
  }
  json_builder_end_array(builder);

  json_builder_set_member_name(builder, "faces");
  json_builder_begin_array(builder);
  for (const FaceEntry& face : faces) {
    json_builder_begin_object(builder);
    mvJsonAddText(builder, "pkgid", face.pkgId);
    mvJsonAddText(builder, "settings", face.settings);
    json_builder_end_object(builder);
  }
  json_builder_end_array(builder);

  json_builder_set_member_name(builder, "images");
  json_builder_begin_array(builder);
  for (const BackgroundImage& image : images) {
    json_builder_begin_object(builder);
    mvJsonAddText(builder, "file_name", image.fileName);
    mvJsonAddText(builder, "path", image.path);
    mvJsonAddText(builder, "bg_type", image.bgType);
    json_builder_end_object(builder);
  }
  json_builder_end_array(builder);

  json_builder_set_member_name(builder, "watch_apps");
  json_builder_begin_array(builder);
  for (const WatchAppState& app : watchApps) {
    json_builder_begin_object(builder);
    mvJsonAddText(builder, "appid", app.appId);
    mvJsonAddText(builder, "pkgid", app.pkgId);
    mvJsonAddText(builder, "result_xml", app.resultXml);
    json_builder_end_object(builder);
  }
  json_builder_end_array(builder);

  json_builder_set_member_name(builder, "store_catalogue");
  json_builder_begin_array(builder);
  for (const CatalogueItem& entry : catalogue) {
    json_builder_begin_object(builder);
    mvJsonAddText(builder, "guid", entry.guid);
    mvJsonAddText(builder, "pkgid", entry.pkgId);
    mvJsonAddText(builder, "appid", entry.appId);
    mvJsonAddText(builder, "component", entry.component);
    json_builder_end_object(builder);
  }
  json_builder_end_array(builder);

  mvJsonAddTextMap(builder, "faults", faults);
  if (!platform.empty())
    mvJsonAddTextMap(builder, "platform", platform);
  json_builder_end_object(builder);

  g_autoptr(JsonNode) root = json_builder_get_root(builder);
  g_autoptr(JsonGenerator) generator = json_generator_new();
  json_generator_set_pretty(generator, TRUE);
  json_generator_set_root(generator, root);
  gsize length = 0;
  g_autofree char* text = json_generator_to_data(generator, &length);

  g_autofree char* path = g_build_filename(deviceDir.c_str(), kFileName, nullptr);
  // A reader sees the old profile or the new one, and a crash leaves a file the next run can
  // tell is stale.
  std::string reason;
  const bool replaced = host::replaceFile(
      path,
      [&](int fd, std::string& why) {
        if (host::writeAll(fd, text, length))
          return true;
        why = std::string("cannot write: ") + g_strerror(errno);
        return false;
      },
      reason);
  if (!replaced) {
    error = std::string(path) + ": " + reason;
    return false;
  }
  // The profile now holds what the journal did, for it was loaded with it.
  RunJournal::remove(deviceDir);
  return true;
}

std::optional<std::string> readDeviceFile(const std::string& deviceDir,
                                          const std::string& relativePath) {
  g_autofree char* path = g_build_filename(deviceDir.c_str(), relativePath.c_str(), nullptr);
  g_autofree char* bytes = nullptr;
  gsize length = 0;
  if (!g_file_test(path, G_FILE_TEST_IS_REGULAR) ||
      !g_file_get_contents(path, &bytes, &length, nullptr))
    return std::nullopt;
  return std::string(bytes, length);
}

}  // namespace emu
