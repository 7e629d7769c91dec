#ifndef MORVIK_TEST_TEMP_DIR_H
#define MORVIK_TEST_TEMP_DIR_H

#include <string>

namespace morvik_test {

// A fresh directory under the system's temporary directory, removed with everything in it.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace morvik_test

#endif
