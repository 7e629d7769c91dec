// The documented limits of the device, as the host's personality switches them on.
#include <app_control.h>
#include <message_port.h>
#include <vconf.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "FakeApp.h"
#include "MvHandles.h"
#include "PlatformFixture.h"

namespace {

using morvik_test::FakeApp;

const char* const kWatchface = "com.talvoro.watchface-service";
const char* const kPort = "watchface-service::localport";

class DeviceLimitsTest : public morvik_test::PlatformFixture {
 protected:
  void set(const std::string& name, const std::string& value) {
    std::string error;
    ASSERT_TRUE(platform().personality().set(name, value, error)) << error;
  }
  int launch(const host::PackageInfo& app) {
    platform().packages().install(app);
    platform().registerApp(app.appId, std::make_shared<FakeApp>(std::vector<std::string>{kPort}));
    MvAppControlPtr request = mvCreateAppControl();
    app_control_set_app_id(request.get(), app.appId.c_str());
    return app_control_send_launch_request(request.get(), nullptr, nullptr);
  }
  int send(const std::string& value) {
    MvBundlePtr message(bundle_create());
    bundle_add_str(message.get(), "key", value.c_str());
    return message_port_send_trusted_message(kWatchface, kPort, message.get());
  }
};

// A vconf value of more than 4 KiB is refused by default, from the app and the platform's own
// apps alike. A message counts its keys and values with a NUL each; one over its limit (none by
// default) fails either way with MESSAGE_PORT_ERROR_MAX_EXCEEDED, recorded as such.
TEST_F(DeviceLimitsTest, ValuesAndMessagesOverTheirLimits) {
  const char* const key = "db/pel/clocks_set_idle";
  EXPECT_EQ(vconf_set_str(key, std::string(4096, 'a').c_str()), VCONF_OK);
  EXPECT_EQ(vconf_set_str(key, std::string(4097, 'b').c_str()), VCONF_ERROR);
  EXPECT_FALSE(platform().writeConfig(key, std::string(4097, 'c')));
  EXPECT_EQ(MvCharPtr(vconf_get_str(key)).get(), std::string(4096, 'a'));
  set("vconf-value-limit", "off");
  EXPECT_EQ(vconf_set_str(key, std::string(5000, 'd').c_str()), VCONF_OK);

  launch({kWatchface, kWatchface, "svcapp", true});
  EXPECT_EQ(send(std::string(100000, 'v')), MESSAGE_PORT_ERROR_NONE);
  set("message-size-limit", "15");
  EXPECT_EQ(send(std::string(10, 'v')), MESSAGE_PORT_ERROR_NONE);
  EXPECT_EQ(send(std::string(11, 'v')), MESSAGE_PORT_ERROR_MAX_EXCEEDED);
  EXPECT_EQ(platform().sendToApp(kWatchface, kPort, "morvik-service::localport",
                                 {{"key", std::string(11, 'v')}}),
            MESSAGE_PORT_ERROR_MAX_EXCEEDED);
  EXPECT_EQ(platform().record().ofKind(host::BoundaryEvent::Kind::kMessageDropped).back().code,
            MESSAGE_PORT_ERROR_MAX_EXCEEDED);
}

// Refused, another package's service app is not launched; its other apps, and the service apps of
// the running app's own package, still are.
TEST_F(DeviceLimitsTest, AnotherPackagesServiceAppsCanBeRefused) {
  set("other-package-service", "refuse");
  platform().packages().install({kSelfAppId, kSelfAppId, "svcapp", true});
  EXPECT_EQ(launch({"com.talvoro.vendarosvc", "com.talvoro.vendarosvc", "svcapp"}),
            APP_CONTROL_ERROR_LAUNCH_REJECTED);
  EXPECT_EQ(launch({"com.talvoro.clock", "com.talvoro.clock", "watchapp"}), APP_CONTROL_ERROR_NONE);
  EXPECT_EQ(launch({kSelfAppId, "com.talvoro.morvik.helper", "svcapp"}), APP_CONTROL_ERROR_NONE);
}

}  // namespace
