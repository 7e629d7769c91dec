#include "host/HostLog.h"

#include <dlog.h>

#include "MvDeviceLog.h"

namespace host {

const char* const kHostLogTag = kMvPlatformLogTag;

void logInfo(const char* tag, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  dlog_vprint(DLOG_INFO, tag, format, arguments);
  va_end(arguments);
}

void logWarn(const char* tag, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  dlog_vprint(DLOG_WARN, tag, format, arguments);
  va_end(arguments);
}

void logError(const char* tag, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  dlog_vprint(DLOG_ERROR, tag, format, arguments);
  va_end(arguments);
}

}  // namespace host
