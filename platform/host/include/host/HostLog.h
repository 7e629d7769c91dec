#ifndef HOST_HOST_LOG_H
#define HOST_HOST_LOG_H

#include <glib.h>

namespace host {

// The host platform's own tag in the device's log.
extern const char* const kHostLogTag;

// Log lines of the platform and the emulated apps, under a tag of their own, through dlog: they
// share the service's line buffer, file and format.
void logInfo(const char* tag, const char* format, ...) G_GNUC_PRINTF(2, 3);
void logWarn(const char* tag, const char* format, ...) G_GNUC_PRINTF(2, 3);
void logError(const char* tag, const char* format, ...) G_GNUC_PRINTF(2, 3);

}  // namespace host

#endif
