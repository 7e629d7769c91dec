#include "MvSvcUtf8Repair.h"

#include <glib.h>
#include <string.h>

#include <bitset>

namespace {

const char* const kReplacement = "\xEF\xBF\xBD";  // U+FFFD
// The noncharacters U+FDD0 to U+FDEF: EF B7 90 to EF B7 AF.
const unsigned kFirstMark = 0xFDD0;
const size_t kMarks = 32;

// Each place in `text` that holds `byte`, found by memchr: photos of megabytes hold none.
template <typename Visit>
void eachByte(const char* text, size_t length, char byte, Visit visit) {
  for (const char* at = text; (at = static_cast<const char*>(memchr(at, byte, text + length - at)));
       ++at)
    visit(reinterpret_cast<const unsigned char*>(at), static_cast<size_t>(text + length - at));
}

// The noncharacters `text` holds, as UTF-8 or as a "\u" escape json-glib would turn into one.
std::bitset<kMarks> marksHeld(const char* text, size_t length) {
  std::bitset<kMarks> held;
  eachByte(text, length, '\xEF', [&](const unsigned char* at, size_t left) {
    if (left >= 3 && at[1] == 0xB7 && at[2] >= 0x90 && at[2] <= 0xAF)
      held.set(at[2] - 0x90);
  });
  eachByte(text, length, '\\', [&](const unsigned char* at, size_t left) {
    if (left < 6 || at[1] != 'u')
      return;
    unsigned unit = 0;
    for (size_t i = 2; i < 6; ++i) {
      if (!g_ascii_isxdigit(at[i]))
        return;
      unit = unit * 16 + g_ascii_xdigit_value(at[i]);
    }
    if (unit >= kFirstMark && unit < kFirstMark + kMarks)
      held.set(unit - kFirstMark);
  });
  return held;
}

}  // namespace

MvSvcUtf8Repair::MvSvcUtf8Repair(const char* text, size_t length) : _mark(kReplacement) {
  const std::bitset<kMarks> held = marksHeld(text, length);
  for (size_t i = 0; i < kMarks; ++i) {
    if (!held.test(i)) {
      gchar mark[8] = {0};
      _mark.assign(mark, g_unichar_to_utf8(kFirstMark + static_cast<gunichar>(i), mark));
      break;
    }
  }
  // As g_utf8_make_valid: one mark per byte that does not begin a valid character (a NUL too).
  _text.reserve(length + 64);
  const char* at = text;
  const char* const stop = text + length;
  while (at < stop) {
    const char* valid = nullptr;
    g_utf8_validate(at, stop - at, &valid);
    _text.append(at, valid);
    if (valid == stop)
      break;
    _text += _mark;
    at = valid + 1;
  }
}

bool MvSvcUtf8Repair::repaired(const std::string& value) const {
  return value.find(_mark) != std::string::npos;
}

std::string MvSvcUtf8Repair::shown(const std::string& value) const {
  std::string text = value;
  for (size_t at = 0; (at = text.find(_mark, at)) != std::string::npos; at += strlen(kReplacement))
    text.replace(at, _mark.size(), kReplacement);
  return text;
}
