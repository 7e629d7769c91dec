#ifndef HOST_PENDING_REPLY_H
#define HOST_PENDING_REPLY_H

#include <app_control.h>

#include <memory>
#include <string>

namespace host {

class Platform;

// The way back from an emulated app to the sender of a launch request. Owns a copy of the
// request as it was sent, which the sender's reply callback receives.
class PendingReply {
 public:
  PendingReply(Platform& platform,
               std::string fromAppId,
               app_control_h request,
               app_control_reply_cb callback,
               void* userData);
  ~PendingReply();

  // Posts the reply to the sender's callback; `reply` stays the caller's. Only the first call
  // counts, like the platform's single reply per request.
  void send(app_control_h reply, app_control_result_e result);
  bool sent() const { return sent_; }
  // The app that owes the reply.
  const std::string& peer() const { return fromAppId_; }

 private:
  Platform& platform_;
  std::string fromAppId_;
  std::shared_ptr<app_control_s> request_;  // shared with the posted delivery
  app_control_reply_cb callback_;
  void* userData_;
  bool sent_ = false;
};

}  // namespace host

#endif
