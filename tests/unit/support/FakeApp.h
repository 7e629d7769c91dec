#ifndef MORVIK_TEST_FAKE_APP_H
#define MORVIK_TEST_FAKE_APP_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/BoundaryRecord.h"
#include "host/EmulatedApp.h"
#include "host/PendingReply.h"

namespace morvik_test {

// A peer app whose behaviour each test writes: it records what reached it and, if told to,
// answers every launch request with `replyResult` and `replyExtras`.
class FakeApp : public host::EmulatedApp {
 public:
  struct Received {
    std::string operation;
    host::KeyValues extras;
  };
  struct Message {
    std::string port;
    std::string fromAppId;
    host::KeyValues entries;
  };

  explicit FakeApp(std::vector<std::string> ports = {}) : ports_(std::move(ports)) {}

  void onLaunchRequest(app_control_h request, std::shared_ptr<host::PendingReply> reply) override;
  std::vector<std::string> localPorts() const override { return ports_; }
  void onMessage(const std::string& port, const std::string& fromAppId, bundle* message) override;

  bool answers = true;
  app_control_result_e replyResult = APP_CONTROL_RESULT_SUCCEEDED;
  host::KeyValues replyExtras;
  std::vector<Received> requests;
  std::vector<Message> messages;
  std::shared_ptr<host::PendingReply> heldReply;  // the last unanswered reply

 private:
  std::vector<std::string> ports_;
};

}  // namespace morvik_test

#endif
