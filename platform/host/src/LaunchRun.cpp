#include "LaunchRun.h"

#include <glib-unix.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "RunSummary.h"
#include "host/AppControl.h"
#include "host/MainLoop.h"
#include "host/Platform.h"

namespace host {

namespace {

const int kEndingSignals[] = {SIGINT, SIGTERM};

struct SignalWatch {
  LaunchRun* run;
  int signal;
};

}  // namespace

LaunchRun::LaunchRun(Platform& platform, const LaunchOptions& options, DeviceHooks& hooks)
    : platform_(platform), options_(options), hooks_(hooks) {}

LaunchRun::~LaunchRun() {
  for (guint source : signalSources_) {
    if (source)
      g_source_remove(source);
  }
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
        [this, request, launchId] {
          app_control_s handle;
          handle.appId = platform_.selfAppId();
          handle.hasOperation = !request.operation.empty();
          handle.operation = request.operation;
          handle.extras = request.extras;
          handle.launchId = launchId;
          app_control_h delivered = cloneAppControl(handle);
          platform_.addEvent(BoundaryEvent::Kind::kLaunchRequest, std::string(), request.operation,
                             request.extras, 0, launchId);
          deliver_(delivered, launchId == 1);
          app_control_destroy(delivered);
        },
        static_cast<unsigned>(at * 1000));
  }
}

void LaunchRun::armDeadline() {
  platform_.post(
      [this] {
        outcome_.deadlinePassed = true;
        end();
      },
      static_cast<unsigned>(options_.deadlineSeconds * 1000));
}

void LaunchRun::watchSignals() {
  for (size_t i = 0; i < G_N_ELEMENTS(kEndingSignals); ++i) {
    auto* watch = new SignalWatch{this, kEndingSignals[i]};
    signalSources_[i] =
        g_unix_signal_add_full(G_PRIORITY_HIGH, watch->signal, onSignal, watch,
                               [](gpointer data) { delete static_cast<SignalWatch*>(data); });
    g_source_set_name_by_id(signalSources_[i], kHostSourcePrefix);
  }
}

gboolean LaunchRun::onSignal(gpointer data) {
  auto* watch = static_cast<SignalWatch*>(data);
  LaunchRun* run = watch->run;
  if (!run->outcome_.signal && !run->outcome_.deadlinePassed) {
    run->outcome_.signal = watch->signal;
    run->end();
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

}  // namespace host
