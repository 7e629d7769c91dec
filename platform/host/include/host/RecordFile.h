#ifndef HOST_RECORD_FILE_H
#define HOST_RECORD_FILE_H

#include <cstdint>
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
// Reading refuses anything else: a short or over-long file, another magic or version, a bad
// checksum, a field holding a NUL byte or longer than the bytes left, more records than the
// bytes can carry. Fields are C strings on the API side, hence no NULs. The length word is the
// only limit on a field: the disk, not the format, bounds a document.
constexpr size_t kMaxFieldBytes = 0xFFFFFFFEu;

// Records that the caller keeps owning, for writing without a copy.
using RecordRefs = std::vector<const CloudRecord*>;
// Per record, its value's CRC-32 (as valueCrc gives it) where it is known.
using ValueCrcs = std::vector<std::optional<uint32_t>>;

// Replaces `path` whole (host/AtomicFile.h), so `path` is either the old file or the whole new
// one; the fields go from the records to the file without an encoded copy in memory. Nothing is
// synced to disk: the exchange files are read at once, and the emulated cloud stands for the
// vendor's servers, not for this disk. A file that a crash cut short fails its checksum and is
// refused, never read wrong. False with a one-line reason, before anything is written when a
// record cannot be carried. `valueCrcs` (when given) spares the values whose sums it holds a
// second pass: only for values known to hold no NUL byte, as copySummed and readRecordFile give.
bool writeRecordFile(const std::string& path,
                     const std::vector<CloudRecord>& records,
                     std::string& reason);
bool writeRecordFile(const std::string& path,
                     const RecordRefs& records,
                     std::string& reason,
                     const ValueCrcs* valueCrcs = nullptr);
// Writes the records into `fd`, an empty file open for writing; false with a one-line reason,
// before anything is written when a record cannot be carried.
bool writeRecords(int fd, const RecordRefs& records, std::string& reason);

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
// Copies the C string `text` into `value` and returns its CRC-32 as valueCrc gives it, summed
// during the copy rather than in a pass of its own.
uint32_t copySummed(const char* text, std::optional<std::string>& value);

// Gives `to` the bytes of the regular file `from` (host::replaceWithLinkOrCopy): a hard link is
// safe because record files are only ever replaced by a rename, never rewritten in place, so
// neither name can change the other's bytes. For a file its caller has just read: the bytes are
// not checked again. False with a one-line reason.
bool shareRecordFile(const std::string& from, const std::string& to, std::string& reason);
// Reads a regular record file, refusing what the format above refuses, with the fields read
// straight into the records. False with a one-line reason; then `*corrupt` (when given) tells a
// damaged file from one that could not be read at all. `valueCrcs` (when given) receives each
// value's CRC-32 as valueCrc gives it, from the same pass.
bool readRecordFile(const std::string& path,
                    std::vector<CloudRecord>& records,
                    std::string& reason,
                    bool* corrupt = nullptr,
                    std::vector<uint32_t>* valueCrcs = nullptr);

// "<name>.dat.XXXXXX": what writeRecordFile leaves beside its target if its writer dies.
bool isRecordFileTempName(const char* name);

}  // namespace host

#endif
