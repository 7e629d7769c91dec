// libFuzzer target over the record file readers: any bytes are refused or decoded, never a
// crash; what decodes encodes back to the same bytes; and the file reader and the outline,
// which stream what the decoder holds whole, decide the same, for the same reason.
#include <glib.h>
#include <glib/gstdio.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "host/RecordFile.h"

namespace {

// One file per fuzzing process, rewritten for each input and removed at exit.
struct ScratchFile {
  ScratchFile() {
    g_autofree char* name =
        g_strdup_printf("morvik-record-fuzz-%ld.dat", static_cast<long>(getpid()));
    g_autofree char* built = g_build_filename(g_get_tmp_dir(), name, nullptr);
    path = built;
  }
  ~ScratchFile() { g_unlink(path.c_str()); }
  std::string path;
};

const std::string& scratchPath() {
  static const ScratchFile file;
  return file.path;
}

void checkFileReaders(const std::string& bytes,
                      bool decoded,
                      const std::vector<host::CloudRecord>& records,
                      const std::string& reason) {
  const std::string& path = scratchPath();
  if (!g_file_set_contents(path.c_str(), bytes.data(), static_cast<gssize>(bytes.size()), nullptr))
    abort();
  std::vector<host::CloudRecord> read;
  std::vector<host::RecordOutline> outline;
  std::string readReason, outlineReason;
  const bool readOk = host::readRecordFile(path, read, readReason);
  const bool outlineOk = host::outlineRecordFile(path, outline, outlineReason);
  if (readOk != decoded || outlineOk != decoded)
    abort();
  if (!decoded) {
    if (readReason != path + ": " + reason || outlineReason != readReason)
      abort();
    return;
  }
  if (!(read == records) || outline.size() != records.size())
    abort();
  for (size_t i = 0; i < records.size(); ++i) {
    if (outline[i].key != records[i].key || outline[i].date != records[i].date ||
        outline[i].valueBytes.has_value() != records[i].value.has_value() ||
        (records[i].value && (*outline[i].valueBytes != records[i].value->size() ||
                              outline[i].valueCrc != host::valueCrc(*records[i].value))))
      abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  std::vector<host::CloudRecord> records;
  std::string reason;
  const bool decoded = host::decodeRecordFile(bytes, records, reason);
  if (!decoded && reason.empty())
    abort();
  checkFileReaders(bytes, decoded, records, reason);
  if (!decoded)
    return 0;
  std::string again;
  if (!host::encodeRecordFile(records, again, reason) || again != bytes)
    abort();
  return 0;
}
