#include "MvSvcJsonParser.h"

#include <string.h>

#include "MvSvcLog.h"

namespace {

const char* const kDownloaded = "downloaded";

bool isHexDigit(unsigned char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// The code unit of the "\uXXXX" escape at `at`, or -1 when there is none.
long unicodeEscapeAt(const std::string& text, size_t at) {
  if (at + 6 > text.size() || text[at] != '\\' || text[at + 1] != 'u')
    return -1;
  long unit = 0;
  for (size_t i = at + 2; i < at + 6; ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (!isHexDigit(c))
      return -1;
    unit = unit * 16 + (c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10);
  }
  return unit;
}

// Bytes taken by the strict JSON escape that starts at `at`, or 0 for anything else.
size_t strictEscapeLength(const std::string& text, size_t at) {
  if (at + 1 >= text.size())
    return 0;
  switch (text[at + 1]) {
    case '"':
    case '\\':
    case '/':
    case 'b':
    case 'f':
    case 'n':
    case 'r':
    case 't':
      return 2;
    case 'u':
      break;
    default:
      return 0;
  }
  const long unit = unicodeEscapeAt(text, at);
  if (unit < 0)
    return 0;
  if (unit < 0xD800 || unit > 0xDFFF)
    return 6;
  const long low = unicodeEscapeAt(text, at + 6);
  return unit <= 0xDBFF && low >= 0xDC00 && low <= 0xDFFF ? 12 : 0;
}

bool isStrictOutsideString(unsigned char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == ',' || c == ':' || c == '-' ||
         c == '+' || c == '.' || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') ||
         (c >= 'A' && c <= 'Z');
}

// One pass over the bytes. While the text keeps to strict JSON tokens and escapes, json-glib
// ends strings where we do and the depth is exact; our own documents never leave it. json-glib
// also takes single quotes, comments and malformed escapes, some of which end a string where a
// plain scan would not (`"\u0\"`), so from the first such byte every opening bracket counts and
// no lexing quirk can hide depth.
bool nestsDeeperThan(const std::string& text, int limit) {
  int depth = 0;
  bool inString = false;
  size_t i = 0;
  for (; i < text.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (inString) {
      // Strings are most of a document (photos in base64): leap to the next quote or escape.
      const size_t quote = text.find('"', i);
      const void* escape =
          memchr(text.data() + i, '\\', (quote == std::string::npos ? text.size() : quote) - i);
      if (escape) {
        i = static_cast<size_t>(static_cast<const char*>(escape) - text.data());
        const size_t length = strictEscapeLength(text, i);
        if (length == 0)
          break;
        i += length - 1;
      } else if (quote == std::string::npos) {
        return false;  // the rest is inside an unterminated string
      } else {
        i = quote;
        inString = false;
      }
    } else if (c == '[' || c == '{') {
      if (++depth > limit)
        return true;
    } else if (c == ']' || c == '}') {
      if (depth > 0)
        --depth;
    } else if (c == '"') {
      inString = true;
    } else if (!isStrictOutsideString(c)) {
      break;
    }
  }
  for (; i < text.size(); ++i) {
    if ((text[i] == '[' || text[i] == '{') && ++depth > limit)
      return true;
  }
  return false;
}

}  // namespace

MvSvcJsonParser::MvSvcJsonParser()
    : _parser(json_parser_new()),
      _root(nullptr),
      _resultRestoreList(),
      _imageRestoreList(),
      _downloadList() {}

MvSvcJsonParser::MvSvcJsonParser(const std::string& text) : MvSvcJsonParser() {
  _prepare(text);
}

MvSvcJsonParser::~MvSvcJsonParser() {
  g_object_unref(_parser);
}

void MvSvcJsonParser::setJsonMessage(const std::string& text) {
  _prepare(text);
}

std::vector<WatchResultData>& MvSvcJsonParser::getResultRestoreList() {
  return _resultRestoreList;
}

std::vector<WatchImageData>& MvSvcJsonParser::getImageRestoreList() {
  return _imageRestoreList;
}

std::vector<WatchResultData>& MvSvcJsonParser::getDownloadList() {
  return _downloadList;
}

void MvSvcJsonParser::getStringValue(const std::string& key, std::string& value) const {
  _getRootObject().getStringValue(key, value);
}

void MvSvcJsonParser::getIntegerValue(const std::string& key, int& value) const {
  _getRootObject().getIntegerValue(key, value);
}

void MvSvcJsonParser::getBooleanValue(const std::string& key, bool& value) const {
  _getRootObject().getBooleanValue(key, value);
}

MvSvcJsonObject MvSvcJsonParser::_getRootObject() const {
  MvSvcJsonObject root;
  // An empty text loads without error but gives no root node.
  if (_root && JSON_NODE_HOLDS_OBJECT(_root))
    root.setJsonObject(json_node_get_object(_root));
  return root;
}

void MvSvcJsonParser::_prepare(const std::string& text) {
  _root = nullptr;
  // json-glib recurses per nesting level; a crafted document would overflow the stack.
  if (nestsDeeperThan(text, kMaxNesting)) {
    MVSVC_LOGE("Backup document nests deeper than %d levels", kMaxNesting);
    return;
  }
  GError* error = nullptr;
  if (!json_parser_load_from_data(_parser, text.data(), static_cast<gssize>(text.size()), &error)) {
    MVSVC_LOGE("%s", error->message);
    g_error_free(error);
    return;
  }
  _root = json_parser_get_root(_parser);

  MvSvcJsonObject root = _getRootObject();
  if (root.hasMember("watch_items")) {
    std::list<MvSvcJsonObject> objects;
    root.getArrayObject("watch_items", objects);
    _getResultRestoreList(objects);
  }
  if (root.hasMember("watch_custom_bg")) {
    std::list<MvSvcJsonObject> objects;
    root.getArrayObject("watch_custom_bg", objects);
    _getImageRestoreList(objects);
  }
}

void MvSvcJsonParser::_getResultRestoreList(std::list<MvSvcJsonObject>& objects) {
  if (objects.empty()) {
    MVSVC_LOGE("Watch item Json object list is empty");
    return;
  }
  for (const MvSvcJsonObject& object : objects) {
    WatchResultData entry;
    object.getStringValue("pkgid", entry.pkgId);
    object.getStringValue("svcid", entry.svcId);
    object.getStringValue("result", entry.result);
    if (entry.result == kDownloaded)
      _downloadList.push_back(std::move(entry));
    else
      _resultRestoreList.push_back(std::move(entry));
  }
}

void MvSvcJsonParser::_getImageRestoreList(std::list<MvSvcJsonObject>& objects) {
  if (objects.empty()) {
    MVSVC_LOGE("Watch image Json object list is empty");
    return;
  }
  for (MvSvcJsonObject& object : objects) {
    WatchImageData image;
    object.getStringValue("file_name", image.fileName);
    object.getStringValue("bg_type", image.bgType);
    object.getStringValue("data", image.data);
    // The list holds the image now: the document's copy goes, so the two never add up.
    object.removeMember("data");
    _imageRestoreList.push_back(std::move(image));
  }
}
