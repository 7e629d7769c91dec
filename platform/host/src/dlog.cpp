// dlog on the host: lines go to the platform's log sink, or to stderr without a platform.
#include <dlog.h>

#include <glib.h>
#include <stdio.h>
#include <string.h>

#include "host/Platform.h"

namespace {

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

}  // namespace

extern "C" {

int dlog_vprint(log_priority prio, const char* tag, const char* fmt, va_list ap) {
  if (!tag || !fmt || prio <= DLOG_DEFAULT || prio >= DLOG_SILENT)
    return DLOG_ERROR_INVALID_PARAMETER;
  g_autofree char* text = g_strdup_vprintf(fmt, ap);
  const char letter = priorityLetter(prio);
  if (host::Platform* platform = host::Platform::current())
    platform->log().write(letter, tag, text, platform->now());
  else
    fprintf(stderr, "%c/%s: %s\n", letter, tag, text);
  return static_cast<int>(strlen(text));
}

int dlog_print(log_priority prio, const char* tag, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  int written = dlog_vprint(prio, tag, fmt, ap);
  va_end(ap);
  return written;
}

}  // extern "C"
