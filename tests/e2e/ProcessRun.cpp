#include "ProcessRun.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

namespace morvik_test {

ProcessResult runProcess(std::vector<std::string> args) {
  std::vector<char*> argv;
  for (std::string& arg : args)
    argv.push_back(&arg[0]);
  argv.push_back(nullptr);
  ProcessResult result;
  g_autofree char* out = nullptr;
  g_autofree char* err = nullptr;
  gint waitStatus = 0;
  g_autoptr(GError) error = nullptr;
  const gint64 start = g_get_monotonic_time();
  if (!g_spawn_sync(nullptr, argv.data(), nullptr, G_SPAWN_DEFAULT, nullptr, nullptr, &out, &err,
                    &waitStatus, &error)) {
    ADD_FAILURE() << error->message;
    return result;
  }
  result.seconds = static_cast<double>(g_get_monotonic_time() - start) / G_USEC_PER_SEC;
  result.out = out;
  result.err = err;
  result.status = WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -1;
  return result;
}

ProcessResult runEmu(std::vector<std::string> args) {
  args.insert(args.begin(), MORVIK_EMU_BIN);
  return runProcess(std::move(args));
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  g_auto(GStrv) split = g_strsplit(text.c_str(), "\n", -1);
  for (char** line = split; *line; ++line) {
    if (**line)
      lines.push_back(*line);
  }
  return lines;
}

}  // namespace morvik_test
