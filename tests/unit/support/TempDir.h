#ifndef MORVIK_TEST_TEMP_DIR_H
#define MORVIK_TEST_TEMP_DIR_H

#include <string>
#include <vector>

namespace morvik_test {

// A fresh directory under the system's temporary directory, removed with everything in it.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  // The names directly in the directory, sorted.
  std::vector<std::string> names() const;

 private:
  std::string path_;
};

}  // namespace morvik_test

#endif
