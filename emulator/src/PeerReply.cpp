#include "PeerReply.h"

#include "MvHandles.h"
#include "host/Platform.h"

namespace emu {

namespace {

void sendNow(host::PendingReply& reply,
             app_control_result_e result,
             const host::KeyValues& extras) {
  MvAppControlPtr answer = mvCreateAppControl();
  if (!answer)
    return;
  for (const auto& extra : extras)
    app_control_add_extra_data(answer.get(), extra.first.c_str(), extra.second.c_str());
  reply.send(answer.get(), result);
}

}  // namespace

void answerRequest(host::Platform& platform,
                   std::shared_ptr<host::PendingReply> reply,
                   app_control_result_e result,
                   host::KeyValues extras,
                   unsigned delayMs) {
  if (delayMs == 0) {
    sendNow(*reply, result, extras);
    return;
  }
  platform.post([reply, result, extras] { sendNow(*reply, result, extras); }, delayMs);
}

std::string requestExtra(app_control_h request, const char* key, const std::string& fallback) {
  char* value = nullptr;
  const int got = app_control_get_extra_data(request, key, &value);
  MvCharPtr owned(value);
  if (got != APP_CONTROL_ERROR_NONE || !owned)
    return fallback;
  return owned.get();
}

bool messageValue(bundle* message, const char* key, std::string& value) {
  char* found = nullptr;
  if (!message || bundle_get_str(message, key, &found) != BUNDLE_ERROR_NONE || !found)
    return false;
  value = found;
  return true;
}

}  // namespace emu
