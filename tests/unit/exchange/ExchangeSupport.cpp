#include "ExchangeSupport.h"

#include <glib.h>

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
  watchface_ = std::make_shared<FakeApp>(std::vector<std::string>{kWatchfacePort});
  platform().packages().install({kWatchfaceService, kWatchfaceService, "svcapp", true});
  platform().registerApp(kWatchfaceService, watchface_);
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

std::string readFile(const std::string& path) {
  g_autofree char* bytes = nullptr;
  gsize length = 0;
  if (!g_file_get_contents(path.c_str(), &bytes, &length, nullptr))
    return "(unreadable)";
  return std::string(bytes, length);
}

void writeFile(const std::string& path, const std::string& bytes) {
  g_file_set_contents(path.c_str(), bytes.data(), static_cast<gssize>(bytes.size()), nullptr);
}

}  // namespace morvik_test
