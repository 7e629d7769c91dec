#include <app_control.h>

#include <gtest/gtest.h>
#include <stdlib.h>

#include <memory>
#include <string>

#include "FakeApp.h"
#include "MvHandles.h"
#include "PlatformFixture.h"
#include "host/AppControl.h"

namespace {

using host::BoundaryEvent;
using morvik_test::FakeApp;

const char* const kPeer = "com.example.peer";

// What a reply callback saw, copied out of the handles it was lent.
struct SeenReply {
  int calls = 0;
  std::string requestGuid;
  std::string replyText;
  app_control_result_e result = APP_CONTROL_RESULT_APP_STARTED;
};

std::string extra(app_control_h handle, const char* key) {
  char* value = nullptr;
  if (app_control_get_extra_data(handle, key, &value) != APP_CONTROL_ERROR_NONE)
    return "(none)";
  return MvCharPtr(value).get();
}

void recordReply(app_control_h request,
                 app_control_h reply,
                 app_control_result_e result,
                 void* userData) {
  auto* seen = static_cast<SeenReply*>(userData);
  ++seen->calls;
  seen->requestGuid = extra(request, "GUID");
  seen->replyText = extra(reply, "errorMsg");
  seen->result = result;
}

class AppControlTest : public morvik_test::PlatformFixture {
 protected:
  void SetUp() override {
    PlatformFixture::SetUp();
    platform().packages().install({kPeer, kPeer, "svcapp", true});
    peer_ = std::make_shared<FakeApp>();
    platform().registerApp(kPeer, peer_);
  }

  int send(const char* appId, SeenReply* seen) {
    MvAppControlPtr request = mvCreateAppControl();
    if (appId)
      app_control_set_app_id(request.get(), appId);
    app_control_add_extra_data(request.get(), "req_type", "install-by-GUID");
    app_control_add_extra_data(request.get(), "GUID", "com.indie.clock-tidal");
    int result = app_control_send_launch_request(request.get(), recordReply, seen);
    // Senders release their handle at once; the reply must not depend on it.
    request.reset();
    return result;
  }

  std::shared_ptr<FakeApp> peer_;
};

// As on the device: an empty extra value is refused like an empty key, so a request never carries
// one; a launch nothing can run fails at once.
TEST_F(AppControlTest, BadRequestsFailLikeThePlatformAndReachNoOne) {
  MvAppControlPtr handle = mvCreateAppControl();
  ASSERT_TRUE(handle);
  EXPECT_EQ(app_control_add_extra_data(handle.get(), "result_xml", ""),
            APP_CONTROL_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(app_control_add_extra_data(handle.get(), "", "x"), APP_CONTROL_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(extra(handle.get(), "result_xml"), "(none)");
  handle.reset();

  platform().packages().install({"com.example.silent", "com.example.silent", "svcapp", false});
  SeenReply seen;
  EXPECT_EQ(send("com.example.missing", &seen), APP_CONTROL_ERROR_APP_NOT_FOUND);
  EXPECT_EQ(send("com.example.silent", &seen), APP_CONTROL_ERROR_LAUNCH_REJECTED);
  EXPECT_EQ(send(nullptr, &seen), APP_CONTROL_ERROR_INVALID_PARAMETER);
  runLoopFor(0.1);
  EXPECT_EQ(seen.calls, 0);
  EXPECT_TRUE(peer_->requests.empty());
}

// A peer answering from its own code (a timer, a nested wait) must not re-enter the sender: the
// reply waits for the loop, and only the first one counts.
TEST_F(AppControlTest, AHeldReplyComesLaterOnTheLoopAndOnlyOnce) {
  peer_->answers = false;
  SeenReply seen;
  ASSERT_EQ(send(kPeer, &seen), APP_CONTROL_ERROR_NONE);
  EXPECT_TRUE(peer_->requests.empty());
  ASSERT_TRUE(runLoopUntil([&] { return peer_->heldReply != nullptr; }, 5));
  EXPECT_EQ(peer_->requests[0].extras,
            (host::KeyValues{{"req_type", "install-by-GUID"}, {"GUID", "com.indie.clock-tidal"}}));
  runLoopFor(0.1);
  EXPECT_EQ(seen.calls, 0);

  MvAppControlPtr answer = mvCreateAppControl();
  app_control_add_extra_data(answer.get(), "errorMsg",
                             "VENDARO_MESSAGE_RES_ERROR_CAN_NOT_FIND_CONTENT");
  peer_->heldReply->send(answer.get(), APP_CONTROL_RESULT_FAILED);
  EXPECT_EQ(seen.calls, 0);
  peer_->heldReply->send(answer.get(), APP_CONTROL_RESULT_SUCCEEDED);
  answer.reset();
  runLoopFor(0.1);
  EXPECT_EQ(seen.calls, 1);
  EXPECT_EQ(seen.requestGuid, "com.indie.clock-tidal");
  EXPECT_EQ(seen.replyText, "VENDARO_MESSAGE_RES_ERROR_CAN_NOT_FIND_CONTENT");
  EXPECT_EQ(seen.result, APP_CONTROL_RESULT_FAILED);
  EXPECT_EQ(platform().record().ofKind(BoundaryEvent::Kind::kAppControlReply).size(), 1u);
}

}  // namespace
