#ifndef MVSVC_APP_H
#define MVSVC_APP_H

#include <Ecore.h>
#include <WServiceApp.h>
#include <app_control.h>

#include <memory>
#include <vector>

#include "MvHandles.h"
#include "MvSvcTypes.h"

class MvSvcBackupModel;
class MvSvcRestoreModel;
class MvSvcWatchDataCollector;

// The service application: receives every launch request on the main loop and starts the flow
// that its operation names. Lives on main()'s stack for the whole process. It owns every flow: a
// completed model is released at once when it is the last one, and everything else (a model
// whose run() failed, one that completed beside another, the collection, the exit timer) in
// onTerminate(), while the platform still runs. Flows may overlap: backup requests share one
// collection, and each exchange answers only its own request.
class MvSvcApp : public app_assist::WServiceApp {
 public:
  MvSvcApp();
  virtual ~MvSvcApp();

  bool onCreate() override;
  void onTerminate() override;
  void onAppControl(app_control_h request, bool firstLaunch) override;

 private:
  // A cloud exchange and the clone of the launch request it answers.
  template <typename Model>
  struct Exchange {
    MvAppControlPtr request;
    std::unique_ptr<Model> model;
  };

  void _startCollection(app_control_h request);
  void _startBackup(const char* operation, MvAppControlPtr request);
  void _startRestore(app_control_h request);
  void _onCollectCompleted(bool success);
  void _onBackupCompleted(void* model);
  void _onRestoreCompleted(void* model);
  void _setExitTimer();
  static Eina_Bool _exitTimerCb(void* data);

  // Clone of the backup request that the running collection will answer, or null.
  MvAppControlPtr _request;
  std::vector<WatchResultData> _resultDataList;
  std::vector<WatchImageData> _imageDataList;
  MvEcoreTimerPtr _exitTimer;
  std::unique_ptr<MvSvcWatchDataCollector> _collector;  // the running collection, or null
  std::vector<Exchange<MvSvcBackupModel>> _backups;
  std::vector<std::unique_ptr<MvSvcRestoreModel>> _restores;
};

#endif
