#include "host/RecordFile.h"

#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <glib/gstdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdint>

namespace host {

namespace {

const char kMagic[4] = {'T', 'V', 'R', 'F'};
const uint32_t kVersion = 1;
const uint32_t kAbsent = 0xFFFFFFFFu;
const size_t kHeaderBytes = 12;
const size_t kChecksumBytes = 4;
// Three length words: the least a record can take.
const size_t kMinRecordBytes = 12;

// Closes the descriptor it holds.
class UniqueFd {
 public:
  explicit UniqueFd(int fd) : fd_(fd) {}
  ~UniqueFd() { reset(); }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  int get() const { return fd_; }
  // Closes now; false when close() reports a failed write-back.
  bool reset() {
    if (fd_ < 0)
      return true;
    const int fd = fd_;
    fd_ = -1;
    return close(fd) == 0;
  }

 private:
  int fd_;
};

uint32_t crc32(const char* data, size_t size) {
  static const std::array<uint32_t, 256> table = [] {
    std::array<uint32_t, 256> t{};
    for (uint32_t i = 0; i < 256; ++i) {
      uint32_t c = i;
      for (int k = 0; k < 8; ++k)
        c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
      t[i] = c;
    }
    return t;
  }();
  uint32_t crc = 0xFFFFFFFFu;
  for (size_t i = 0; i < size; ++i)
    crc = table[(crc ^ static_cast<unsigned char>(data[i])) & 0xFF] ^ (crc >> 8);
  return crc ^ 0xFFFFFFFFu;
}

void putU32(std::string& out, uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8)
    out.push_back(static_cast<char>((value >> shift) & 0xFF));
}

uint32_t getU32(const std::string& in, size_t at) {
  uint32_t value = 0;
  for (int i = 3; i >= 0; --i)
    value = (value << 8) | static_cast<unsigned char>(in[at + i]);
  return value;
}

bool putField(std::string& out, const std::optional<std::string>& field, std::string& reason) {
  if (!field) {
    putU32(out, kAbsent);
    return true;
  }
  if (field->size() > kMaxFieldBytes) {
    reason = "a field is longer than " + std::to_string(kMaxFieldBytes) + " bytes";
    return false;
  }
  if (field->find('\0') != std::string::npos) {
    reason = "a field holds a NUL byte";
    return false;
  }
  putU32(out, static_cast<uint32_t>(field->size()));
  out += *field;
  return true;
}

// Reads one field at `at` of `body` (the bytes before the checksum) and advances `at`.
bool getField(const std::string& body, size_t end, size_t& at, std::optional<std::string>& field,
              std::string& reason) {
  if (end - at < 4) {
    reason = "truncated: a field's length is cut off";
    return false;
  }
  const uint32_t length = getU32(body, at);
  at += 4;
  if (length == kAbsent) {
    field.reset();
    return true;
  }
  if (length > kMaxFieldBytes) {
    reason = "a field claims " + std::to_string(length) + " bytes";
    return false;
  }
  if (end - at < length) {
    reason = "truncated: a field needs " + std::to_string(length) + " bytes";
    return false;
  }
  if (memchr(body.data() + at, '\0', length) != nullptr) {
    reason = "a field holds a NUL byte";
    return false;
  }
  field = body.substr(at, length);
  at += length;
  return true;
}

bool writeAll(int fd, const std::string& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t written = write(fd, bytes.data() + done, bytes.size() - done);
    if (written < 0) {
      if (errno == EINTR)
        continue;
      return false;
    }
    done += static_cast<size_t>(written);
  }
  return true;
}

}  // namespace

bool encodeRecordFile(const std::vector<CloudRecord>& records, std::string& bytes,
                      std::string& reason) {
  std::string out(kMagic, sizeof kMagic);
  putU32(out, kVersion);
  putU32(out, static_cast<uint32_t>(records.size()));
  for (const CloudRecord& record : records) {
    if (!putField(out, record.key, reason) || !putField(out, record.date, reason) ||
        !putField(out, record.value, reason))
      return false;
  }
  if (out.size() + kChecksumBytes > kMaxRecordFileBytes) {
    reason = "the records exceed " + std::to_string(kMaxRecordFileBytes) + " bytes";
    return false;
  }
  putU32(out, crc32(out.data(), out.size()));
  bytes.swap(out);
  return true;
}

bool decodeRecordFile(const std::string& bytes, std::vector<CloudRecord>& records,
                      std::string& reason) {
  if (bytes.size() < kHeaderBytes + kChecksumBytes) {
    reason = "truncated: " + std::to_string(bytes.size()) + " bytes is no record file";
    return false;
  }
  if (memcmp(bytes.data(), kMagic, sizeof kMagic) != 0) {
    reason = "not a record file (wrong magic)";
    return false;
  }
  const uint32_t version = getU32(bytes, 4);
  if (version != kVersion) {
    reason = "record file version " + std::to_string(version) + " is not supported";
    return false;
  }
  const size_t end = bytes.size() - kChecksumBytes;
  if (crc32(bytes.data(), end) != getU32(bytes, end)) {
    reason = "bad checksum";
    return false;
  }
  const uint32_t count = getU32(bytes, 8);
  if (count > (end - kHeaderBytes) / kMinRecordBytes) {
    reason = "claims " + std::to_string(count) + " records, more than its bytes can hold";
    return false;
  }
  std::vector<CloudRecord> decoded(count);
  size_t at = kHeaderBytes;
  for (CloudRecord& record : decoded) {
    if (!getField(bytes, end, at, record.key, reason) ||
        !getField(bytes, end, at, record.date, reason) ||
        !getField(bytes, end, at, record.value, reason))
      return false;
  }
  if (at != end) {
    reason = std::to_string(end - at) + " stray bytes after the last record";
    return false;
  }
  records.swap(decoded);
  return true;
}

bool writeRecordFile(const std::string& path, const std::vector<CloudRecord>& records,
                     std::string& reason) {
  if (path.empty()) {
    reason = "no path for the record file";
    return false;
  }
  std::string bytes;
  if (!encodeRecordFile(records, bytes, reason))
    return false;
  std::string temp = path + ".XXXXXX";
  UniqueFd fd(g_mkstemp_full(&temp[0], O_WRONLY | O_CLOEXEC, 0644));
  if (fd.get() < 0) {
    reason = "cannot create a file beside " + path + ": " + g_strerror(errno);
    return false;
  }
  const bool written = writeAll(fd.get(), bytes) && fsync(fd.get()) == 0;
  const int writeErrno = errno;
  if (!fd.reset() || !written) {
    reason = "cannot write " + temp + ": " + g_strerror(written ? errno : writeErrno);
    g_unlink(temp.c_str());
    return false;
  }
  if (g_rename(temp.c_str(), path.c_str()) != 0) {
    reason = "cannot rename " + temp + " to " + path + ": " + g_strerror(errno);
    g_unlink(temp.c_str());
    return false;
  }
  return true;
}

bool readRecordFile(const std::string& path, std::vector<CloudRecord>& records,
                    std::string& reason, bool* corrupt) {
  if (corrupt)
    *corrupt = false;
  // Non-blocking, so that a FIFO planted at the path cannot hang the reader.
  UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (fd.get() < 0) {
    reason = "cannot open " + path + ": " + g_strerror(errno);
    return false;
  }
  struct stat info;
  if (fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
    reason = path + " is not a regular file";
    return false;
  }
  if (static_cast<unsigned long long>(info.st_size) > kMaxRecordFileBytes) {
    if (corrupt)
      *corrupt = true;
    reason = path + " is larger than a record file can be";
    return false;
  }
  std::string bytes;
  char buffer[65536];
  for (;;) {
    const ssize_t got = read(fd.get(), buffer, sizeof buffer);
    if (got < 0 && errno == EINTR)
      continue;
    if (got < 0) {
      reason = "cannot read " + path + ": " + g_strerror(errno);
      return false;
    }
    if (got == 0)
      break;
    bytes.append(buffer, static_cast<size_t>(got));
    if (bytes.size() > kMaxRecordFileBytes) {
      if (corrupt)
        *corrupt = true;
      reason = path + " grew beyond what a record file can be";
      return false;
    }
  }
  if (!decodeRecordFile(bytes, records, reason)) {
    if (corrupt)
      *corrupt = true;
    reason = path + ": " + reason;
    return false;
  }
  return true;
}

}  // namespace host
