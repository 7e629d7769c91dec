// dlog on the host: lines go to the platform's log sink, or to stderr without a platform.
#include <dlog.h>

#include <stdio.h>
#include <string.h>

#include <string>

#include "MvHandles.h"
#include "host/Platform.h"

namespace {

const size_t kMaxMessageBytes = 4096;

char priorityLetter(log_priority prio) {
  switch (prio) {
    case DLOG_VERBOSE:
      return 'V';
    case DLOG_DEBUG:
      return 'D';
    case DLOG_INFO:
      return 'I';
    case DLOG_WARN:
      return 'W';
    case DLOG_ERROR:
      return 'E';
    case DLOG_FATAL:
      return 'F';
    default:
      return 'D';
  }
}

// `fmt` with a precision on every %s that has none: glibc's vfprintf measures a string to its
// end before it writes any of it, and a logged document is megabytes that the line cuts anyway.
std::string boundedFormat(const char* fmt) {
  static const std::string kPrecision = "." + std::to_string(kMaxMessageBytes + 1);
  std::string bounded;
  for (const char* at = fmt; *at;) {
    const char* conversion = at;
    if (*at++ != '%') {
      bounded += *conversion;
      continue;
    }
    // Position, flags and width, then the precision, the length and the conversion.
    at += strspn(at, "0123456789$-+ #'*");
    const char* widthEnd = at;
    const bool hasPrecision = *at == '.';
    if (hasPrecision)
      at += 1 + strspn(at + 1, "0123456789$*");
    at += strspn(at, "hlLqjzt");
    if (*at == 's' && !hasPrecision)
      bounded.append(conversion, widthEnd).append(kPrecision).append(widthEnd, at + 1);
    else
      bounded.append(conversion, *at ? at + 1 : at);
    if (*at)
      ++at;
  }
  return bounded;
}

}  // namespace

extern "C" {

int dlog_vprint(log_priority prio, const char* tag, const char* fmt, va_list ap) {
  if (!tag || !fmt || prio <= DLOG_DEFAULT || prio >= DLOG_SILENT)
    return DLOG_ERROR_INVALID_PARAMETER;
  // Like the device's log, a line has a fixed buffer: a longer message is cut, never copied
  // whole. vfprintf stops at the first write the full buffer refuses, where vsnprintf would
  // still walk a multi-megabyte argument to its end. The buffer keeps one byte past the line,
  // which tells whether the cut splits a character, and one for the NUL that fmemopen may put
  // over the last byte of a full buffer.
  char text[kMaxMessageBytes + 2] = {};
  MvFilePtr line(fmemopen(text, sizeof text, "w"));
  if (!line)
    return DLOG_ERROR_NOT_PERMITTED;  // dlog has no code for running out of memory
  setvbuf(line.get(), nullptr, _IONBF, 0);
  vfprintf(line.get(), boundedFormat(fmt).c_str(), ap);
  line.reset();
  size_t length = strnlen(text, sizeof text);
  if (length > kMaxMessageBytes) {
    length = kMaxMessageBytes;
    while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80)
      --length;
    text[length] = '\0';
  }
  const char letter = priorityLetter(prio);
  if (host::Platform* platform = host::Platform::current())
    platform->log().write(letter, tag, std::string(text, length), platform->now());
  else
    host::LogSink(std::string()).write(letter, tag, std::string(text, length), 0);
  return static_cast<int>(length);
}

int dlog_print(log_priority prio, const char* tag, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  int written = dlog_vprint(prio, tag, fmt, ap);
  va_end(ap);
  return written;
}

}  // extern "C"
