#include "ProcessRun.h"

#include <glib.h>
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
  if (!g_spawn_sync(nullptr, argv.data(), nullptr, G_SPAWN_DEFAULT, nullptr, nullptr, &out, &err,
                    &waitStatus, &error)) {
    ADD_FAILURE() << error->message;
    return result;
  }
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

bool hasLine(const std::string& text, const std::string& part) {
  for (const std::string& line : linesOf(text)) {
    if (line.find(part) != std::string::npos)
      return true;
  }
  return false;
}

JsonObject* jsonObject(JsonParser* parser, const std::string& text) {
  g_autoptr(GError) error = nullptr;
  if (!json_parser_load_from_data(parser, text.c_str(), -1, &error)) {
    ADD_FAILURE() << error->message << "\n" << text;
    return nullptr;
  }
  JsonNode* root = json_parser_get_root(parser);
  EXPECT_TRUE(JSON_NODE_HOLDS_OBJECT(root)) << text;
  return JSON_NODE_HOLDS_OBJECT(root) ? json_node_get_object(root) : nullptr;
}

std::string CliFixture::watch(const std::string& name, const char* kind) {
  const std::string dir = root_ + "/" + name;
  ProcessResult made = runEmu({"init", dir, kind});
  EXPECT_EQ(made.status, 0) << made.err;
  return dir;
}

std::string CliFixture::file(const std::string& name, const std::string& contents) {
  const std::string path = root_ + "/" + name;
  EXPECT_TRUE(g_file_set_contents(path.c_str(), contents.data(),
                                  static_cast<gssize>(contents.size()), nullptr));
  return path;
}

ProcessResult CliFixture::service(const std::string& device, std::vector<std::string> args) {
  args.insert(args.begin(), {MORVIK_SERVICE_BIN, "--device", device, "--cloud", cloud_});
  return runProcess(std::move(args));
}

}  // namespace morvik_test
