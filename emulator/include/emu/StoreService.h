#ifndef EMU_STORE_SERVICE_H
#define EMU_STORE_SERVICE_H

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "emu/DeviceProfile.h"
#include "emu/RunJournal.h"
#include "host/EmulatedApp.h"

namespace host {
class Platform;
}

namespace emu {

// The store service: prepare-install succeeds; install-by-GUID installs an app of its catalogue
// into the package database as downloaded, or fails with the store's "errorMsg". Owned by the
// platform it is registered with.
class StoreService : public host::EmulatedApp {
 public:
  static const char* const kErrorCannotFindContent;
  static const char* const kErrorNotSupported;
  static const char* const kErrorInvalidRequest;
  // Stands for a request the store kept silent about, in answers().
  static const char* const kNoReply;

  // `onFirstRequest` runs when the first request arrives, before it is answered.
  StoreService(host::Platform& platform,
               std::vector<CatalogueItem> catalogue,
               std::map<std::string, std::string> faults,
               std::function<void()> onFirstRequest,
               std::shared_ptr<RunJournal> journal);

  void onLaunchRequest(app_control_h request, std::shared_ptr<host::PendingReply> reply) override;

  // Package IDs installed by this run, in order.
  const std::vector<std::string>& installed() const { return installed_; }
  // What each install request of this run was answered, by GUID: empty for an install, the
  // "errorMsg" otherwise, kNoReply for silence.
  const std::map<std::string, std::string>& answers() const { return answers_; }
  int requests() const { return requests_; }

 private:
  void install(app_control_h request, std::shared_ptr<host::PendingReply> reply);

  host::Platform& platform_;
  std::vector<CatalogueItem> catalogue_;
  std::map<std::string, std::string> faults_;
  std::function<void()> onFirstRequest_;
  std::shared_ptr<RunJournal> journal_;  // what it installs
  std::vector<std::string> installed_;
  std::map<std::string, std::string> answers_;
  int requests_ = 0;
};

}  // namespace emu

#endif
