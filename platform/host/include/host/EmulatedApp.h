#ifndef HOST_EMULATED_APP_H
#define HOST_EMULATED_APP_H

#include <app_control.h>
#include <bundle.h>

#include <memory>
#include <string>
#include <vector>

namespace host {

class PendingReply;

// Another application on the emulated watch. The platform calls it on the main loop, always
// from a source of its own, never from inside the sender's call.
class EmulatedApp {
 public:
  virtual ~EmulatedApp() = default;

  // A launch request addressed to this app. `request` lives for the call; `reply` answers the
  // sender, now or later, or never if the app keeps silent.
  virtual void onLaunchRequest(app_control_h request, std::shared_ptr<PendingReply> reply) = 0;

  // The trusted local ports this app listens on.
  virtual std::vector<std::string> localPorts() const { return {}; }

  // A trusted message to one of localPorts(). `message` lives for the call.
  virtual void onMessage(const std::string& port, const std::string& fromAppId, bundle* message) {
    (void)port;
    (void)fromAppId;
    (void)message;
  }
};

}  // namespace host

#endif
