#include "LaunchRun.h"

#include <errno.h>
#include <fcntl.h>
#include <glib-unix.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <iterator>
#include <vector>

#include "RunSummary.h"
#include "host/AppControl.h"
#include "host/MainLoop.h"
#include "host/Platform.h"

namespace launcher {

using host::BoundaryEvent;
using host::MainLoop;
using host::Platform;

namespace {

// Every signal whose default action ends a process, but for those that report a fault of the
// process itself (SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS): a crash stays a
// crash. The real-time signals are added at run time.
const int kEndingSignals[] = {SIGHUP,  SIGINT,    SIGQUIT, SIGUSR1,   SIGUSR2,
                              SIGPIPE, SIGALRM,   SIGTERM, SIGSTKFLT, SIGXCPU,
                              SIGXFSZ, SIGVTALRM, SIGPROF, SIGIO,     SIGPWR};

// The handler's only way out: it writes the signal's number here, the main loop reads it.
MvFd g_signalPipe[2];

extern "C" void onEndingSignal(int signal, siginfo_t* info, void*) {
  // A write of our own to a pipe nobody reads: that write fails with EPIPE and says so.
  if (signal == SIGPIPE && info && info->si_code == SI_USER && info->si_pid == getpid())
    return;
  const int saved = errno;
  const unsigned char number = static_cast<unsigned char>(signal);
  ssize_t ignored = write(g_signalPipe[1].get(), &number, 1);
  (void)ignored;
  errno = saved;
}

std::vector<int> endingSignals() {
  std::vector<int> signals(std::begin(kEndingSignals), std::end(kEndingSignals));
  for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal)
    signals.push_back(signal);
  return signals;
}

}  // namespace

LaunchRun::LaunchRun(Platform& platform, const LaunchOptions& options, DeviceHooks& hooks)
    : platform_(platform), options_(options), hooks_(hooks) {}

LaunchRun::~LaunchRun() {
  signalSource_.reset();
  for (const auto& previous : previousActions_)
    sigaction(previous.first, &previous.second, nullptr);
  for (MvFd& fd : g_signalPipe)
    fd.reset();
}

const RunOutcome& LaunchRun::run(MainLoop& loop, Deliver deliver) {
  deliver_ = std::move(deliver);
  scheduleRequests();
  armDeadline();
  watchSignals();
  loop.run();
  if (!outcome_.deadlinePassed && !outcome_.signal) {
    outcome_.endedBySelf = true;
    outcome_.endedAt = platform_.now();
  }
  return outcome_;
}

void LaunchRun::scheduleRequests() {
  double at = 0;
  for (size_t i = 0; i < options_.requests.size(); ++i) {
    const LaunchRequest& request = options_.requests[i];
    at += request.delaySeconds;
    const unsigned launchId = static_cast<unsigned>(i + 1);
    platform_.post(
        [this, request, launchId, token = liveness_.token()] {
          if (!MvLiveness<LaunchRun>::find(token))
            return;
          app_control_s handle;
          handle.appId = platform_.selfAppId();
          handle.hasOperation = !request.operation.empty();
          handle.operation = request.operation;
          handle.extras = request.extras;
          handle.launchId = launchId;
          MvAppControlPtr delivered(host::cloneAppControl(handle));
          platform_.addEvent(BoundaryEvent::Kind::kLaunchRequest, std::string(), request.operation,
                             request.extras, 0, launchId);
          deliver_(delivered.get(), launchId == 1);
        },
        static_cast<unsigned>(at * 1000));
  }
}

void LaunchRun::armDeadline() {
  platform_.post(
      [this, token = liveness_.token()] {
        if (!MvLiveness<LaunchRun>::find(token))
          return;
        outcome_.deadlinePassed = true;
        end();
      },
      static_cast<unsigned>(options_.deadlineSeconds * 1000));
}

void LaunchRun::watchSignals() {
  int ends[2];
  if (!g_unix_open_pipe(ends, FD_CLOEXEC, nullptr))
    return;
  g_signalPipe[0].reset(ends[0]);
  g_signalPipe[1].reset(ends[1]);
  if (!g_unix_set_fd_nonblocking(ends[0], TRUE, nullptr) ||
      !g_unix_set_fd_nonblocking(ends[1], TRUE, nullptr))
    return;
  // Carries `this`: a registration undone in the destructor.
  signalSource_.reset(g_unix_fd_add(ends[0], G_IO_IN, onSignal, this));
  g_source_set_name_by_id(signalSource_.get(), host::kHostSourcePrefix);
  struct sigaction action = {};
  action.sa_sigaction = onEndingSignal;
  action.sa_flags = SA_SIGINFO | SA_RESTART;
  sigemptyset(&action.sa_mask);
  for (int signal : endingSignals()) {
    struct sigaction previous;
    if (sigaction(signal, &action, &previous) == 0)
      previousActions_.emplace_back(signal, previous);
  }
}

gboolean LaunchRun::onSignal(gint fd, GIOCondition, gpointer data) {
  auto* run = static_cast<LaunchRun*>(data);
  unsigned char number = 0;
  while (read(fd, &number, 1) == 1) {
    if (!run->outcome_.signal && !run->outcome_.deadlinePassed) {
      run->outcome_.signal = number;
      run->end();
    }
  }
  return G_SOURCE_CONTINUE;
}

void LaunchRun::end() {
  outcome_.endedAt = platform_.now();
  if (g_main_depth() <= 1) {
    MainLoop::quit();
    return;
  }
  outcome_.insideNestedLoop = true;
  const int status = reportRun(platform_, options_, outcome_, hooks_);
  fflush(stderr);
  _exit(status);
}

}  // namespace launcher
