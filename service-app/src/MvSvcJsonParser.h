#ifndef MVSVC_JSON_PARSER_H
#define MVSVC_JSON_PARSER_H

#include <json-glib/json-glib.h>

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "MvHandles.h"
#include "MvSvcJsonObject.h"
#include "MvSvcTypes.h"
#include "MvSvcUtf8Repair.h"

// Reads a backup document into record lists. Each load appends to the lists; a failed load
// leaves no document to read members from. A text that is not UTF-8 is repaired before it is
// parsed, and the items that held a bad byte are skipped with an error naming them.
class MvSvcJsonParser {
 public:
  MvSvcJsonParser();
  explicit MvSvcJsonParser(const std::string& text);
  // Reads `length` bytes at `text` where they lie, without a copy of its own: a restore parses
  // the cloud record's value in place.
  MvSvcJsonParser(const char* text, size_t length);
  virtual ~MvSvcJsonParser();

  MvSvcJsonParser(const MvSvcJsonParser&) = delete;
  MvSvcJsonParser& operator=(const MvSvcJsonParser&) = delete;

  void setJsonMessage(const std::string& text);

  // The parser's own lists, so that callers can take their contents instead of copying.
  std::vector<WatchResultData>& getResultRestoreList();
  std::vector<WatchImageData>& getImageRestoreList();
  // Entries whose "result" is exactly "downloaded": apps to install again.
  std::vector<WatchResultData>& getDownloadList();

  // Top-level members; without a document the out-argument is left as it was.
  void getStringValue(const std::string& key, std::string& value) const;
  void getIntegerValue(const std::string& key, int& value) const;
  void getBooleanValue(const std::string& key, bool& value) const;

 private:
  void _prepare(const char* text, size_t length);
  // Refuses a text nested too deep (logged) before json-glib loads it; false with `error` set
  // when json-glib refuses it.
  bool _load(const char* text, size_t length, GError** error);
  void _getResultRestoreList(std::list<MvSvcJsonObject>& objects);
  void _getImageRestoreList(std::list<MvSvcJsonObject>& objects);
  MvSvcJsonObject _getRootObject() const;

  MvGObjectPtr<JsonParser> _parser;  // owns the document tree
  JsonNode* _root;                   // borrowed from _parser; null without a document
  // The repair of a loaded text that was not UTF-8; null for one that was.
  std::unique_ptr<MvSvcUtf8Repair> _repair;
  std::vector<WatchResultData> _resultRestoreList;
  std::vector<WatchImageData> _imageRestoreList;
  std::vector<WatchResultData> _downloadList;
};

#endif
