#include "MvSvcJsonParser.h"

#include <glib.h>
#include <string.h>

#include <memory>

#include "MvJsonNesting.h"
#include "MvSvcLog.h"

namespace {

const char* const kDownloaded = "downloaded";

}  // namespace

MvSvcJsonParser::MvSvcJsonParser()
    : _parser(json_parser_new()),
      _root(nullptr),
      _resultRestoreList(),
      _imageRestoreList(),
      _downloadList() {}

MvSvcJsonParser::MvSvcJsonParser(const std::string& text) : MvSvcJsonParser() {
  _prepare(text.data(), text.size());
}

MvSvcJsonParser::MvSvcJsonParser(const char* text, size_t length) : MvSvcJsonParser() {
  _prepare(text, length);
}

MvSvcJsonParser::~MvSvcJsonParser() = default;

void MvSvcJsonParser::setJsonMessage(const std::string& text) {
  _prepare(text.data(), text.size());
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
  std::string read = value;
  _getRootObject().getStringValue(key, read);
  if (_repair && read != value && _repair->repaired(read)) {
    MVSVC_LOGE("Backup document is not UTF-8 text: skipped [%s]", key.c_str());
    return;
  }
  value = std::move(read);
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

void MvSvcJsonParser::_prepare(const char* text, size_t length) {
  _root = nullptr;
  _repair.reset();
  g_autoptr(GError) error = nullptr;
  bool loaded = _load(text, length, &error);
  // json-glib checks the text is UTF-8 before it reads it, and refuses the whole text for one
  // byte that is not (documents stored before strings were carried as base64 may hold some):
  // then repair it, and skip only the items that held such a byte.
  if (!loaded && g_error_matches(error, JSON_PARSER_ERROR, JSON_PARSER_ERROR_INVALID_DATA) &&
      !g_utf8_validate(text, static_cast<gssize>(length), nullptr)) {
    g_clear_error(&error);
    _repair = std::make_unique<MvSvcUtf8Repair>(text, length);
    loaded = _load(_repair->text().data(), _repair->text().size(), &error);
    _repair->forgetText();
  }
  if (!loaded) {
    if (error)
      MVSVC_LOGE("%s", error->message);
    return;
  }
  _root = json_parser_get_root(_parser.get());

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

bool MvSvcJsonParser::_load(const char* text, size_t length, GError** error) {
  // json-glib recurses per nesting level; a crafted document would overflow the stack.
  if (mvJsonNestsDeeperThan(text, length)) {
    MVSVC_LOGE("Backup document nests deeper than %d levels", kMvJsonMaxNesting);
    return false;
  }
  return json_parser_load_from_data(_parser.get(), text, static_cast<gssize>(length), error);
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
    if (_repair && (_repair->repaired(entry.pkgId) || _repair->repaired(entry.svcId) ||
                    _repair->repaired(entry.result))) {
      MVSVC_LOGE("Backup document is not UTF-8 text: skipped watch item [%s]",
                 _repair->shown(entry.pkgId).c_str());
      continue;
    }
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
    if (_repair && (_repair->repaired(image.fileName) || _repair->repaired(image.bgType) ||
                    _repair->repaired(image.data))) {
      MVSVC_LOGE("Backup document is not UTF-8 text: skipped background image [%s]",
                 _repair->shown(image.fileName).c_str());
      continue;
    }
    _imageRestoreList.push_back(std::move(image));
  }
}
