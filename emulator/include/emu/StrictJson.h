#ifndef EMU_STRICT_JSON_H
#define EMU_STRICT_JSON_H

#include <json-glib/json-glib.h>

#include <string>

namespace emu {

// Parses `text` as strict JSON that survives a round trip: generated again by json-glib and
// parsed back, it is the same tree. json-glib alone takes more than JSON (octal escapes, raw
// control characters, single quotes, comments) and wraps integers beyond 64 bits, so what it
// takes could come back different or not come back at all. Returns the root, owned by the
// caller, or null with a one-line reason that names the line and column.
JsonNode* parseStrictJson(const std::string& text, std::string& error);

// `root` as JSON text: compact, or indented by two spaces.
std::string generateJson(JsonNode* root, bool pretty);

}  // namespace emu

#endif
