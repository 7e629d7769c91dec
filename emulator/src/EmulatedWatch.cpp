#include "emu/EmulatedWatch.h"

#include "emu/CloudStore.h"
#include "emu/DirectoryKind.h"
#include "emu/SampleWatch.h"
#include "emu/SetAudit.h"
#include "host/Platform.h"

namespace emu {

namespace {

// Only a backup makes a cloud; a restore or an information request needs one that exists,
// holding the sets it names.
bool usableCloud(const host::LaunchOptions& options, std::string& error) {
  bool makesCloud = false;
  bool readsCloud = false;
  for (const host::LaunchRequest& request : options.requests) {
    makesCloud = makesCloud || request.operation == host::expandOperation("backup");
    readsCloud = readsCloud || request.operation == host::expandOperation("restore") ||
                 request.operation == host::expandOperation("info");
  }
  if (!requireCloud(options.cloudDir, makesCloud || !readsCloud, error))
    return false;
  for (const host::LaunchRequest& request : options.requests) {
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
                         const host::LaunchOptions& options,
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
  std::vector<std::string> operations;
  for (const host::LaunchRequest& request : options.requests)
    operations.push_back(request.operation);
  cloud_ = std::make_unique<CloudAgent>(platform, options.cloudDir, profile_.faults, operations);
  for (size_t i = 0; i < options.requests.size(); ++i) {
    if (options.requests[i].setId)
      cloud_->chooseSet(static_cast<unsigned>(i + 1), *options.requests[i].setId);
  }
  bootPeers(platform);
  return true;
}

void EmulatedWatch::finish(host::Platform& platform,
                           const host::RunOutcome&,
                           host::RunReport& report) {
  std::vector<unsigned long long> stored, restored;
  if (cloud_) {
    cloud_->report(report);
    stored = cloud_->sets(false);
    restored = cloud_->sets(true);
    cloud_.reset();
  }
  profile_.config = platform.config().values();
  profile_.packages = platform.packages().apps();
  finishPeers(platform, report);
  audit(platform, stored, restored, report);
  releasePeers();

  std::string error;
  const bool saved = profile_.save(deviceDir_, error);
  if (!saved)
    report.failure("watch", "NOT SAVED: " + error);
  auto idle = profile_.config.find(kIdleClockKey);
  const std::string idleClock = idle == profile_.config.end() ? "(none)" : idle->second;
  report.line("watch", profile_.name + ", idle clock " + idleClock);
  JsonObject* watch = json_object_new();
  json_object_set_boolean_member(watch, "saved", saved);
  json_object_set_member(watch, "error", host::jsonString(error));
  json_object_set_member(watch, "idle_clock", host::jsonString(idleClock));
  JsonNode* node = json_node_new(JSON_NODE_OBJECT);
  json_node_take_object(node, watch);
  report.set("watch", node);
}

void EmulatedWatch::audit(host::Platform& platform,
                          const std::vector<unsigned long long>& stored,
                          const std::vector<unsigned long long>& restored,
                          host::RunReport& report) {
  CloudStore cloud(cloudDir_);
  auto each = [&](unsigned long long id, bool isRestore, JsonArray* findings) {
    std::vector<host::CloudRecord> records;
    std::string error;
    if (!cloud.read(id, records, error)) {
      report.failure("audit", "set " + std::to_string(id) + ": " + error);
      return;
    }
    const StoreAnswers answers = store_ ? store_->answers() : StoreAnswers();
    // A restore applies a set's records in order, so the last word on an item counts.
    BackupDocument restored;
    std::vector<BackupDocument> documents;
    for (const host::CloudRecord& record : records) {
      BackupDocument document;
      if (!document.read(record.value.value_or(""), error)) {
        report.failure("audit", "set " + std::to_string(id) + ": " + error);
        continue;
      }
      restored.merge(document);
      documents.push_back(std::move(document));
    }
    if (isRestore)
      documents = {restored};
    for (const BackupDocument& document : documents) {
      const std::vector<AuditFinding> found =
          isRestore ? auditRestore(profile_, deviceDir_, document, platform.record(), answers)
                    : auditBackup(booted_, deviceDir_, document, platform.record());
      for (const AuditFinding& finding : found) {
        report.failure(isRestore ? "restore" : "backup",
                       "set " + std::to_string(id) +
                           (isRestore ? " did not restore " : " left out ") + finding.item + ": " +
                           finding.reason);
        JsonObject* object = json_object_new();
        json_object_set_int_member(object, "set", static_cast<gint64>(id));
        json_object_set_member(object, "item", host::jsonString(finding.item));
        json_object_set_member(object, "reason", host::jsonString(finding.reason));
        json_array_add_object_element(findings, object);
      }
    }
  };
  JsonArray* leftOut = json_array_new();
  for (unsigned long long id : stored)
    each(id, false, leftOut);
  JsonArray* notRestored = json_array_new();
  for (unsigned long long id : restored)
    each(id, true, notRestored);
  JsonNode* node = json_node_new(JSON_NODE_ARRAY);
  json_node_take_array(node, leftOut);
  report.set("left_out", node);
  node = json_node_new(JSON_NODE_ARRAY);
  json_node_take_array(node, notRestored);
  report.set("not_restored", node);
}

}  // namespace emu
