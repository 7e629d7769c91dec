#ifndef MORVIK_TEST_CLOUD_FIXTURE_H
#define MORVIK_TEST_CLOUD_FIXTURE_H

#include <app_control.h>

#include <memory>
#include <string>
#include <vector>

#include "MvHandles.h"
#include "PlatformFixture.h"
#include "host/AppControl.h"
#include "host/CloudLibrary.h"

namespace morvik_test {

using AppControlPtr = MvAppControlPtr;

// The platform fixture with a fresh cloud library, and launch requests as the launcher makes
// them (so that replies to them reach the launcher).
class CloudFixture : public PlatformFixture {
 protected:
  void SetUp() override {
    PlatformFixture::SetUp();
    host::cloud::reset();
  }
  void TearDown() override {
    host::cloud::reset();
    PlatformFixture::TearDown();
  }

  static AppControlPtr launchRequest(const char* operation, unsigned launchId = 1) {
    app_control_s handle;
    handle.appId = kSelfAppId;
    handle.hasOperation = operation != nullptr;
    handle.operation = operation ? operation : "";
    handle.launchId = launchId;
    return AppControlPtr(host::cloneAppControl(handle));
  }

  // The results of every reply to the launcher so far.
  std::vector<int> launcherReplies() {
    std::vector<int> codes;
    for (const host::BoundaryEvent& event :
         platform().record().ofKind(host::BoundaryEvent::Kind::kReplyToLauncher))
      codes.push_back(event.code);
    return codes;
  }

  std::string sharedPath() { return platform().sharedTrustedPath(kSelfAppId); }
};

}  // namespace morvik_test

#endif
