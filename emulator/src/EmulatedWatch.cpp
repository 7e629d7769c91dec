#include "emu/EmulatedWatch.h"

#include "MvText.h"
#include "emu/CloudStore.h"
#include "emu/DirectoryKind.h"
#include "emu/SampleWatch.h"
#include "emu/SetAudit.h"
#include "emu/StoredSet.h"
#include "host/Platform.h"

namespace emu {

namespace {

// Only a backup makes a cloud; a restore or an information request needs one that exists,
// holding the sets it names.
bool usableCloud(const launcher::LaunchOptions& options, std::string& error) {
  bool makesCloud = false;
  bool readsCloud = false;
  for (const launcher::LaunchRequest& request : options.requests) {
    makesCloud = makesCloud || request.operation == MV_OPERATION_BACKUP;
    readsCloud = readsCloud || request.operation == MV_OPERATION_RESTORE ||
                 request.operation == MV_OPERATION_GET_BACKUP_INFO;
  }
  if (!requireCloud(options.cloudDir, makesCloud || !readsCloud, error))
    return false;
  for (const launcher::LaunchRequest& request : options.requests) {
    if (request.setId && !g_file_test(CloudStore(options.cloudDir).setPath(*request.setId).c_str(),
                                      G_FILE_TEST_IS_REGULAR)) {
      error = "the cloud '" + options.cloudDir + "' has no set " + std::to_string(*request.setId);
      return false;
    }
  }
  return true;
}

}  // namespace

bool EmulatedWatch::boot(host::Platform& platform,
                         const launcher::LaunchOptions& options,
                         std::string& error) {
  deviceDir_ = options.deviceDir;
  cloudDir_ = options.cloudDir;
  if (!requireWatch(deviceDir_, error) || !usableCloud(options, error) ||
      !profile_.load(deviceDir_, error))
    return false;
  booted_ = profile_;
  if (!platform.personality().setAll(profile_.platform, error)) {
    error = deviceDir_ + "/" + DeviceProfile::kFileName + ": platform: " + error;
    return false;
  }
  for (const auto& entry : profile_.config)
    platform.config().set(entry.first, entry.second);
  for (const host::PackageInfo& info : profile_.packages)
    platform.packages().install(info);
  journal_ = std::make_shared<RunJournal>(deviceDir_);
  std::vector<std::string> operations;
  for (const launcher::LaunchRequest& request : options.requests)
    operations.push_back(request.operation);
  cloud_ = std::make_unique<CloudAgent>(platform, options.cloudDir, profile_.faults, operations);
  for (size_t i = 0; i < options.requests.size(); ++i) {
    if (options.requests[i].setId)
      cloud_->chooseSet(static_cast<unsigned>(i + 1), *options.requests[i].setId);
  }
  bootPeers(platform);
  platform.config().setObserver(
      [&platform, journal = journal_, watchface = watchface_->liveness().token()](
          const std::string& key, const std::string& value) {
        journal->config(key, value);
        if (auto* peer = MvLiveness<WatchfaceService>::find(watchface);
            peer && key == MV_IDLE_CLOCK_KEY)
          peer->noteIdleClockWritten(platform.record().events().size());
      });
  return true;
}

void EmulatedWatch::finish(host::Platform& platform,
                           const launcher::RunOutcome&,
                           launcher::RunReport& report) {
  std::vector<StoredSet> stored, restored;
  if (cloud_) {
    // Each set is read once, for the cloud's summary and for the audit alike.
    CloudStore cloud(cloudDir_);
    for (unsigned long long id : cloud_->sets(false))
      stored.push_back(StoredSet::read(cloud, id));
    for (unsigned long long id : cloud_->sets(true))
      restored.push_back(StoredSet::read(cloud, id));
    cloud_->report(report, [&stored](unsigned long long id) {
      for (const StoredSet& set : stored) {
        if (set.id == id)
          return set.describe();
      }
      return std::string();
    });
    cloud_.reset();
  }
  platform.config().setObserver(nullptr);
  profile_.config = platform.config().values();
  profile_.packages = platform.packages().apps();
  finishPeers(platform, report);
  audit(platform, stored, restored, report);
  releasePeers();

  std::string error;
  const bool saved = profile_.save(deviceDir_, error);
  if (!saved)
    report.failure("watch", "NOT SAVED: " + error + " (what the run did stays in its journal)");
  std::string journalError;
  if (journal_ && journal_->failed(journalError))
    report.failure("watch", "journal: " + journalError);
  journal_.reset();
  auto idle = profile_.config.find(MV_IDLE_CLOCK_KEY);
  const std::string idleClock = idle == profile_.config.end() ? "(none)" : idle->second;
  report.line("watch", profile_.name + ", idle clock " + idleClock);
  JsonObject* watch = json_object_new();
  json_object_set_boolean_member(watch, "saved", saved);
  mvJsonSetText(watch, "error", error);
  mvJsonSetText(watch, "idle_clock", idleClock);
  JsonNode* node = json_node_new(JSON_NODE_OBJECT);
  json_node_take_object(node, watch);
  report.set("watch", node);
}

void EmulatedWatch::audit(host::Platform& platform,
                          const std::vector<StoredSet>& stored,
                          const std::vector<StoredSet>& restored,
                          launcher::RunReport& report) {
  const StoreAnswers answers = store_ ? store_->answers() : StoreAnswers();
  auto each = [&](const StoredSet& set, bool isRestore, JsonArray* findings) {
    const std::string area = isRestore ? "restore" : "backup";
    const std::string name = "set " + std::to_string(set.id);
    auto add = [&](const std::string& item, const std::string& reason) {
      JsonObject* object = json_object_new();
      json_object_set_int_member(object, "set", static_cast<gint64>(set.id));
      mvJsonSetText(object, "item", item);
      mvJsonSetText(object, "reason", reason);
      json_array_add_object_element(findings, object);
    };
    if (!set.unreadable.empty()) {
      report.failure("audit", set.unreadable);
      return;
    }
    // A document the service could not use restores nothing it meant to: the run failed.
    for (const std::string& problem : set.problems) {
      report.failure(area, name + ", " + problem + " (the service could not use it)");
      add("document", problem);
    }
    if (set.unusableRecords > set.problems.size())
      report.failure(area, name + ": " + std::to_string(set.unusableRecords - set.problems.size()) +
                               " more records the service could not use");
    if (set.unusableRecords == set.records)
      return;
    const std::vector<AuditFinding> found =
        isRestore ? auditRestore(profile_, deviceDir_, set.document, platform.record(), answers)
                  : auditBackup(booted_, deviceDir_, set.document, platform.record());
    for (const AuditFinding& finding : found) {
      report.failure(area, name + (isRestore ? " did not restore " : " left out ") + finding.item +
                               ": " + finding.reason);
      add(finding.item, finding.reason);
    }
  };
  JsonArray* leftOut = json_array_new();
  for (const StoredSet& set : stored)
    each(set, false, leftOut);
  JsonArray* notRestored = json_array_new();
  for (const StoredSet& set : restored)
    each(set, true, notRestored);
  JsonNode* node = json_node_new(JSON_NODE_ARRAY);
  json_node_take_array(node, leftOut);
  report.set("left_out", node);
  node = json_node_new(JSON_NODE_ARRAY);
  json_node_take_array(node, notRestored);
  report.set("not_restored", node);
}

}  // namespace emu
