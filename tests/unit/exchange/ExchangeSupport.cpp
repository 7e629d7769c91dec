#include "ExchangeSupport.h"

namespace morvik_test {

namespace {

std::string pairs(const host::KeyValues& values) {
  std::string text;
  for (const auto& value : values)
    text += " " + value.first + "=" + value.second;
  return text;
}

}  // namespace

std::vector<std::string> outgoing(host::Platform& platform) {
  std::vector<std::string> lines;
  for (const host::BoundaryEvent& event : platform.record().events()) {
    if (event.kind == host::BoundaryEvent::Kind::kAppControlSent) {
      lines.push_back("request " + event.peer + " " + (event.name.empty() ? "-" : event.name) +
                      pairs(event.data));
    } else if (event.kind == host::BoundaryEvent::Kind::kMessageSent) {
      const bool usual = event.peer == kWatchfaceService && event.name == kWatchfacePort;
      lines.push_back(std::string("message") +
                      (usual ? "" : " to " + event.peer + " " + event.name) + pairs(event.data));
    }
  }
  return lines;
}

void ExchangeFixture::SetUp() {
  PlatformFixture::SetUp();
  platform_ = &platform();
  platform().packages().install({kWatchfaceService, kWatchfaceService, "svcapp", true});
  platform().registerApp(kWatchfaceService,
                         std::make_shared<FakeApp>(std::vector<std::string>{kWatchfacePort}));
}

std::shared_ptr<FakeApp> ExchangeFixture::addPeer(const std::string& appId) {
  auto peer = std::make_shared<FakeApp>();
  platform().packages().install({appId, appId, "svcapp", true});
  platform().registerApp(appId, peer);
  return peer;
}

void ExchangeFixture::fromWatchface(const host::KeyValues& message) {
  platform().sendToApp(kWatchfaceService, kWatchfacePort, kServicePort, message);
}

}  // namespace morvik_test
