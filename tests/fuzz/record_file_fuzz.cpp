// libFuzzer target over the record file reader: any bytes are refused or decoded, never a
// crash, and what decodes encodes back to the same bytes.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "host/RecordFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  std::vector<host::CloudRecord> records;
  std::string reason;
  if (!host::decodeRecordFile(bytes, records, reason)) {
    if (reason.empty())
      abort();
    return 0;
  }
  std::string again;
  if (!host::encodeRecordFile(records, again, reason) || again != bytes)
    abort();
  return 0;
}
