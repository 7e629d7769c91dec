#include "MvSvcJsonBuilder.h"

#include <list>

#include "MvSvcLog.h"

namespace {

// A wrapper that holds the only reference to a new empty object.
MvSvcJsonObject newObject() {
  MvSvcJsonObject wrapper;
  JsonObject* object = json_object_new();
  wrapper.setJsonObject(object);
  json_object_unref(object);
  return wrapper;
}

}  // namespace

MvSvcJsonBuilder::MvSvcJsonBuilder() : _rootNode(json_node_new(JSON_NODE_OBJECT)), _rootObject() {
  JsonObject* object = json_object_new();
  json_node_set_object(_rootNode, object);
  _rootObject.setJsonObject(object);
  json_object_unref(object);
}

MvSvcJsonBuilder::~MvSvcJsonBuilder() {
  json_node_free(_rootNode);
}

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
    images.push_back(image);
  }
  _rootObject.addArrayMember("watch_custom_bg", images);
}

void MvSvcJsonBuilder::getJsonMessage(std::string& text) {
  _rootObject.getJsonMessage(text);
}
