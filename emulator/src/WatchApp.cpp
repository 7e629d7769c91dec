#include "emu/WatchApp.h"

#include "PeerReply.h"
#include "emu/EmuLog.h"
#include "host/AppControl.h"

namespace emu {

WatchApp::WatchApp(host::Platform& platform,
                   WatchAppState state,
                   unsigned replyDelayMs,
                   std::shared_ptr<RunJournal> journal)
    : platform_(platform),
      state_(std::move(state)),
      replyDelayMs_(replyDelayMs),
      journal_(std::move(journal)) {}

void WatchApp::onLaunchRequest(app_control_h request, std::shared_ptr<host::PendingReply> reply) {
  if (request->operation == "talvoro_cloud_backup") {
    ++backupsAnswered_;
    host::logInfo(kLogTagWatchApp, "%s: backup request answered with %zu bytes of settings%s",
                  state_.appId.c_str(), state_.resultXml.size(), lateNote().c_str());
    answerRequest(platform_, std::move(reply), APP_CONTROL_RESULT_SUCCEEDED,
                  {{"result_xml", state_.resultXml}}, replyDelayMs_);
  } else if (request->operation == "talvoro_cloud_restore") {
    ++restoresReceived_;
    state_.resultXml = requestExtra(request, "result_xml", state_.resultXml);
    journal_->watchApp(state_.appId, state_.resultXml);
    host::logInfo(kLogTagWatchApp, "%s: restore request, %zu bytes of settings kept%s",
                  state_.appId.c_str(), state_.resultXml.size(), lateNote().c_str());
    answerRequest(platform_, std::move(reply), APP_CONTROL_RESULT_SUCCEEDED, {}, replyDelayMs_);
  } else {
    host::logError(kLogTagWatchApp, "%s: operation '%s' refused", state_.appId.c_str(),
                   request->operation.c_str());
    answerRequest(platform_, std::move(reply), APP_CONTROL_RESULT_FAILED, {}, replyDelayMs_);
  }
}

std::string WatchApp::lateNote() const {
  if (replyDelayMs_ == 0)
    return std::string();
  return ", answered " + std::to_string(replyDelayMs_) + " ms late (fault watchapp-late)";
}

}  // namespace emu
