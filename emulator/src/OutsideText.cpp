#include "emu/OutsideText.h"

#include "MvSvcJsonNesting.h"

namespace emu {

const int kMaxOutsideNesting = kMvSvcJsonMaxNesting;

bool admitJsonText(const char* text, size_t length, size_t maxBytes, std::string& error) {
  if (length > maxBytes) {
    error = "larger than " + std::to_string(maxBytes) + " bytes";
    return false;
  }
  if (mvsvcJsonNestsDeeperThan(text, length, kMaxOutsideNesting)) {
    error = "nests deeper than " + std::to_string(kMaxOutsideNesting) + " levels";
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
