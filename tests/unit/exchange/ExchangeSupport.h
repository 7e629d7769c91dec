#ifndef MORVIK_TEST_EXCHANGE_SUPPORT_H
#define MORVIK_TEST_EXCHANGE_SUPPORT_H

#include <memory>
#include <string>
#include <vector>

#include "FakeApp.h"
#include "LogLineMatcher.h"
#include "PlatformFixture.h"
#include "host/Platform.h"

namespace morvik_test {

constexpr const char* kWatchfaceService = "com.talvoro.watchface-service";
constexpr const char* kWatchfacePort = "watchface-service::localport";
constexpr const char* kServicePort = "morvik-service::localport";
constexpr const char* kStore = "com.talvoro.vendarosvc";
constexpr const char* kOrbitline = "com.talvoro.clock-orbitline";
constexpr const char* kOrbitlineService = "com.talvoro.clock-orbitline.service";
constexpr const char* kPacetrailService = "com.talvoro.clock-pacetrail.service";

// What the service sent out, in order: "request APP OPERATION|- key=value..." or "message
// key=value..." (to the watch face service's port; to any other, "message to APP PORT ...").
std::vector<std::string> outgoing(host::Platform& platform);

// A fixture whose platform has a fake watch face service listening on its port.
class ExchangeFixture : public PlatformFixture {
 protected:
  void SetUp() override;

  // Installs `appId` as a service app answered by a new FakeApp.
  std::shared_ptr<FakeApp> addPeer(const std::string& appId);
  // A message from the watch face service to the service's local port.
  void fromWatchface(const host::KeyValues& message);
  std::vector<std::string> logs() const { return serviceMessages(platform_->log()); }
  std::string trustedDir() { return platform().sharedTrustedPath(kSelfAppId); }

 private:
  host::Platform* platform_ = nullptr;
};

}  // namespace morvik_test

#endif
