#include "MeasuredFlow.h"

#include <stdio.h>

#include "CpuTime.h"
#include "MvSvcApp.h"
#include "MvWatchNames.h"
#include "ProcessMemory.h"
#include "emu/EmulatedWatch.h"
#include "launcher/DeviceHooks.h"
#include "launcher/Launcher.h"

namespace bench {

namespace {

using Kind = host::BoundaryEvent::Kind;

const double kMsPerSecond = 1000;

// When the first event of `kind` (named `name`, when given) at or after `from` happened.
bool eventAt(host::Platform& platform, Kind kind, const char* name, double from, double& at) {
  for (const host::BoundaryEvent& event : platform.record().events()) {
    if (event.kind == kind && event.at >= from && (!name || event.name == name)) {
      at = event.at;
      return true;
    }
  }
  return false;
}

// When the service first logged a line holding `text`.
bool logLineAt(host::Platform& platform, const char* text, double& at) {
  for (const host::LogLine& line : platform.log().lines()) {
    if (line.text.find(text) != std::string::npos) {
      at = line.at;
      return true;
    }
  }
  return false;
}

// Sets "<name>_ms" for each phase between consecutive marks, and "total_ms".
void setPhases(Measurement& phases,
               const std::vector<const char*>& names,
               const std::vector<double>& marks) {
  for (size_t i = 0; i < names.size(); ++i)
    phases.set(std::string(names[i]) + "_ms", (marks[i + 1] - marks[i]) * kMsPerSecond);
  phases.set("total_ms", (marks.back() - marks.front()) * kMsPerSecond);
}

// The emulated watch, measured: the peak is reset and the CPU clock read once the watch is
// loaded, and both are read again when the run is over, before the watch is written back.
class MeasuredWatch : public launcher::DeviceHooks {
 public:
  explicit MeasuredWatch(std::string kind) : kind_(std::move(kind)) {}

  bool boot(host::Platform& platform,
            const launcher::LaunchOptions& options,
            std::string& error) override {
    if (!watch_.boot(platform, options, error))
      return false;
    platform.log().setEchoToStderr(false);
    resetPeakMemory();
    baselineKb_ = readResidentMemory().currentKb;
    startCpuMs_ = cpuTimeMs();
    return true;
  }

  void finish(host::Platform& platform,
              const launcher::RunOutcome& outcome,
              launcher::RunReport& report) override {
    const long peakKb = readResidentMemory().peakKb;
    const double cpuMs = cpuTimeMs() - startCpuMs_;
    if (!outcome.endedBySelf) {
      error_ = "the service did not end by itself";
    } else if (kind_ == "backup" ? backupPhases(platform, result_, error_)
                                 : restorePhases(platform, result_, error_)) {
      result_.set("baseline_kb", static_cast<double>(baselineKb_));
      result_.set("peak_kb", static_cast<double>(peakKb));
      result_.set("cpu_ms", cpuMs);
    }
    watch_.finish(platform, outcome, report);
  }

  bool measured() const { return error_.empty() && result_.has("total_ms"); }
  const Measurement& result() const { return result_; }
  const std::string& error() const { return error_; }

 private:
  std::string kind_;
  emu::EmulatedWatch watch_;
  long baselineKb_ = -1;
  double startCpuMs_ = 0;
  Measurement result_;
  std::string error_;
};

}  // namespace

bool backupPhases(host::Platform& platform, Measurement& phases, std::string& error) {
  double launched = 0, collected = 0, built = 0, exited = 0;
  if (!eventAt(platform, Kind::kLaunchRequest, nullptr, 0, launched) ||
      !eventAt(platform, Kind::kReplyToLauncher, nullptr, launched, collected) ||
      !logLineAt(platform, "backup jsonStr : ", built) ||
      !eventAt(platform, Kind::kCloudCallback, "backup completed", built, exited) ||
      !eventAt(platform, Kind::kExitRequested, nullptr, exited, exited)) {
    error = "the backup did not run its whole course";
    return false;
  }
  setPhases(phases, {"collect", "build", "upload"}, {launched, collected, built, exited});
  return true;
}

bool restorePhases(host::Platform& platform, Measurement& phases, std::string& error) {
  double launched = 0, restoring = 0, parsed = 0, requested = 0, exited = 0;
  if (!eventAt(platform, Kind::kLaunchRequest, nullptr, 0, launched) ||
      !eventAt(platform, Kind::kCloudCallback, "restoration", launched, restoring) ||
      !eventAt(platform, Kind::kMessageSent, nullptr, restoring, parsed) ||
      !eventAt(platform, Kind::kCloudCallback, "restore completed", parsed, exited) ||
      !eventAt(platform, Kind::kExitRequested, nullptr, exited, exited)) {
    error = "the restore did not run its whole course";
    return false;
  }
  // The store requests, when there are any, go out before the first message.
  if (eventAt(platform, Kind::kAppControlSent, nullptr, restoring, requested) && requested < parsed)
    parsed = requested;
  setPhases(phases, {"download", "parse", "transfer"}, {launched, restoring, parsed, exited});
  return true;
}

int runMeasuredFlow(const std::string& kind, const std::vector<std::string>& launchArgs) {
  MeasuredWatch watch(kind);
  launcher::Launcher launcher(MV_SERVICE_APP_ID);
  host::setAppLauncher(&launcher);
  launcher::setDeviceHooks(&watch);
  std::vector<std::string> args = launchArgs;
  args.insert(args.begin(), "morvik-bench");
  std::vector<char*> argv;
  for (std::string& arg : args)
    argv.push_back(&arg[0]);
  argv.push_back(nullptr);

  MvSvcApp app;
  const int status = app.start(static_cast<int>(args.size()), argv.data());
  launcher::setDeviceHooks(nullptr);
  host::setAppLauncher(nullptr);
  if (status != 0 || !watch.measured()) {
    fprintf(stderr, "morvik-bench: the %s %s\n", kind.c_str(),
            watch.error().empty() ? "failed" : watch.error().c_str());
    return 1;
  }
  printf("%s\n", watch.result().format().c_str());
  return 0;
}

}  // namespace bench
