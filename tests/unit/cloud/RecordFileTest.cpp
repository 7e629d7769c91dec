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

// Recomputes the trailing checksum, so that only the damage under test remains.
void reseal(std::string& bytes) {
  putU32(bytes, bytes.size() - 4, bitwiseCrc(bytes.data(), bytes.size() - 4));
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

// Every test goes through real files and the one reader the library and the cloud use.
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

  std::string encoded(const std::vector<CloudRecord>& records) {
    std::string reason;
    EXPECT_TRUE(host::writeRecordFile(path_, records, reason)) << reason;
    return bytesOf(path_);
  }

  // Puts `bytes` in the file; both readers must refuse it as damaged, for the same reason,
  // leaving the caller's records alone.
  bool refused(const std::string& bytes, std::string* reason = nullptr) {
    EXPECT_TRUE(g_file_set_contents(path_.c_str(), bytes.data(), static_cast<gssize>(bytes.size()),
                                    nullptr));
    std::vector<CloudRecord> records = {CloudRecord{}};
    std::vector<host::RecordOutline> outline;
    std::string why, outlineWhy;
    bool corrupt = false, outlineCorrupt = false;
    const bool read = host::readRecordFile(path_, records, why, &corrupt);
    const bool outlined = host::outlineRecordFile(path_, outline, outlineWhy, &outlineCorrupt);
    EXPECT_EQ(why, outlineWhy);
    if (reason)
      *reason = why;
    return !read && !outlined && corrupt && outlineCorrupt && records.size() == 1 &&
           outline.empty() && why.rfind(path_ + ": ", 0) == 0;
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
        EXPECT_NE(outline[i].valueCrc, host::valueCrc(*records[i].value + "x"));
      }
    }
  }
}

TEST_F(RecordFileOnDiskTest, RefusesEveryTruncationAndEveryFlippedBit) {
  const std::string good = encoded(kRecords);
  for (size_t size = 0; size < good.size(); ++size)
    EXPECT_TRUE(refused(good.substr(0, size))) << "cut to " << size;
  for (size_t at = 0; at < good.size(); ++at) {
    for (int bit = 0; bit < 8; ++bit) {
      std::string damaged = good;
      damaged[at] = static_cast<char>(damaged[at] ^ (1 << bit));
      EXPECT_TRUE(refused(damaged)) << "byte " << at << " bit " << bit;
    }
  }
  EXPECT_TRUE(refused(good + '\0'));
}

TEST_F(RecordFileOnDiskTest, RefusesWellSealedNonsense) {
  const std::string good = encoded({{std::string("key"), std::string("1"), std::string("v")}});
  struct Case {
    const char* what;
    std::string bytes;
    const char* reason;
  };
  std::vector<Case> cases;
  std::string bytes = good;
  bytes[0] = 'X';
  cases.push_back({"magic", bytes, "magic"});
  bytes = good;
  putU32(bytes, 4, 2);
  cases.push_back({"version", bytes, "version 2"});
  bytes = good;
  putU32(bytes, 8, 0xFFFFFFF0u);
  cases.push_back({"record count", bytes, "records"});
  bytes = good;
  putU32(bytes, 8, 0);
  cases.push_back({"stray bytes", bytes, "stray"});
  bytes = good;
  putU32(bytes, 12, 0x7FFFFFFFu);
  cases.push_back({"absurd field length", bytes, "needs 2147483647 bytes"});
  bytes = good;
  putU32(bytes, 12, 4);
  cases.push_back({"field past the end", bytes, ""});
  bytes = good;
  bytes[16] = '\0';
  cases.push_back({"NUL in a field", bytes, "NUL"});
  for (Case& c : cases) {
    SCOPED_TRACE(c.what);
    reseal(c.bytes);
    std::string reason;
    EXPECT_TRUE(refused(c.bytes, &reason));
    EXPECT_NE(reason.find(c.reason), std::string::npos) << reason;
  }
}

TEST_F(RecordFileOnDiskTest, WriteRefusesANulBeforeWritingAnything) {
  std::string reason;
  EXPECT_FALSE(
      host::writeRecordFile(path_, {{std::string("a\0b", 3), std::nullopt, std::nullopt}}, reason));
  EXPECT_NE(reason.find("NUL"), std::string::npos) << reason;
  EXPECT_TRUE(names().empty());
}

TEST_F(RecordFileOnDiskTest, WriteReplacesTheWholeFileAndLeavesNoTemporary) {
  std::string reason;
  ASSERT_TRUE(host::writeRecordFile(path_, kRecords, reason)) << reason;
  ASSERT_TRUE(host::writeRecordFile(path_, {kRecords[2]}, reason)) << reason;
  std::vector<CloudRecord> back;
  ASSERT_TRUE(host::readRecordFile(path_, back, reason)) << reason;
  EXPECT_EQ(back, std::vector<CloudRecord>{kRecords[2]});
  EXPECT_EQ(names(), std::vector<std::string>{"backup.dat"});

  // A write that cannot be put in place leaves no temporary behind.
  const std::string blocked = temp_.path() + "/blocked.dat";
  ASSERT_EQ(g_mkdir(blocked.c_str(), 0755), 0);
  EXPECT_FALSE(host::writeRecordFile(blocked, kRecords, reason));
  EXPECT_NE(reason.find("rename"), std::string::npos) << reason;
  EXPECT_EQ(names().size(), 2u);
  g_rmdir(blocked.c_str());
  EXPECT_FALSE(host::writeRecordFile(temp_.path() + "/absent/backup.dat", kRecords, reason));
  EXPECT_FALSE(host::writeRecordFile("", kRecords, reason));
  EXPECT_EQ(names(), std::vector<std::string>{"backup.dat"});
}

// A document larger than the reader's chunk, the writer's buffer and the 64 MiB the format
// once allowed crosses all of them whole: the disk, not the format, bounds a document.
TEST_F(RecordFileOnDiskTest, LargeValuesRoundTripThroughTheFile) {
  std::string document((64u << 20) + 300 * 1024 + 7, '\0');
  for (size_t i = 0; i < document.size(); ++i)
    document[i] = static_cast<char>('A' + (i * 7919) % 53);
  const std::vector<CloudRecord> records = {{std::string("key"), std::string("1"), document},
                                            {std::nullopt, std::nullopt, std::string("v")}};
  std::string reason;
  ASSERT_TRUE(host::writeRecordFile(path_, records, reason)) << reason;
  std::vector<CloudRecord> back;
  ASSERT_TRUE(host::readRecordFile(path_, back, reason)) << reason;
  EXPECT_TRUE(back == records);
}

TEST_F(RecordFileOnDiskTest, ShareReplacesTheTargetWithTheSameBytesOrLeavesItAlone) {
  const std::string source = temp_.path() + "/set.dat";
  std::string reason;
  ASSERT_TRUE(host::writeRecordFile(source, kRecords, reason)) << reason;
  ASSERT_TRUE(host::writeRecordFile(path_, {kRecords[2]}, reason)) << reason;
  ASSERT_TRUE(host::shareRecordFile(source, path_, reason)) << reason;
  EXPECT_TRUE(bytesOf(path_) == bytesOf(source));
  // On one file system, by a link: then a source replaced later leaves the target as it was.
  struct stat sourceInfo, targetInfo;
  ASSERT_EQ(stat(source.c_str(), &sourceInfo), 0);
  ASSERT_EQ(stat(path_.c_str(), &targetInfo), 0);
  EXPECT_EQ(sourceInfo.st_ino, targetInfo.st_ino);
  // Shared again while the target is already that file: no temporary name is left behind.
  ASSERT_TRUE(host::shareRecordFile(source, path_, reason)) << reason;
  EXPECT_EQ(names().size(), 2u);
  const std::string shared = bytesOf(source);
  ASSERT_TRUE(host::writeRecordFile(source, {kRecords[2]}, reason)) << reason;
  EXPECT_TRUE(bytesOf(path_) == shared);

  // A source that is no regular file is refused at once and the target stays as it was.
  const std::string fifo = temp_.path() + "/fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_FALSE(host::shareRecordFile(fifo, path_, reason));
  EXPECT_FALSE(host::shareRecordFile(temp_.path() + "/absent", path_, reason));
  EXPECT_FALSE(reason.empty());
  std::vector<CloudRecord> back;
  ASSERT_TRUE(host::readRecordFile(path_, back, reason)) << reason;
  EXPECT_EQ(back, kRecords);
  g_unlink(fifo.c_str());
  g_unlink(source.c_str());
  EXPECT_EQ(names(), std::vector<std::string>{"backup.dat"});
}

TEST_F(RecordFileOnDiskTest, ReadRefusesWhatIsNoRegularRecordFile) {
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
  g_unlink(path_.c_str());
  ASSERT_TRUE(g_file_set_contents(path_.c_str(), "TVRF", 4, nullptr));
  EXPECT_FALSE(host::readRecordFile(path_, back, reason, &corrupt));
  EXPECT_TRUE(corrupt);
  EXPECT_NE(reason.find(path_), std::string::npos) << reason;
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
  int count = 0;
  ASSERT_EQ(talvoro_cloud_list_get_record_count(list, &count), TALVORO_CLOUD_ERROR_NONE);
  EXPECT_EQ(count, 2);

  // The cursor walks each record once, then stands past the end.
  std::vector<std::string> keys;
  ASSERT_EQ(talvoro_cloud_list_move_to_first(list), TALVORO_CLOUD_ERROR_NONE);
  talvoro_cloud_record_h record = nullptr;
  while (talvoro_cloud_list_get_current_record(list, &record) == TALVORO_CLOUD_ERROR_NONE) {
    const char* key = nullptr;
    const char* value = "untouched";
    EXPECT_EQ(talvoro_cloud_record_get_key(record, &key), TALVORO_CLOUD_ERROR_NONE);
    EXPECT_EQ(talvoro_cloud_record_get_value(record, &value), TALVORO_CLOUD_ERROR_NONE);
    EXPECT_EQ(value, nullptr);
    keys.push_back(key);
    ASSERT_EQ(talvoro_cloud_list_move_to_next(list), TALVORO_CLOUD_ERROR_NONE);
  }
  EXPECT_EQ(keys, (std::vector<std::string>{"key0", "key1"}));
  EXPECT_EQ(talvoro_cloud_list_move_to_next(list), TALVORO_CLOUD_ERROR_NO_DATA);
  EXPECT_EQ(host::cloud::liveRecords(), 2);
  EXPECT_EQ(talvoro_cloud_list_destroy(list), TALVORO_CLOUD_ERROR_NONE);
  EXPECT_EQ(host::cloud::liveRecords(), 0);
  EXPECT_EQ(host::cloud::liveLists(), 0);
}

TEST_F(CloudLibraryTest, FilesRoundTripAndDamageIsReportedAsCorrupt) {
  talvoro_cloud_list_h list = nullptr;
  EXPECT_EQ(talvoro_cloud_file_create_record_list(path_.c_str(), &list),
            TALVORO_CLOUD_ERROR_IO_ERROR);
  EXPECT_EQ(list, nullptr);
  std::string reason;
  ASSERT_TRUE(host::writeRecordFile(path_, kRecords, reason)) << reason;
  ASSERT_EQ(talvoro_cloud_file_create_record_list(path_.c_str(), &list), TALVORO_CLOUD_ERROR_NONE);
  const std::string copy = path_ + ".copy";
  ASSERT_EQ(talvoro_cloud_file_create_file(list, copy.c_str()), TALVORO_CLOUD_ERROR_NONE);
  EXPECT_EQ(talvoro_cloud_file_create_file(list, ""), TALVORO_CLOUD_ERROR_INVALID_PARAMETER);
  std::vector<CloudRecord> back;
  ASSERT_TRUE(host::readRecordFile(copy, back, reason)) << reason;
  EXPECT_EQ(back, kRecords);

  g_autofree char* bytes = nullptr;
  gsize size = 0;
  ASSERT_TRUE(g_file_get_contents(path_.c_str(), &bytes, &size, nullptr));
  ASSERT_TRUE(g_file_set_contents(path_.c_str(), bytes, static_cast<gssize>(size - 1), nullptr));
  talvoro_cloud_list_h damaged = nullptr;
  EXPECT_EQ(talvoro_cloud_file_create_record_list(path_.c_str(), &damaged),
            TALVORO_CLOUD_ERROR_FILE_CORRUPT);
  EXPECT_EQ(damaged, nullptr);
  EXPECT_EQ(talvoro_cloud_list_destroy(list), TALVORO_CLOUD_ERROR_NONE);
}

TEST_F(CloudLibraryTest, ASentBackListKnowsTheSumsOfValuesAsReadOnly) {
  std::string reason;
  ASSERT_TRUE(host::writeRecordFile(path_, kRecords, reason)) << reason;
  ASSERT_EQ(talvoro_cloud_initialize(), TALVORO_CLOUD_ERROR_NONE);
  talvoro_cloud_list_h list = nullptr;
  ASSERT_EQ(talvoro_cloud_file_create_record_list(path_.c_str(), &list), TALVORO_CLOUD_ERROR_NONE);
  talvoro_cloud_record_h changed = nullptr;
  ASSERT_EQ(talvoro_cloud_list_move_to_first(list), TALVORO_CLOUD_ERROR_NONE);
  ASSERT_EQ(talvoro_cloud_list_get_current_record(list, &changed), TALVORO_CLOUD_ERROR_NONE);
  ASSERT_EQ(talvoro_cloud_record_set_value(changed, "changed"), TALVORO_CLOUD_ERROR_NONE);
  EXPECT_EQ(talvoro_cloud_restore_record_send_record_list(list, true), TALVORO_CLOUD_ERROR_NONE);
  const host::cloud::Answer& answer = host::cloud::answers().back();
  ASSERT_EQ(answer.valueCrcs.size(), kRecords.size());
  EXPECT_EQ(answer.valueCrcs[0], std::nullopt);
  for (size_t i = 1; i < kRecords.size(); ++i) {
    if (kRecords[i].value) {
      EXPECT_EQ(answer.valueCrcs[i], host::valueCrc(*kRecords[i].value)) << i;
    }
  }
  EXPECT_EQ(talvoro_cloud_deinitialize(), TALVORO_CLOUD_ERROR_NONE);
}

TEST_F(CloudLibraryTest, ListsReadFromFilesAreFreedAtTheLastDeinitialize) {
  std::string reason;
  ASSERT_TRUE(host::writeRecordFile(path_, kRecords, reason)) << reason;
  ASSERT_EQ(talvoro_cloud_initialize(), TALVORO_CLOUD_ERROR_NONE);
  ASSERT_EQ(talvoro_cloud_initialize(), TALVORO_CLOUD_ERROR_NONE);
  talvoro_cloud_list_h kept = nullptr;
  talvoro_cloud_list_h sent = nullptr;
  ASSERT_EQ(talvoro_cloud_file_create_record_list(path_.c_str(), &kept), TALVORO_CLOUD_ERROR_NONE);
  ASSERT_EQ(talvoro_cloud_file_create_record_list(path_.c_str(), &sent), TALVORO_CLOUD_ERROR_NONE);
  EXPECT_EQ(talvoro_cloud_restore_record_send_record_list(sent, true), TALVORO_CLOUD_ERROR_NONE);
  EXPECT_EQ(host::cloud::liveLists(), 1);
  EXPECT_EQ(talvoro_cloud_deinitialize(), TALVORO_CLOUD_ERROR_NONE);
  EXPECT_EQ(host::cloud::liveLists(), 1);
  EXPECT_EQ(talvoro_cloud_deinitialize(), TALVORO_CLOUD_ERROR_NONE);
  EXPECT_EQ(host::cloud::liveLists(), 0);
  EXPECT_EQ(host::cloud::liveRecords(), 0);
  EXPECT_EQ(talvoro_cloud_deinitialize(), TALVORO_CLOUD_ERROR_NOT_INITIALIZED);
  // Not initialised: the exchange refuses, and still takes the list it was given.
  talvoro_cloud_list_h late = nullptr;
  ASSERT_EQ(talvoro_cloud_list_create(&late), TALVORO_CLOUD_ERROR_NONE);
  EXPECT_EQ(talvoro_cloud_restore_record_send_record_list(late, true),
            TALVORO_CLOUD_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(host::cloud::liveLists(), 0);
  EXPECT_TRUE(host::cloud::answers().size() == 1 && host::cloud::answers()[0].records.size() == 3);
}

}  // namespace
