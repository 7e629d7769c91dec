#ifndef HOST_RECORD_FILE_H
#define HOST_RECORD_FILE_H

#include <optional>
#include <string>
#include <vector>

namespace host {

// One cloud record as plain data. A field that was never set is absent, not empty.
struct CloudRecord {
  std::optional<std::string> key;
  std::optional<std::string> date;
  std::optional<std::string> value;

  bool operator==(const CloudRecord& other) const {
    return key == other.key && date == other.date && value == other.value;
  }
};

// The record file, little-endian throughout:
//   "TVRF"  u32 version (1)  u32 record count
//   per record, key, date and value: u32 length (0xFFFFFFFF: absent) then that many bytes
//   u32 CRC-32 (IEEE) of everything before it
// Decoding refuses anything else: a short or over-long file, another magic or version, a bad
// checksum, a field longer than kMaxFieldBytes or holding a NUL byte, more records than the
// bytes can carry. Fields are C strings on the API side, hence no NULs.
constexpr size_t kMaxFieldBytes = 64u << 20;
constexpr size_t kMaxRecordFileBytes = 128u << 20;

// False with a one-line reason when a field holds a NUL or exceeds kMaxFieldBytes.
bool encodeRecordFile(const std::vector<CloudRecord>& records,
                      std::string& bytes,
                      std::string& reason);
bool decodeRecordFile(const std::string& bytes,
                      std::vector<CloudRecord>& records,
                      std::string& reason);

// Records that the caller keeps owning, for writing without a copy.
using RecordRefs = std::vector<const CloudRecord*>;

// Writes a temporary file beside `path` and renames it over `path`, so `path` is either the old
// file or the whole new one; the fields go from the records to the file without an encoded
// copy in memory. Nothing is synced to disk: the exchange files are read at once, and the
// emulated cloud stands for the vendor's servers, not for this disk. A file that a crash cut
// short fails its checksum and is refused, never read wrong. False with a one-line reason, before
// anything is written when a record cannot be carried.
bool writeRecordFile(const std::string& path,
                     const std::vector<CloudRecord>& records,
                     std::string& reason);
bool writeRecordFile(const std::string& path, const RecordRefs& records, std::string& reason);
// A record as a reader that passes the file on sees it: the value only by its size (absent:
// no value) and CRC-32.
struct RecordOutline {
  std::optional<std::string> key;
  std::optional<std::string> date;
  std::optional<size_t> valueBytes;
  uint32_t valueCrc = 0;
};

// Checks a record file as readRecordFile does, with the same refusals, without keeping the
// values in memory.
bool outlineRecordFile(const std::string& path,
                       std::vector<RecordOutline>& outline,
                       std::string& reason,
                       bool* corrupt = nullptr);
// The CRC-32 an outline gives for `value`.
uint32_t valueCrc(const std::string& value);

// Copies the file `from` to `to` byte for byte, replacing `to` as writeRecordFile does. For a
// file its caller has just read: the bytes are not checked again. False with a one-line reason.
bool copyRecordFile(const std::string& from, const std::string& to, std::string& reason);
// Reads a regular file of at most kMaxRecordFileBytes, refusing what decodeRecordFile refuses,
// with the fields read straight into the records. False with a one-line reason; then
// `*corrupt` (when given) tells a damaged file from one that could not be read at all.
bool readRecordFile(const std::string& path,
                    std::vector<CloudRecord>& records,
                    std::string& reason,
                    bool* corrupt = nullptr);

}  // namespace host

#endif
