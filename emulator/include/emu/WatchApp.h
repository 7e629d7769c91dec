#ifndef EMU_WATCH_APP_H
#define EMU_WATCH_APP_H

#include <memory>

#include "emu/DeviceProfile.h"
#include "emu/RunJournal.h"
#include "host/EmulatedApp.h"

namespace host {
class Platform;
}

namespace emu {

// The service app of a preloaded watch app: answers a backup request with its result XML and
// keeps the XML of a restore request. Owned by the platform it is registered with.
class WatchApp : public host::EmulatedApp {
 public:
  // Replies go out `replyDelayMs` after the request; what a restore gives it goes to `journal`.
  WatchApp(host::Platform& platform,
           WatchAppState state,
           unsigned replyDelayMs,
           std::shared_ptr<RunJournal> journal);

  void onLaunchRequest(app_control_h request, std::shared_ptr<host::PendingReply> reply) override;

  const WatchAppState& state() const { return state_; }
  int backupsAnswered() const { return backupsAnswered_; }
  int restoresReceived() const { return restoresReceived_; }

 private:
  // What the log says of a reply that the watchapp-late fault holds back.
  std::string lateNote() const;

  host::Platform& platform_;
  WatchAppState state_;
  unsigned replyDelayMs_;
  std::shared_ptr<RunJournal> journal_;
  int backupsAnswered_ = 0;
  int restoresReceived_ = 0;
};

}  // namespace emu

#endif
