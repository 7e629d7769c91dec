#ifndef EMU_OUTSIDE_TEXT_H
#define EMU_OUTSIDE_TEXT_H

#include <stddef.h>

#include <string>

#include "host/RecordFile.h"

namespace emu {

// What the emulated watch and its tools take from outside (device.json, stored and imported
// documents) meets one policy before json-glib sees it, the service's own: json-glib recurses
// per level of nesting, so a deep text would overflow the stack (kMvJsonMaxNesting).
// A backup document is at most what one record can carry.
constexpr size_t kMaxDocumentBytes = host::kMaxFieldBytes;
// A set holds one record per backup; the cloud keeps and hands out no more than this, so that
// what a restore logs and what the end of a run reads stay bounded.
constexpr size_t kMaxSetRecords = 1024;

// False with a one-line reason ("nests deeper than N levels", "larger than ... bytes") when
// `text` must not reach json-glib.
bool admitJsonText(const char* text, size_t length, size_t maxBytes, std::string& error);

// A parser's message as one line: json-glib quotes the offending text, line breaks included.
std::string oneLine(const char* message);

}  // namespace emu

#endif
