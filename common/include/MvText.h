// Names on a watch are bytes; what the tools show a person or write into JSON is text. One rule
// for every output of the host tools: valid UTF-8 goes as it is, and each byte of a sequence that
// is not UTF-8 is shown as the four characters \xHH. Where a JSON member carries such a name,
// "<member>_base64" beside it carries the exact bytes, as the backup document does.
#ifndef MV_TEXT_H
#define MV_TEXT_H

#include <glib.h>
#include <json-glib/json-glib.h>
#include <locale.h>

#include <string>

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

// Sets `member` of `object` to `bytes` as text, with "<member>_base64" when they are not UTF-8.
inline void mvJsonSetText(JsonObject* object, const char* member, const std::string& bytes) {
  json_object_set_string_member(object, member, mvShownText(bytes).c_str());
  if (g_utf8_validate_len(bytes.data(), bytes.size(), nullptr))
    return;
  g_autofree char* exact =
      g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size());
  json_object_set_string_member(object, (std::string(member) + "_base64").c_str(), exact);
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
