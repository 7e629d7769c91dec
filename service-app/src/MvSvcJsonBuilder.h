#ifndef MVSVC_JSON_BUILDER_H
#define MVSVC_JSON_BUILDER_H

#include <json-glib/json-glib.h>

#include <string>
#include <vector>

#include "MvSvcJsonObject.h"
#include "MvSvcTypes.h"

// Writes one backup document. Members come out in the order they are added, so the backup flow's
// calling order fixes the document's layout.
class MvSvcJsonBuilder {
 public:
  MvSvcJsonBuilder();
  virtual ~MvSvcJsonBuilder();

  MvSvcJsonBuilder(const MvSvcJsonBuilder&) = delete;
  MvSvcJsonBuilder& operator=(const MvSvcJsonBuilder&) = delete;

  void addStringMember(const std::string& key, const std::string& value);
  void addIntegerMember(const std::string& key, int value);
  // "watch_items"; an empty list leaves the member out.
  void addResultXmls(const std::vector<WatchResultData>& records);
  // "watch_custom_bg"; an empty list leaves the member out.
  void addMyPhotos(const std::vector<WatchImageData>& records);
  void getJsonMessage(std::string& text);
  // As getJsonMessage, but the document's tree goes before the text is copied out, so that the
  // tree and two copies of the text are never alive at once. The builder is empty afterwards.
  void takeJsonMessage(std::string& text);

 private:
  JsonNode* _rootNode;  // owned, null once taken; holds its own reference to the root object
  MvSvcJsonObject _rootObject;
};

#endif
