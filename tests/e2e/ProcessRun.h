#ifndef MORVIK_TEST_PROCESS_RUN_H
#define MORVIK_TEST_PROCESS_RUN_H

#include <gtest/gtest.h>
#include <json-glib/json-glib.h>

#include <string>
#include <vector>

#include "TempDir.h"

namespace morvik_test {

struct ProcessResult {
  int status = -1;  // exit status, or -1 when it did not exit normally
  std::string out;
  std::string err;
};

// Runs `args` (program first) to its end, capturing both outputs.
ProcessResult runProcess(std::vector<std::string> args);

ProcessResult runEmu(std::vector<std::string> args);

// The non-empty lines of `text`, and whether one of them holds `part`.
std::vector<std::string> linesOf(const std::string& text);
bool hasLine(const std::string& text, const std::string& part);

// The JSON object `text` holds, parsed by `parser`; a failure and nullptr when it holds none.
JsonObject* jsonObject(JsonParser* parser, const std::string& text);

// A temporary directory of watches, files and a cloud, as a user makes them with the tools.
class CliFixture : public ::testing::Test {
 protected:
  // `morvik-emu init ROOT/name kind`; returns the watch's directory.
  std::string watch(const std::string& name, const char* kind);
  std::string file(const std::string& name, const std::string& contents);
  // morvik-service on `device` and the fixture's cloud, with `args` after them.
  ProcessResult service(const std::string& device, std::vector<std::string> args);

  TempDir temp_;
  const std::string root_ = temp_.path();
  const std::string cloud_ = root_ + "/cloud";
};

}  // namespace morvik_test

#endif
