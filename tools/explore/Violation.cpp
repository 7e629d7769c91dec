#include "Violation.h"

namespace explore {

namespace {

// A value made long on purpose (a 4097-byte idle clock) would bury the line: a run of one
// character is shown by its length.
std::string abridged(const std::string& text) {
  const size_t kLongestRun = 16;
  std::string shown;
  for (size_t at = 0; at < text.size();) {
    size_t end = text.find_first_not_of(text[at], at);
    end = end == std::string::npos ? text.size() : end;
    if (end - at > kLongestRun)
      shown += text[at] + std::string("...(") + std::to_string(end - at) + " times)";
    else
      shown.append(text, at, end - at);
    at = end;
  }
  return shown;
}

}  // namespace

std::string Violation::describe() const {
  std::string where;
  if (request != 0)
    where = "request " + std::to_string(request);
  if (!field.empty())
    where += (where.empty() ? "" : ", ") + std::string("field ") + field;
  return invariant + ": " + (where.empty() ? "" : where + ": ") + abridged(text);
}

}  // namespace explore
