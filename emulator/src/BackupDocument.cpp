#include "emu/BackupDocument.h"

#include <glib.h>
#include <json-glib/json-glib.h>

#include <algorithm>

#include "emu/SampleWatch.h"

namespace emu {

namespace {

const char* const kDownloaded = "downloaded";

const char* stringMember(JsonObject* object, const std::string& name) {
  JsonNode* node = json_object_get_member(object, name.c_str());
  if (!node || !JSON_NODE_HOLDS_VALUE(node) || json_node_get_value_type(node) != G_TYPE_STRING)
    return nullptr;
  return json_node_get_string(node);
}

// A string member, byte for byte: text that is not UTF-8 travels as "<name>_base64".
std::string member(JsonObject* object, const char* name) {
  if (const char* exact = stringMember(object, std::string(name) + "_base64")) {
    gsize length = 0;
    g_autofree guchar* bytes = g_base64_decode(exact, &length);
    return std::string(reinterpret_cast<const char*>(bytes), length);
  }
  const char* text = stringMember(object, name);
  return text ? text : std::string();
}

// The objects of the array member `name`; other elements read as empty objects.
template <typename Each>
void forEachObject(JsonObject* root, const char* name, Each each) {
  JsonNode* node = json_object_get_member(root, name);
  if (!node || !JSON_NODE_HOLDS_ARRAY(node))
    return;
  JsonArray* array = json_node_get_array(node);
  for (guint i = 0; i < json_array_get_length(array); ++i) {
    JsonNode* element = json_array_get_element(array, i);
    g_autoptr(JsonObject) empty = json_object_new();
    each(JSON_NODE_HOLDS_OBJECT(element) ? json_node_get_object(element) : empty);
  }
}

}  // namespace

bool BackupDocument::read(const std::string& text, std::string& error) {
  *this = BackupDocument();
  g_autoptr(JsonParser) parser = json_parser_new();
  g_autoptr(GError) failure = nullptr;
  // Raw bytes that are not UTF-8 read as replacement characters, as the service reads them.
  g_autofree char* valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
  const bool repairedText =
      !g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr);
  if (!json_parser_load_from_data(parser, valid, -1, &failure)) {
    error = failure->message;
    return false;
  }
  JsonNode* root = json_parser_get_root(parser);
  if (!root || !JSON_NODE_HOLDS_OBJECT(root)) {
    error = "not a JSON object";
    return false;
  }
  JsonObject* object = json_node_get_object(root);
  repaired = repairedText;
  mainKey = member(object, "watch_main_key");
  subKey = member(object, "watch_sub_key");
  forEachObject(object, "watch_items", [this](JsonObject* item) {
    entries.push_back({member(item, "pkgid"), member(item, "svcid"), member(item, "result")});
  });
  forEachObject(object, "watch_custom_bg", [this](JsonObject* photo) {
    photos.push_back({member(photo, "file_name"), member(photo, "bg_type"), member(photo, "data")});
  });
  return true;
}

void BackupDocument::merge(const BackupDocument& later) {
  repaired = repaired || later.repaired;
  if (!later.mainKey.empty())
    mainKey = later.mainKey;
  if (!later.subKey.empty())
    subKey = later.subKey;
  for (const Entry& entry : later.entries) {
    auto same = std::find_if(entries.begin(), entries.end(), [&](const Entry& held) {
      return held.svcId == entry.svcId && held.pkgId == entry.pkgId;
    });
    if (same == entries.end())
      entries.push_back(entry);
    else
      *same = entry;
  }
  for (const Photo& photo : later.photos) {
    auto same = std::find_if(photos.begin(), photos.end(),
                             [&](const Photo& held) { return held.fileName == photo.fileName; });
    if (same == photos.end())
      photos.push_back(photo);
    else
      *same = photo;
  }
}

int BackupDocument::faces() const {
  int count = 0;
  for (const Entry& entry : entries)
    count += entry.result != kDownloaded && entry.svcId == kWatchfaceServiceAppId;
  return count;
}

int BackupDocument::watchApps() const {
  int count = 0;
  for (const Entry& entry : entries)
    count += entry.result != kDownloaded && entry.svcId != kWatchfaceServiceAppId;
  return count;
}

int BackupDocument::downloadedApps() const {
  int count = 0;
  for (const Entry& entry : entries)
    count += entry.result == kDownloaded;
  return count;
}

std::string BackupDocument::describe() const {
  return std::to_string(faces()) + " faces, " + std::to_string(watchApps()) + " watch apps, " +
         std::to_string(downloadedApps()) + " downloaded apps, " + std::to_string(photos.size()) +
         " photos";
}

}  // namespace emu
