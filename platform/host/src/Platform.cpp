#include "host/Platform.h"

#include <glib/gstdio.h>

#include "host/Bundle.h"
#include "host/MainLoop.h"

namespace host {

namespace {

Platform* g_current = nullptr;

std::string logFilePath(const std::string& deviceDir) {
  if (deviceDir.empty())
    return std::string();
  g_autofree char* path = g_build_filename(deviceDir.c_str(), "log", "dlog.log", nullptr);
  return path;
}

}  // namespace

struct Platform::PostedTask {
  Platform* platform;
  guint sourceId;
  std::function<void()> task;
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
  std::set<guint> pending;
  pending.swap(pendingSources_);
  for (guint id : pending)
    g_source_remove(id);
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
                        int code) {
  record_.add(BoundaryEvent{kind, now(), std::move(peer), std::move(name), std::move(data), code});
}

void Platform::registerApp(const std::string& appId, std::shared_ptr<EmulatedApp> app) {
  apps_[appId] = std::move(app);
}

std::shared_ptr<EmulatedApp> Platform::findApp(const std::string& appId) const {
  auto it = apps_.find(appId);
  return it == apps_.end() ? nullptr : it->second;
}

void Platform::post(std::function<void()> task, unsigned delayMs) {
  auto* posted = new PostedTask{this, 0, std::move(task)};
  if (delayMs == 0) {
    posted->sourceId = g_idle_add_full(G_PRIORITY_DEFAULT_IDLE, &Platform::runPosted, posted,
                                       &Platform::dropPosted);
  } else {
    posted->sourceId = g_timeout_add_full(G_PRIORITY_DEFAULT, delayMs, &Platform::runPosted, posted,
                                          &Platform::dropPosted);
  }
  pendingSources_.insert(posted->sourceId);
}

gboolean Platform::runPosted(gpointer data) {
  auto* posted = static_cast<PostedTask*>(data);
  posted->platform->pendingSources_.erase(posted->sourceId);
  posted->task();
  return G_SOURCE_REMOVE;
}

void Platform::dropPosted(gpointer data) {
  delete static_cast<PostedTask*>(data);
}

std::string Platform::sharedTrustedPath(const std::string& appId) const {
  if (deviceDir_.empty() || appId.empty())
    return std::string();
  g_autofree char* dir =
      g_build_filename(deviceDir_.c_str(), "apps", appId.c_str(), "shared", "trusted", nullptr);
  if (g_mkdir_with_parents(dir, 0755) != 0)
    return std::string();
  return std::string(dir) + "/";
}

void Platform::sendToApp(const std::string& fromAppId,
                         const std::string& fromPort,
                         const std::string& port,
                         const KeyValues& message) {
  post([this, fromAppId, fromPort, port, message] {
    const MessagePortTable::Port* found = ports_.findByName(port);
    if (!found) {
      addEvent(BoundaryEvent::Kind::kMessageDropped, fromAppId, port, message, 0);
      return;
    }
    // The callback may unregister the port.
    MessagePortTable::Port target = *found;
    addEvent(BoundaryEvent::Kind::kMessageDelivered, fromAppId, port, message, 0);
    BundlePtr bundle = makeBundle(message);
    target.callback(target.id, fromAppId.c_str(), fromPort.c_str(), true, bundle.get(),
                    target.userData);
  });
}

void Platform::requestExit() {
  addEvent(BoundaryEvent::Kind::kExitRequested, std::string(), std::string(), {}, 0);
  exitRequested_ = true;
  MainLoop::quit();
}

}  // namespace host
