#include <app_control.h>

#include <gtest/gtest.h>
#include <stdlib.h>

#include <memory>
#include <string>

#include "FakeApp.h"
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
  std::string copy = value;
  free(value);
  return copy;
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
    app_control_h request = nullptr;
    app_control_create(&request);
    if (appId)
      app_control_set_app_id(request, appId);
    app_control_add_extra_data(request, "req_type", "install-by-GUID");
    app_control_add_extra_data(request, "GUID", "com.indie.clock-tidal");
    int result = app_control_send_launch_request(request, recordReply, seen);
    // Senders release their handle at once; the reply must not depend on it.
    app_control_destroy(request);
    return result;
  }

  std::shared_ptr<FakeApp> peer_;
};

// As on the device: an empty value is refused like an empty key, so a request never carries one.
TEST_F(AppControlTest, ExtraDataRefusesAnEmptyKeyOrValue) {
  app_control_h handle = nullptr;
  ASSERT_EQ(app_control_create(&handle), APP_CONTROL_ERROR_NONE);
  EXPECT_EQ(app_control_add_extra_data(handle, "result_xml", ""),
            APP_CONTROL_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(app_control_add_extra_data(handle, "", "x"), APP_CONTROL_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(extra(handle, "result_xml"), "(none)");
  EXPECT_EQ(app_control_add_extra_data(handle, "result_xml", "<a/>"), APP_CONTROL_ERROR_NONE);
  EXPECT_EQ(extra(handle, "result_xml"), "<a/>");
  app_control_destroy(handle);
}

TEST_F(AppControlTest, RequestAndReplyArriveLaterOnTheLoop) {
  peer_->replyResult = APP_CONTROL_RESULT_FAILED;
  peer_->replyExtras = {{"errorMsg", "VENDARO_MESSAGE_RES_ERROR_CAN_NOT_FIND_CONTENT"}};
  SeenReply seen;
  ASSERT_EQ(send(kPeer, &seen), APP_CONTROL_ERROR_NONE);
  EXPECT_TRUE(peer_->requests.empty());
  EXPECT_EQ(seen.calls, 0);

  ASSERT_TRUE(runLoopUntil([&] { return seen.calls > 0; }, 5));
  ASSERT_EQ(peer_->requests.size(), 1u);
  EXPECT_EQ(peer_->requests[0].extras,
            (host::KeyValues{{"req_type", "install-by-GUID"}, {"GUID", "com.indie.clock-tidal"}}));
  EXPECT_EQ(seen.requestGuid, "com.indie.clock-tidal");
  EXPECT_EQ(seen.replyText, "VENDARO_MESSAGE_RES_ERROR_CAN_NOT_FIND_CONTENT");
  EXPECT_EQ(seen.result, APP_CONTROL_RESULT_FAILED);

  const auto& events = platform().record().events();
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[0].kind, BoundaryEvent::Kind::kAppControlSent);
  EXPECT_EQ(events[0].peer, kPeer);
  EXPECT_EQ(events[1].kind, BoundaryEvent::Kind::kAppControlReply);
  EXPECT_EQ(events[1].code, APP_CONTROL_RESULT_FAILED);
}

TEST_F(AppControlTest, LaunchFailsLikeThePlatformWhenNothingCanRunTheTarget) {
  platform().packages().install({"com.example.silent", "com.example.silent", "svcapp", false});
  SeenReply seen;
  EXPECT_EQ(send("com.example.missing", &seen), APP_CONTROL_ERROR_APP_NOT_FOUND);
  EXPECT_EQ(send("com.example.silent", &seen), APP_CONTROL_ERROR_LAUNCH_REJECTED);
  EXPECT_EQ(send(nullptr, &seen), APP_CONTROL_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(app_control_send_launch_request(nullptr, recordReply, &seen),
            APP_CONTROL_ERROR_INVALID_PARAMETER);
  runLoopFor(0.1);
  EXPECT_EQ(seen.calls, 0);
  EXPECT_TRUE(peer_->requests.empty());
  EXPECT_EQ(platform().record().ofKind(BoundaryEvent::Kind::kAppControlSent).size(), 3u);
}

TEST_F(AppControlTest, OnlyTheFirstReplyCountsAndSilentAppsNeverAnswer) {
  peer_->answers = false;
  SeenReply seen;
  ASSERT_EQ(send(kPeer, &seen), APP_CONTROL_ERROR_NONE);
  ASSERT_TRUE(runLoopUntil([&] { return peer_->heldReply != nullptr; }, 5));
  runLoopFor(0.1);
  EXPECT_EQ(seen.calls, 0);

  app_control_h answer = nullptr;
  app_control_create(&answer);
  peer_->heldReply->send(answer, APP_CONTROL_RESULT_SUCCEEDED);
  peer_->heldReply->send(answer, APP_CONTROL_RESULT_FAILED);
  app_control_destroy(answer);
  runLoopFor(0.1);
  EXPECT_EQ(seen.calls, 1);
  EXPECT_EQ(seen.result, APP_CONTROL_RESULT_SUCCEEDED);
}

TEST_F(AppControlTest, HandlesCarryOperationAndExtrasAndAreCounted) {
  const int before = host::liveAppControlCount();
  app_control_h handle = nullptr;
  ASSERT_EQ(app_control_create(&handle), APP_CONTROL_ERROR_NONE);
  char* operation = reinterpret_cast<char*>(1);
  EXPECT_EQ(app_control_get_operation(handle, &operation), APP_CONTROL_ERROR_NONE);
  EXPECT_EQ(operation, nullptr);
  char* value = nullptr;
  EXPECT_EQ(app_control_get_extra_data(handle, "result_xml", &value),
            APP_CONTROL_ERROR_KEY_NOT_FOUND);
  EXPECT_EQ(value, nullptr);

  app_control_set_operation(handle, "talvoro_cloud_restore");
  app_control_add_extra_data(handle, "result_xml", "<a/>");
  app_control_add_extra_data(handle, "result_xml", "<b/>");
  app_control_h clone = nullptr;
  ASSERT_EQ(app_control_clone(&clone, handle), APP_CONTROL_ERROR_NONE);
  EXPECT_EQ(host::liveAppControlCount(), before + 2);
  app_control_destroy(handle);

  ASSERT_EQ(app_control_get_operation(clone, &operation), APP_CONTROL_ERROR_NONE);
  EXPECT_STREQ(operation, "talvoro_cloud_restore");
  free(operation);
  EXPECT_EQ(extra(clone, "result_xml"), "<b/>");
  EXPECT_EQ(clone->extras.size(), 1u);
  app_control_destroy(clone);
  EXPECT_EQ(host::liveAppControlCount(), before);
}

TEST_F(AppControlTest, RepliesToLaunchRequestsReachTheLauncherLater) {
  std::vector<std::pair<unsigned, app_control_result_e>> answers;
  platform().setLauncherReplyHandler(
      [&](unsigned id, const host::KeyValues&, app_control_result_e result) {
        answers.emplace_back(id, result);
      });
  app_control_s launched;
  launched.launchId = 7;
  app_control_h request = host::cloneAppControl(launched);
  app_control_h kept = nullptr;
  app_control_clone(&kept, request);
  app_control_destroy(request);

  app_control_h reply = nullptr;
  app_control_create(&reply);
  EXPECT_EQ(app_control_reply_to_launch_request(reply, kept, APP_CONTROL_RESULT_SUCCEEDED),
            APP_CONTROL_ERROR_NONE);
  EXPECT_TRUE(answers.empty());

  app_control_h notLaunched = nullptr;
  app_control_create(&notLaunched);
  EXPECT_EQ(app_control_reply_to_launch_request(reply, notLaunched, APP_CONTROL_RESULT_FAILED),
            APP_CONTROL_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(app_control_reply_to_launch_request(reply, nullptr, APP_CONTROL_RESULT_FAILED),
            APP_CONTROL_ERROR_INVALID_PARAMETER);

  ASSERT_TRUE(runLoopUntil([&] { return !answers.empty(); }, 5));
  runLoopFor(0.05);
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].first, 7u);
  EXPECT_EQ(answers[0].second, APP_CONTROL_RESULT_SUCCEEDED);
  app_control_destroy(reply);
  app_control_destroy(kept);
  app_control_destroy(notLaunched);
}

}  // namespace
