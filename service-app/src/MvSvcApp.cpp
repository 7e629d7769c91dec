#include "MvSvcApp.h"

#include <service_app.h>

#include <stdlib.h>
#include <string.h>

#include <utility>

#include "MvSvcBackupModel.h"
#include "MvSvcLog.h"
#include "MvSvcRestoreModel.h"
#include "MvSvcWatchDataCollector.h"

namespace {

const char* const kRetailModeKey = "retail-mode";
const double kExitDelaySeconds = 2.0;

}  // namespace

MvSvcApp::MvSvcApp()
    : app_assist::WServiceApp(),
      _request(nullptr),
      _resultDataList(),
      _imageDataList(),
      _exitTimer(nullptr) {}

MvSvcApp::~MvSvcApp() {
  if (_exitTimer) {
    ecore_timer_del(_exitTimer);
    _exitTimer = nullptr;
  }
}

bool MvSvcApp::onCreate() {
  return true;
}

void MvSvcApp::onTerminate() {
  if (_request) {
    app_control_destroy(_request);
    _request = nullptr;
  }
}

void MvSvcApp::onAppControl(app_control_h request, bool) {
  WASSERT(request != nullptr);

  char* operation = nullptr;
  app_control_get_operation(request, &operation);
  if (operation) {
    if (strcmp(operation, MVSVC_OPERATION_BACKUP) == 0) {
      _startCollection(request);
      free(operation);
      return;
    }
    if (strcmp(operation, MVSVC_OPERATION_RESTORE) == 0) {
      _startRestore(request);
      free(operation);
      return;
    }
    if (strcmp(operation, MVSVC_OPERATION_GET_BACKUP_INFO) == 0) {
      // Kept like a backup request, so that the exchange's reply reaches the requester.
      _storeRequest(request);
      _startBackup(MVSVC_OPERATION_GET_BACKUP_INFO);
    }
    free(operation);
  }

  char* retailMode = nullptr;
  app_control_get_extra_data(request, kRetailModeKey, &retailMode);
  if (retailMode) {
    free(retailMode);
    _setExitTimer();
  } else {
    MVSVC_LOGE("msg is nullptr!");
  }
}

void MvSvcApp::_startCollection(app_control_h request) {
  _storeRequest(request);
  MvSvcWatchDataCollector* collector = new MvSvcWatchDataCollector();
  collector->setOnCollectCompleted([this](bool success, void* userData) {
    MvSvcWatchDataCollector* done = static_cast<MvSvcWatchDataCollector*>(userData);
    if (success && done) {
      // The collector goes next: its lists are handed on, not copied.
      _resultDataList = std::move(done->getResultDataList());
      _imageDataList = std::move(done->getImageDataList());
      _startBackup(MVSVC_OPERATION_BACKUP);
    } else {
      MVSVC_LOGE("Failed to collect watch backup data");
    }
    delete done;
  });
  collector->run();
}

void MvSvcApp::_startBackup(const char* operation) {
  MvSvcBackupModel* model = new MvSvcBackupModel(_request, _resultDataList, _imageDataList);
  model->setOnBackupCompleted([](bool, void* userData) {
    delete static_cast<MvSvcBackupModel*>(userData);
    service_app_exit();
  });
  model->run(operation);
}

void MvSvcApp::_startRestore(app_control_h request) {
  MvSvcRestoreModel* model = new MvSvcRestoreModel(request);
  model->setOnRestoreCompleted([](bool, void* userData) {
    delete static_cast<MvSvcRestoreModel*>(userData);
    service_app_exit();
  });
  model->run();
}

// An earlier clone is released first: only the latest request is answered.
void MvSvcApp::_storeRequest(app_control_h request) {
  if (_request) {
    app_control_destroy(_request);
    _request = nullptr;
  }
  int ret = app_control_clone(&_request, request);
  if (ret != APP_CONTROL_ERROR_NONE)
    MVSVC_LOGE("app_control_clone failed.(%d)", ret);
}

void MvSvcApp::_setExitTimer() {
  if (_exitTimer) {
    ecore_timer_del(_exitTimer);
    _exitTimer = nullptr;
  }
  _exitTimer = ecore_timer_add(kExitDelaySeconds, _exitTimerCb, this);
}

Eina_Bool MvSvcApp::_exitTimerCb(void* data) {
  MvSvcApp* app = static_cast<MvSvcApp*>(data);
  app->_exitTimer = nullptr;
  service_app_exit();
  return ECORE_CALLBACK_CANCEL;
}

#ifndef MVSVC_WITHOUT_MAIN
int main(int argc, char* argv[]) {
  MvSvcApp app;
  return app.start(argc, argv);
}
#endif
