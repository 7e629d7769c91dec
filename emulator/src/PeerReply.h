#ifndef EMU_PEER_REPLY_H
#define EMU_PEER_REPLY_H

#include <app_control.h>
#include <bundle.h>

#include <memory>
#include <string>

#include "host/BoundaryRecord.h"
#include "host/PendingReply.h"

namespace host {
class Platform;
}

namespace emu {

// Answers a launch request with `result` and `extras`, `delayMs` from now.
void answerRequest(host::Platform& platform,
                   std::shared_ptr<host::PendingReply> reply,
                   app_control_result_e result,
                   host::KeyValues extras,
                   unsigned delayMs = 0);

// An extra of a request, or `fallback` when it has none.
std::string requestExtra(app_control_h request,
                         const char* key,
                         const std::string& fallback = std::string());

// Whether a message holds `key`; its value goes to `value`.
bool messageValue(bundle* message, const char* key, std::string& value);

}  // namespace emu

#endif
