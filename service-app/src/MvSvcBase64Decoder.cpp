#include "MvSvcBase64Decoder.h"

#include <string.h>

#include <algorithm>

namespace {

// The text is searched for its end and decoded a step at a time, so that the decoder reads
// what the search has just brought into the cache: one pass over a photo of megabytes.
const size_t kStepBytes = 64 * 1024;

}  // namespace

MvGBytesPtr MvSvcBase64Decoder::decode(const std::string& text, gsize& length) {
  length = 0;
  // g_base64_decode's own room, allocated so that a photo too large for memory fails here
  // instead of ending the service.
  MvGBytesPtr bytes(static_cast<guchar*>(g_try_malloc(text.size() / 4 * 3 + 3)));
  if (!bytes)
    return nullptr;
  gint state = 0;
  guint save = 0;
  for (size_t at = 0; at < text.size(); at += kStepBytes) {
    const char* step = text.data() + at;
    const size_t size = std::min(kStepBytes, text.size() - at);
    const char* end = static_cast<const char*>(memchr(step, '\0', size));
    length += g_base64_decode_step(step, end ? static_cast<size_t>(end - step) : size,
                                   bytes.get() + length, &state, &save);
    if (end)
      break;
  }
  return bytes;
}
