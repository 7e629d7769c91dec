#include <glib.h>
#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "TempDir.h"
#include "host/RecordFile.h"

namespace {

using host::CloudRecord;

const std::vector<CloudRecord> kRecords = {
    {std::string("key"), std::string("1732300000123"), std::string("{\"watch_main_key\":\"x\"}")},
    {std::string(""), std::nullopt, std::string("caf\xc3\xa9")},
    {std::nullopt, std::string("1"), std::nullopt},
};

std::string with(std::string bytes, size_t at, uint32_t value) {
  for (int i = 0; i < 4; ++i)
    bytes[at + i] = static_cast<char>((value >> (8 * i)) & 0xFF);
  return bytes;
}

std::string flipped(std::string bytes, size_t at) {
  bytes[at] = static_cast<char>(bytes[at] ^ 0x10);
  return bytes;
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

// With a fresh checksum, so that only the damage itself is seen.
std::string sealed(const std::string& bytes) {
  return with(bytes, bytes.size() - 4, bitwiseCrc(bytes.data(), bytes.size() - 4));
}

// The library sums wide blocks where the processor can, and a copy sums in steps: every length
// around their edges, each summed as the format defines and copied whole.
TEST(RecordFileSumTest, EveryLengthSumsAsTheFormatDefines) {
  std::string bytes(600001, '\0');
  for (size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<char>(((i * 2654435761u) >> 13) | 1);
  for (size_t length :
       {0, 1, 15, 16, 17, 63, 64, 65, 127, 128, 129, 1000, 65536, 262143, 262144, 262145, 600001}) {
    const std::string part = bytes.substr(bytes.size() - length);
    const uint32_t expected = bitwiseCrc(part.data(), part.size());
    EXPECT_EQ(host::valueCrc(part), expected) << length;
    std::optional<std::string> copy;
    EXPECT_EQ(host::copySummed(part.c_str(), copy), expected) << length;
    EXPECT_EQ(copy, part) << length;
  }
}

class RecordFileOnDiskTest : public ::testing::Test {
 protected:
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
  EXPECT_TRUE(outline[1].key == kRecords[1].key &&
              outline[1].valueBytes == kRecords[1].value->size() &&
              outline[1].valueCrc == host::valueCrc(*kRecords[1].value) && !outline[2].valueBytes);
  // Replaced whole, by a rename that leaves no temporary behind.
  ASSERT_TRUE(host::writeRecordFile(path_, std::vector<CloudRecord>{}, reason)) << reason;
  ASSERT_TRUE(host::readRecordFile(path_, back, reason)) << reason;
  EXPECT_TRUE(back.empty());
  EXPECT_EQ(temp_.names(), std::vector<std::string>{"backup.dat"});
}

// A value whose sum the writer is given is not summed again: the file is the same byte for byte.
// A wrong sum seals a file its readers refuse.
TEST_F(RecordFileOnDiskTest, GivenSumsWriteTheSameFile) {
  std::string reason;
  ASSERT_TRUE(host::writeRecordFile(path_, kRecords, reason)) << reason;
  const std::string plain = bytesOf(path_);
  host::RecordRefs refs;
  host::ValueCrcs sums;
  for (const CloudRecord& record : kRecords) {
    refs.push_back(&record);
    sums.push_back(record.value ? std::optional<uint32_t>(host::valueCrc(*record.value))
                                : std::nullopt);
  }
  ASSERT_TRUE(host::writeRecordFile(path_, refs, reason, &sums)) << reason;
  EXPECT_EQ(bytesOf(path_), plain);
  sums[0] = *sums[0] ^ 1;
  ASSERT_TRUE(host::writeRecordFile(path_, refs, reason, &sums)) << reason;
  std::vector<CloudRecord> back;
  bool corrupt = false;
  EXPECT_FALSE(host::readRecordFile(path_, back, reason, &corrupt));
  EXPECT_TRUE(corrupt);
}

// Both readers refuse each damaged file as corrupt, for the same reason, leaving the caller's
// records alone: cuts, a byte too many, flipped bits, then well-sealed nonsense.
TEST_F(RecordFileOnDiskTest, DamagedFilesAreRefusedAsCorruptByBothReaders) {
  std::string reason;
  ASSERT_TRUE(host::writeRecordFile(path_, kRecords, reason)) << reason;
  const std::string good = bytesOf(path_);
  ASSERT_TRUE(host::writeRecordFile(
      path_, {{std::string("key"), std::string("1"), std::string("v")}}, reason))
      << reason;
  const std::string one = bytesOf(path_);
  const std::pair<std::string, const char*> cases[] = {
      {"", ""},
      {good.substr(0, good.size() / 2), ""},
      {good.substr(0, good.size() - 4), ""},
      {good + '\0', ""},
      {flipped(good, 8), ""},
      {flipped(good, good.size() - 10), ""},
      {flipped(good, good.size() - 1), ""},
      {sealed(flipped(one, 0)), "magic"},
      {sealed(with(one, 4, 2)), "version 2"},
      {sealed(with(one, 8, 0xFFFFFFF0u)), "records"},
      {sealed(with(one, 8, 0)), "stray"},
      {sealed(with(one, 12, 0x7FFFFFFFu)), "needs 2147483647 bytes"},
      {sealed(with(one, 12, 4)), ""},
      {sealed(with(one, 16, 0)), "NUL"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "case " << &c - cases);
    ASSERT_TRUE(g_file_set_contents(path_.c_str(), c.first.data(),
                                    static_cast<gssize>(c.first.size()), nullptr));
    std::vector<CloudRecord> records = {CloudRecord{}};
    std::vector<host::RecordOutline> outline;
    std::string why, outlineWhy;
    bool corrupt = false, outlineCorrupt = false;
    EXPECT_FALSE(host::readRecordFile(path_, records, why, &corrupt));
    EXPECT_FALSE(host::outlineRecordFile(path_, outline, outlineWhy, &outlineCorrupt));
    EXPECT_TRUE(corrupt && outlineCorrupt);
    EXPECT_EQ(why, outlineWhy);
    EXPECT_EQ(why.rfind(path_ + ": ", 0), 0u) << why;
    EXPECT_NE(why.find(c.second), std::string::npos) << why;
    EXPECT_EQ(records.size(), 1u);
    EXPECT_TRUE(outline.empty());
  }
}

// A FIFO is refused at once, not waited on; a write that fails leaves nothing behind.
TEST_F(RecordFileOnDiskTest, RefusalsLeaveNothingBehind) {
  std::vector<CloudRecord> back;
  std::string reason;
  bool corrupt = true;
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_FALSE(host::readRecordFile(path_, back, reason, &corrupt));
  EXPECT_FALSE(corrupt);
  g_unlink(path_.c_str());
  EXPECT_FALSE(
      host::writeRecordFile(path_, {{std::string("a\0b", 3), std::nullopt, std::nullopt}}, reason));
  EXPECT_NE(reason.find("NUL"), std::string::npos) << reason;
  EXPECT_TRUE(temp_.names().empty());
  ASSERT_EQ(g_mkdir(path_.c_str(), 0755), 0);
  EXPECT_FALSE(host::writeRecordFile(path_, kRecords, reason));
  EXPECT_NE(reason.find("rename"), std::string::npos) << reason;
  EXPECT_EQ(temp_.names(), std::vector<std::string>{"backup.dat"});
}

}  // namespace
