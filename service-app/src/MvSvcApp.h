#ifndef MVSVC_APP_H
#define MVSVC_APP_H

#include <Ecore.h>
#include <WServiceApp.h>
#include <app_control.h>

#include <vector>

#include "MvSvcTypes.h"

// The service application: receives every launch request on the main loop and starts the flow
// that its operation names. Lives on main()'s stack for the whole process.
class MvSvcApp : public app_assist::WServiceApp {
 public:
  MvSvcApp();
  virtual ~MvSvcApp();

  bool onCreate() override;
  void onTerminate() override;
  void onAppControl(app_control_h request, bool firstLaunch) override;

 private:
  void _startCollection(app_control_h request);
  void _startBackup(const char* operation);
  void _startRestore(app_control_h request);
  void _storeRequest(app_control_h request);
  void _setExitTimer();
  static Eina_Bool _exitTimerCb(void* data);

  app_control_h _request;  // owned clone of the latest backup request, or null
  std::vector<WatchResultData> _resultDataList;
  std::vector<WatchImageData> _imageDataList;
  Ecore_Timer* _exitTimer;  // owned, or null
};

#endif
