#include "emu/BackupDocument.h"

#include <glib.h>
#include <json-glib/json-glib.h>

#include <cstring>
#include <set>
#include <vector>

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

// A strict, single pass reading of a document as json-glib would read it, without its tree:
// the end of every run reads the documents it stored, megabytes each. It gives up (and
// json-glib reads the text instead) on anything json-glib might read otherwise: text that is
// not strict JSON, escapes of NUL or of lone surrogates, anything after the root.
class QuickReader {
 public:
  QuickReader(const std::string& text, BackupDocument& into)
      : at_(text.data()), end_(text.data() + text.size()), into_(into) {}

  bool run() {
    skipSpace();
    if (!object([this](const std::string& key) { return rootMember(key); }))
      return false;
    skipSpace();
    return at_ == end_;
  }

 private:
  struct Field {
    std::string text;
    bool exact = false;  // from "<name>_base64"
  };

  void note(const std::string& problem) {
    if (into_.unusable.empty())
      into_.unusable = problem;
  }

  void skipSpace() {
    while (at_ < end_ && (*at_ == ' ' || *at_ == '\t' || *at_ == '\n' || *at_ == '\r'))
      ++at_;
  }

  bool take(char c) {
    skipSpace();
    if (at_ == end_ || *at_ != c)
      return false;
    ++at_;
    return true;
  }

  bool peek(char c) {
    skipSpace();
    return at_ < end_ && *at_ == c;
  }

  // `{ "key": value, ... }`, each value read by `member` (false: not understood).
  template <typename Member>
  bool object(Member member) {
    if (!take('{'))
      return false;
    if (take('}'))
      return true;
    // A member given twice is json-glib's to read: it keeps the last, problems and all.
    std::set<std::string> names;
    do {
      std::string name;
      skipSpace();
      if (!string(&name) || !names.insert(name).second || !take(':') || !member(name))
        return false;
    } while (take(','));
    return take('}');
  }

  static int hex(char c) { return g_ascii_xdigit_value(c); }

  bool unicode(unsigned& value) {
    if (end_ - at_ < 4)
      return false;
    value = 0;
    for (int i = 0; i < 4; ++i) {
      const int digit = hex(*at_++);
      if (digit < 0)
        return false;
      value = value * 16 + static_cast<unsigned>(digit);
    }
    return true;
  }

  // A string at `at_`, unescaped into `out` (when given).
  bool string(std::string* out) {
    if (at_ == end_ || *at_ != '"')
      return false;
    ++at_;
    while (true) {
      const char* start = at_;
      while (at_ < end_ && *at_ != '"' && *at_ != '\\' && static_cast<unsigned char>(*at_) >= 0x20)
        ++at_;
      if (out)
        out->append(start, static_cast<size_t>(at_ - start));
      if (at_ == end_ || static_cast<unsigned char>(*at_) < 0x20)
        return false;
      if (*at_++ == '"')
        return true;
      if (at_ == end_)
        return false;
      const char escape = *at_++;
      const char* plain = strchr("\"\\/bfnrt", escape);
      if (plain && escape != '\0') {
        if (out)
          out->push_back("\"\\/\b\f\n\r\t"[plain - "\"\\/bfnrt"]);
        continue;
      }
      unsigned code = 0;
      if (escape != 'u' || !unicode(code) || code == 0 || (code >= 0xDC00 && code <= 0xDFFF))
        return false;
      if (code >= 0xD800 && code <= 0xDBFF) {
        unsigned low = 0;
        if (end_ - at_ < 6 || at_[0] != '\\' || at_[1] != 'u')
          return false;
        at_ += 2;
        if (!unicode(low) || low < 0xDC00 || low > 0xDFFF)
          return false;
        code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
      }
      char utf8[8];
      const gint length = g_unichar_to_utf8(code, utf8);
      if (out)
        out->append(utf8, static_cast<size_t>(length));
    }
  }

  bool number() {
    const char* start = at_;
    if (at_ < end_ && *at_ == '-')
      ++at_;
    if (at_ == end_ || !g_ascii_isdigit(*at_))
      return false;
    if (*at_ == '0')
      ++at_;
    else
      while (at_ < end_ && g_ascii_isdigit(*at_))
        ++at_;
    bool integer = true;
    if (at_ < end_ && *at_ == '.') {
      integer = false;
      ++at_;
      if (at_ == end_ || !g_ascii_isdigit(*at_))
        return false;
      while (at_ < end_ && g_ascii_isdigit(*at_))
        ++at_;
    }
    if (at_ < end_ && (*at_ == 'e' || *at_ == 'E')) {
      integer = false;
      ++at_;
      if (at_ < end_ && (*at_ == '+' || *at_ == '-'))
        ++at_;
      if (at_ == end_ || !g_ascii_isdigit(*at_))
        return false;
      while (at_ < end_ && g_ascii_isdigit(*at_))
        ++at_;
    }
    // json-glib wraps or refuses what does not fit: its reading decides.
    return !integer || at_ - start <= 18;
  }

  // A member's key and colon, inside an object.
  bool key() {
    skipSpace();
    return string(nullptr) && take(':');
  }

  // Any value; the brackets it opens are kept on a stack the nesting guard has bounded.
  bool skipValue() {
    std::vector<char> open;
    while (true) {
      skipSpace();
      if (at_ == end_)
        return false;
      const char c = *at_;
      if (c == '{' || c == '[') {
        ++at_;
        if (!take(c == '{' ? '}' : ']')) {
          open.push_back(c);
          if (c == '{' && !key())
            return false;
          continue;
        }
      } else if (c == '"') {
        if (!string(nullptr))
          return false;
      } else if (c == 't' || c == 'f' || c == 'n') {
        const char* word = c == 't' ? "true" : c == 'f' ? "false" : "null";
        const size_t length = strlen(word);
        if (static_cast<size_t>(end_ - at_) < length || strncmp(at_, word, length) != 0)
          return false;
        at_ += length;
      } else if (!number()) {
        return false;
      }
      // A value is complete: the next member or element, or the end of what holds it.
      while (true) {
        if (open.empty())
          return true;
        if (take(',')) {
          if (open.back() == '{' && !key())
            return false;
          break;
        }
        if (!take(open.back() == '{' ? '}' : ']'))
          return false;
        open.pop_back();
      }
    }
  }

  // A string member's value into `field`; another value is a problem, noted, and skipped.
  bool stringField(Field& field, bool exact, const std::string& where) {
    skipSpace();
    if (at_ < end_ && *at_ == '"') {
      std::string text;
      if (!string(&text))
        return false;
      if (exact || !field.exact) {
        field.text = std::move(text);
        field.exact = exact;
      }
      return true;
    }
    note(where + " is not a string");
    return skipValue();
  }

  static std::string exactBytes(const Field& field) {
    if (!field.exact)
      return field.text;
    gsize length = 0;
    g_autofree guchar* bytes = g_base64_decode(field.text.c_str(), &length);
    return std::string(reinterpret_cast<const char*>(bytes), length);
  }

  // An element of a list of objects with string members `names`: read into `fields`.
  bool element(const std::vector<const char*>& names,
               std::vector<Field>& fields,
               const std::string& where) {
    fields.assign(names.size(), Field());
    if (!peek('{')) {
      note(where + " is not an object");
      return skipValue();
    }
    return object([&](const std::string& key) {
      for (size_t i = 0; i < names.size(); ++i) {
        const bool exact = key == std::string(names[i]) + "_base64";
        if (key == names[i] || exact)
          return stringField(fields[i], exact, where + "." + key);
      }
      return skipValue();
    });
  }

  // A list member: each element's fields go to `add`.
  template <typename Add>
  bool list(const char* name, const std::vector<const char*>& names, Add add) {
    if (!peek('[')) {
      note(std::string(name) + " is not a list");
      return skipValue();
    }
    take('[');
    if (take(']'))
      return true;
    size_t index = 0;
    std::vector<Field> fields;
    do {
      if (!element(names, fields, std::string(name) + "[" + std::to_string(index++) + "]"))
        return false;
      add(fields);
    } while (take(','));
    return take(']');
  }

  bool rootMember(const std::string& key) {
    if (key == "watch_main_key" || key == "watch_main_key_base64")
      return stringField(mainKey_, key != "watch_main_key", key);
    if (key == "watch_sub_key" || key == "watch_sub_key_base64")
      return stringField(subKey_, key != "watch_sub_key", key);
    if (key == "watch_items") {
      return list("watch_items", {"pkgid", "svcid", "result"}, [this](std::vector<Field>& f) {
        into_.entries.push_back({exactBytes(f[0]), exactBytes(f[1]), exactBytes(f[2])});
      });
    }
    if (key == "watch_custom_bg") {
      return list(
          "watch_custom_bg", {"file_name", "bg_type", "data"}, [this](std::vector<Field>& f) {
            into_.photos.push_back(photoOf(exactBytes(f[0]), exactBytes(f[1]), exactBytes(f[2])));
          });
    }
    return skipValue();
  }

 public:
  void finish() {
    into_.mainKey = exactBytes(mainKey_);
    into_.subKey = exactBytes(subKey_);
  }

 private:
  const char* at_;
  const char* end_;
  BackupDocument& into_;
  Field mainKey_;
  Field subKey_;
};

std::string entryKey(const BackupDocument::Entry& entry) {
  return entry.svcId + '\0' + entry.pkgId;
}

}  // namespace

namespace {

// The document as json-glib reads it, into `read`: the reading every other one must agree with.
bool readTree(const std::string& text, BackupDocument& read, std::string& error) {
  g_autoptr(JsonParser) parser = json_parser_new_immutable();
  g_autoptr(GError) failure = nullptr;
  if (!json_parser_load_from_data(parser, text.data(), static_cast<gssize>(text.size()),
                                  &failure)) {
    error = oneLine(failure->message);
    return false;
  }
  JsonNode* root = json_parser_get_root(parser);
  if (!root || !JSON_NODE_HOLDS_OBJECT(root)) {
    error = "not a JSON object";
    return false;
  }
  JsonObject* object = json_node_get_object(root);
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
  return true;
}

}  // namespace

bool BackupDocument::read(std::string text, std::string& error, Reader reader) {
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
  BackupDocument read;
  bool done = false;
  if (reader == Reader::kQuick) {
    QuickReader quick(text, read);
    done = quick.run();
    if (done)
      quick.finish();
    else
      read = BackupDocument();
  }
  if (!done && !readTree(text, read, error))
    return false;
  std::string().swap(text);
  read.repaired = repairedText;
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
    count += entry.result != kDownloaded && entry.svcId == MV_WATCHFACE_SERVICE_APP_ID;
  return count;
}

int BackupDocument::watchApps() const {
  int count = 0;
  for (const Entry& entry : entries)
    count += entry.result != kDownloaded && entry.svcId != MV_WATCHFACE_SERVICE_APP_ID;
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
