// The emulated launcher: app_assist::WServiceApp runs the service app's life cycle on the
// emulated watch named on the command line.
#include <WServiceApp.h>

#include <glib.h>
#include <glib/gstdio.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "host/AppControl.h"
#include "host/DeviceAdmission.h"
#include "host/DeviceHooks.h"
#include "host/LaunchOptions.h"
#include "host/MainLoop.h"
#include "host/Platform.h"

namespace {

const int kStatusEndedBySelf = 0;
const int kStatusCreateRefused = 1;
const int kStatusUsage = 2;
const int kStatusDeadline = 3;

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

std::string describe(const host::BoundaryEvent& event) {
  std::string text = event.name.empty() ? std::string("(no operation)") : event.name;
  for (const auto& extra : event.data)
    text += " " + extra.first + "=" + extra.second;
  return text;
}

const char* resultName(int result) {
  switch (result) {
    case APP_CONTROL_RESULT_SUCCEEDED:
      return "succeeded";
    case APP_CONTROL_RESULT_FAILED:
      return "failed";
    case APP_CONTROL_RESULT_CANCELED:
      return "canceled";
    default:
      return "other";
  }
}

// What a run that did not end by itself was still waiting for, read off the boundary record.
void printWaits(host::Platform& platform) {
  using Kind = host::BoundaryEvent::Kind;
  std::map<std::string, int> unanswered;
  std::map<std::string, int> pendingReplies;
  for (const host::BoundaryEvent& event : platform.record().events()) {
    if (event.kind == Kind::kLaunchRequest)
      ++unanswered[event.name];
    else if (event.kind == Kind::kReplyToLauncher)
      --unanswered[event.name];
    else if (event.kind == Kind::kAppControlSent && event.code == APP_CONTROL_ERROR_NONE)
      ++pendingReplies[event.peer];
    else if (event.kind == Kind::kAppControlReply)
      --pendingReplies[event.peer];
  }
  for (const auto& request : unanswered) {
    if (request.second > 0)
      printf("waiting   the launch request %s was never answered\n",
             request.first.empty() ? "(no operation)" : request.first.c_str());
  }
  for (const auto& peer : pendingReplies) {
    if (peer.second > 0)
      printf("waiting   %d app-control repl%s from %s\n", peer.second,
             peer.second == 1 ? "y" : "ies", peer.first.c_str());
  }
  for (const std::string& port : platform.ports().names())
    printf("waiting   messages on the local port %s\n", port.c_str());
}

void printSummary(host::Platform& platform,
                  const host::LaunchOptions& options,
                  const host::RunOutcome& outcome,
                  const std::vector<std::string>& deviceLines) {
  using Kind = host::BoundaryEvent::Kind;
  printf("\n== morvik-service run ==\n");
  printf("device    %s\n", options.deviceDir.c_str());
  printf("cloud     %s\n", options.cloudDir.c_str());
  for (const host::BoundaryEvent& event : platform.record().ofKind(Kind::kLaunchRequest))
    printf("request   at %6.2f s: %s\n", event.at, describe(event).c_str());
  std::vector<host::BoundaryEvent> replies = platform.record().ofKind(Kind::kReplyToLauncher);
  if (replies.empty())
    printf("replies   none to the launcher\n");
  for (const host::BoundaryEvent& event : replies)
    printf("reply     at %6.2f s: %s\n", event.at, resultName(event.code));
  for (const std::string& line : deviceLines)
    printf("%s\n", line.c_str());
  if (!outcome.endedBySelf)
    printWaits(platform);
  if (outcome.endedBySelf)
    printf("ended     by the service itself at %.2f s (exit status %d)\n", outcome.endedAt,
           kStatusEndedBySelf);
  else
    printf("ended     by the deadline of %g s: the service was still running (exit status %d)\n",
           options.deadlineSeconds, kStatusDeadline);
  fflush(stdout);
}

}  // namespace

namespace app_assist {

WServiceApp::WServiceApp() = default;

WServiceApp::~WServiceApp() = default;

void WServiceApp::onStart(int, char*[]) {}

bool WServiceApp::onCreate() {
  return true;
}

void WServiceApp::onTerminate() {}

void WServiceApp::onAppControl(app_control_h, bool) {}

int WServiceApp::start(int argc, char* argv[]) {
  const char* program = argc > 0 ? argv[0] : "service";
  std::vector<std::string> args(argv + (argc > 0 ? 1 : 0), argv + argc);
  host::LaunchOptions options;
  std::string error;
  if (!host::parseLaunchOptions(args, options, error)) {
    fprintf(stderr, "%s: %s (see --help)\n", program, error.c_str());
    return kStatusUsage;
  }
  if (options.help) {
    fputs(host::launchUsage(), stdout);
    return kStatusEndedBySelf;
  }
  host::DeviceLock deviceLock;
  if (!checkDirectories(options, error) ||
      !host::admitDevice(options.deviceDir, HOST_LAUNCHED_APP_ID, deviceLock, error)) {
    fprintf(stderr, "%s: %s\n", program, error.c_str());
    return kStatusUsage;
  }
  host::DeviceHooks* hooks = host::deviceHooks();
  if (!hooks) {
    fprintf(stderr, "%s: no emulated watch is linked into this binary\n", program);
    return kStatusUsage;
  }

  host::MainLoop loop;
  host::Platform platform(options.deviceDir, HOST_LAUNCHED_APP_ID);
  if (!hooks->boot(platform, options, error) ||
      g_mkdir_with_parents(options.cloudDir.c_str(), 0755) != 0) {
    fprintf(stderr, "%s: %s\n", program,
            error.empty() ? ("cannot create cloud directory '" + options.cloudDir + "'").c_str()
                          : error.c_str());
    return kStatusUsage;
  }

  onStart(argc, argv);
  if (!onCreate()) {
    fprintf(stderr, "%s: the app refused to start (onCreate returned false)\n", program);
    hooks->finish(platform, host::RunOutcome());
    return kStatusCreateRefused;
  }

  double at = 0;
  for (size_t i = 0; i < options.requests.size(); ++i) {
    const host::LaunchRequest& request = options.requests[i];
    at += request.delaySeconds;
    const unsigned launchId = static_cast<unsigned>(i + 1);
    platform.post(
        [this, &platform, request, launchId] {
          app_control_s handle;
          handle.appId = platform.selfAppId();
          handle.hasOperation = !request.operation.empty();
          handle.operation = request.operation;
          handle.extras = request.extras;
          handle.launchId = launchId;
          app_control_h delivered = host::cloneAppControl(handle);
          platform.addEvent(host::BoundaryEvent::Kind::kLaunchRequest, std::string(),
                            request.operation, request.extras, 0);
          onAppControl(delivered, launchId == 1);
          app_control_destroy(delivered);
        },
        static_cast<unsigned>(at * 1000));
  }

  host::RunOutcome outcome;
  platform.post(
      [&] {
        outcome.deadlinePassed = true;
        outcome.endedAt = platform.now();
        // Inside a nested loop there is no way back to the main loop: end the process, as the
        // platform's watchdog kills a hung app.
        if (g_main_depth() > 1) {
          std::vector<std::string> lines = hooks->finish(platform, outcome);
          printSummary(platform, options, outcome, lines);
          fflush(stderr);
          _exit(kStatusDeadline);
        }
        host::MainLoop::quit();
      },
      static_cast<unsigned>(options.deadlineSeconds * 1000));

  loop.run();
  if (!outcome.deadlinePassed) {
    outcome.endedBySelf = true;
    outcome.endedAt = platform.now();
  }
  onTerminate();
  std::vector<std::string> lines = hooks->finish(platform, outcome);
  printSummary(platform, options, outcome, lines);
  return outcome.endedBySelf ? kStatusEndedBySelf : kStatusDeadline;
}

}  // namespace app_assist
