#include "host/Platform.h"

#include <glib/gstdio.h>
#include <message_port.h>

#include <algorithm>

#include "MvWatchLayout.h"
#include "host/Bundle.h"
#include "host/DeliverySchedule.h"
#include "host/HostLog.h"
#include "host/MainLoop.h"
#include "host/PendingReply.h"
#include "host/WatchDirs.h"

namespace host {

namespace {

Platform* g_current = nullptr;

std::string logFilePath(const std::string& deviceDir) {
  if (deviceDir.empty())
    return std::string();
  g_autofree char* path = g_build_filename(deviceDir.c_str(), "log", "dlog.log", nullptr);
  return path;
}

gboolean dispatchDue(GSource*, GSourceFunc callback, gpointer data) {
  return callback(data);
}

// A source with nothing but a ready time.
GSourceFuncs g_dueSourceFuncs = {nullptr, nullptr, dispatchDue, nullptr, nullptr, nullptr};

}  // namespace

struct Platform::PostedTask {
  Platform* platform;
  std::function<void()> task;
  gint64 dueUs;
  guint64 sequence;
  bool toPeer;
};

Platform::Platform(std::string deviceDir, std::string selfAppId)
    : deviceDir_(std::move(deviceDir)),
      selfAppId_(std::move(selfAppId)),
      startedAt_(g_get_monotonic_time()),
      log_(logFilePath(deviceDir_)) {
  g_assert(g_current == nullptr);
  g_current = this;
}

Platform::~Platform() {
  // Removing a source runs dropPosted(), which frees the task.
  std::map<PostedTask*, MvGSourceId> pending;
  pending.swap(pending_);
  pending.clear();
  g_current = nullptr;
}

Platform* Platform::current() {
  return g_current;
}

double Platform::now() const {
  return static_cast<double>(g_get_monotonic_time() - startedAt_) / G_USEC_PER_SEC;
}

void Platform::addEvent(BoundaryEvent::Kind kind,
                        std::string peer,
                        std::string name,
                        KeyValues data,
                        int code,
                        unsigned launchId) {
  record_.add(BoundaryEvent{kind, now(), std::move(peer), std::move(name), std::move(data), code,
                            launchId});
}

void Platform::registerApp(const std::string& appId, std::shared_ptr<EmulatedApp> app) {
  apps_[appId] = std::move(app);
}

std::shared_ptr<EmulatedApp> Platform::findApp(const std::string& appId) const {
  auto it = apps_.find(appId);
  return it == apps_.end() ? nullptr : it->second;
}

void Platform::post(std::function<void()> task, unsigned delayMs, const std::string& channel) {
  postTask(std::move(task), delayMs, channel, false);
}

void Platform::postToPeer(std::function<void()> task, const std::string& channel) {
  postTask(std::move(task), 0, channel, true);
}

void Platform::deliverToPeers() {
  for (;;) {
    PostedTask* next = nullptr;
    for (const auto& pending : pending_) {
      PostedTask* task = pending.first;
      if (task->toPeer && (!next || task->dueUs < next->dueUs ||
                           (task->dueUs == next->dueUs && task->sequence < next->sequence)))
        next = task;
    }
    if (!next)
      return;
    std::function<void()> run = std::move(next->task);
    pending_.erase(next);
    run();
  }
}

void Platform::postTask(std::function<void()> task,
                        unsigned delayMs,
                        const std::string& channel,
                        bool toPeer) {
  const gint64 now = g_get_monotonic_time();
  auto* posted = new PostedTask{this, std::move(task), now + delayMs * G_GINT64_CONSTANT(1000),
                                ++posted_, toPeer};
  guint sourceId = 0;
  if (schedule_ && !channel.empty()) {
    gint64& last = lastDueUs_[channel];
    const gint64 due = std::max(
        now + (static_cast<gint64>(delayMs) + schedule_->extraDelayMs(channel)) * 1000, last);
    last = due;
    posted->dueUs = due;
    sourceId = attachAt(due, posted);
  } else if (delayMs == 0) {
    sourceId = g_idle_add_full(G_PRIORITY_DEFAULT_IDLE, &Platform::runPosted, posted,
                               &Platform::dropPosted);
    g_source_set_name_by_id(sourceId, kHostSourcePrefix);
  } else {
    sourceId = g_timeout_add_full(G_PRIORITY_DEFAULT, delayMs, &Platform::runPosted, posted,
                                  &Platform::dropPosted);
    g_source_set_name_by_id(sourceId, kHostSourcePrefix);
  }
  // The task carries the platform: a registration undone in the destructor.
  pending_.emplace(posted, MvGSourceId(sourceId));
}

// A source that is due at `dueUs` exactly: deliveries due at the same time run in the order
// they were posted.
guint Platform::attachAt(gint64 dueUs, PostedTask* posted) {
  g_autoptr(GSource) source = g_source_new(&g_dueSourceFuncs, sizeof(GSource));
  g_source_set_name(source, kHostSourcePrefix);
  g_source_set_callback(source, &Platform::runPosted, posted, &Platform::dropPosted);
  g_source_set_ready_time(source, dueUs);
  return g_source_attach(source, nullptr);
}

void Platform::setSchedule(std::unique_ptr<DeliverySchedule> schedule) {
  schedule_ = std::move(schedule);
}

gboolean Platform::runPosted(gpointer data) {
  auto* posted = static_cast<PostedTask*>(data);
  std::map<PostedTask*, MvGSourceId>& pending = posted->platform->pending_;
  auto held = pending.find(posted);
  if (held != pending.end()) {
    // The source ends by its return.
    held->second.release();
    pending.erase(held);
  }
  posted->task();
  return G_SOURCE_REMOVE;
}

void Platform::dropPosted(gpointer data) {
  delete static_cast<PostedTask*>(data);
}

std::string Platform::sharedTrustedPath(const std::string& appId) const {
  if (deviceDir_.empty() || appId.empty())
    return std::string();
  // The app writes there by path: no directory on the way may lead out of the watch.
  std::string error;
  if (appId.find('/') != std::string::npos ||
      !checkWatchDirectory(deviceDir_, mvSharedTrustedDir(appId), true, error)) {
    logError(kHostLogTag, "no shared trusted directory for %s: %s", appId.c_str(),
             error.empty() ? "its app ID is no directory name" : error.c_str());
    return std::string();
  }
  g_autofree char* dir =
      g_build_filename(deviceDir_.c_str(), mvSharedTrustedDir(appId).c_str(), nullptr);
  return std::string(dir) + "/";
}

std::string Platform::trustedPathAsGiven(const std::string& appId) const {
  std::string path = sharedTrustedPath(appId);
  if (!personality_.trustedPathSlash && !path.empty())
    path.pop_back();
  return path;
}

bool Platform::writeConfig(const std::string& key, const std::string& value) {
  if (config_.isReadOnly(key)) {
    logWarn(kHostLogTag, "configuration key '%s' refused a write: it is read-only", key.c_str());
    return false;
  }
  const size_t limit = personality_.vconfValueLimit;
  if (limit != 0 && value.size() > limit) {
    logWarn(kHostLogTag,
            "configuration key '%s' refused a value of %zu bytes: over the vconf value limit of "
            "%zu",
            key.c_str(), value.size(), limit);
    return false;
  }
  config_.set(key, value);
  return true;
}

int Platform::checkMessageSize(const std::string& fromAppId,
                               const std::string& port,
                               const KeyValues& message) {
  const size_t limit = personality_.messageSizeLimit;
  size_t bytes = 0;
  for (const auto& entry : message)
    bytes += entry.first.size() + 1 + entry.second.size() + 1;
  if (limit == 0 || bytes <= limit)
    return MESSAGE_PORT_ERROR_NONE;
  logWarn(kHostLogTag,
          "message from '%s' to port '%s' refused: %zu bytes, over the message size limit of %zu",
          fromAppId.c_str(), port.c_str(), bytes, limit);
  return MESSAGE_PORT_ERROR_MAX_EXCEEDED;
}

int Platform::sendToApp(const std::string& fromAppId,
                        const std::string& fromPort,
                        const std::string& port,
                        const KeyValues& message) {
  if (const int refused = checkMessageSize(fromAppId, port, message)) {
    addEvent(BoundaryEvent::Kind::kMessageDropped, fromAppId, port, message, refused);
    return refused;
  }
  post(
      [this, fromAppId, fromPort, port, message] {
        const MessagePortTable::Port* found = ports_.findByName(port);
        if (!found) {
          addEvent(BoundaryEvent::Kind::kMessageDropped, fromAppId, port, message, 0);
          logWarn(kHostLogTag,
                  "message from '%s' to port '%s' dropped: the app does not listen there",
                  fromAppId.c_str(), port.c_str());
          return;
        }
        // The callback may unregister the port.
        MessagePortTable::Port target = *found;
        addEvent(BoundaryEvent::Kind::kMessageDelivered, fromAppId, port, message, 0);
        MvBundlePtr bundle = makeBundle(message);
        target.callback(target.id, fromAppId.c_str(), fromPort.c_str(), true, bundle.get(),
                        target.userData);
      },
      0, "message:" + fromAppId + "->" + port);
  return MESSAGE_PORT_ERROR_NONE;
}

void Platform::trackLaunchRequest(const std::shared_ptr<PendingReply>& reply) {
  launchRequests_.push_back(reply);
}

std::vector<std::string> Platform::awaitedReplies() const {
  std::vector<std::string> peers;
  for (const std::weak_ptr<PendingReply>& weak : launchRequests_) {
    std::shared_ptr<PendingReply> reply = weak.lock();
    if (reply && !reply->sent())
      peers.push_back(reply->peer());
  }
  return peers;
}

void Platform::requestExit() {
  addEvent(BoundaryEvent::Kind::kExitRequested, std::string(), std::string(), {}, 0);
  exitRequested_ = true;
  MainLoop::quit();
}

}  // namespace host
