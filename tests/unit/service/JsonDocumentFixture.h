#ifndef MORVIK_TEST_JSON_DOCUMENT_FIXTURE_H
#define MORVIK_TEST_JSON_DOCUMENT_FIXTURE_H

#include <glib.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "LogLineMatcher.h"
#include "MvSvcTypes.h"
#include "host/Platform.h"

namespace morvik_test {

// Captures the service's log lines and fails a test in which json-glib or GLib warned: the
// wrapper must check node types instead of tripping the library's assertions.
class JsonDocumentFixture : public ::testing::Test {
 protected:
  JsonDocumentFixture() : platform_("", MV_SERVICE_APP_ID) {
    platform_.log().setEchoToStderr(false);
  }

  void SetUp() override { previous_ = g_log_set_default_handler(&recordGlibLine, &glibLines_); }
  void TearDown() override {
    g_log_set_default_handler(previous_, nullptr);
    EXPECT_EQ(glibLines_, std::vector<std::string>{});
  }

  host::Platform& platform() { return platform_; }
  std::vector<std::string> messages() { return serviceMessages(platform_.log()); }
  void clearLog() { platform_.log().clear(); }

 private:
  static void recordGlibLine(const gchar* domain,
                             GLogLevelFlags level,
                             const gchar* message,
                             gpointer lines) {
    if (level & (G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING)) {
      static_cast<std::vector<std::string>*>(lines)->push_back(std::string(domain ? domain : "") +
                                                               ": " + message);
    }
  }

  host::Platform platform_;
  GLogFunc previous_ = nullptr;
  std::vector<std::string> glibLines_;
};

}  // namespace morvik_test

// Record comparison and printing for the assertions; gtest finds them next to the records.
inline bool operator==(const WatchResultData& a, const WatchResultData& b) {
  return a.pkgId == b.pkgId && a.svcId == b.svcId && a.result == b.result;
}

inline bool operator==(const WatchImageData& a, const WatchImageData& b) {
  return a.fileName == b.fileName && a.bgType == b.bgType && a.data == b.data;
}

inline void PrintTo(const WatchResultData& r, std::ostream* os) {
  *os << "{" << r.pkgId << ", " << r.svcId << ", " << r.result << "}";
}
inline void PrintTo(const WatchImageData& r, std::ostream* os) {
  *os << "{" << r.fileName << ", " << r.bgType << ", " << r.data << "}";
}

#endif
