#include "launcher/Launcher.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "LaunchRun.h"
#include "MvText.h"
#include "RunSummary.h"
#include "host/DeliverySchedule.h"
#include "host/MainLoop.h"
#include "host/Platform.h"
#include "host/VirtualClock.h"
#include "launcher/DeviceAdmission.h"
#include "launcher/DeviceHooks.h"
#include "launcher/LaunchOptions.h"
#include "launcher/RunReport.h"

namespace launcher {

namespace {

// What a run brought up, in the order it must go down: the platform before its loop, the
// watch's lock last, so that no other run touches the watch while the app object lives.
class Session : public host::LaunchedApp {
 public:
  Session(const LaunchOptions& launch, const std::string& appId, std::unique_ptr<DeviceLock> lock)
      : options(launch), deviceLock(std::move(lock)), platform(options.deviceDir, appId) {
    if (options.scheduleSeed)
      platform.setSchedule(std::make_unique<host::DeliverySchedule>(*options.scheduleSeed));
  }

  LaunchOptions options;
  std::unique_ptr<DeviceLock> deviceLock;
  host::MainLoop loop;
  host::Platform platform;
};

bool usableDirectory(const std::string& dir) {
  return g_file_test(dir.c_str(), G_FILE_TEST_IS_DIR) &&
         access(dir.c_str(), R_OK | W_OK | X_OK) == 0;
}

// The device must exist; a missing cloud is a new, empty one, made once the run is admitted.
bool checkDirectories(const LaunchOptions& options, std::string& error) {
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

// Where --json asks for the result, found even on a command line that does not parse.
std::string jsonPathOf(const std::vector<std::string>& args) {
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--")
      break;
    if (args[i] == "--json" && i + 1 < args.size())
      return args[i + 1];
    if (args[i].rfind("--json=", 0) == 0)
      return args[i].substr(7);
  }
  return std::string();
}

// A run that never started still answers --json, so a script never reads an older result.
int refuse(const std::string& program,
           const std::string& jsonPath,
           int status,
           const std::string& reason,
           const char* hint = "") {
  fprintf(stderr, "%s: %s%s\n", program.c_str(), reason.c_str(), hint);
  if (jsonPath.empty())
    return status;
  RunReport report;
  report.failure("refused", reason);
  report.set("refused", jsonString(reason));
  report.set("status", jsonInt(status));
  const std::string json = report.json(true) + "\n";
  if (jsonPath == "-") {
    fputs(json.c_str(), stdout);
    return status;
  }
  g_autoptr(GError) error = nullptr;
  if (!g_file_set_contents(jsonPath.c_str(), json.data(), static_cast<gssize>(json.size()), &error))
    fprintf(stderr, "%s: cannot write the JSON result: %s\n", program.c_str(), error->message);
  return status;
}

// Reads the command line; a negative result means: go on and run.
int readOptions(const std::string& program, int argc, char* argv[], LaunchOptions& options) {
  std::vector<std::string> args(argv + (argc > 0 ? 1 : 0), argv + argc);
  std::string error;
  if (!parseLaunchOptions(args, options, error))
    return refuse(program, jsonPathOf(args), kStatusUsage, error, " (see --help)");
  if (options.action == LaunchOptions::Action::kHelp) {
    fputs(launchUsage(program).c_str(), stdout);
    return kStatusSucceeded;
  }
  if (options.action == LaunchOptions::Action::kVersion) {
    printf("%s %s\n", program.c_str(), MORVIK_VERSION);
    return kStatusSucceeded;
  }
  return -1;
}

}  // namespace

Launcher::Launcher(std::string appId) : appId_(std::move(appId)) {}

Launcher::~Launcher() = default;

int Launcher::launch(int argc,
                     char* argv[],
                     host::AppLifeCycle& app,
                     std::unique_ptr<host::LaunchedApp>& launched) {
  g_autofree char* name = g_path_get_basename(argc > 0 ? argv[0] : "morvik-service");
  const std::string program = name;
  mvUseUtf8Locale();
  const std::string notText = mvArgumentsNotUtf8(argc, argv);
  if (!notText.empty()) {
    fprintf(stderr, "%s: %s\n", program.c_str(), notText.c_str());
    return kStatusUsage;
  }
  // An output nobody reads any more is a write that fails, reported as such, not a silent end.
  signal(SIGPIPE, SIG_IGN);
  LaunchOptions options;
  const int optionsStatus = readOptions(program, argc, argv, options);
  if (optionsStatus >= 0)
    return optionsStatus;
  std::string error;
  auto deviceLock = std::make_unique<DeviceLock>();
  if (!checkDirectories(options, error) ||
      !admitDevice(options.deviceDir, appId_, *deviceLock, error))
    return refuse(program, options.jsonPath, kStatusUsage, error);
  DeviceHooks* hooks = deviceHooks();
  if (!hooks)
    return refuse(program, options.jsonPath, kStatusUsage,
                  "no emulated watch is linked into this binary");

  // The clock must be simulated before the loop reads it for the first time.
  if (options.scheduleSeed)
    host::VirtualClock::enable();
  // Without a runtime directory EFL makes one in the user's home. It only notes the one it is
  // given, so the watch's own directory does, and nothing is written outside the watch.
  if (!g_getenv("XDG_RUNTIME_DIR")) {
    g_autofree char* device = g_canonicalize_filename(options.deviceDir.c_str(), nullptr);
    g_setenv("XDG_RUNTIME_DIR", device, TRUE);
  }
  auto owned = std::make_unique<Session>(options, appId_, std::move(deviceLock));
  Session& session = *owned;
  launched = std::move(owned);
  host::Platform& platform = session.platform;
  if (!hooks->boot(platform, session.options, error) ||
      g_mkdir_with_parents(options.cloudDir.c_str(), 0755) != 0)
    return refuse(
        program, options.jsonPath, kStatusUsage,
        error.empty() ? "cannot create cloud directory '" + options.cloudDir + "'" : error);
  platform.log().beginRun(argc, argv);

  app.start(argc, argv);
  if (!app.create()) {
    RunReport report;
    hooks->finish(platform, RunOutcome(), report);
    return refuse(program, options.jsonPath, kStatusCreateRefused,
                  "the app refused to start (onCreate returned false)");
  }

  LaunchRun run(platform, session.options, *hooks);
  const RunOutcome outcome = run.run(
      session.loop, [&app](app_control_h request, bool first) { app.appControl(request, first); });
  app.terminate();
  return reportRun(platform, session.options, outcome, *hooks);
}

}  // namespace launcher
