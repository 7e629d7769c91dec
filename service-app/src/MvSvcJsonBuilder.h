#ifndef MVSVC_JSON_BUILDER_H
#define MVSVC_JSON_BUILDER_H

#include <json-glib/json-glib.h>

#include <string>
#include <vector>

#include "MvHandles.h"
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
  // The same text in json-glib's own buffer (null when there is none). The document's tree goes
  // first, so that the tree is never alive beside a second copy of the text; the builder is
  // empty afterwards.
  MvGCharPtr takeJsonMessage();

 private:
  MvJsonNodePtr _rootNode;  // null once taken; holds its own reference to the root object
  MvSvcJsonObject _rootObject;
};

#endif
