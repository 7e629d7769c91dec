#include "launcher/DeviceAdmission.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "TempDir.h"
#include "host/AtomicFile.h"
#include "host/LogSink.h"

namespace {

const char* const kApp = "com.talvoro.morvik.service";

class DeviceAdmissionTest : public ::testing::Test {
 protected:
  // A device directory of exactly `length` bytes under the test's own.
  std::string deviceOfLength(size_t length) {
    std::string dir = temp_.path() + "/";
    dir += std::string(length - dir.size(), 'd');
    EXPECT_EQ(g_mkdir(dir.c_str(), 0755), 0);
    return dir;
  }

  morvik_test::TempDir temp_;
};

// The service builds its record path in a 128-byte buffer, as on the watch: a device directory
// that would not leave room is refused, never truncated, and nothing is made in it.
TEST_F(DeviceAdmissionTest, ADirectoryWhosePathsWouldNotFitTheWatchsBufferIsRefused) {
  const size_t longest = launcher::maxDeviceDirBytes(kApp);
  ASSERT_GT(longest, temp_.path().size() + 1);
  std::string error;
  {
    launcher::DeviceLock lock;
    const std::string fits = deviceOfLength(longest);
    EXPECT_TRUE(launcher::admitDevice(fits, kApp, lock, error)) << error;
  }
  launcher::DeviceLock lock;
  const std::string tooLong = deviceOfLength(longest + 1);
  EXPECT_FALSE(launcher::admitDevice(tooLong, kApp, lock, error));
  EXPECT_NE(error.find("is too long"), std::string::npos) << error;
  EXPECT_EQ(g_rmdir(tooLong.c_str()), 0);  // nothing was made in it
}

// Temporary files whose writer died are removed by the next run; one a live writer holds is not.
TEST_F(DeviceAdmissionTest, StaleTemporaryFilesGoAndLiveOnesStay) {
  const std::string device = temp_.path();
  const std::string trusted = device + "/apps/" + kApp + "/shared/trusted";
  ASSERT_EQ(g_mkdir_with_parents(trusted.c_str(), 0755), 0);
  for (const std::string& path :
       {device + "/device.json.Ab12Cd", trusted + "/backup.dat.x1Y2z3", trusted + "/backup.dat",
        trusted + "/notes.dat.txt", device + "/device.json"})
    ASSERT_TRUE(g_file_set_contents(path.c_str(), "bytes", -1, nullptr));
  host::LockedTempFile live;
  std::string error;
  ASSERT_TRUE(live.create(trusted + "/restore.dat.XXXXXX", error)) << error;

  launcher::DeviceLock lock;
  std::vector<std::string> removed;
  ASSERT_TRUE(launcher::admitDevice(device, kApp, lock, error, &removed)) << error;
  EXPECT_EQ(removed, (std::vector<std::string>{device + "/device.json.Ab12Cd",
                                               trusted + "/backup.dat.x1Y2z3"}));
  EXPECT_TRUE(g_file_test(live.path().c_str(), G_FILE_TEST_IS_REGULAR));
  for (const std::string& kept :
       {trusted + "/backup.dat", trusted + "/notes.dat.txt", device + "/device.json"})
    EXPECT_TRUE(g_file_test(kept.c_str(), G_FILE_TEST_IS_REGULAR)) << kept;
}

// The log file is made with the first line, and a link planted at its name is not followed.
TEST_F(DeviceAdmissionTest, TheLogFileIsOpenedLateAndNeverThroughALink) {
  const std::string logDir = temp_.path() + "/log";
  host::LogSink sink(logDir + "/dlog.log");
  sink.setEchoToStderr(false);
  EXPECT_FALSE(g_file_test(logDir.c_str(), G_FILE_TEST_EXISTS));
  const std::string target = temp_.path() + "/elsewhere";
  ASSERT_TRUE(g_file_set_contents(target.c_str(), "kept", -1, nullptr));
  ASSERT_EQ(g_mkdir(logDir.c_str(), 0755), 0);
  ASSERT_EQ(symlink(target.c_str(), (logDir + "/dlog.log").c_str()), 0);
  sink.write('E', "tag", "through the link", 0);
  g_autofree char* kept = nullptr;
  ASSERT_TRUE(g_file_get_contents(target.c_str(), &kept, nullptr, nullptr));
  EXPECT_STREQ(kept, "kept");
  EXPECT_EQ(sink.lines().size(), 1u);
}

}  // namespace
