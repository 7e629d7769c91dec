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

TEST_F(RecordFileOnDiskTest, RoundTripKeepsAbsentAndEmptyFieldsApartInBothReaders) {
  std::string reason;
  for (const auto& records : {kRecords, std::vector<CloudRecord>{}}) {
    ASSERT_TRUE(host::writeRecordFile(path_, records, reason)) << reason;
    std::vector<CloudRecord> back;
    ASSERT_TRUE(host::readRecordFile(path_, back, reason)) << reason;
    EXPECT_EQ(back, records);
    std::vector<host::RecordOutline> outline;
    ASSERT_TRUE(host::outlineRecordFile(path_, outline, reason)) << reason;
    ASSERT_EQ(outline.size(), records.size());
    for (size_t i = 0; i < outline.size(); ++i) {
      EXPECT_EQ(outline[i].key, records[i].key);
      EXPECT_EQ(outline[i].date, records[i].date);
      ASSERT_EQ(outline[i].valueBytes.has_value(), records[i].value.has_value());
      if (records[i].value) {
        EXPECT_EQ(*outline[i].valueBytes, records[i].value->size());
        EXPECT_EQ(outline[i].valueCrc, host::valueCrc(*records[i].value));
      }
    }
  }
  // Replaced whole, by a rename that leaves no temporary behind.
  ASSERT_TRUE(host::writeRecordFile(path_, {kRecords[2]}, reason)) << reason;
  std::vector<CloudRecord> back;
  ASSERT_TRUE(host::readRecordFile(path_, back, reason)) << reason;
  EXPECT_EQ(back, std::vector<CloudRecord>{kRecords[2]});
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
      {"header only", good.substr(0, 12), "", false},
      {"cut in a field", good.substr(0, good.size() / 2), "", false},
      {"no checksum", good.substr(0, good.size() - 4), "", false},
      {"last byte missing", good.substr(0, good.size() - 1), "", false},
      {"a byte too many", good + '\0', "", false},
      {"flipped count", flipped(good, 8), "", false},
      {"flipped length", flipped(good, 12), "", false},
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

TEST_F(RecordFileOnDiskTest, WhatIsNoRegularFileIsRefusedAsUnreadableNotCorrupt) {
  std::vector<CloudRecord> back;
  std::string reason;
  bool corrupt = true;
  EXPECT_FALSE(host::readRecordFile(path_, back, reason, &corrupt));
  EXPECT_FALSE(corrupt);
  EXPECT_FALSE(host::readRecordFile(temp_.path(), back, reason, &corrupt));
  EXPECT_FALSE(corrupt);
  // A FIFO must be refused at once, not waited on.
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_FALSE(host::readRecordFile(path_, back, reason, &corrupt));
  EXPECT_FALSE(host::shareRecordFile(path_, temp_.path() + "/to.dat", reason));
  g_unlink(path_.c_str());
  EXPECT_TRUE(names().empty());
}

TEST_F(RecordFileOnDiskTest, AFailedWriteLeavesNothingBehind) {
  std::string reason;
  EXPECT_FALSE(
      host::writeRecordFile(path_, {{std::string("a\0b", 3), std::nullopt, std::nullopt}}, reason));
  EXPECT_NE(reason.find("NUL"), std::string::npos) << reason;
  EXPECT_TRUE(names().empty());
  // A write that cannot be put in place leaves no temporary behind.
  ASSERT_EQ(g_mkdir(path_.c_str(), 0755), 0);
  EXPECT_FALSE(host::writeRecordFile(path_, kRecords, reason));
  EXPECT_NE(reason.find("rename"), std::string::npos) << reason;
  EXPECT_EQ(names(), std::vector<std::string>{"backup.dat"});
  EXPECT_FALSE(host::writeRecordFile(temp_.path() + "/absent/backup.dat", kRecords, reason));
  EXPECT_EQ(names(), std::vector<std::string>{"backup.dat"});
}

TEST_F(RecordFileOnDiskTest, ShareGivesTheTargetTheSameBytesByALink) {
  const std::string source = temp_.path() + "/set.dat";
  std::string reason;
  ASSERT_TRUE(host::writeRecordFile(source, kRecords, reason)) << reason;
  ASSERT_TRUE(host::writeRecordFile(path_, {kRecords[2]}, reason)) << reason;
  ASSERT_TRUE(host::shareRecordFile(source, path_, reason)) << reason;
  struct stat sourceInfo, targetInfo;
  ASSERT_EQ(stat(source.c_str(), &sourceInfo), 0);
  ASSERT_EQ(stat(path_.c_str(), &targetInfo), 0);
  EXPECT_EQ(sourceInfo.st_ino, targetInfo.st_ino);
  // Shared again while the target is already that file: no temporary name is left behind.
  ASSERT_TRUE(host::shareRecordFile(source, path_, reason)) << reason;
  EXPECT_EQ(names().size(), 2u);
  // The source replaced later leaves the target as it was.
  ASSERT_TRUE(host::writeRecordFile(source, {kRecords[2]}, reason)) << reason;
  EXPECT_FALSE(host::shareRecordFile(temp_.path() + "/absent", path_, reason));
  std::vector<CloudRecord> back;
  ASSERT_TRUE(host::readRecordFile(path_, back, reason)) << reason;
  EXPECT_EQ(back, kRecords);
}

// The C API over lists, records and files.
class CloudLibraryTest : public RecordFileOnDiskTest {
 protected:
  void SetUp() override { host::cloud::reset(); }
  void TearDown() override { host::cloud::reset(); }
};

TEST_F(CloudLibraryTest, ListsOwnTheirRecordsAndRecordsCopyTheirStrings) {
  talvoro_cloud_list_h list = nullptr;
  ASSERT_EQ(talvoro_cloud_list_create(&list), TALVORO_CLOUD_ERROR_NONE);
  for (int i = 0; i < 2; ++i) {
    talvoro_cloud_record_h record = nullptr;
    ASSERT_EQ(talvoro_cloud_record_create(&record), TALVORO_CLOUD_ERROR_NONE);
    std::string key = "key" + std::to_string(i);
    ASSERT_EQ(talvoro_cloud_record_set_key(record, key.c_str()), TALVORO_CLOUD_ERROR_NONE);
    key = "changed";
    ASSERT_EQ(talvoro_cloud_list_add(list, record), TALVORO_CLOUD_ERROR_NONE);
    EXPECT_EQ(talvoro_cloud_list_add(list, record), TALVORO_CLOUD_ERROR_INVALID_STATE);
    EXPECT_EQ(talvoro_cloud_record_destroy(record), TALVORO_CLOUD_ERROR_INVALID_STATE);
  }
  // The cursor walks each record once, then stands past the end.
  std::vector<std::string> keys;
  ASSERT_EQ(talvoro_cloud_list_move_to_first(list), TALVORO_CLOUD_ERROR_NONE);
  talvoro_cloud_record_h record = nullptr;
  while (talvoro_cloud_list_get_current_record(list, &record) == TALVORO_CLOUD_ERROR_NONE) {
    const char* key = nullptr;
    EXPECT_EQ(talvoro_cloud_record_get_key(record, &key), TALVORO_CLOUD_ERROR_NONE);
    keys.push_back(key);
    ASSERT_EQ(talvoro_cloud_list_move_to_next(list), TALVORO_CLOUD_ERROR_NONE);
  }
  EXPECT_EQ(keys, (std::vector<std::string>{"key0", "key1"}));
  EXPECT_EQ(talvoro_cloud_list_move_to_next(list), TALVORO_CLOUD_ERROR_NO_DATA);
  EXPECT_EQ(host::cloud::liveRecords(), 2);
  EXPECT_EQ(talvoro_cloud_list_destroy(list), TALVORO_CLOUD_ERROR_NONE);
  EXPECT_EQ(host::cloud::liveRecords(), 0);
}

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
