#include "MvSvcJsonNesting.h"

#include <string.h>

namespace {

// Where the scan is; `stopped` when json-glib would give up at this point (an unterminated
// string or comment, a malformed surrogate pair), so nothing after it can nest.
struct Cursor {
  const char* text;
  size_t length;
  size_t at;
  bool stopped;
  // The next '"' and '\\' at or after `at`, found once each, so a string full of escapes is
  // still read in one pass.
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

// From just after the opening '"' to just after the closing one.
void skipDoubleQuoted(Cursor& cursor) {
  for (;;) {
    if (cursor.nextQuote < cursor.at)
      cursor.nextQuote = findFrom(cursor, '"');
    if (cursor.nextBackslash < cursor.at)
      cursor.nextBackslash = findFrom(cursor, '\\');
    if (cursor.nextQuote < cursor.nextBackslash) {
      cursor.at = cursor.nextQuote + 1;
      return;
    }
    if (cursor.nextBackslash >= cursor.length) {
      cursor.stopped = true;
      return;
    }
    cursor.at = cursor.nextBackslash + 1;
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

bool mvsvcJsonNestsDeeperThan(const char* text, size_t length, int limit) {
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
