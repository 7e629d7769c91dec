#ifndef EMU_WATCHFACE_SERVICE_H
#define EMU_WATCHFACE_SERVICE_H

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "MvLiveness.h"
#include "MvWatchNames.h"
#include "emu/DeviceProfile.h"
#include "emu/RunJournal.h"
#include "host/BoundaryRecord.h"
#include "host/EmulatedApp.h"

namespace host {
class Platform;
}

namespace emu {

// The watch face service: answers the backup start request with one watch entry per face, one
// image entry per background photo and "backup_finished"; applies what a restore sends
// (settings per face, photos copied into its own storage, the idle clock). Owned by the
// platform it is registered with, which it must not outlive; the emulated watch keeps a share
// to read its state back at the end of the run.
class WatchfaceService : public host::EmulatedApp {
 public:
  struct Activity {
    int facesSent = 0;
    int imagesSent = 0;
    int settingsReceived = 0;
    int imagesReceived = 0;
    int restoresFinished = 0;
    std::string idleFace;  // the face an idle-change message chose, if any
    // Photos not handed out as they are, or not kept, and why.
    std::vector<std::string> photoProblems;
  };

  WatchfaceService(host::Platform& platform,
                   std::string deviceDir,
                   std::vector<FaceEntry> faces,
                   std::vector<BackgroundImage> images,
                   std::map<std::string, std::string> faults,
                   std::shared_ptr<RunJournal> journal);
  ~WatchfaceService() override;

  WatchfaceService(const WatchfaceService&) = delete;
  WatchfaceService& operator=(const WatchfaceService&) = delete;

  void onLaunchRequest(app_control_h request, std::shared_ptr<host::PendingReply> reply) override;
  std::vector<std::string> localPorts() const override { return {MV_WATCHFACE_SERVICE_PORT}; }
  void onMessage(const std::string& port, const std::string& fromAppId, bundle* message) override;

  // Sends the service "restore_finished" out of turn.
  void sendRestoreFinished();
  // The idle clock was written when the boundary record held `events` events. An idle-change
  // message sent before that comes too late to count: the later word holds.
  void noteIdleClockWritten(size_t events) { idleClockWrittenAt_ = events; }

  const std::vector<FaceEntry>& faces() const { return faces_; }
  const std::vector<BackgroundImage>& images() const { return images_; }
  const Activity& activity() const { return activity_; }
  // For callbacks that may outlive this app.
  const MvLiveness<WatchfaceService>& liveness() const { return liveness_; }

 private:
  void answerBackup();
  void restoreSettings(bundle* message);
  void restoreImage(bundle* message);
  // Puts the photo `from` at `to` (replacing it, through the new file `temporary`, a pattern
  // ending in XXXXXX) and tells its size: by a hard link where the file systems allow, else by
  // a copy (false with the reason).
  static bool linkPhoto(const std::string& from,
                        const std::string& to,
                        const std::string& temporary,
                        size_t& length);
  static bool copyPhoto(const std::string& from,
                        const std::string& to,
                        const std::string& temporary,
                        size_t& length,
                        std::string& failure);
  void changeIdleClock(bundle* message);
  // Sends `message`, named `what` in the error line when the platform refuses it; false then.
  bool sendToService(const host::KeyValues& message, const std::string& what);
  std::string unreadablePath(const BackgroundImage& image);
  // The photo's file as announced for a backup; empty when it is not one to hand out.
  std::string photoPath(const BackgroundImage& image);

  host::Platform& platform_;
  std::string deviceDir_;
  std::vector<FaceEntry> faces_;
  std::vector<BackgroundImage> images_;
  std::map<std::string, std::string> faults_;
  std::shared_ptr<RunJournal> journal_;  // every settings document and photo it keeps
  // Where each face (by package ID) and photo (by file name) is held: a restore may bring tens
  // of thousands.
  std::unordered_map<std::string, size_t> faceAt_;
  std::unordered_map<std::string, size_t> imageAt_;
  Activity activity_;
  std::string fifoPath_;  // made for the image-unreadable fault; removed with this app
  size_t idleClockWrittenAt_ = 0;
  size_t idleChangesReceived_ = 0;
  MvLiveness<WatchfaceService> liveness_{this};
};

}  // namespace emu

#endif
