#include "FakeApp.h"

#include "MvHandles.h"
#include "host/AppControl.h"
#include "host/Bundle.h"

namespace morvik_test {

void FakeApp::onLaunchRequest(app_control_h request, std::shared_ptr<host::PendingReply> reply) {
  requests.push_back({request->operation, request->extras});
  if (!answers) {
    heldReply = reply;
    return;
  }
  MvAppControlPtr answer = mvCreateAppControl();
  for (const auto& extra : replyExtras)
    app_control_add_extra_data(answer.get(), extra.first.c_str(), extra.second.c_str());
  reply->send(answer.get(), replyResult);
}

void FakeApp::onMessage(const std::string& port, const std::string& fromAppId, bundle* message) {
  messages.push_back({port, fromAppId, message->keyValues()});
}

}  // namespace morvik_test
