#include "MvSvcApp.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "LogLineMatcher.h"
#include "MvHandles.h"
#include "MvSvcTypes.h"
#include "PlatformFixture.h"
#include "host/AppControl.h"

namespace {

using morvik_test::serviceMessages;

using AppControlPtr = MvAppControlPtr;

AppControlPtr makeRequest(const char* operation,
                          const std::vector<std::pair<const char*, const char*>>& extras = {}) {
  app_control_h handle = nullptr;
  app_control_create(&handle);
  if (operation)
    app_control_set_operation(handle, operation);
  for (const auto& extra : extras)
    app_control_add_extra_data(handle, extra.first, extra.second);
  return AppControlPtr(handle);
}

class MvSvcAppTest : public morvik_test::PlatformFixture {
 protected:
  // Time from the first launch request to service_app_exit(), or a negative value.
  double exitDelay() {
    double requestedAt = -1;
    for (const host::BoundaryEvent& event : platform().record().events()) {
      if (event.kind == host::BoundaryEvent::Kind::kExitRequested)
        return requestedAt < 0 ? -1 : event.at - requestedAt;
      if (event.kind == host::BoundaryEvent::Kind::kLaunchRequest && requestedAt < 0)
        requestedAt = event.at;
    }
    return -1;
  }

  // Delivers a request as the launcher does, recording when it arrived.
  void deliver(MvSvcApp& app, const AppControlPtr& request) {
    platform().addEvent(host::BoundaryEvent::Kind::kLaunchRequest, "", "", {}, 0);
    app.onAppControl(request.get(), false);
  }
};

TEST_F(MvSvcAppTest, RequestsWithoutACloudOperationStartNoFlow) {
  const char* const operations[] = {
      "HTTP://talvoro.com/appcontrol/operation/talvoro_cloud/backup",
      MVSVC_OPERATION_BACKUP "/",
      "http://talvoro.com/appcontrol/operation/talvoro_cloud/restor",
      "",
      nullptr,
  };
  for (const char* operation : operations) {
    SCOPED_TRACE(operation ? operation : "(no operation)");
    platform().log().clear();
    platform().record().clear();
    MvSvcApp app;
    AppControlPtr request = makeRequest(operation);
    app.onAppControl(request.get(), true);
    EXPECT_EQ(serviceMessages(platform().log()), std::vector<std::string>{"E msg is nullptr!"});
    EXPECT_TRUE(platform().record().events().empty());
  }
}

TEST_F(MvSvcAppTest, CreateAlwaysSucceeds) {
  MvSvcApp app;
  EXPECT_TRUE(app.onCreate());
}

TEST_F(MvSvcAppTest, RetailModeEndsTheServiceTwoSecondsLater) {
  MvSvcApp app;
  AppControlPtr request = makeRequest(nullptr, {{"retail-mode", "0"}});
  deliver(app, request);
  EXPECT_TRUE(serviceMessages(platform().log()).empty());

  ASSERT_TRUE(runLoopUntil([&] { return platform().exitRequested(); }, 10));
  EXPECT_GE(exitDelay(), 2.0);
  EXPECT_EQ(platform().record().ofKind(host::BoundaryEvent::Kind::kExitRequested).size(), 1u);
}

TEST_F(MvSvcAppTest, SecondRetailRequestRestartsTheDelay) {
  MvSvcApp app;
  AppControlPtr request = makeRequest("http://example.com/unknown", {{"retail-mode", "1"}});
  deliver(app, request);
  platform().post([&] { app.onAppControl(request.get(), false); }, 1000);

  ASSERT_TRUE(runLoopUntil([&] { return platform().exitRequested(); }, 10));
  EXPECT_GE(exitDelay(), 3.0);
  EXPECT_EQ(platform().record().ofKind(host::BoundaryEvent::Kind::kExitRequested).size(), 1u);
}

TEST_F(MvSvcAppTest, DestroyingTheAppCancelsAPendingExit) {
  {
    MvSvcApp app;
    AppControlPtr request = makeRequest(nullptr, {{"retail-mode", "1"}});
    app.onAppControl(request.get(), true);
  }
  runLoopFor(2.3);
  EXPECT_FALSE(platform().exitRequested());
}

using MvSvcAppDeathTest = MvSvcAppTest;

TEST_F(MvSvcAppDeathTest, NullRequestBreaksThePrecondition) {
  MvSvcApp app;
#ifdef NDEBUG
  app.onAppControl(nullptr, true);
  EXPECT_EQ(serviceMessages(platform().log()),
            (std::vector<std::string>{"E WASSERT! request != nullptr", "E msg is nullptr!"}));
#else
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  platform().log().setEchoToStderr(true);
  EXPECT_DEATH(app.onAppControl(nullptr, true),
               "MvSvcApp\\.cpp: onAppControl\\([0-9]+\\) > .*WASSERT! request != nullptr");
#endif
}

}  // namespace
