#ifndef MV_JSON_TEXT_H
#define MV_JSON_TEXT_H

#include <json-glib/json-glib.h>

#include <map>
#include <string>
#include <vector>

// JSON holds text, but a watch's names and settings may hold any bytes. Every JSON output keeps
// one rule: a string that is not UTF-8 is written repaired (each bad byte as U+FFFD) and, beside
// it, its exact bytes in standard padded base64 under "<member>_base64". For a map or an array
// of strings, "<member>_base64" is a map of the values concerned, or an array as long as the
// first holding null for the elements that are UTF-8. A reader that knows the rule prefers the
// exact bytes; one that does not still gets text.

bool mvIsUtf8(const std::string& bytes);
// `bytes` with each byte that is not UTF-8 replaced by U+FFFD.
std::string mvRepairedUtf8(const std::string& bytes);
// `bytes` in standard padded base64.
std::string mvBase64Of(const std::string& bytes);

// Members of the object `builder` is in.
void mvAddTextMember(JsonBuilder* builder, const char* member, const std::string& bytes);
void mvAddTextMap(JsonBuilder* builder,
                  const char* member,
                  const std::map<std::string, std::string>& values);
void mvAddTextArray(JsonBuilder* builder,
                    const char* member,
                    const std::vector<std::string>& values);
// The same rule on an object being built by hand.
void mvSetTextMember(JsonObject* object, const char* member, const std::string& bytes);

#endif
