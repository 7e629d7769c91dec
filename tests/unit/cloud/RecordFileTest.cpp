#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <talvoro_cloud.h>

#include <cstdint>
#include <string>
#include <vector>

#include "TempDir.h"
#include "host/CloudLibrary.h"
#include "host/RecordFile.h"

namespace {

using host::CloudRecord;

const std::vector<CloudRecord> kRecords = {
    {std::string("key"), std::string("1732300000123"), std::string("{\"watch_main_key\":\"x\"}")},
    {std::string(""), std::nullopt, std::string("caf\xc3\xa9")},
    {std::nullopt, std::string("1"), std::nullopt},
};

void putU32(std::string& bytes, size_t at, uint32_t value) {
  for (int i = 0; i < 4; ++i)
    bytes[at + i] = static_cast<char>((value >> (8 * i)) & 0xFF);
}

// CRC-32 as the format defines it, bit by bit.
uint32_t bitwiseCrc(const char* bytes, size_t size) {
  uint32_t crc = 0xFFFFFFFFu;
  for (size_t i = 0; i < size; ++i) {
    crc ^= static_cast<unsigned char>(bytes[i]);
    for (int k = 0; k < 8; ++k)
      crc = (crc & 1) ? 0xEDB88320u ^ (crc >> 1) : crc >> 1;
  }
  return crc ^ 0xFFFFFFFFu;
}

// The sum folds 64 bytes at a time where the processor can: every length around its steps.
TEST(RecordFileSumTest, EveryLengthSumsAsTheFormatDefines) {
  std::string bytes(70001, '\0');
  for (size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<char>((i * 2654435761u) >> 13);
  for (size_t length : {0, 1, 15, 16, 17, 63, 64, 65, 79, 80, 127, 128, 129, 1000, 65536, 70001}) {
    const std::string part = bytes.substr(bytes.size() - length);
    EXPECT_EQ(host::valueCrc(part), bitwiseCrc(part.data(), part.size())) << length;
  }
}

class RecordFileOnDiskTest : public ::testing::Test {
 protected:
  std::vector<std::string> names() {
    std::vector<std::string> found;
    GDir* dir = g_dir_open(temp_.path().c_str(), 0, nullptr);
    while (const char* name = g_dir_read_name(dir))
      found.push_back(name);
    g_dir_close(dir);
    return found;
  }

  std::string bytesOf(const std::string& path) {
    g_autofree char* bytes = nullptr;
    gsize size = 0;
    EXPECT_TRUE(g_file_get_contents(path.c_str(), &bytes, &size, nullptr));
    return std::string(bytes ? bytes : "", size);
  }

  morvik_test::TempDir temp_;
  const std::string path_ = temp_.path() + "/backup.dat";
};

// Absent and empty fields stay apart; the outline sees each value by its size and sum.
TEST_F(RecordFileOnDiskTest, RoundTripInBothReadersAndAWholeReplacement) {
  std::string reason;
  ASSERT_TRUE(host::writeRecordFile(path_, kRecords, reason)) << reason;
  std::vector<CloudRecord> back;
  ASSERT_TRUE(host::readRecordFile(path_, back, reason)) << reason;
  EXPECT_EQ(back, kRecords);
  std::vector<host::RecordOutline> outline;
  ASSERT_TRUE(host::outlineRecordFile(path_, outline, reason)) << reason;
  ASSERT_EQ(outline.size(), 3u);
  EXPECT_EQ(outline[1].key, kRecords[1].key);
  EXPECT_EQ(outline[1].valueBytes, std::optional<size_t>(kRecords[1].value->size()));
  EXPECT_EQ(outline[1].valueCrc, host::valueCrc(*kRecords[1].value));
  EXPECT_FALSE(outline[2].valueBytes);
  // Replaced whole, by a rename that leaves no temporary behind.
  ASSERT_TRUE(host::writeRecordFile(path_, std::vector<CloudRecord>{}, reason)) << reason;
  ASSERT_TRUE(host::readRecordFile(path_, back, reason)) << reason;
  EXPECT_TRUE(back.empty());
  EXPECT_EQ(names(), std::vector<std::string>{"backup.dat"});
}

// Both readers refuse each damaged file as corrupt, for the same reason, leaving the caller's
// records alone. "Sealed" damage gets a fresh checksum, so that only the damage itself is seen.
TEST_F(RecordFileOnDiskTest, DamagedFilesAreRefusedAsCorruptByBothReaders) {
  std::string reason;
  ASSERT_TRUE(host::writeRecordFile(path_, kRecords, reason)) << reason;
  const std::string good = bytesOf(path_);
  ASSERT_TRUE(host::writeRecordFile(
      path_, {{std::string("key"), std::string("1"), std::string("v")}}, reason))
      << reason;
  const std::string one = bytesOf(path_);
  struct Case {
    const char* what;
    std::string bytes;
    const char* says;
    bool seal;
  };
  auto at = [](std::string bytes, size_t offset, uint32_t value) {
    putU32(bytes, offset, value);
    return bytes;
  };
  auto flipped = [](std::string bytes, size_t offset) {
    bytes[offset] = static_cast<char>(bytes[offset] ^ 0x10);
    return bytes;
  };
  const std::vector<Case> cases = {
      {"empty", "", "", false},
      {"cut in a field", good.substr(0, good.size() / 2), "", false},
      {"no checksum", good.substr(0, good.size() - 4), "", false},
      {"a byte too many", good + '\0', "", false},
      {"flipped count", flipped(good, 8), "", false},
      {"flipped value", flipped(good, good.size() - 10), "", false},
      {"flipped checksum", flipped(good, good.size() - 1), "", false},
      {"magic", flipped(one, 0), "magic", true},
      {"version", at(one, 4, 2), "version 2", true},
      {"record count", at(one, 8, 0xFFFFFFF0u), "records", true},
      {"stray bytes", at(one, 8, 0), "stray", true},
      {"absurd field length", at(one, 12, 0x7FFFFFFFu), "needs 2147483647 bytes", true},
      {"field past the end", at(one, 12, 4), "", true},
      {"NUL in a field", at(one, 16, 0), "NUL", true},
  };
  for (Case c : cases) {
    SCOPED_TRACE(c.what);
    if (c.seal)
      putU32(c.bytes, c.bytes.size() - 4, bitwiseCrc(c.bytes.data(), c.bytes.size() - 4));
    ASSERT_TRUE(g_file_set_contents(path_.c_str(), c.bytes.data(),
                                    static_cast<gssize>(c.bytes.size()), nullptr));
    std::vector<CloudRecord> records = {CloudRecord{}};
    std::vector<host::RecordOutline> outline;
    std::string why, outlineWhy;
    bool corrupt = false, outlineCorrupt = false;
    EXPECT_FALSE(host::readRecordFile(path_, records, why, &corrupt));
    EXPECT_FALSE(host::outlineRecordFile(path_, outline, outlineWhy, &outlineCorrupt));
    EXPECT_TRUE(corrupt && outlineCorrupt);
    EXPECT_EQ(why, outlineWhy);
    EXPECT_EQ(why.rfind(path_ + ": ", 0), 0u) << why;
    EXPECT_NE(why.find(c.says), std::string::npos) << why;
    EXPECT_EQ(records.size(), 1u);
    EXPECT_TRUE(outline.empty());
  }
}

// What is no regular file is unreadable, not corrupt (a FIFO refused at once, not waited on);
// a write that fails leaves nothing behind.
TEST_F(RecordFileOnDiskTest, RefusalsLeaveNothingBehind) {
  std::vector<CloudRecord> back;
  std::string reason;
  bool corrupt = true;
  EXPECT_FALSE(host::readRecordFile(temp_.path(), back, reason, &corrupt));
  EXPECT_FALSE(corrupt);
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_FALSE(host::readRecordFile(path_, back, reason, &corrupt));
  EXPECT_FALSE(corrupt);
  EXPECT_FALSE(host::shareRecordFile(path_, temp_.path() + "/to.dat", reason));
  g_unlink(path_.c_str());
  EXPECT_FALSE(
      host::writeRecordFile(path_, {{std::string("a\0b", 3), std::nullopt, std::nullopt}}, reason));
  EXPECT_NE(reason.find("NUL"), std::string::npos) << reason;
  EXPECT_TRUE(names().empty());
  ASSERT_EQ(g_mkdir(path_.c_str(), 0755), 0);
  EXPECT_FALSE(host::writeRecordFile(path_, kRecords, reason));
  EXPECT_NE(reason.find("rename"), std::string::npos) << reason;
  EXPECT_FALSE(host::writeRecordFile(temp_.path() + "/absent/backup.dat", kRecords, reason));
  EXPECT_EQ(names(), std::vector<std::string>{"backup.dat"});
}

// The C API over lists, records and files.
class CloudLibraryTest : public RecordFileOnDiskTest {
 protected:
  void SetUp() override { host::cloud::reset(); }
  void TearDown() override { host::cloud::reset(); }
};

// A list read from a file and sent back knows its values' sums as read, whatever was set since;
// lists read from files are freed at the last deinitialize.
TEST_F(CloudLibraryTest, ListsFromFilesKeepTheirSumsAndAreFreedAtTheLastDeinitialize) {
  std::string reason;
  ASSERT_TRUE(host::writeRecordFile(path_, kRecords, reason)) << reason;
  ASSERT_EQ(talvoro_cloud_initialize(), TALVORO_CLOUD_ERROR_NONE);
  ASSERT_EQ(talvoro_cloud_initialize(), TALVORO_CLOUD_ERROR_NONE);
  talvoro_cloud_list_h kept = nullptr;
  talvoro_cloud_list_h sent = nullptr;
  ASSERT_EQ(talvoro_cloud_file_create_record_list(path_.c_str(), &kept), TALVORO_CLOUD_ERROR_NONE);
  ASSERT_EQ(talvoro_cloud_file_create_record_list(path_.c_str(), &sent), TALVORO_CLOUD_ERROR_NONE);
  talvoro_cloud_record_h changed = nullptr;
  ASSERT_EQ(talvoro_cloud_list_move_to_first(sent), TALVORO_CLOUD_ERROR_NONE);
  ASSERT_EQ(talvoro_cloud_list_get_current_record(sent, &changed), TALVORO_CLOUD_ERROR_NONE);
  ASSERT_EQ(talvoro_cloud_record_set_value(changed, "changed"), TALVORO_CLOUD_ERROR_NONE);
  EXPECT_EQ(talvoro_cloud_restore_record_send_record_list(sent, true), TALVORO_CLOUD_ERROR_NONE);
  const host::cloud::Answer& answer = host::cloud::answers().back();
  ASSERT_EQ(answer.valueCrcs.size(), 3u);
  EXPECT_EQ(answer.valueCrcs[0], std::nullopt);
  EXPECT_EQ(answer.valueCrcs[1], host::valueCrc(*kRecords[1].value));
  EXPECT_EQ(host::cloud::liveLists(), 1);
  EXPECT_EQ(talvoro_cloud_deinitialize(), TALVORO_CLOUD_ERROR_NONE);
  EXPECT_EQ(host::cloud::liveLists(), 1);
  EXPECT_EQ(talvoro_cloud_deinitialize(), TALVORO_CLOUD_ERROR_NONE);
  EXPECT_EQ(host::cloud::liveLists(), 0);
  EXPECT_EQ(host::cloud::liveRecords(), 0);
  // Not initialised: the exchange refuses, and still takes the list it was given.
  talvoro_cloud_list_h late = nullptr;
  ASSERT_EQ(talvoro_cloud_list_create(&late), TALVORO_CLOUD_ERROR_NONE);
  EXPECT_EQ(talvoro_cloud_restore_record_send_record_list(late, true),
            TALVORO_CLOUD_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(host::cloud::liveLists(), 0);
  EXPECT_EQ(host::cloud::answers().size(), 1u);
}

}  // namespace
