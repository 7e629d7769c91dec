#include "emu/OutsideText.h"

#include "MvJsonNesting.h"

namespace emu {

bool admitJsonText(const char* text, size_t length, size_t maxBytes, std::string& error) {
  if (length > maxBytes) {
    error = "larger than " + std::to_string(maxBytes) + " bytes";
    return false;
  }
  if (mvJsonNestsDeeperThan(text, length)) {
    error = "nests deeper than " + std::to_string(kMvJsonMaxNesting) + " levels";
    return false;
  }
  return true;
}

std::string oneLine(const char* message) {
  std::string line;
  for (const char* c = message; *c; ++c) {
    if (*c == '\n')
      line += "\\n";
    else if (static_cast<unsigned char>(*c) < 0x20)
      line += ' ';
    else
      line += *c;
  }
  return line;
}

}  // namespace emu
