// CRC-32 (IEEE 802.3) as zlib's crc32() computes it. Internal to the host platform.
#ifndef HOST_CRC32_H
#define HOST_CRC32_H

#include <stddef.h>
#include <stdint.h>

namespace host {

// `crc` continued over `size` bytes at `data` (start from 0). Record files are megabytes, each
// summed on every write and read: on x86-64 processors that multiply without carries the bulk is
// folded sixty-four bytes at a time, several times faster than zlib's tables.
uint32_t crc32Update(uint32_t crc, const void* data, size_t size);

}  // namespace host

#endif
