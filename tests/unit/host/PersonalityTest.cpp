// The documented limits of the device, as the host's personality switches them on.
#include <app_common.h>
#include <app_control.h>
#include <app_manager.h>
#include <message_port.h>
#include <vconf.h>

#include <gtest/gtest.h>
#include <stdlib.h>

#include <memory>
#include <string>

#include "FakeApp.h"
#include "MvHandles.h"
#include "PlatformFixture.h"

namespace {

using host::BoundaryEvent;
using morvik_test::FakeApp;

const char* const kKey = "db/pel/clocks_set_idle";
const char* const kWatchface = "com.talvoro.watchface-service";
const char* const kWatchfacePort = "watchface-service::localport";

class PersonalityTest : public morvik_test::PlatformFixture {
 protected:
  void set(const std::string& name, const std::string& value) {
    std::string error;
    ASSERT_TRUE(platform().personality().set(name, value, error)) << error;
  }
  std::string config() {
    MvCharPtr value(vconf_get_str(kKey));
    return value ? value.get() : "(none)";
  }
};

// 4 KiB by default: a longer value is refused and the one before it stays; the platform's own
// apps write through the same rule.
TEST_F(PersonalityTest, VconfValuesOverTheLimitAreRefused) {
  EXPECT_EQ(vconf_set_str(kKey, std::string(4096, 'a').c_str()), VCONF_OK);
  EXPECT_EQ(vconf_set_str(kKey, std::string(4097, 'b').c_str()), VCONF_ERROR);
  EXPECT_FALSE(platform().writeConfig(kKey, std::string(4097, 'c')));
  EXPECT_EQ(config(), std::string(4096, 'a'));
  set("vconf-value-limit", "off");
  EXPECT_EQ(vconf_set_str(kKey, std::string(5000, 'd').c_str()), VCONF_OK);
  EXPECT_EQ(config(), std::string(5000, 'd'));
}

// Off by default; once set, a message counts its keys and values with a NUL each, and one over
// the limit fails with MESSAGE_PORT_ERROR_MAX_EXCEEDED either way, recorded and never delivered.
TEST_F(PersonalityTest, MessagesOverTheLimitFailEitherWay) {
  platform().packages().install({kWatchface, kWatchface, "svcapp", true});
  auto watchface = std::make_shared<FakeApp>(std::vector<std::string>{kWatchfacePort});
  platform().registerApp(kWatchface, watchface);
  int received = 0;
  const int port = message_port_register_trusted_local_port(
      "morvik-service::localport",
      [](int, const char*, const char*, bool, bundle*, void* count) {
        ++*static_cast<int*>(count);
      },
      &received);
  ASSERT_GT(port, 0);
  auto send = [](const std::string& value) {
    MvBundlePtr message(bundle_create());
    bundle_add_str(message.get(), "key", value.c_str());
    return message_port_send_trusted_message(kWatchface, kWatchfacePort, message.get());
  };
  const host::KeyValues fits = {{"key", std::string(10, 'v')}};  // 4 + 11 bytes
  const host::KeyValues over = {{"key", std::string(11, 'v')}};
  EXPECT_EQ(send(std::string(100000, 'v')), MESSAGE_PORT_ERROR_NONE);
  set("message-size-limit", "15");
  EXPECT_EQ(send(fits[0].second), MESSAGE_PORT_ERROR_NONE);
  EXPECT_EQ(send(over[0].second), MESSAGE_PORT_ERROR_MAX_EXCEEDED);
  EXPECT_EQ(platform().sendToApp(kWatchface, kWatchfacePort, "morvik-service::localport", fits),
            MESSAGE_PORT_ERROR_NONE);
  EXPECT_EQ(platform().sendToApp(kWatchface, kWatchfacePort, "morvik-service::localport", over),
            MESSAGE_PORT_ERROR_MAX_EXCEEDED);
  ASSERT_TRUE(runLoopUntil([&] { return watchface->messages.size() == 2 && received == 1; }, 1));
  runLoopFor(0.1);
  EXPECT_EQ(received, 1);
  const auto sent = platform().record().ofKind(BoundaryEvent::Kind::kMessageSent);
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[2].code, MESSAGE_PORT_ERROR_MAX_EXCEEDED);
  const auto dropped = platform().record().ofKind(BoundaryEvent::Kind::kMessageDropped);
  ASSERT_EQ(dropped.size(), 1u);
  EXPECT_EQ(dropped[0].code, MESSAGE_PORT_ERROR_MAX_EXCEEDED);
  message_port_unregister_trusted_local_port(port);
}

// Refused, another package's service app is not launched; its UI apps, and the service apps of
// the running app's own package, still are.
TEST_F(PersonalityTest, AnotherPackagesServiceAppCanBeRefused) {
  platform().packages().install({kSelfAppId, kSelfAppId, "svcapp", true});
  const struct {
    host::PackageInfo app;
    int refused;  // the result once other-package-service is refused
  } cases[] = {
      {{"com.talvoro.vendarosvc", "com.talvoro.vendarosvc", "svcapp", true},
       APP_CONTROL_ERROR_LAUNCH_REJECTED},
      {{"com.talvoro.clock-orbitline", "com.talvoro.clock-orbitline", "watchapp", true},
       APP_CONTROL_ERROR_NONE},
      {{kSelfAppId, "com.talvoro.morvik.helper", "svcapp", true}, APP_CONTROL_ERROR_NONE},
  };
  for (const auto& c : cases) {
    platform().packages().install(c.app);
    platform().registerApp(c.app.appId, std::make_shared<FakeApp>());
  }
  for (const char* value : {"allow", "refuse"}) {
    set("other-package-service", value);
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(value) + " " + c.app.appId);
      MvAppControlPtr request = mvCreateAppControl();
      app_control_set_app_id(request.get(), c.app.appId.c_str());
      EXPECT_EQ(app_control_send_launch_request(request.get(), nullptr, nullptr),
                std::string(value) == "allow" ? APP_CONTROL_ERROR_NONE : c.refused);
    }
  }
}

// The platform's trusted paths end with '/', which its documentation does not promise.
TEST_F(PersonalityTest, TrustedPathsMayComeWithoutTheirSlash) {
  const std::string directory = platform().sharedTrustedPath(kSelfAppId);
  ASSERT_EQ(directory.back(), '/');
  for (const char* value : {"yes", "no"}) {
    set("trusted-path-slash", value);
    const std::string expected =
        value[0] == 'y' ? directory : directory.substr(0, directory.size() - 1);
    MvCharPtr own(app_get_shared_trusted_path());
    char* other = nullptr;
    ASSERT_EQ(app_manager_get_shared_trusted_path(kSelfAppId, &other), APP_MANAGER_ERROR_NONE);
    MvCharPtr owned(other);
    EXPECT_EQ(std::string(own.get()), expected);
    EXPECT_EQ(std::string(owned.get()), expected);
  }
}

}  // namespace
