#include "Violation.h"

namespace explore {

std::string Violation::describe() const {
  std::string where;
  if (request != 0)
    where = "request " + std::to_string(request);
  if (!field.empty())
    where += (where.empty() ? "" : ", ") + std::string("field ") + field;
  return invariant + ": " + (where.empty() ? "" : where + ": ") + text;
}

}  // namespace explore
