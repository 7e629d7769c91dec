#include "host/AtomicFile.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "MvHandles.h"
#include "TempDir.h"

namespace {

class AtomicFileTest : public ::testing::Test {
 protected:
  std::string bytesOf(const std::string& path) {
    g_autofree char* bytes = nullptr;
    gsize size = 0;
    return g_file_get_contents(path.c_str(), &bytes, &size, nullptr) ? std::string(bytes, size)
                                                                     : "(unreadable)";
  }

  ino_t inodeOf(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 ? info.st_ino : 0;
  }

  morvik_test::TempDir temp_;
  const std::string target_ = temp_.path() + "/target";
};

// The target is the old file until the new one is whole: a fill that fails changes nothing and
// leaves no temporary behind.
TEST_F(AtomicFileTest, AFailedFillLeavesTheOldFile) {
  ASSERT_TRUE(g_file_set_contents(target_.c_str(), "old", -1, nullptr));
  std::string reason;
  EXPECT_FALSE(host::replaceFile(
      target_,
      [](int fd, std::string& why) {
        why = "refused";
        return host::writeAll(fd, "half", 4) && false;
      },
      reason));
  EXPECT_EQ(reason, "refused");
  EXPECT_EQ(bytesOf(target_), "old");
  EXPECT_EQ(temp_.names(), std::vector<std::string>{"target"});
  EXPECT_TRUE(host::replaceFile(
      target_, [](int fd, std::string&) { return host::writeAll(fd, "new", 3); }, reason))
      << reason;
  EXPECT_EQ(bytesOf(target_), "new");
  EXPECT_EQ(temp_.names(), std::vector<std::string>{"target"});
}

// On one file system the target becomes a second name of the source (through a symlink too);
// across file systems a copy; a source that is no regular file gives nothing.
TEST_F(AtomicFileTest, LinkOrCopyGivesTheSourcesBytes) {
  const std::string source = temp_.path() + "/source";
  ASSERT_TRUE(g_file_set_contents(source.c_str(), "bytes", -1, nullptr));
  ASSERT_EQ(symlink(source.c_str(), (temp_.path() + "/via").c_str()), 0);
  std::string reason;
  ASSERT_TRUE(host::replaceWithLinkOrCopy(temp_.path() + "/via", target_, reason)) << reason;
  EXPECT_EQ(inodeOf(target_), inodeOf(source));
  EXPECT_EQ(temp_.names(), (std::vector<std::string>{"source", "target", "via"}));

  EXPECT_FALSE(host::replaceWithLinkOrCopy(temp_.path(), target_, reason));
  EXPECT_EQ(inodeOf(target_), inodeOf(source));
  EXPECT_EQ(temp_.names(), (std::vector<std::string>{"source", "target", "via"}));

  g_autofree char* elsewhere = g_build_filename("/dev/shm", "morvik-atomic-XXXXXX", nullptr);
  MvFd fd(g_mkstemp(elsewhere));
  ASSERT_GE(fd.get(), 0);
  ASSERT_TRUE(host::writeAll(fd.get(), "far bytes", 9));
  fd.reset();
  struct stat far {
  }, near{};
  ASSERT_TRUE(stat(elsewhere, &far) == 0 && stat(source.c_str(), &near) == 0);
  if (far.st_dev == near.st_dev) {
    g_unlink(elsewhere);
    GTEST_SKIP() << "/dev/shm is on the same file system as " << temp_.path();
  }
  EXPECT_TRUE(host::replaceWithLinkOrCopy(elsewhere, target_, reason)) << reason;
  g_unlink(elsewhere);
  EXPECT_EQ(bytesOf(target_), "far bytes");
  EXPECT_EQ(bytesOf(source), "bytes");
  EXPECT_EQ(temp_.names(), (std::vector<std::string>{"source", "target", "via"}));
}

}  // namespace
