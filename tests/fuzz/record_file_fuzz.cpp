// libFuzzer target over the record file readers: any file is refused or read, never a crash;
// the reader and the outline decide the same, for the same reason; and what reads writes back to
// the same bytes.
#include <glib.h>
#include <glib/gstdio.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "MvHandles.h"
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string& path = scratchPath();
  // A plain write: g_file_set_contents would sync each input to disk.
  MvFilePtr file(fopen(path.c_str(), "wb"));
  if (!file || fwrite(data, 1, size, file.get()) != size || mvReleaseNow(file) != 0)
    abort();
  std::vector<host::CloudRecord> records;
  std::vector<host::RecordOutline> outline;
  std::string reason, outlineReason;
  const bool read = host::readRecordFile(path, records, reason);
  const bool outlined = host::outlineRecordFile(path, outline, outlineReason);
  if (read != outlined)
    abort();
  if (!read) {
    if (reason.empty() || reason != outlineReason)
      abort();
    return 0;
  }
  if (outline.size() != records.size())
    abort();
  for (size_t i = 0; i < records.size(); ++i) {
    if (outline[i].key != records[i].key || outline[i].date != records[i].date ||
        outline[i].valueBytes.has_value() != records[i].value.has_value() ||
        (records[i].value && (*outline[i].valueBytes != records[i].value->size() ||
                              outline[i].valueCrc != host::valueCrc(*records[i].value))))
      abort();
  }
  // What reads writes back to the same bytes.
  if (!host::writeRecordFile(path, records, reason))
    abort();
  g_autofree char* again = nullptr;
  gsize length = 0;
  if (!g_file_get_contents(path.c_str(), &again, &length, nullptr) || length != size ||
      memcmp(again, data, size) != 0)
    abort();
  return 0;
}
