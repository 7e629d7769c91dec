#include "emu/StoreService.h"

#include <algorithm>

#include "PeerReply.h"
#include "emu/EmuLog.h"
#include "emu/FaultSwitches.h"
#include "host/Platform.h"

namespace emu {

const char* const StoreService::kErrorCannotFindContent =
    "VENDARO_MESSAGE_RES_ERROR_CAN_NOT_FIND_CONTENT";
const char* const StoreService::kErrorNotSupported =
    "VENDARO_MESSAGE_RES_ERROR_NOT_SUPPORT_IN_THIS_DEVICE";
const char* const StoreService::kErrorInvalidRequest = "VENDARO_MESSAGE_RES_ERROR_INVALID_REQUEST";
const char* const StoreService::kNoReply = "(no reply)";

StoreService::StoreService(host::Platform& platform,
                           std::vector<CatalogueItem> catalogue,
                           std::map<std::string, std::string> faults,
                           std::function<void()> onFirstRequest,
                           std::shared_ptr<RunJournal> journal)
    : platform_(platform),
      catalogue_(std::move(catalogue)),
      faults_(std::move(faults)),
      onFirstRequest_(std::move(onFirstRequest)),
      journal_(std::move(journal)) {}

void StoreService::onLaunchRequest(app_control_h request,
                                   std::shared_ptr<host::PendingReply> reply) {
  if (++requests_ == 1 && onFirstRequest_)
    onFirstRequest_();
  const std::string type = requestExtra(request, "req_type");
  if (!faultValue(faults_, "store-silent").empty()) {
    host::logWarn(kLogTagStore, "%s left unanswered (fault store-silent)", type.c_str());
    const std::string guid = requestExtra(request, "GUID");
    if (!guid.empty())
      answers_[guid] = kNoReply;
    return;
  }
  if (type == "prepare-install-by-GUID") {
    host::logInfo(kLogTagStore, "prepare-install-by-GUID: ready");
    answerRequest(platform_, std::move(reply), APP_CONTROL_RESULT_SUCCEEDED, {});
  } else if (type == "install-by-GUID") {
    install(request, std::move(reply));
  } else {
    host::logError(kLogTagStore, "request type '%s' refused: %s", type.c_str(),
                   kErrorInvalidRequest);
    answerRequest(platform_, std::move(reply), APP_CONTROL_RESULT_FAILED,
                  {{"errorMsg", kErrorInvalidRequest}});
  }
}

void StoreService::install(app_control_h request, std::shared_ptr<host::PendingReply> reply) {
  const std::string guid = requestExtra(request, "GUID");
  const std::string forcedError = faultValue(faults_, "store-error");
  auto item = std::find_if(catalogue_.begin(), catalogue_.end(),
                           [&](const CatalogueItem& entry) { return entry.guid == guid; });
  std::string error;
  if (!forcedError.empty())
    error = forcedError;
  else if (guid.empty())
    error = kErrorInvalidRequest;
  else if (item == catalogue_.end())
    error = kErrorCannotFindContent;
  else if (item->component != "watchapp")
    error = kErrorNotSupported;
  answers_[guid] = error;
  if (!error.empty()) {
    host::logError(kLogTagStore, "install-by-GUID %s failed: %s", guid.c_str(), error.c_str());
    answerRequest(platform_, std::move(reply), APP_CONTROL_RESULT_FAILED, {{"errorMsg", error}});
    return;
  }
  const host::PackageInfo installed{item->pkgId, item->appId, item->component, false};
  platform_.packages().install(installed);
  journal_->package(installed);
  installed_.push_back(item->pkgId);
  host::logInfo(kLogTagStore, "install-by-GUID %s: installed %s", guid.c_str(),
                item->appId.c_str());
  answerRequest(platform_, std::move(reply), APP_CONTROL_RESULT_SUCCEEDED, {{"GUID", guid}});
}

}  // namespace emu
