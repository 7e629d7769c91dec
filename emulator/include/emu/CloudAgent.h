#ifndef EMU_CLOUD_AGENT_H
#define EMU_CLOUD_AGENT_H

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "MvLiveness.h"
#include "emu/CloudStore.h"
#include "host/CloudLibrary.h"
#include "host/Platform.h"
#include "launcher/RunReport.h"

namespace emu {

// The vendor's backup app. When the service answers a cloud launch request with success, it
// drives the exchange through the callbacks the service registered with the cloud library,
// one step at a time from the main loop, and checks each answer:
//   backup   preparation, keys and dates, the records to fill (their record file is read back
//            and stored as a new set), completion
//   info     preparation, keys and dates, completion; nothing is stored
//   restore  preparation, path, the newest set written at that path, restoration (the records
//            come back with key "key" and a date in seconds), completion
// A failed check ends the exchange with a failed completion. Fault switches: "cloud-fail"
// makes one step fail, "cloud-delay" makes each step wait. Main loop thread only; it must be
// destroyed before `platform`, and it takes the cloud library's answer listener and the
// platform's launcher reply handler for its lifetime.
class CloudAgent {
 public:
  // `operations[i]` is the operation of launch request i + 1.
  CloudAgent(host::Platform& platform,
             std::string cloudDir,
             const std::map<std::string, std::string>& faults,
             std::vector<std::string> operations);
  ~CloudAgent();

  CloudAgent(const CloudAgent&) = delete;
  CloudAgent& operator=(const CloudAgent&) = delete;

  // The restore of launch request `launchId` takes set `setId`, not the newest, as the vendor's
  // app restores the backup the user chose.
  void chooseSet(unsigned launchId, unsigned long long setId) { chosenSets_[launchId] = setId; }
  // True once every exchange that was started has ended.
  bool idle() const;
  // One line on what a stored set holds.
  using DescribeSet = std::function<std::string(unsigned long long id)>;
  // Each cloud request's outcome: a summary line (a failure where it failed, was refused, left
  // unfinished, never answered or never delivered) and the "exchanges" JSON member; a backup's
  // set is described by `describeSet`, when given.
  void report(launcher::RunReport& report, const DescribeSet& describeSet = nullptr) const;
  // The sets that this run's successful backups stored (false) or restores read (true).
  std::vector<unsigned long long> sets(bool restored) const;

 private:
  struct Exchange;
  using Step = void (CloudAgent::*)(Exchange&);
  using AnswerStep = void (CloudAgent::*)(Exchange&, const host::cloud::Answer&);

  bool delivered(unsigned launchId) const;
  // "backup", "backup information", "restore", or null for an operation of no exchange.
  static const char* typeName(const std::string& operation);
  void onLaunchReply(unsigned launchId, app_control_result_e result);
  void onAnswer(const host::cloud::Answer& answer);

  void schedule(Exchange& exchange, Step step);
  void await(Exchange& exchange, host::cloud::Answer::Kind kind, AnswerStep next);
  // Runs the fault switch for `step`: true when it made the step fail.
  bool faulted(Exchange& exchange, const char* step);
  void fail(Exchange& exchange, const std::string& reason);
  void succeed(Exchange& exchange, const std::string& outcome);

  void backupPrepare(Exchange& exchange);
  void backupPrepared(Exchange& exchange, const host::cloud::Answer& answer);
  void backupKeys(Exchange& exchange);
  void backupKeysGiven(Exchange& exchange, const host::cloud::Answer& answer);
  void backupUpload(Exchange& exchange);
  void backupPathGiven(Exchange& exchange, const host::cloud::Answer& answer);
  void backupComplete(Exchange& exchange);

  void restorePrepare(Exchange& exchange);
  void restorePrepared(Exchange& exchange, const host::cloud::Answer& answer);
  void restorePath(Exchange& exchange);
  void restorePathGiven(Exchange& exchange, const host::cloud::Answer& answer);
  void restoreDownload(Exchange& exchange);
  void restoreRestoration(Exchange& exchange);
  void restoreListGiven(Exchange& exchange, const host::cloud::Answer& answer);
  void restoreComplete(Exchange& exchange);

  host::Platform& platform_;
  CloudStore store_;
  std::string failStep_;
  unsigned delayMs_ = 0;
  bool completeEarly_ = false;
  std::vector<std::string> operations_;
  std::map<unsigned, unsigned long long> chosenSets_;  // by launch ID
  host::Platform::LauncherReplyHandler previousHandler_;
  // Each goes with the agent: the steps and timeouts it posts do nothing after that.
  std::vector<std::unique_ptr<Exchange>> exchanges_;
  MvLiveness<CloudAgent> liveness_{this};
};

}  // namespace emu

#endif
