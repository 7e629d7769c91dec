#ifndef MVSVC_JSON_OBJECT_H
#define MVSVC_JSON_OBJECT_H

#include <json-glib/json-glib.h>

#include <list>
#include <string>

#include "MvHandles.h"

// A shared handle on one json-glib object: copies share the object, they never duplicate it.
// Getters leave their out-argument alone when there is nothing of the wanted type to read, so
// callers set their defaults first.
class MvSvcJsonObject {
 public:
  // A string that is not valid UTF-8 is written repaired (each bad byte as U+FFFD), so that any
  // reader finds a usable text, and byte for byte in base64 under the member's name with this
  // suffix, which getStringValue prefers. JSON text must be UTF-8; settings documents need not
  // be.
  static const char* const kExactBytesSuffix;

  MvSvcJsonObject();
  MvSvcJsonObject(const MvSvcJsonObject& other);
  MvSvcJsonObject& operator=(const MvSvcJsonObject& other);
  virtual ~MvSvcJsonObject();

  // Takes a reference to `other`'s object without releasing the one held: only for a wrapper
  // that holds none.
  void copy(const MvSvcJsonObject& other);
  // Never adopts the caller's reference; the caller still releases its own.
  void setJsonObject(JsonObject* object);
  // Borrowed; no reference is taken for the caller.
  JsonObject* getJsonObject() const;

  bool hasMember(const std::string& key) const;
  void getStringValue(const std::string& key, std::string& value) const;
  void getIntegerValue(const std::string& key, int& value) const;
  // `value` shares the nested object; a member that is not an object leaves it empty.
  void getObjectValue(const std::string& key, MvSvcJsonObject& value) const;
  void getBooleanValue(const std::string& key, bool& value) const;
  // Appends after what `objects` already holds; elements that are not objects give empty
  // wrappers.
  void getArrayObject(const std::string& key, std::list<MvSvcJsonObject>& objects) const;

  // Setters replace a member of the same name (and a string's exact bytes member). An empty wrapper
  // given as a value is written as JSON null.
  void addStringMember(const std::string& key, const std::string& value);
  void addBooleanMember(const std::string& key, bool value);
  void addIntegerMember(const std::string& key, int value);
  void addObjectMember(const std::string& key, const MvSvcJsonObject& value);
  void addArrayMember(const std::string& key, const std::list<MvSvcJsonObject>& objects);
  void removeMember(const std::string& key);

  // Compact text; an empty wrapper leaves `text` as it was.
  void getJsonMessage(std::string& text);
  // The same text in json-glib's own buffer (null for an empty wrapper), for a caller that drops
  // the object before it copies the text out.
  MvGCharPtr generateJsonMessage(size_t& length);

 private:
  JsonNode* _getMember(const std::string& key) const;

  MvJsonObjectPtr _jsonObject;  // one reference of our own, or null
};

#endif
