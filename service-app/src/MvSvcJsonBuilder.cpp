#include "MvSvcJsonBuilder.h"

#include <malloc.h>

#include <initializer_list>
#include <list>

#include "MvSvcLog.h"

namespace {

// A wrapper that holds the only reference to a new empty object.
MvSvcJsonObject newObject() {
  MvSvcJsonObject wrapper;
  MvJsonObjectPtr object(json_object_new());
  wrapper.setJsonObject(object.get());
  return wrapper;
}

// Whether one of the members `keys` had to be carried byte for byte (it was not UTF-8): the
// object's setter has checked each string once already.
bool keptByteForByte(const MvSvcJsonObject& object, std::initializer_list<const char*> keys) {
  for (const char* key : keys) {
    if (object.hasMember(std::string(key) + MvSvcJsonObject::kExactBytesSuffix))
      return true;
  }
  return false;
}

// A name as a log line can show it.
std::string shown(const std::string& name) {
  g_autofree gchar* valid = g_utf8_make_valid(name.data(), static_cast<gssize>(name.size()));
  return valid;
}

}  // namespace

MvSvcJsonBuilder::MvSvcJsonBuilder() : _rootNode(json_node_new(JSON_NODE_OBJECT)), _rootObject() {
  MvJsonObjectPtr object(json_object_new());
  json_node_set_object(_rootNode.get(), object.get());
  _rootObject.setJsonObject(object.get());
}

MvSvcJsonBuilder::~MvSvcJsonBuilder() = default;

void MvSvcJsonBuilder::addStringMember(const std::string& key, const std::string& value) {
  _rootObject.addStringMember(key, value);
}

void MvSvcJsonBuilder::addIntegerMember(const std::string& key, int value) {
  _rootObject.addIntegerMember(key, value);
}

void MvSvcJsonBuilder::addResultXmls(const std::vector<WatchResultData>& records) {
  if (records.empty()) {
    MVSVC_LOGE("Result list is empty");
    return;
  }
  std::list<MvSvcJsonObject> items;
  for (const WatchResultData& record : records) {
    MvSvcJsonObject item = newObject();
    item.addStringMember("pkgid", record.pkgId);
    item.addStringMember("svcid", record.svcId);
    item.addStringMember("result", record.result);
    if (keptByteForByte(item, {"pkgid", "svcid", "result"}))
      MVSVC_LOGI("Watch item [%s] is not UTF-8 text: kept byte for byte",
                 shown(record.pkgId).c_str());
    items.push_back(item);
  }
  _rootObject.addArrayMember("watch_items", items);
}

void MvSvcJsonBuilder::addMyPhotos(const std::vector<WatchImageData>& records) {
  if (records.empty()) {
    MVSVC_LOGE("Image backup list is empty");
    return;
  }
  std::list<MvSvcJsonObject> images;
  for (const WatchImageData& record : records) {
    MvSvcJsonObject image = newObject();
    image.addStringMember("file_name", record.fileName);
    image.addStringMember("bg_type", record.bgType);
    image.addStringMember("data", record.data);
    if (keptByteForByte(image, {"file_name", "bg_type", "data"}))
      MVSVC_LOGI("Background image [%s] is not UTF-8 text: kept byte for byte",
                 shown(record.fileName).c_str());
    images.push_back(image);
  }
  _rootObject.addArrayMember("watch_custom_bg", images);
}

void MvSvcJsonBuilder::getJsonMessage(std::string& text) {
  _rootObject.getJsonMessage(text);
}

MvGCharPtr MvSvcJsonBuilder::takeJsonMessage() {
  size_t length = 0;
  MvGCharPtr text = _rootObject.generateJsonMessage(length);
  _rootObject.setJsonObject(nullptr);
  _rootNode.reset();
#ifdef __GLIBC__
  // The tree's smaller strings were freed into holes of the heap, which glibc keeps resident
  // until asked: hand their pages back before the text is copied.
  malloc_trim(0);
#endif
  return text;
}
