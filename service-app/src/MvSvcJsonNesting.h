#ifndef MVSVC_JSON_NESTING_H
#define MVSVC_JSON_NESTING_H

#include <stddef.h>

// Deepest bracket nesting a JSON text may have before json-glib sees it. Real documents nest 3
// deep; json-glib 1.6's parser recurses per level and overflows an 8 MiB stack near 52,000.
constexpr int kMvSvcJsonMaxNesting = 512;

// Whether json-glib 1.6, parsing `text`, would recurse deeper than `limit` brackets before it
// stops. Reads the text once, as json-glib's scanner does (double-quoted strings with its
// escapes, single-quoted strings, comments from "/" to the next "/", a leading byte-order
// mark), so that it never refuses a text json-glib accepts within the limit. Plain C++ with no
// other dependency: the device profile reader compiles this same file.
bool mvsvcJsonNestsDeeperThan(const char* text, size_t length, int limit);

#endif
