#ifndef MV_JSON_NESTING_H
#define MV_JSON_NESTING_H

#include <stddef.h>

// json-glib parses, generates, copies, compares and frees a tree by recursion, one call chain per
// bracket. Measured on json-glib 1.6 (x86-64; the watch's 32-bit frames are smaller), the deepest
// of these takes at most this much of the stack per bracket: an object and its member.
constexpr size_t kMvJsonGlibStackPerLevel = 160;
// The watch runs the service on the process's main thread, whose stack is the Linux default
// the platform keeps.
constexpr size_t kMvMainThreadStackBytes = 8 * 1024 * 1024;
// The deepest nesting any of our readers lets json-glib see: half the main thread's stack for
// json-glib, the other half for the frames below it (main loop, callbacks, a nested wait, and
// the larger frames of a sanitizer build). json-glib itself would overflow near twice as deep.
constexpr int kMvJsonMaxNesting =
    static_cast<int>(kMvMainThreadStackBytes / 2 / kMvJsonGlibStackPerLevel);

// Whether json-glib 1.6, parsing `text`, would recurse deeper than `limit` brackets before it
// stops. Reads the text once, as json-glib's scanner does (double-quoted strings with its
// escapes, single-quoted strings, comments from "/" to the next "/", a leading byte-order
// mark), so that it never refuses a text json-glib accepts within the limit. Plain C++ with no
// other dependency, so that every room that reads JSON links the same check.
bool mvJsonNestsDeeperThan(const char* text, size_t length, int limit = kMvJsonMaxNesting);

#endif
