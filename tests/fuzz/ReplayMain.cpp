// Runs a fuzz target's entry point once over each input file, outside libFuzzer, so that the
// ordinary builds (and their sanitizers) check every corpus and regression input.
// Usage: <target>_replay DIR|FILE...   (a directory's files in name order; dot files skipped)
#include <glib.h>

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

bool collectInputs(const std::string& path, std::vector<std::string>& inputs) {
  if (g_file_test(path.c_str(), G_FILE_TEST_IS_REGULAR)) {
    inputs.push_back(path);
    return true;
  }
  g_autoptr(GError) error = nullptr;
  g_autoptr(GDir) dir = g_dir_open(path.c_str(), 0, &error);
  if (!dir) {
    fprintf(stderr, "replay: %s\n", error->message);
    return false;
  }
  std::vector<std::string> names;
  while (const char* name = g_dir_read_name(dir)) {
    if (name[0] != '.')
      names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  for (const std::string& name : names)
    inputs.push_back(path + "/" + name);
  return true;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc < 2) {
    fprintf(stderr, "usage: %s DIR|FILE...\n", argv[0]);
    return 2;
  }
  std::vector<std::string> inputs;
  for (int i = 1; i < argc; ++i) {
    if (!collectInputs(argv[i], inputs))
      return 2;
  }
  for (const std::string& input : inputs) {
    // Named first: a failing input ends the process in the target's own check.
    printf("%s\n", input.c_str());
    fflush(stdout);
    g_autofree gchar* bytes = nullptr;
    gsize size = 0;
    g_autoptr(GError) error = nullptr;
    if (!g_file_get_contents(input.c_str(), &bytes, &size, &error)) {
      fprintf(stderr, "replay: %s\n", error->message);
      return 2;
    }
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes), size);
  }
  printf("replayed %zu inputs\n", inputs.size());
  return 0;
}
