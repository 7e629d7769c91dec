// The apps around the service on the emulated watch, and what they changed.
#include <stdlib.h>

#include "MvText.h"
#include "emu/EmulatedWatch.h"
#include "emu/FaultSwitches.h"
#include "emu/SampleWatch.h"
#include "host/Platform.h"

namespace emu {

namespace {

// Each install request the store answered, by GUID, and the "installs" JSON member.
void reportInstalls(const StoreService& store, launcher::RunReport& report) {
  JsonArray* installs = json_array_new();
  for (const auto& answer : store.answers()) {
    report.line("store", "GUID " + answer.first + ": " +
                             (answer.second.empty() ? "installed" : answer.second));
    JsonObject* install = json_object_new();
    mvJsonSetText(install, "guid", answer.first);
    json_object_set_string_member(install, "result",
                                  answer.second.empty()                     ? "installed"
                                  : answer.second == StoreService::kNoReply ? "no reply"
                                                                            : "failed");
    mvJsonSetText(install, "error", answer.second);
    json_array_add_object_element(installs, install);
  }
  JsonNode* node = json_node_new(JSON_NODE_ARRAY);
  json_node_take_array(node, installs);
  report.set("installs", node);
}

}  // namespace

void EmulatedWatch::bootPeers(host::Platform& platform) {
  const auto& faults = profile_.faults;
  watchApps_.clear();
  withheld_.clear();
  if (!faultValue(faults, "watchapp-missing").empty()) {
    for (const WatchAppState& app : profile_.watchApps) {
      for (const host::PackageInfo& info : profile_.packages) {
        if (info.pkgId == app.pkgId && platform.packages().uninstall(info.appId))
          withheld_.push_back(info);
      }
    }
  }

  watchface_ = std::make_shared<WatchfaceService>(platform, deviceDir_, profile_.faces,
                                                  profile_.images, faults, journal_);
  platform.registerApp(MV_WATCHFACE_SERVICE_APP_ID, watchface_);

  const unsigned lateMs =
      static_cast<unsigned>(strtoul(faultValue(faults, "watchapp-late", "0").c_str(), nullptr, 10));
  for (const WatchAppState& state : profile_.watchApps) {
    auto app = std::make_shared<WatchApp>(platform, state, lateMs, journal_);
    platform.registerApp(state.appId, app);
    watchApps_.push_back(app);
  }

  std::function<void()> onFirstStoreRequest;
  if (!faultValue(faults, "watchface-finish-early").empty()) {
    // The service waits on the store right now: the watch face service speaks out of turn.
    onFirstStoreRequest = watchface_->liveness().whileAlive(
        [peer = watchface_.get()] { peer->sendRestoreFinished(); });
  }
  store_ = std::make_shared<StoreService>(platform, profile_.catalogue, faults,
                                          std::move(onFirstStoreRequest), journal_);
  platform.registerApp(MV_STORE_APP_ID, store_);
}

void EmulatedWatch::finishPeers(host::Platform&, launcher::RunReport& report) {
  profile_.packages.insert(profile_.packages.end(), withheld_.begin(), withheld_.end());
  if (watchface_) {
    profile_.faces = watchface_->faces();
    profile_.images = watchface_->images();
    const WatchfaceService::Activity& seen = watchface_->activity();
    if (seen.facesSent + seen.imagesSent > 0)
      report.line("watchface", "sent " + std::to_string(seen.facesSent) + " faces, " +
                                   std::to_string(seen.imagesSent) + " images");
    for (const std::string& problem : seen.photoProblems)
      report.line("watchface", problem);
    if (seen.settingsReceived + seen.imagesReceived > 0 || !seen.idleFace.empty())
      report.line("watchface", "received " + std::to_string(seen.settingsReceived) + " settings, " +
                                   std::to_string(seen.imagesReceived) + " images" +
                                   (seen.idleFace.empty() ? "" : ", idle face " + seen.idleFace));
  }
  for (const auto& app : watchApps_) {
    for (WatchAppState& state : profile_.watchApps) {
      if (state.appId == app->state().appId)
        state.resultXml = app->state().resultXml;
    }
    if (app->backupsAnswered() + app->restoresReceived() > 0)
      report.line("watch app", app->state().appId + ": " + std::to_string(app->backupsAnswered()) +
                                   " backup, " + std::to_string(app->restoresReceived()) +
                                   " restore");
  }
  if (store_)
    reportInstalls(*store_, report);
}

void EmulatedWatch::releasePeers() {
  // The platform stays the peers' only owner.
  watchface_.reset();
  watchApps_.clear();
  store_.reset();
}

}  // namespace emu
