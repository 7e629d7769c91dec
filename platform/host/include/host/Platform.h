#ifndef HOST_PLATFORM_H
#define HOST_PLATFORM_H

#include <app_control.h>
#include <bundle.h>
#include <glib.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "MvHandles.h"
#include "host/BoundaryRecord.h"
#include "host/ConfigStore.h"
#include "host/LogSink.h"
#include "host/MessagePortTable.h"
#include "host/PackageDatabase.h"
#include "host/Personality.h"

namespace host {

class EmulatedApp;
class DeliverySchedule;
class PendingReply;

// The name of every GLib source the host attaches, so that the app's own can be told apart.
constexpr const char kHostSourcePrefix[] = "morvik-host";

// The emulated watch's platform as the running app sees it: its device directory, log,
// configuration, package database, message ports, the other apps, and the record of what
// crossed the boundary. The platform C API reaches it through current(). One exists at a time;
// it lives on the main loop thread and is owned by whoever created it (the launcher, or a test).
class Platform {
 public:
  // `deviceDir` may be empty for a platform without a disk (no log file, no shared paths).
  Platform(std::string deviceDir, std::string selfAppId);
  ~Platform();

  Platform(const Platform&) = delete;
  Platform& operator=(const Platform&) = delete;

  // The installed platform, or null.
  static Platform* current();

  const std::string& deviceDir() const { return deviceDir_; }
  const std::string& selfAppId() const { return selfAppId_; }
  // The watch's owner and the user that global apps are installed for.
  static constexpr uid_t kOwnerUid = 5001;
  static constexpr uid_t kGlobalAppUid = 376;

  LogSink& log() { return log_; }
  BoundaryRecord& record() { return record_; }
  const BoundaryRecord& record() const { return record_; }
  ConfigStore& config() { return config_; }
  PackageDatabase& packages() { return packages_; }
  MessagePortTable& ports() { return ports_; }
  // The behaviours the device leaves open; set before the app starts.
  Personality& personality() { return personality_; }
  const Personality& personality() const { return personality_; }

  // Seconds since this platform started.
  double now() const;
  void addEvent(BoundaryEvent::Kind kind,
                std::string peer,
                std::string name,
                KeyValues data,
                int code,
                unsigned launchId = 0);

  // The emulated app that answers for `appId`; the platform shares its ownership.
  void registerApp(const std::string& appId, std::shared_ptr<EmulatedApp> app);
  std::shared_ptr<EmulatedApp> findApp(const std::string& appId) const;

  // Runs `task` on the main loop after `delayMs` from a GLib source of its own. Tasks still
  // pending when the platform goes are dropped. A delivery names its `channel` (e.g. one
  // sender's messages to one port): under a delivery schedule it may come later than asked,
  // but never before an earlier delivery on the same channel. Timers name none.
  void post(std::function<void()> task, unsigned delayMs = 0, const std::string& channel = "");

  // A delivery from the running app to another app: like post(), and it still reaches that app
  // when the running app has ended (deliverToPeers()), as the platform hands it on whatever
  // becomes of the sender.
  void postToPeer(std::function<void()> task, const std::string& channel);
  // Delivers at once, in order, what the app sent to other apps and they have not yet received.
  void deliverToPeers();

  // Makes every delivery take the schedule's extra delay from now on; the platform owns it.
  void setSchedule(std::unique_ptr<DeliverySchedule> schedule);
  const DeliverySchedule* schedule() const { return schedule_.get(); }

  // `DEVICE/apps/<appId>/shared/trusted/`, created on demand; empty on failure, and when a
  // directory on the way is a link (see checkWatchDirectory).
  std::string sharedTrustedPath(const std::string& appId) const;
  // The same as the platform's API gives it to an app: without its last '/' when the
  // personality says so.
  std::string trustedPathAsGiven(const std::string& appId) const;

  // A vconf string write, as any app on the watch makes it: false, with a warning, for a
  // read-only key or a value longer than the personality's vconf limit.
  bool writeConfig(const std::string& key, const std::string& value);

  // MESSAGE_PORT_ERROR_MAX_EXCEEDED, with a warning, when `message` from `fromAppId` to `port` is
  // larger than the personality allows (its keys and values, a NUL each); else 0.
  int checkMessageSize(const std::string& fromAppId,
                       const std::string& port,
                       const KeyValues& message);

  // A trusted message from a peer to the running app's local port `port`, delivered later.
  // Returns what the peer's send returns: 0, or the refusal of a message over the size limit
  // (recorded as dropped, with that code).
  int sendToApp(const std::string& fromAppId,
                const std::string& fromPort,
                const std::string& port,
                const KeyValues& message);

  // Called when the app answers a launch request that the launcher sent.
  using LauncherReplyHandler =
      std::function<void(unsigned launchId, const KeyValues& extras, app_control_result_e)>;
  void setLauncherReplyHandler(LauncherReplyHandler handler) {
    launcherReplyHandler_ = std::move(handler);
  }
  const LauncherReplyHandler& launcherReplyHandler() const { return launcherReplyHandler_; }

  // A launch request the running app sent, with the way back its reply takes.
  void trackLaunchRequest(const std::shared_ptr<PendingReply>& reply);
  // The apps that still owe the running app a reply, one entry per request.
  std::vector<std::string> awaitedReplies() const;

  // service_app_exit(): remembered, and the main loop is asked to end.
  void requestExit();
  bool exitRequested() const { return exitRequested_; }

 private:
  struct PostedTask;
  static gboolean runPosted(gpointer data);
  static void dropPosted(gpointer data);
  void postTask(std::function<void()> task,
                unsigned delayMs,
                const std::string& channel,
                bool toPeer);
  guint attachAt(gint64 dueUs, PostedTask* posted);

  std::string deviceDir_;
  std::string selfAppId_;
  gint64 startedAt_;
  LogSink log_;
  BoundaryRecord record_;
  ConfigStore config_;
  PackageDatabase packages_;
  MessagePortTable ports_;
  Personality personality_;
  std::map<std::string, std::shared_ptr<EmulatedApp>> apps_;
  std::map<PostedTask*, MvGSourceId> pending_;  // the sources own the tasks
  guint64 posted_ = 0;
  std::unique_ptr<DeliverySchedule> schedule_;
  std::map<std::string, gint64> lastDueUs_;  // per channel, under a schedule
  LauncherReplyHandler launcherReplyHandler_;
  std::vector<std::weak_ptr<PendingReply>> launchRequests_;
  bool exitRequested_ = false;
};

}  // namespace host

#endif
