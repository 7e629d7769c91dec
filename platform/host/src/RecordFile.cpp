#include "host/RecordFile.h"

#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <isa-l/crc.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "MvHandles.h"
#include "host/AtomicFile.h"

namespace host {

namespace {

const char kMagic[4] = {'T', 'V', 'R', 'F'};
const uint32_t kVersion = 1;
const uint32_t kAbsent = 0xFFFFFFFFu;
const size_t kHeaderBytes = 12;
const size_t kChecksumBytes = 4;
// Three length words: the least a record can take.
const size_t kMinRecordBytes = 12;
const size_t kChunkBytes = 64 * 1024;
// A field is summed and copied this much at a time, so that the sum reads bytes the copy has
// just brought into the cache, not megabytes that have left it.
const size_t kSumStepBytes = 4 * kChunkBytes;

// CRC-32 (IEEE) as zlib's crc32() gives it. Documents are megabytes and each copy of one is
// summed: ISA-L sums several times faster than zlib where the processor multiplies without
// carries; zlib joins two sums without their bytes.
class Crc32 {
 public:
  void update(const char* data, size_t size) {
    crc_ = crc32_gzip_refl(crc_, reinterpret_cast<const unsigned char*>(data), size);
  }
  // As if the `size` bytes whose own CRC is `sum` were passed to update().
  void append(uint32_t sum, size_t size) {
    crc_ = static_cast<uint32_t>(crc32_combine(crc_, sum, static_cast<z_off_t>(size)));
  }
  uint32_t value() const { return crc_; }

 private:
  uint32_t crc_ = 0;
};

// Faults the pages of a fresh buffer of megabytes in with one call before it is first written:
// the kernel then takes them in one pass, about a third cheaper here than one exception per
// page. A kernel before 5.14 refuses the call, and nothing changes.
void prefault(char* buffer, size_t size) {
  const uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  const uintptr_t begin = (reinterpret_cast<uintptr_t>(buffer) + page - 1) & ~(page - 1);
  const uintptr_t end = (reinterpret_cast<uintptr_t>(buffer) + size) & ~(page - 1);
  if (begin < end)
    madvise(reinterpret_cast<void*>(begin), end - begin, MADV_POPULATE_WRITE);
}

// A string with room for `size` bytes, its pages already faulted in.
std::string prefaultedString(size_t size) {
  std::string room;
  room.reserve(size);
  prefault(&room[0], size);
  return room;
}

uint32_t getU32(const char* in) {
  uint32_t value = 0;
  for (int i = 3; i >= 0; --i)
    value = (value << 8) | static_cast<unsigned char>(in[i]);
  return value;
}

std::array<char, 4> u32Bytes(uint32_t value) {
  std::array<char, 4> bytes;
  for (int i = 0; i < 4; ++i)
    bytes[i] = static_cast<char>((value >> (8 * i)) & 0xFF);
  return bytes;
}

// Where an encoded record file goes; each byte passes through the checksum on the way.
class Sink {
 public:
  virtual ~Sink() = default;
  bool put(const char* data, size_t size) {
    while (size > 0) {
      const size_t step = std::min(size, kSumStepBytes);
      crc_.update(data, step);
      if (!write(data, step))
        return false;
      data += step;
      size -= step;
    }
    return true;
  }
  // Bytes whose CRC-32 the caller already has: written without a second pass over them.
  bool putSummed(const char* data, size_t size, uint32_t sum) {
    crc_.append(sum, size);
    return write(data, size);
  }
  bool putU32(uint32_t value) { return put(u32Bytes(value).data(), 4); }
  bool seal() { return write(u32Bytes(crc_.value()).data(), 4); }

 private:
  virtual bool write(const char* data, size_t size) = 0;
  Crc32 crc_;
};

// Gathers small writes; a field's bytes go to the file straight from the record.
class FileSink : public Sink {
 public:
  explicit FileSink(int fd) : fd_(fd) {}
  bool flush() {
    const bool written = writeAll(fd_, buffer_.data(), buffer_.size());
    buffer_.clear();
    return written;
  }

 private:
  bool write(const char* data, size_t size) override {
    if (buffer_.size() + size <= kChunkBytes) {
      buffer_.append(data, size);
      return true;
    }
    return flush() && writeAll(fd_, data, size);
  }
  int fd_;  // the caller's
  std::string buffer_;
};

// Where a record file's bytes come from, after the header.
class Source {
 public:
  virtual ~Source() = default;
  // Exactly `size` bytes, or false.
  virtual bool read(char* into, size_t size) = 0;
  // The same, with the bytes added to `sum` too.
  virtual bool readSummed(char* into, size_t size, Crc32& sum) {
    if (!read(into, size))
      return false;
    sum.update(into, size);
    return true;
  }
};

class FileSource : public Source {
 public:
  explicit FileSource(int fd) : fd_(fd) {}
  bool read(char* into, size_t size) override {
    while (size > 0) {
      const ssize_t got = ::read(fd_, into, size);
      if (got < 0 && errno == EINTR)
        continue;
      if (got <= 0)
        return false;
      into += got;
      size -= static_cast<size_t>(got);
    }
    return true;
  }

 private:
  int fd_;  // the caller's
};

RecordRefs refsTo(const std::vector<CloudRecord>& records) {
  RecordRefs refs;
  for (const CloudRecord& record : records)
    refs.push_back(&record);
  return refs;
}

// The CRC-32 of record `index`'s value when the caller knows it.
std::optional<uint32_t> knownCrc(const ValueCrcs* valueCrcs, size_t index) {
  return valueCrcs && index < valueCrcs->size() ? (*valueCrcs)[index] : std::nullopt;
}

// `mayHoldNul`: false for a value whose sum is known, which came from a C string or a checked
// file and need not be searched again.
bool checkField(const std::optional<std::string>& field, bool mayHoldNul, std::string& reason) {
  if (!field)
    return true;
  if (field->size() > kMaxFieldBytes) {
    reason = "a field of " + std::to_string(field->size()) + " bytes is longer than the " +
             std::to_string(kMaxFieldBytes) + " a record file can carry";
    return false;
  }
  if (mayHoldNul && memchr(field->data(), '\0', field->size()) != nullptr) {
    reason = "a field holds a NUL byte";
    return false;
  }
  return true;
}

// Refuses, before a byte is written, records the format cannot carry.
bool checkRecords(const RecordRefs& records, const ValueCrcs* valueCrcs, std::string& reason) {
  if (records.size() >= kAbsent) {
    reason = "too many records for a record file";
    return false;
  }
  for (size_t i = 0; i < records.size(); ++i) {
    const CloudRecord& record = *records[i];
    if (!checkField(record.key, true, reason) || !checkField(record.date, true, reason) ||
        !checkField(record.value, !knownCrc(valueCrcs, i), reason))
      return false;
  }
  return true;
}

bool putField(Sink& sink, const std::optional<std::string>& field, std::optional<uint32_t> crc) {
  if (!field)
    return sink.putU32(kAbsent);
  if (!sink.putU32(static_cast<uint32_t>(field->size())))
    return false;
  return crc ? sink.putSummed(field->data(), field->size(), *crc)
             : sink.put(field->data(), field->size());
}

bool encode(const RecordRefs& records, const ValueCrcs* valueCrcs, Sink& sink) {
  if (!sink.put(kMagic, sizeof kMagic) || !sink.putU32(kVersion) ||
      !sink.putU32(static_cast<uint32_t>(records.size())))
    return false;
  for (size_t i = 0; i < records.size(); ++i) {
    const CloudRecord& record = *records[i];
    if (!putField(sink, record.key, std::nullopt) || !putField(sink, record.date, std::nullopt) ||
        !putField(sink, record.value, knownCrc(valueCrcs, i)))
      return false;
  }
  return sink.seal();
}

// The header's checks, in the order a reader reports them; the checksum comes between
// `version` and `count` and is the caller's.
bool checkMagicAndVersion(const char* header, std::string& reason) {
  if (memcmp(header, kMagic, sizeof kMagic) != 0) {
    reason = "not a record file (wrong magic)";
    return false;
  }
  const uint32_t version = getU32(header + 4);
  if (version != kVersion) {
    reason = "record file version " + std::to_string(version) + " is not supported";
    return false;
  }
  return true;
}

// Reads a field's length word and advances `at`; `end` is where the checksum starts.
bool getFieldLength(Source& source,
                    size_t end,
                    size_t& at,
                    std::optional<uint32_t>& length,
                    std::string& reason) {
  if (end - at < 4) {
    reason = "truncated: a field's length is cut off";
    return false;
  }
  char word[4];
  if (!source.read(word, 4)) {
    reason = "cannot read a field's length";
    return false;
  }
  at += 4;
  const uint32_t value = getU32(word);
  length.reset();
  if (value == kAbsent)
    return true;
  if (end - at < value) {
    reason = "truncated: a field needs " + std::to_string(value) + " bytes";
    return false;
  }
  length = value;
  return true;
}

// Reads one field into `field` and advances `at`.
bool getField(Source& source,
              size_t end,
              size_t& at,
              std::optional<std::string>& field,
              std::string& reason,
              Crc32* sum = nullptr) {
  std::optional<uint32_t> length;
  if (!getFieldLength(source, end, at, length, reason))
    return false;
  if (!length) {
    field.reset();
    return true;
  }
  std::string bytes = prefaultedString(*length);
  bytes.resize(*length);
  // A step at a time, each searched for a NUL while it is still in the cache.
  for (size_t done = 0; done < *length;) {
    char* const into = &bytes[done];
    const size_t step = std::min<size_t>(*length - done, kSumStepBytes);
    if (!(sum ? source.readSummed(into, step, *sum) : source.read(into, step))) {
      reason = "cannot read a field";
      return false;
    }
    if (memchr(into, '\0', step) != nullptr) {
      reason = "a field holds a NUL byte";
      return false;
    }
    done += step;
  }
  field = std::move(bytes);
  at += *length;
  return true;
}

// Reads one field through without keeping it: only its size and CRC-32.
bool outlineField(Source& source,
                  size_t end,
                  size_t& at,
                  std::optional<size_t>& size,
                  uint32_t& crc,
                  std::string& reason) {
  std::optional<uint32_t> length;
  if (!getFieldLength(source, end, at, length, reason))
    return false;
  size = length;
  if (!length)
    return true;
  Crc32 sum;
  std::string chunk(std::min<size_t>(*length, kChunkBytes), '\0');
  for (size_t left = *length; left > 0;) {
    const size_t step = std::min(left, chunk.size());
    if (!source.readSummed(&chunk[0], step, sum)) {
      reason = "cannot read a field";
      return false;
    }
    if (memchr(chunk.data(), '\0', step) != nullptr) {
      reason = "a field holds a NUL byte";
      return false;
    }
    left -= step;
  }
  crc = sum.value();
  at += *length;
  return true;
}

// A record with the CRC-32 of its value, which the reading pass gives at no extra cost.
struct SummedRecord {
  CloudRecord record;
  uint32_t valueCrc = 0;
};

bool readRecord(Source& source, size_t end, size_t& at, SummedRecord& read, std::string& reason) {
  Crc32 sum;
  if (!getField(source, end, at, read.record.key, reason) ||
      !getField(source, end, at, read.record.date, reason) ||
      !getField(source, end, at, read.record.value, reason, &sum))
    return false;
  read.valueCrc = sum.value();
  return true;
}

bool readRecord(Source& source,
                size_t end,
                size_t& at,
                RecordOutline& record,
                std::string& reason) {
  return getField(source, end, at, record.key, reason) &&
         getField(source, end, at, record.date, reason) &&
         outlineField(source, end, at, record.valueBytes, record.valueCrc, reason);
}

// The records after a header; `end` is where the checksum starts.
template <typename Record>
bool decodeRecords(Source& source,
                   uint32_t count,
                   size_t end,
                   std::vector<Record>& records,
                   std::string& reason) {
  if (count > (end - kHeaderBytes) / kMinRecordBytes) {
    reason = "claims " + std::to_string(count) + " records, more than its bytes can hold";
    return false;
  }
  std::vector<Record> decoded(count);
  size_t at = kHeaderBytes;
  for (Record& record : decoded) {
    if (!readRecord(source, end, at, record, reason))
      return false;
  }
  if (at != end) {
    reason = std::to_string(end - at) + " stray bytes after the last record";
    return false;
  }
  records.swap(decoded);
  return true;
}

// A file's bytes, summed as they are read; skip() reads the rest of the summed part.
class SummingFileSource : public Source {
 public:
  explicit SummingFileSource(int fd) : file_(fd) {}
  bool read(char* into, size_t size) override { return readSteps(into, size, nullptr); }
  bool readSummed(char* into, size_t size, Crc32& sum) override {
    return readSteps(into, size, &sum);
  }
  bool skipTo(size_t offset) {
    std::string chunk(kChunkBytes, '\0');
    while (consumed_ < offset) {
      if (!read(&chunk[0], std::min(kChunkBytes, offset - consumed_)))
        return false;
    }
    return true;
  }
  // Reads the checksum word that follows the summed bytes and compares.
  bool sealMatches(bool& matches) {
    char word[4];
    if (!file_.read(word, 4))
      return false;
    matches = crc_.value() == getU32(word);
    return true;
  }

 private:
  // A step at a time, each summed while the copy has it in the cache; `sum`, when given, takes
  // the steps' sums too, by combination rather than a second pass.
  bool readSteps(char* into, size_t size, Crc32* sum) {
    while (size > 0) {
      const size_t step = std::min(size, kSumStepBytes);
      if (!file_.read(into, step))
        return false;
      if (sum) {
        Crc32 part;
        part.update(into, step);
        sum->append(part.value(), step);
        crc_.append(part.value(), step);
      } else {
        crc_.update(into, step);
      }
      consumed_ += step;
      into += step;
      size -= step;
    }
    return true;
  }

  FileSource file_;
  Crc32 crc_;
  size_t consumed_ = 0;
};

// writeRecords for records checkRecords has accepted.
bool writeCheckedRecords(int fd,
                         const RecordRefs& records,
                         const ValueCrcs* valueCrcs,
                         std::string& reason) {
  FileSink sink(fd);
  if (encode(records, valueCrcs, sink) && sink.flush())
    return true;
  reason = std::string("cannot write the record file: ") + g_strerror(errno);
  return false;
}

template <typename Record>
bool readFile(const std::string& path,
              std::vector<Record>& records,
              std::string& reason,
              bool* corrupt) {
  if (corrupt)
    *corrupt = false;
  // Non-blocking, so that a FIFO planted at the path cannot hang the reader.
  MvFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (fd.get() < 0) {
    reason = "cannot open " + path + ": " + g_strerror(errno);
    return false;
  }
  struct stat info;
  if (fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
    reason = path + " is not a regular file";
    return false;
  }
  const size_t size = static_cast<size_t>(info.st_size);
  auto refuse = [&](const std::string& why) {
    if (corrupt)
      *corrupt = true;
    reason = path + ": " + why;
    return false;
  };
  if (size < kHeaderBytes + kChecksumBytes)
    return refuse("truncated: " + std::to_string(size) + " bytes is no record file");

  // One pass, with the fields read straight into the records, so that the whole file is
  // never in memory next to them. The checksum has the first word: a damaged field is reported
  // only if the sum holds.
  const size_t end = size - kChecksumBytes;
  char header[kHeaderBytes];
  SummingFileSource source(fd.get());
  if (!source.read(header, kHeaderBytes)) {
    reason = "cannot read " + path + ": it changed or failed while being read";
    return false;
  }
  std::string why;
  if (!checkMagicAndVersion(header, why))
    return refuse(why);
  std::vector<Record> decoded;
  const bool fieldsRead = decodeRecords(source, getU32(header + 8), end, decoded, why);
  bool matches = false;
  if (!source.skipTo(end) || !source.sealMatches(matches)) {
    reason = "cannot read " + path + ": it changed or failed while being read";
    return false;
  }
  if (!matches)
    return refuse("bad checksum");
  if (!fieldsRead)
    return refuse(why);
  records.swap(decoded);
  return true;
}

}  // namespace

bool writeRecordFile(const std::string& path,
                     const std::vector<CloudRecord>& records,
                     std::string& reason) {
  return writeRecordFile(path, refsTo(records), reason);
}

bool writeRecordFile(const std::string& path,
                     const RecordRefs& records,
                     std::string& reason,
                     const ValueCrcs* valueCrcs) {
  // Checked once, before the temporary file is made.
  if (!checkRecords(records, valueCrcs, reason))
    return false;
  return replaceFile(
      path,
      [&](int fd, std::string& why) { return writeCheckedRecords(fd, records, valueCrcs, why); },
      reason);
}

bool writeRecords(int fd, const RecordRefs& records, std::string& reason) {
  return checkRecords(records, nullptr, reason) &&
         writeCheckedRecords(fd, records, nullptr, reason);
}

bool shareRecordFile(const std::string& from, const std::string& to, std::string& reason) {
  return replaceWithLinkOrCopy(from, to, reason);
}

bool isRecordFileTempName(const char* name) {
  // "<name>.dat.XXXXXX" as writeRecordFile makes them.
  const size_t length = strlen(name);
  if (length < 11 || strncmp(name + length - 11, ".dat.", 5) != 0)
    return false;
  for (size_t i = length - 6; i < length; ++i) {
    if (!g_ascii_isalnum(name[i]))
      return false;
  }
  return true;
}

bool readRecordFile(const std::string& path,
                    std::vector<CloudRecord>& records,
                    std::string& reason,
                    bool* corrupt,
                    std::vector<uint32_t>* valueCrcs) {
  std::vector<SummedRecord> read;
  if (!readFile(path, read, reason, corrupt))
    return false;
  records.clear();
  if (valueCrcs)
    valueCrcs->clear();
  for (SummedRecord& one : read) {
    records.push_back(std::move(one.record));
    if (valueCrcs)
      valueCrcs->push_back(one.valueCrc);
  }
  return true;
}

bool outlineRecordFile(const std::string& path,
                       std::vector<RecordOutline>& outline,
                       std::string& reason,
                       bool* corrupt) {
  return readFile(path, outline, reason, corrupt);
}

uint32_t valueCrc(const std::string& value) {
  Crc32 sum;
  sum.update(value.data(), value.size());
  return sum.value();
}

uint32_t copySummed(const char* text, std::optional<std::string>& value) {
  const size_t size = strlen(text);
  std::string copy = prefaultedString(size);
  // A step at a time, summed while the copy has it in the cache.
  Crc32 sum;
  for (size_t done = 0; done < size;) {
    const size_t step = std::min(size - done, kSumStepBytes);
    copy.append(text + done, step);
    sum.update(copy.data() + done, step);
    done += step;
  }
  value = std::move(copy);
  return sum.value();
}

}  // namespace host
