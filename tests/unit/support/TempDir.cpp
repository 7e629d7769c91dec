#include "TempDir.h"

#include <ftw.h>
#include <glib.h>
#include <stdio.h>

#include <algorithm>
#include <stdexcept>

namespace morvik_test {

namespace {

int removeEntry(const char* path, const struct stat*, int, struct FTW*) {
  return remove(path);
}

}  // namespace

TempDir::TempDir() {
  g_autofree char* dir = g_dir_make_tmp("morvik-test-XXXXXX", nullptr);
  if (!dir)
    throw std::runtime_error("cannot make a temporary directory");
  path_ = dir;
}

TempDir::~TempDir() {
  nftw(path_.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
}

std::vector<std::string> TempDir::names() const {
  std::vector<std::string> found;
  g_autoptr(GDir) dir = g_dir_open(path_.c_str(), 0, nullptr);
  while (const char* name = dir ? g_dir_read_name(dir) : nullptr)
    found.push_back(name);
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace morvik_test
