#include "emu/WatchApp.h"

#include "PeerReply.h"
#include "host/AppControl.h"

namespace emu {

WatchApp::WatchApp(host::Platform& platform, WatchAppState state, unsigned replyDelayMs)
    : platform_(platform), state_(std::move(state)), replyDelayMs_(replyDelayMs) {}

void WatchApp::onLaunchRequest(app_control_h request, std::shared_ptr<host::PendingReply> reply) {
  if (request->operation == "talvoro_cloud_backup") {
    ++backupsAnswered_;
    answerRequest(platform_, std::move(reply), APP_CONTROL_RESULT_SUCCEEDED,
                  {{"result_xml", state_.resultXml}}, replyDelayMs_);
  } else if (request->operation == "talvoro_cloud_restore") {
    ++restoresReceived_;
    state_.resultXml = requestExtra(request, "result_xml", state_.resultXml);
    answerRequest(platform_, std::move(reply), APP_CONTROL_RESULT_SUCCEEDED, {}, replyDelayMs_);
  } else {
    answerRequest(platform_, std::move(reply), APP_CONTROL_RESULT_FAILED, {}, replyDelayMs_);
  }
}

}  // namespace emu
