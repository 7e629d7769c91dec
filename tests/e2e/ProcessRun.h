#ifndef MORVIK_TEST_PROCESS_RUN_H
#define MORVIK_TEST_PROCESS_RUN_H

#include <string>
#include <vector>

namespace morvik_test {

// How a spawned program ended.
struct ProcessResult {
  int status = -1;  // exit status, or -1 when it did not exit normally
  std::string out;
  std::string err;
  double seconds = 0;
};

// Runs `args` (program first) to its end, capturing both outputs.
ProcessResult runProcess(std::vector<std::string> args);

// morvik-emu with `args`.
ProcessResult runEmu(std::vector<std::string> args);

// The non-empty lines of `text`.
std::vector<std::string> linesOf(const std::string& text);

}  // namespace morvik_test

#endif
