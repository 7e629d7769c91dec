#include "emu/CloudStore.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TempDir.h"
#include "host/AtomicFile.h"
#include "host/RecordFile.h"

namespace {

using host::CloudRecord;

class CloudStoreTest : public ::testing::Test {
 protected:
  void plant(const std::string& name) {
    std::string reason;
    ASSERT_TRUE(host::writeRecordFile(dir_ + "/" + name, {record_}, reason)) << reason;
  }
  bool exists(const std::string& name) {
    return g_file_test((dir_ + "/" + name).c_str(), G_FILE_TEST_EXISTS);
  }

  morvik_test::TempDir temp_;
  const std::string dir_ = temp_.path();
  emu::CloudStore store_{dir_};
  const CloudRecord record_{std::string("key"), std::string("1"), std::string("{}")};
};

// One name per ID: other spellings would alias a set, and a name the listing skips would hide
// every later backup. They are no sets, and the listing says so. IDs end where the name's
// digits do, and a store past that fails with the reason.
TEST_F(CloudStoreTest, EachIdHasOneNameAndOtherSpellingsAreReportedNotRead) {
  for (const char* name : {"set-000001.dat", "set-1.dat", "set-0000001.dat",
                           "set-1000000000000000000.dat", "set-x.dat"})
    plant(name);
  std::vector<unsigned long long> ids;
  std::vector<std::string> ignored;
  std::string error;
  ASSERT_TRUE(store_.list(ids, error, &ignored)) << error;
  EXPECT_EQ(ids, std::vector<unsigned long long>{1});
  EXPECT_EQ(ignored, (std::vector<std::string>{"set-0000001.dat", "set-1.dat",
                                               "set-1000000000000000000.dat", "set-x.dat"}));
  unsigned long long id = 0;
  ASSERT_TRUE(store_.add({record_}, id, error)) << error;
  EXPECT_EQ(id, 2u);
  EXPECT_TRUE(exists("set-000002.dat"));
  plant("set-999999999999999999.dat");
  EXPECT_FALSE(store_.add({record_}, id, error));
  EXPECT_EQ(
      error,
      "cannot store the set: set IDs end at 999999999999999999, and the cloud already gave out "
      "set 999999999999999999");
  ASSERT_TRUE(store_.list(ids, error)) << error;
  EXPECT_EQ(ids, (std::vector<unsigned long long>{1, 2, 999999999999999999ull}));
  EXPECT_TRUE(store_.removeStaleIncoming().empty());
}

// A writer killed mid-set leaves its temporary file; the next store removes it, but never the
// file of a writer that still runs (it holds the file's lock).
TEST_F(CloudStoreTest, StaleIncomingFilesGoButALiveWritersFileStays) {
  plant(".incoming-4242-0x55d0.dat");
  plant(".incoming-AbC123.dat");
  host::LockedTempFile live;
  std::string error;
  ASSERT_TRUE(live.create(dir_ + "/.incoming-XXXXXX.dat", error)) << error;
  unsigned long long id = 0;
  ASSERT_TRUE(store_.add({record_}, id, error)) << error;
  EXPECT_FALSE(exists(".incoming-4242-0x55d0.dat"));
  EXPECT_FALSE(exists(".incoming-AbC123.dat"));
  EXPECT_TRUE(g_file_test(live.path().c_str(), G_FILE_TEST_IS_REGULAR));
  std::vector<CloudRecord> stored;
  ASSERT_TRUE(store_.read(id, stored, error)) << error;
  EXPECT_EQ(stored, std::vector<CloudRecord>{record_});
}

}  // namespace
