#include "host/PendingReply.h"

#include "MvHandles.h"
#include "host/AppControl.h"
#include "host/Platform.h"

namespace host {

PendingReply::PendingReply(Platform& platform,
                           std::string fromAppId,
                           app_control_h request,
                           app_control_reply_cb callback,
                           void* userData)
    : platform_(platform),
      fromAppId_(std::move(fromAppId)),
      request_(MvAppControlPtr(cloneAppControl(*request))),
      callback_(callback),
      userData_(userData) {}

PendingReply::~PendingReply() = default;

void PendingReply::send(app_control_h reply, app_control_result_e result) {
  if (sent_ || !reply)
    return;
  sent_ = true;
  std::shared_ptr<app_control_s> replyCopy(MvAppControlPtr(cloneAppControl(*reply)));
  Platform* platform = &platform_;
  std::string from = fromAppId_;
  std::shared_ptr<app_control_s> request = request_;
  app_control_reply_cb callback = callback_;
  void* userData = userData_;
  platform_.post(
      [platform, from, request, replyCopy, callback, userData, result] {
        platform->addEvent(BoundaryEvent::Kind::kAppControlReply, from, request->operation,
                           replyCopy->extras, result);
        if (callback)
          callback(request.get(), replyCopy.get(), result, userData);
      },
      0, "reply:" + from);
}

}  // namespace host
