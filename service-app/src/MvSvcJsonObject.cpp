#include "MvSvcJsonObject.h"

#include <stdint.h>
#include <string.h>

#include <utility>

#include "MvSvcLog.h"

namespace {

// json-glib's typed accessors emit criticals on a node of another type, so check first.
bool holdsValueOfType(JsonNode* node, GType type) {
  return node && JSON_NODE_HOLDS_VALUE(node) && json_node_get_value_type(node) == type;
}

// g_utf8_validate with a length (a NUL byte is not valid), eight bytes at a time while they are
// ASCII: a photo in base64 is megabytes of it.
bool isUtf8(const std::string& text) {
  const uint64_t kHighBits = 0x8080808080808080u;
  const uint64_t kOnes = 0x0101010101010101u;
  size_t at = 0;
  for (; at + sizeof(uint64_t) <= text.size(); at += sizeof(uint64_t)) {
    uint64_t word;
    memcpy(&word, text.data() + at, sizeof word);
    // A byte with its high bit set, or a zero byte.
    if ((word | ((word - kOnes) & ~word)) & kHighBits)
      break;
  }
  return g_utf8_validate(text.data() + at, static_cast<gssize>(text.size() - at), nullptr);
}

// Bytes of the names and strings under `node`: what its JSON text holds at least.
size_t textBytesUnder(JsonNode* node) {
  size_t bytes = 8;  // punctuation, or a number or literal
  if (JSON_NODE_HOLDS_OBJECT(node)) {
    JsonObjectIter members;
    const gchar* name = nullptr;
    JsonNode* member = nullptr;
    json_object_iter_init(&members, json_node_get_object(node));
    while (json_object_iter_next(&members, &name, &member))
      bytes += strlen(name) + textBytesUnder(member);
  } else if (JSON_NODE_HOLDS_ARRAY(node)) {
    JsonArray* array = json_node_get_array(node);
    const guint length = json_array_get_length(array);
    for (guint i = 0; i < length; ++i)
      bytes += textBytesUnder(json_array_get_element(array, i));
  } else if (holdsValueOfType(node, G_TYPE_STRING)) {
    bytes += strlen(json_node_get_string(node));
  }
  return bytes;
}

// json-glib 1.6 escapes every control character but U+001F, which it writes raw, and that is no
// JSON (RFC 8259). Compact text holds control characters only inside strings, so each raw one
// becomes its escape; `text` is consumed, and returned as it was when it holds none.
MvGStringPtr escapeRawUnitSeparators(MvGStringPtr text) {
  const char* at = static_cast<const char*>(memchr(text->str, 0x1F, text->len));
  if (!at)
    return text;
  MvGStringPtr escaped(g_string_sized_new(text->len + 16));
  const char* const end = text->str + text->len;
  for (const char* from = text->str; from < end; from = at + 1) {
    at = static_cast<const char*>(memchr(from, 0x1F, end - from));
    if (!at)
      at = end;
    g_string_append_len(escaped.get(), from, at - from);
    if (at < end)
      g_string_append(escaped.get(), "\\u001f");
  }
  return escaped;
}

}  // namespace

const char* const MvSvcJsonObject::kExactBytesSuffix = "_base64";

MvSvcJsonObject::MvSvcJsonObject() : _jsonObject() {}

MvSvcJsonObject::MvSvcJsonObject(const MvSvcJsonObject& other) : _jsonObject() {
  copy(other);
}

MvSvcJsonObject& MvSvcJsonObject::operator=(const MvSvcJsonObject& other) {
  if (this != &other)
    setJsonObject(other._jsonObject.get());
  return *this;
}

MvSvcJsonObject::~MvSvcJsonObject() {
  setJsonObject(nullptr);
}

void MvSvcJsonObject::copy(const MvSvcJsonObject& other) {
  _jsonObject.reset(other._jsonObject ? json_object_ref(other._jsonObject.get()) : nullptr);
}

void MvSvcJsonObject::setJsonObject(JsonObject* object) {
  // Reference first: `object` may be the one we hold, and ours may be its last reference.
  _jsonObject.reset(object ? json_object_ref(object) : nullptr);
}

JsonObject* MvSvcJsonObject::getJsonObject() const {
  return _jsonObject.get();
}

bool MvSvcJsonObject::hasMember(const std::string& key) const {
  return _jsonObject && json_object_has_member(_jsonObject.get(), key.c_str());
}

JsonNode* MvSvcJsonObject::_getMember(const std::string& key) const {
  return _jsonObject ? json_object_get_member(_jsonObject.get(), key.c_str()) : nullptr;
}

void MvSvcJsonObject::getStringValue(const std::string& key, std::string& value) const {
  JsonNode* node = _getMember(key);
  if (!holdsValueOfType(node, G_TYPE_STRING))
    return;
  JsonNode* exact = _getMember(key + kExactBytesSuffix);
  if (!holdsValueOfType(exact, G_TYPE_STRING)) {
    value = json_node_get_string(node);
    return;
  }
  gsize length = 0;
  g_autofree guchar* bytes = g_base64_decode(json_node_get_string(exact), &length);
  value.assign(reinterpret_cast<const char*>(bytes), length);
}

void MvSvcJsonObject::getIntegerValue(const std::string& key, int& value) const {
  JsonNode* node = _getMember(key);
  if (holdsValueOfType(node, G_TYPE_INT64))
    value = static_cast<int>(json_node_get_int(node));
}

void MvSvcJsonObject::getObjectValue(const std::string& key, MvSvcJsonObject& value) const {
  JsonNode* node = _getMember(key);
  if (!node)
    return;
  value.setJsonObject(JSON_NODE_HOLDS_OBJECT(node) ? json_node_get_object(node) : nullptr);
}

void MvSvcJsonObject::getBooleanValue(const std::string& key, bool& value) const {
  JsonNode* node = _getMember(key);
  if (holdsValueOfType(node, G_TYPE_BOOLEAN))
    value = json_node_get_boolean(node);
}

void MvSvcJsonObject::getArrayObject(const std::string& key,
                                     std::list<MvSvcJsonObject>& objects) const {
  JsonNode* node = _getMember(key);
  if (!node)
    return;
  if (!JSON_NODE_HOLDS_ARRAY(node)) {
    MVSVC_LOGE("json_object_get_array_member(%s) failed.", key.c_str());
    return;
  }
  JsonArray* array = json_node_get_array(node);
  const guint length = json_array_get_length(array);
  for (guint i = 0; i < length; ++i) {
    JsonNode* element = json_array_get_element(array, i);
    MvSvcJsonObject wrapper;
    wrapper.setJsonObject(JSON_NODE_HOLDS_OBJECT(element) ? json_node_get_object(element)
                                                          : nullptr);
    objects.push_back(wrapper);
  }
}

void MvSvcJsonObject::addStringMember(const std::string& key, const std::string& value) {
  if (!_jsonObject)
    return;
  const std::string exactKey = key + kExactBytesSuffix;
  if (isUtf8(value)) {
    json_object_set_string_member(_jsonObject.get(), key.c_str(), value.c_str());
    if (json_object_has_member(_jsonObject.get(), exactKey.c_str()))
      json_object_remove_member(_jsonObject.get(), exactKey.c_str());
    return;
  }
  g_autofree gchar* repaired = g_utf8_make_valid(value.data(), static_cast<gssize>(value.size()));
  g_autofree gchar* exact =
      g_base64_encode(reinterpret_cast<const guchar*>(value.data()), value.size());
  json_object_set_string_member(_jsonObject.get(), key.c_str(), repaired);
  json_object_set_string_member(_jsonObject.get(), exactKey.c_str(), exact);
}

void MvSvcJsonObject::addBooleanMember(const std::string& key, bool value) {
  if (_jsonObject)
    json_object_set_boolean_member(_jsonObject.get(), key.c_str(), value);
}

void MvSvcJsonObject::addIntegerMember(const std::string& key, int value) {
  if (_jsonObject)
    json_object_set_int_member(_jsonObject.get(), key.c_str(), static_cast<gint64>(value));
}

void MvSvcJsonObject::addObjectMember(const std::string& key, const MvSvcJsonObject& value) {
  if (!_jsonObject)
    return;
  if (value._jsonObject)
    json_object_set_object_member(_jsonObject.get(), key.c_str(),
                                  json_object_ref(value._jsonObject.get()));
  else
    json_object_set_null_member(_jsonObject.get(), key.c_str());
}

void MvSvcJsonObject::addArrayMember(const std::string& key,
                                     const std::list<MvSvcJsonObject>& objects) {
  if (!_jsonObject)
    return;
  JsonArray* array = json_array_new();
  for (const MvSvcJsonObject& object : objects) {
    if (object._jsonObject)
      json_array_add_object_element(array, json_object_ref(object._jsonObject.get()));
    else
      json_array_add_null_element(array);
  }
  json_object_set_array_member(_jsonObject.get(), key.c_str(), array);
}

void MvSvcJsonObject::removeMember(const std::string& key) {
  for (const std::string& name : {key, key + kExactBytesSuffix}) {
    if (hasMember(name))
      json_object_remove_member(_jsonObject.get(), name.c_str());
  }
}

void MvSvcJsonObject::getJsonMessage(std::string& text) {
  size_t length = 0;
  MvGCharPtr data = generateJsonMessage(length);
  if (data)
    text.assign(data.get(), length);
}

MvGCharPtr MvSvcJsonObject::generateJsonMessage(size_t& length) {
  if (!_jsonObject)
    return nullptr;
  g_autoptr(JsonGenerator) generator = json_generator_new();
  g_autoptr(JsonNode) node = json_node_new(JSON_NODE_OBJECT);
  json_node_set_object(node, _jsonObject.get());
  json_generator_set_root(generator, node);
  // Room for the whole text from the start: a buffer that grows from small leaves the pages it
  // outgrew behind in the heap, and for a document of megabytes they count.
  MvGStringPtr text(g_string_sized_new(textBytesUnder(node)));
  json_generator_to_gstring(generator, text.get());
  text = escapeRawUnitSeparators(std::move(text));
  length = text->len;
  return mvTakeGStringText(std::move(text));
}
