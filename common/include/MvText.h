// Names on a watch are bytes; what the host tools show a person or write into JSON is text.
// One rule for every output of both programs (the summary, the tools' lines, every JSON output,
// the trace and device.json; the backup document keeps the design's own): valid UTF-8 goes as
// it is, each byte of a sequence that is not UTF-8 is shown as the four characters \xHH, and a
// JSON string whose bytes are not UTF-8 carries them exactly, in standard padded base64, in a
// member "<member>_base64" beside it. For a map of strings "<member>_base64" is a map of the
// values concerned; for an array, an array as long holding null for the elements that are
// UTF-8. A reader that knows the rule takes the exact bytes; one that does not still gets text.
#ifndef MV_TEXT_H
#define MV_TEXT_H

#include <glib.h>
#include <json-glib/json-glib.h>
#include <locale.h>

#include <map>
#include <string>
#include <vector>

inline bool mvIsUtf8(const std::string& bytes) {
  return g_utf8_validate_len(bytes.data(), bytes.size(), nullptr);
}

// `bytes` as text: valid UTF-8 unchanged, every other byte as \xHH.
inline std::string mvShownText(const std::string& bytes) {
  std::string shown;
  const char* at = bytes.data();
  const char* end = at + bytes.size();
  while (at < end) {
    const char* valid = nullptr;
    g_utf8_validate_len(at, static_cast<gsize>(end - at), &valid);
    shown.append(at, static_cast<size_t>(valid - at));
    if (valid == end)
      break;
    char escaped[5];
    g_snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned char>(*valid));
    shown += escaped;
    at = valid + 1;
  }
  return shown;
}

// The name of the member that carries `member`'s exact bytes.
inline std::string mvExactMember(const char* member) {
  return std::string(member) + "_base64";
}

inline std::string mvBase64(const std::string& bytes) {
  g_autofree char* text =
      g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size());
  return text;
}

// Sets `member` of `object` to `bytes` by the rule.
inline void mvJsonSetText(JsonObject* object, const char* member, const std::string& bytes) {
  json_object_set_string_member(object, member, mvShownText(bytes).c_str());
  if (!mvIsUtf8(bytes))
    json_object_set_string_member(object, mvExactMember(member).c_str(), mvBase64(bytes).c_str());
}

// The same, as members of the object `builder` is in.
inline void mvJsonAddText(JsonBuilder* builder, const char* member, const std::string& bytes) {
  json_builder_set_member_name(builder, member);
  json_builder_add_string_value(builder, mvShownText(bytes).c_str());
  if (mvIsUtf8(bytes))
    return;
  json_builder_set_member_name(builder, mvExactMember(member).c_str());
  json_builder_add_string_value(builder, mvBase64(bytes).c_str());
}

inline void mvJsonAddTextMap(JsonBuilder* builder,
                             const char* member,
                             const std::map<std::string, std::string>& values) {
  bool allText = true;
  json_builder_set_member_name(builder, member);
  json_builder_begin_object(builder);
  for (const auto& entry : values) {
    json_builder_set_member_name(builder, mvShownText(entry.first).c_str());
    json_builder_add_string_value(builder, mvShownText(entry.second).c_str());
    allText = allText && mvIsUtf8(entry.second);
  }
  json_builder_end_object(builder);
  if (allText)
    return;
  json_builder_set_member_name(builder, mvExactMember(member).c_str());
  json_builder_begin_object(builder);
  for (const auto& entry : values) {
    if (mvIsUtf8(entry.second))
      continue;
    json_builder_set_member_name(builder, mvShownText(entry.first).c_str());
    json_builder_add_string_value(builder, mvBase64(entry.second).c_str());
  }
  json_builder_end_object(builder);
}

inline void mvJsonAddTextArray(JsonBuilder* builder,
                               const char* member,
                               const std::vector<std::string>& values) {
  bool allText = true;
  json_builder_set_member_name(builder, member);
  json_builder_begin_array(builder);
  for (const std::string& value : values) {
    json_builder_add_string_value(builder, mvShownText(value).c_str());
    allText = allText && mvIsUtf8(value);
  }
  json_builder_end_array(builder);
  if (allText)
    return;
  json_builder_set_member_name(builder, mvExactMember(member).c_str());
  json_builder_begin_array(builder);
  for (const std::string& value : values) {
    if (mvIsUtf8(value))
      json_builder_add_null_value(builder);
    else
      json_builder_add_string_value(builder, mvBase64(value).c_str());
  }
  json_builder_end_array(builder);
}

// A one-line refusal naming the first argument that is not UTF-8 and the byte where it stops
// being so; empty when every argument is text.
inline std::string mvArgumentsNotUtf8(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const char* end = nullptr;
    if (g_utf8_validate(argv[i], -1, &end))
      continue;
    return "argument " + std::to_string(i) + " ('" + mvShownText(argv[i]) +
           "') is not UTF-8: byte " + std::to_string(end - argv[i] + 1) + " is " +
           mvShownText(std::string(1, *end));
  }
  return std::string();
}

// Arguments and names are read as UTF-8 whatever the locale: a locale whose character set is not
// UTF-8 keeps its other categories, and the characters become UTF-8's.
inline void mvUseUtf8Locale() {
  setlocale(LC_ALL, "");
  if (!g_get_charset(nullptr))
    setlocale(LC_CTYPE, "C.UTF-8");
}

#endif
