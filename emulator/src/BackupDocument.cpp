#include "emu/BackupDocument.h"

#include <glib.h>
#include <json-glib/json-glib.h>

#include "emu/OutsideText.h"
#include "emu/SampleWatch.h"
#include "host/RecordFile.h"

namespace emu {

namespace {

const char* const kDownloaded = "downloaded";

// Reads the members of the format, noting the first that has a type the service cannot use.
class MemberReader {
 public:
  explicit MemberReader(std::string& unusable) : unusable_(unusable) {}

  // A string member, byte for byte: text that is not UTF-8 travels as "<name>_base64".
  std::string string(JsonObject* object, const char* name, const std::string& where) {
    if (const char* exact = stringMember(object, std::string(name) + "_base64", where)) {
      gsize length = 0;
      g_autofree guchar* bytes = g_base64_decode(exact, &length);
      return std::string(reinterpret_cast<const char*>(bytes), length);
    }
    const char* text = stringMember(object, name, where);
    return text ? text : std::string();
  }

  // The objects of the array member `name`; other elements read as empty objects, as the
  // service reads them.
  template <typename Each>
  void objects(JsonObject* root, const char* name, Each each) {
    JsonNode* node = json_object_get_member(root, name);
    if (!node)
      return;
    if (!JSON_NODE_HOLDS_ARRAY(node)) {
      note(std::string(name) + " is not a list");
      return;
    }
    JsonArray* array = json_node_get_array(node);
    for (guint i = 0; i < json_array_get_length(array); ++i) {
      JsonNode* element = json_array_get_element(array, i);
      const std::string where = std::string(name) + "[" + std::to_string(i) + "]";
      if (!JSON_NODE_HOLDS_OBJECT(element)) {
        note(where + " is not an object");
        g_autoptr(JsonObject) empty = json_object_new();
        each(empty, where);
      } else {
        each(json_node_get_object(element), where);
      }
    }
  }

 private:
  const char* stringMember(JsonObject* object, const std::string& name, const std::string& where) {
    JsonNode* node = json_object_get_member(object, name.c_str());
    if (!node)
      return nullptr;
    if (!JSON_NODE_HOLDS_VALUE(node) || json_node_get_value_type(node) != G_TYPE_STRING) {
      note((where.empty() ? name : where + "." + name) + " is not a string");
      return nullptr;
    }
    return json_node_get_string(node);
  }

  void note(const std::string& problem) {
    if (unusable_.empty())
      unusable_ = problem;
  }

  std::string& unusable_;
};

BackupDocument::Photo photoOf(const std::string& fileName,
                              const std::string& bgType,
                              const std::string& data) {
  BackupDocument::Photo photo;
  photo.fileName = fileName;
  photo.bgType = bgType;
  photo.noData = data.empty();
  gsize length = 0;
  g_autofree guchar* bytes = g_base64_decode(data.c_str(), &length);
  photo.dataBytes = length;
  photo.dataCrc = host::valueCrc(std::string(reinterpret_cast<const char*>(bytes), length));
  return photo;
}

std::string entryKey(const BackupDocument::Entry& entry) {
  return entry.svcId + '\0' + entry.pkgId;
}

}  // namespace

bool BackupDocument::read(std::string text, std::string& error) {
  *this = BackupDocument();
  if (!admitJsonText(text.data(), text.size(), kMaxDocumentBytes, error))
    return false;
  // Raw bytes that are not UTF-8 read as replacement characters, as the service reads them.
  const bool repairedText =
      !g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr);
  if (repairedText) {
    g_autofree char* valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
    text = valid;
  }
  g_autoptr(JsonParser) parser = json_parser_new_immutable();
  g_autoptr(GError) failure = nullptr;
  const bool loaded = json_parser_load_from_data(parser, text.data(),
                                                 static_cast<gssize>(text.size()), &failure);
  std::string().swap(text);
  if (!loaded) {
    error = oneLine(failure->message);
    return false;
  }
  JsonNode* root = json_parser_get_root(parser);
  if (!root || !JSON_NODE_HOLDS_OBJECT(root)) {
    error = "not a JSON object";
    return false;
  }
  JsonObject* object = json_node_get_object(root);
  BackupDocument read;
  read.repaired = repairedText;
  MemberReader members(read.unusable);
  read.mainKey = members.string(object, "watch_main_key", "");
  read.subKey = members.string(object, "watch_sub_key", "");
  members.objects(object, "watch_items", [&](JsonObject* item, const std::string& where) {
    read.entries.push_back({members.string(item, "pkgid", where),
                            members.string(item, "svcid", where),
                            members.string(item, "result", where)});
  });
  members.objects(object, "watch_custom_bg", [&](JsonObject* photo, const std::string& where) {
    read.photos.push_back(photoOf(members.string(photo, "file_name", where),
                                  members.string(photo, "bg_type", where),
                                  members.string(photo, "data", where)));
  });
  if (read.unusable.empty() && read.mainKey.empty() && read.subKey.empty() &&
      read.entries.empty() && read.photos.empty())
    read.unusable = "it holds no setup (no idle clock, watch items or photos)";
  // One document's own repeats count as a later one's would: the last word on an item holds.
  unusable = read.unusable;
  merge(read);
  return true;
}

void BackupDocument::merge(const BackupDocument& later) {
  repaired = repaired || later.repaired;
  if (!later.mainKey.empty())
    mainKey = later.mainKey;
  if (!later.subKey.empty())
    subKey = later.subKey;
  for (const Entry& entry : later.entries) {
    auto held = entryAt_.emplace(entryKey(entry), entries.size());
    if (held.second)
      entries.push_back(entry);
    else
      entries[held.first->second] = entry;
  }
  for (const Photo& photo : later.photos) {
    auto held = photoAt_.emplace(photo.fileName, photos.size());
    if (held.second)
      photos.push_back(photo);
    else
      photos[held.first->second] = photo;
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

bool photoHolds(const BackupDocument::Photo& photo, const std::string& bytes) {
  return photo.dataBytes == bytes.size() && photo.dataCrc == host::valueCrc(bytes);
}

}  // namespace emu
