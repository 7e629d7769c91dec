// The emulated launcher: app_assist::WServiceApp runs the service app's life cycle on the
// emulated watch named on the command line.
#include <WServiceApp.h>

#include <glib.h>
#include <glib/gstdio.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "LaunchRun.h"
#include "MvText.h"
#include "RunSummary.h"
#include "host/DeliverySchedule.h"
#include "host/DeviceAdmission.h"
#include "host/DeviceHooks.h"
#include "host/LaunchOptions.h"
#include "host/MainLoop.h"
#include "host/Platform.h"
#include "host/RunReport.h"
#include "host/VirtualClock.h"

namespace {

bool usableDirectory(const std::string& dir) {
  return g_file_test(dir.c_str(), G_FILE_TEST_IS_DIR) &&
         access(dir.c_str(), R_OK | W_OK | X_OK) == 0;
}

// The device must exist; a missing cloud is a new, empty one, made once the run is admitted.
bool checkDirectories(const host::LaunchOptions& options, std::string& error) {
  if (!usableDirectory(options.deviceDir)) {
    error = "device directory '" + options.deviceDir + "' is not a readable, writable directory";
    return false;
  }
  if (g_file_test(options.cloudDir.c_str(), G_FILE_TEST_EXISTS) &&
      !usableDirectory(options.cloudDir)) {
    error = "cloud directory '" + options.cloudDir + "' is not a readable, writable directory";
    return false;
  }
  return true;
}

// Reads the command line; a negative result means: go on and run.
int readOptions(const std::string& program, int argc, char* argv[], host::LaunchOptions& options) {
  std::vector<std::string> args(argv + (argc > 0 ? 1 : 0), argv + argc);
  std::string error;
  if (!host::parseLaunchOptions(args, options, error)) {
    fprintf(stderr, "%s: %s (see --help)\n", program.c_str(), error.c_str());
    return host::kStatusUsage;
  }
  if (options.action == host::LaunchOptions::Action::kHelp) {
    fputs(host::launchUsage(program).c_str(), stdout);
    return host::kStatusSucceeded;
  }
  if (options.action == host::LaunchOptions::Action::kVersion) {
    printf("%s %s\n", program.c_str(), MORVIK_VERSION);
    return host::kStatusSucceeded;
  }
  return -1;
}

}  // namespace

namespace app_assist {

struct WServiceApp::Runtime {
  Runtime(const host::LaunchOptions& launch, std::unique_ptr<host::DeviceLock> lock)
      : options(launch),
        deviceLock(std::move(lock)),
        platform(options.deviceDir, HOST_LAUNCHED_APP_ID) {
    if (options.scheduleSeed)
      platform.setSchedule(std::make_unique<host::DeliverySchedule>(*options.scheduleSeed));
  }

  host::LaunchOptions options;
  // No other run touches the watch while this app object lives.
  std::unique_ptr<host::DeviceLock> deviceLock;
  host::MainLoop loop;
  host::Platform platform;
};

WServiceApp::WServiceApp() = default;

WServiceApp::~WServiceApp() = default;

void WServiceApp::onStart(int, char*[]) {}

bool WServiceApp::onCreate() {
  return true;
}

void WServiceApp::onTerminate() {}

void WServiceApp::onAppControl(app_control_h, bool) {}

int WServiceApp::start(int argc, char* argv[]) {
  g_autofree char* name = g_path_get_basename(argc > 0 ? argv[0] : "morvik-service");
  const std::string program = name;
  mvUseUtf8Locale();
  const std::string notText = mvArgumentsNotUtf8(argc, argv);
  if (!notText.empty()) {
    fprintf(stderr, "%s: %s\n", program.c_str(), notText.c_str());
    return host::kStatusUsage;
  }
  // An output nobody reads any more is a write that fails, reported as such, not a silent end.
  signal(SIGPIPE, SIG_IGN);
  host::LaunchOptions options;
  const int optionsStatus = readOptions(program, argc, argv, options);
  if (optionsStatus >= 0)
    return optionsStatus;
  std::string error;
  auto deviceLock = std::make_unique<host::DeviceLock>();
  if (!checkDirectories(options, error) ||
      !host::admitDevice(options.deviceDir, HOST_LAUNCHED_APP_ID, *deviceLock, error)) {
    fprintf(stderr, "%s: %s\n", program.c_str(), error.c_str());
    return host::kStatusUsage;
  }
  host::DeviceHooks* hooks = host::deviceHooks();
  if (!hooks) {
    fprintf(stderr, "%s: no emulated watch is linked into this binary\n", program.c_str());
    return host::kStatusUsage;
  }

  // The clock must be simulated before the loop reads it for the first time.
  if (options.scheduleSeed)
    host::VirtualClock::enable();
  // Without a runtime directory EFL makes one in the user's home. It only notes the one it is
  // given, so the watch's own directory does, and nothing is written outside the watch.
  if (!g_getenv("XDG_RUNTIME_DIR")) {
    g_autofree char* device = g_canonicalize_filename(options.deviceDir.c_str(), nullptr);
    g_setenv("XDG_RUNTIME_DIR", device, TRUE);
  }
  runtime_ = std::make_unique<Runtime>(options, std::move(deviceLock));
  host::Platform& platform = runtime_->platform;
  if (!hooks->boot(platform, runtime_->options, error) ||
      g_mkdir_with_parents(options.cloudDir.c_str(), 0755) != 0) {
    fprintf(stderr, "%s: %s\n", program.c_str(),
            error.empty() ? ("cannot create cloud directory '" + options.cloudDir + "'").c_str()
                          : error.c_str());
    return host::kStatusUsage;
  }
  platform.log().beginRun(argc, argv);

  onStart(argc, argv);
  if (!onCreate()) {
    fprintf(stderr, "%s: the app refused to start (onCreate returned false)\n", program.c_str());
    host::RunReport report;
    hooks->finish(platform, host::RunOutcome(), report);
    return host::kStatusCreateRefused;
  }

  host::LaunchRun run(platform, runtime_->options, *hooks);
  const host::RunOutcome outcome = run.run(
      runtime_->loop, [this](app_control_h request, bool first) { onAppControl(request, first); });
  onTerminate();
  return host::reportRun(platform, runtime_->options, outcome, *hooks);
}

}  // namespace app_assist
