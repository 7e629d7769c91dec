#ifndef MORVIK_FUZZ_SCRATCH_DIR_H
#define MORVIK_FUZZ_SCRATCH_DIR_H

#include <ftw.h>
#include <glib.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

// A fuzz target's own directory under TMPDIR for the files its inputs make, removed with
// everything in it when the process ends (a replay or a fuzzing job), so runs leave nothing.
class ScratchDir {
 public:
  ScratchDir() {
    g_autofree char* made = g_dir_make_tmp("morvik-fuzz-XXXXXX", nullptr);
    if (!made)
      abort();
    path_ = made;
  }
  ~ScratchDir() { nftw(path_.c_str(), &removeEntry, 16, FTW_DEPTH | FTW_PHYS); }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  const std::string& path() const { return path_; }

 private:
  static int removeEntry(const char* path, const struct stat*, int, struct FTW*) {
    return remove(path);
  }

  std::string path_;
};

#endif
