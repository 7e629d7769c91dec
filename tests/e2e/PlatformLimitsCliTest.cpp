#include <app_control.h>
#include <glib.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "ProcessRun.h"
#include "emu/DeviceProfile.h"

namespace {

using morvik_test::ProcessResult;
using morvik_test::runEmu;

const char* const kBigFace = "com.talvoro.face.aurora";

// A documented limit of the device switched on for one flow: a backup of the sample watch (its
// first face's settings `faceBytes` long when set), or a restore onto a blank watch of such a
// backup taken without the limit, or of `document`. What the run must come to, with reasons
// (see outcomeOf()), and the line the service logs for the item over the limit.
struct LimitCase {
  const char* name;
  std::map<std::string, std::string> platform;
  const char* operation;
  size_t faceBytes;
  std::string document;
  std::string outcome;
  const char* serviceLine;
};

void PrintTo(const LimitCase& c, std::ostream* os) {
  *os << c.name;
}

class PlatformLimitsCliTest : public morvik_test::CliFixture,
                              public ::testing::WithParamInterface<LimitCase> {
 protected:
  std::string makeWatch(const std::string& name,
                        const char* kind,
                        const std::map<std::string, std::string>& platform,
                        size_t faceBytes) {
    const std::string dir = watch(name, kind);
    emu::DeviceProfile profile;
    std::string error;
    EXPECT_TRUE(profile.load(dir, error)) << error;
    profile.platform = platform;
    if (faceBytes)
      profile.faces[0].settings = "<face>" + std::string(faceBytes - 13, 'x') + "</face>";
    EXPECT_TRUE(profile.save(dir, error)) << error;
    return dir;
  }
  ProcessResult run(const std::string& device, const char* operation) {
    return service(device, {"--operation", operation, "--schedule", "1", "--json", "-"});
  }
};

// The run ends as the device would end it and says so truthfully: only the item over the limit is
// lost, and the watch still reads back.
TEST_P(PlatformLimitsCliTest, LosesOnlyTheItemOverTheLimit) {
  const LimitCase& c = GetParam();
  std::string device;
  if (std::string(c.operation) == "backup") {
    device = makeWatch("sample", "--sample", c.platform, c.faceBytes);
  } else {
    if (c.document.empty()) {
      ASSERT_EQ(run(makeWatch("sample", "--sample", {}, c.faceBytes), "backup").status, 0);
    } else {
      ASSERT_EQ(runEmu({"import", cloud_, file("document.json", c.document)}).status, 0);
    }
    device = makeWatch("blank", "--blank", c.platform, 0);
  }
  ProcessResult ran = run(device, c.operation);
  EXPECT_EQ(morvik_test::outcomeOf(ran, cloud_, true), c.outcome);
  if (c.serviceLine) {
    EXPECT_TRUE(morvik_test::hasLine(ran.err, std::string("* Critical * ") + c.serviceLine))
        << ran.err;
  }
  EXPECT_EQ(runEmu({"show", device}).status, 0);
  // The service's files stay in its trusted directory, with or without the platform's '/'.
  g_autoptr(GDir) shared =
      g_dir_open((device + "/apps/com.talvoro.morvik.service/shared").c_str(), 0, nullptr);
  ASSERT_TRUE(shared);
  while (const char* name = g_dir_read_name(shared))
    EXPECT_STREQ(name, "trusted");
}

const std::string kMissing = "the watch face service's entry is missing";
const std::string kNotGot = "the watch face service did not get it";
const std::string kRejected = "its app could not be launched (error " +
                              std::to_string(APP_CONTROL_ERROR_LAUNCH_REJECTED) + ")";

INSTANTIATE_TEST_SUITE_P(
    EveryLimit,
    PlatformLimitsCliTest,
    ::testing::Values(
        LimitCase{"VconfValueOverTheLimit",
                  {},
                  "restore",
                  0,
                  "{\"watch_main_key\":\"" + std::string(5000, 'k') +
                      "\",\"watch_sub_key\":\"\",\"watch_items\":[{\"pkgid\":\"com.talvoro.face."
                      "mono\",\"svcid\":\"com.talvoro.watchface-service\",\"result\":\"<m/>\"}]}",
                  "4 service: restore succeeded; sets 1; left out []; not restored [idle clock: "
                  "it was not set to \"" +
                      std::string(5000, 'k') + "\"]",
                  "Failed to write main vconf key"},
        LimitCase{"MessageOverTheLimitOnBackup",
                  {{"message-size-limit", "4096"}},
                  "backup",
                  5000,
                  "",
                  "4 service: backup succeeded; sets 1; left out [face " + std::string(kBigFace) +
                      ": " + kMissing + "]; not restored []",
                  nullptr},
        LimitCase{"MessageOverTheLimitOnRestore",
                  {{"message-size-limit", "4096"}},
                  "restore",
                  5000,
                  "",
                  "4 service: restore succeeded; sets 1; left out []; not restored [face " +
                      std::string(kBigFace) + ": " + kNotGot + "]",
                  "Failed to send message port message"},
        LimitCase{"OtherPackagesServiceOnBackup",
                  {{"other-package-service", "refuse"}},
                  "backup",
                  0,
                  "",
                  "4 service: backup succeeded; sets 1; left out [watch app "
                  "com.talvoro.clock-orbitline.service: " +
                      kRejected + "; watch app com.talvoro.clock-pacetrail.service: " + kRejected +
                      "]; not restored []",
                  "Failed to launch com.talvoro.clock-orbitline.service app"},
        LimitCase{"OtherPackagesServiceOnRestore",
                  {{"other-package-service", "refuse"}},
                  "restore",
                  0,
                  "",
                  "4 service: restore succeeded; sets 1; left out []; not restored [app "
                  "com.indie.clock-tidal: the store got no install request for it; app "
                  "com.indie.clock-ember: the store got no install request for it; watch app "
                  "com.talvoro.clock-pacetrail.service: " +
                      kRejected + "; watch app com.talvoro.clock-orbitline.service: " + kRejected +
                      "]",
                  "app_control_send_launch_request() failed"},
        LimitCase{"TrustedPathWithoutSlashOnBackup",
                  {{"trusted-path-slash", "no"}},
                  "backup",
                  0,
                  "",
                  "0 service: backup succeeded; sets 1; left out []; not restored []",
                  nullptr},
        LimitCase{"TrustedPathWithoutSlashOnRestore",
                  {{"trusted-path-slash", "no"}},
                  "restore",
                  0,
                  "",
                  "0 service: restore succeeded; sets 1; left out []; not restored []",
                  nullptr}),
    [](const ::testing::TestParamInfo<LimitCase>& info) { return std::string(info.param.name); });

}  // namespace
