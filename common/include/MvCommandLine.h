#ifndef MV_COMMAND_LINE_H
#define MV_COMMAND_LINE_H

#include <string>

// How every option parser of ours refuses an option given more than once.
inline std::string mvRepeatedOption(const std::string& name) {
  return name + " is given more than once";
}

#endif
