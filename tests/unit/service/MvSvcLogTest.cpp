#include "MvSvcLog.h"

#include <gtest/gtest.h>

#include <string>

#include "host/Platform.h"

namespace {

class MvSvcLogTest : public ::testing::Test {
 protected:
  MvSvcLogTest() : platform_("", "com.talvoro.morvik.service") {
    platform_.log().setEchoToStderr(false);
  }

  const host::LogLine& onlyLine() {
    EXPECT_EQ(platform_.log().lines().size(), 1u);
    return platform_.log().lines().back();
  }

  host::Platform platform_;
};

TEST_F(MvSvcLogTest, ErrorLineHasThePrefixAndTheRedCriticalMarker) {
  MVSVC_LOGE("talvoro_cloud_initialize failed.(%d)", -5);
  const int line = __LINE__ - 1;
  const host::LogLine& logged = onlyLine();
  EXPECT_EQ(logged.priority, 'E');
  EXPECT_EQ(logged.tag, "morvik-service");
  EXPECT_EQ(logged.text, "MvSvcLogTest.cpp: TestBody(" + std::to_string(line) +
                             ") > \x1b[0;31m* Critical * talvoro_cloud_initialize failed.(-5)"
                             "\x1b[0;m");
}

TEST_F(MvSvcLogTest, InformationLineIsGreenAndLambdasShowOperatorCall) {
  int line = 0;
  auto handler = [&line] {
    line = __LINE__ + 1;
    MVSVC_LOGI("value : %s", "100% {\"a\"}");
  };
  handler();
  const host::LogLine& logged = onlyLine();
  EXPECT_EQ(logged.priority, 'I');
  EXPECT_EQ(logged.text, "MvSvcLogTest.cpp: operator()(" + std::to_string(line) +
                             ") > \x1b[0;32mvalue : 100% {\"a\"}\x1b[0;m");
}

TEST_F(MvSvcLogTest, SharedStepsLogInTheNameOfTheirCaller) {
  MVSVC_LOGE_FOR("_sendMessagePortMessage", "Failed to send message port message");
  const int line = __LINE__ - 1;
  EXPECT_EQ(onlyLine().text, "MvSvcLogTest.cpp: _sendMessagePortMessage(" + std::to_string(line) +
                                 ") > \x1b[0;31m* Critical * Failed to send message port message"
                                 "\x1b[0;m");
}

TEST_F(MvSvcLogTest, AssertionThatHoldsLogsNothing) {
  int value = 1;
  int* request = &value;
  WASSERT(request != nullptr);
  EXPECT_TRUE(platform_.log().lines().empty());
}

}  // namespace
