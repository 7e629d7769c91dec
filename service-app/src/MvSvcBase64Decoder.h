#ifndef MVSVC_BASE64_DECODER_H
#define MVSVC_BASE64_DECODER_H

#include <glib.h>

#include <string>

#include "MvHandles.h"

// Turns a photo's base64 text back into its bytes exactly as g_base64_decode does: characters
// outside the standard alphabet are skipped, '=' closes its group wherever it stands, a group
// left incomplete at the end gives nothing, and the text ends at its first NUL. Nothing is
// refused: whatever a backup's writer made of a photo, the restore writes what the design does.
class MvSvcBase64Decoder {
 public:
  // The bytes `text` stands for, `length` of them, in a buffer the caller owns; null only when
  // no buffer could be had for them.
  static MvGBytesPtr decode(const std::string& text, gsize& length);
};

#endif
