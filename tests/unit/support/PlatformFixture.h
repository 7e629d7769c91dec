#ifndef MORVIK_TEST_PLATFORM_FIXTURE_H
#define MORVIK_TEST_PLATFORM_FIXTURE_H

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "TempDir.h"
#include "host/MainLoop.h"
#include "host/Platform.h"

namespace morvik_test {

// A fresh emulated platform on a temporary device directory, with the main loop, for each test.
class PlatformFixture : public ::testing::Test {
 protected:
  static constexpr const char* kSelfAppId = "com.talvoro.morvik.service";

  void SetUp() override;
  void TearDown() override;

  host::Platform& platform() { return *platform_; }
  const std::string& deviceDir() const { return deviceDir_->path(); }

  // Runs the main loop until `done` holds or `timeoutSeconds` pass; returns done().
  bool runLoopUntil(const std::function<bool()>& done, double timeoutSeconds);
  void runLoopFor(double seconds);

 private:
  std::unique_ptr<TempDir> deviceDir_;
  std::unique_ptr<host::MainLoop> loop_;
  std::unique_ptr<host::Platform> platform_;
};

}  // namespace morvik_test

#endif
