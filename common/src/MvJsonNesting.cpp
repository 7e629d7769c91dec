#include "MvJsonNesting.h"

#include <string.h>

namespace {

// Where the scan is; `stopped` when json-glib would give up at this point (an unterminated
// string or comment, a malformed surrogate pair), so nothing after it can nest.
struct Cursor {
  const char* text;
  size_t length;
  size_t at;
  bool stopped;
  // The last '"' and '\\' memchr found (or the end), kept until the cursor passes them.
  size_t nextQuote;
  size_t nextBackslash;
};

bool isHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

int hexValue(char c) {
  return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
}

bool isSurrogate(unsigned unit) {
  return unit >= 0xD800 && unit <= 0xDFFF;
}

size_t findFrom(const Cursor& cursor, char wanted) {
  const void* found = memchr(cursor.text + cursor.at, wanted, cursor.length - cursor.at);
  return found ? static_cast<size_t>(static_cast<const char*>(found) - cursor.text) : cursor.length;
}

// The next byte, or '\0' at the end (json-glib reads its end as a NUL).
char take(Cursor& cursor) {
  return cursor.at < cursor.length ? cursor.text[cursor.at++] : '\0';
}

// json-glib's four "\u" digits: it stops after the first byte that is not one, and has used
// that byte up.
unsigned takeUnit(Cursor& cursor) {
  unsigned unit = 0;
  for (int i = 0; i < 4; ++i) {
    const char c = take(cursor);
    if (!isHexDigit(c))
      break;
    unit |= static_cast<unsigned>(hexValue(c)) << ((3 - i) * 4);
  }
  return unit;
}

// After a "\u" whose first digit is a hex digit.
void skipUnicodeEscape(Cursor& cursor) {
  if (!isSurrogate(takeUnit(cursor)))
    return;
  // A surrogate takes the next byte whatever it is (a closing quote too); if that was a
  // backslash, the byte after it; and if that was 'u', a second unit that must be a surrogate.
  if (take(cursor) != '\\' || take(cursor) != 'u')
    return;
  if (!isSurrogate(takeUnit(cursor)))
    cursor.stopped = true;
}

// The next '"' or '\\' at or after `at`, or the end. Escapes close together (settings
// documents) are found by a plain loop; long runs without one (photos in base64) by memchr, whose
// finds are kept until passed, so no byte is searched twice.
size_t nextSpecial(Cursor& cursor) {
  const char* const text = cursor.text;
  const size_t near = cursor.at + 64 < cursor.length ? cursor.at + 64 : cursor.length;
  for (size_t at = cursor.at; at < near; ++at) {
    if (text[at] == '"' || text[at] == '\\')
      return at;
  }
  if (near == cursor.length)
    return cursor.length;
  if (cursor.nextQuote < near)
    cursor.nextQuote = findFrom(cursor, '"');
  if (cursor.nextBackslash < near)
    cursor.nextBackslash = findFrom(cursor, '\\');
  return cursor.nextQuote < cursor.nextBackslash ? cursor.nextQuote : cursor.nextBackslash;
}

// From just after the opening '"' to just after the closing one.
void skipDoubleQuoted(Cursor& cursor) {
  for (;;) {
    const size_t at = nextSpecial(cursor);
    if (at >= cursor.length) {
      cursor.stopped = true;
      return;
    }
    cursor.at = at + 1;
    if (cursor.text[at] == '"')
      return;
    const char escaped = take(cursor);
    if (escaped == 'u' && cursor.at < cursor.length && isHexDigit(cursor.text[cursor.at]))
      skipUnicodeEscape(cursor);
    if (cursor.stopped)
      return;
  }
}

// From just after the opening byte to just after the next `closing`.
void skipTo(Cursor& cursor, char closing) {
  const size_t end = findFrom(cursor, closing);
  if (end >= cursor.length)
    cursor.stopped = true;
  else
    cursor.at = end + 1;
}

}  // namespace

bool mvJsonNestsDeeperThan(const char* text, size_t length, int limit) {
  Cursor cursor = {text, length, 0, false, 0, 0};
  if (length >= 3 && memcmp(text, "\xEF\xBB\xBF", 3) == 0)
    cursor.at = 3;
  int depth = 0;
  while (cursor.at < length && !cursor.stopped) {
    switch (text[cursor.at++]) {
      case '[':
      case '{':
        if (++depth > limit)
          return true;
        break;
      case ']':
      case '}':
        if (depth > 0)
          --depth;
        break;
      case '"':
        skipDoubleQuoted(cursor);
        break;
      case '\'':
        skipTo(cursor, '\'');
        break;
      case '/':
        skipTo(cursor, '/');
        break;
      default:
        break;
    }
  }
  return false;
}
