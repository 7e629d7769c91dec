#include "MvSvcApp.h"

#include <service_app.h>
#include <string.h>

#include <algorithm>
#include <utility>

#include "MvSvcBackupModel.h"
#include "MvSvcLog.h"
#include "MvSvcRestoreModel.h"
#include "MvSvcWatchDataCollector.h"
#include "MvWatchNames.h"

namespace {

const char* const kRetailModeKey = "retail-mode";
const double kExitDelaySeconds = 2.0;

// A failure is logged as `caller`'s.
MvAppControlPtr cloneRequest(app_control_h request, const MvSvcSourceLocation& caller) {
  app_control_h clone = nullptr;
  const int ret = app_control_clone(&clone, request);
  if (ret != APP_CONTROL_ERROR_NONE)
    MVSVC_LOGE_AT(caller, "app_control_clone failed.(%d)", ret);
  return MvAppControlPtr(clone);
}

}  // namespace

MvSvcApp::MvSvcApp() : app_assist::WServiceApp() {}

// Everything that holds something on the platform went in onTerminate().
MvSvcApp::~MvSvcApp() = default;

bool MvSvcApp::onCreate() {
  return true;
}

// Flows still running, and those whose run() failed, go here, while the platform is still up:
// on the watch it is gone once start() returns, and their destructors call into it.
void MvSvcApp::onTerminate() {
  _request.reset();
  _exitTimer.reset();
  _collector.reset();
  _backups.clear();
  _restores.clear();
}

void MvSvcApp::onAppControl(app_control_h request, bool) {
  WASSERT(request != nullptr);

  char* text = nullptr;
  app_control_get_operation(request, &text);
  MvCharPtr operation(text);
  if (operation) {
    if (strcmp(operation.get(), MV_OPERATION_BACKUP) == 0) {
      _startCollection(request);
      return;
    }
    if (strcmp(operation.get(), MV_OPERATION_RESTORE) == 0) {
      _startRestore(request);
      return;
    }
    // Its own clone, so that a backup request's stays untouched and each is answered once.
    if (strcmp(operation.get(), MV_OPERATION_GET_BACKUP_INFO) == 0)
      _startBackup(MV_OPERATION_GET_BACKUP_INFO, cloneRequest(request, MVSVC_HERE));
  }

  char* retailMode = nullptr;
  app_control_get_extra_data(request, kRetailModeKey, &retailMode);
  if (MvCharPtr(retailMode))
    _setExitTimer();
  else
    MVSVC_LOGE("msg is nullptr!");
}

// Backup requests share one collection: the watch face service talks to one local port, which
// a second collector would take over. A later request takes over the answer; the earlier one is
// answered as canceled, so that no requester waits for ever.
void MvSvcApp::_startCollection(app_control_h request) {
  if (_request) {
    MvAppControlPtr reply = mvCreateAppControl();
    app_control_reply_to_launch_request(reply.get(), _request.get(), APP_CONTROL_RESULT_CANCELED);
  }
  _request = cloneRequest(request, MVSVC_HERE);
  if (_collector)
    return;
  _collector = std::make_unique<MvSvcWatchDataCollector>();
  _collector->setOnCollectCompleted([this](bool success, void*) {
    if (!success)
      MVSVC_LOGE("Failed to collect watch backup data");
    _onCollectCompleted(success);
  });
  _collector->run();
}

void MvSvcApp::_onCollectCompleted(bool success) {
  if (success) {
    // The collector goes next: its lists are handed on, not copied.
    _resultDataList = std::move(_collector->getResultDataList());
    _imageDataList = std::move(_collector->getImageDataList());
    _startBackup(MV_OPERATION_BACKUP, std::move(_request));
  }
  _collector.reset();
}

void MvSvcApp::_startBackup(const char* operation, MvAppControlPtr request) {
  Exchange<MvSvcBackupModel> exchange;
  exchange.request = std::move(request);
  exchange.model =
      std::make_unique<MvSvcBackupModel>(exchange.request.get(), _resultDataList, _imageDataList);
  MvSvcBackupModel* model = exchange.model.get();
  model->setOnBackupCompleted([this](bool, void* done) {
    _onBackupCompleted(done);
    service_app_exit();
  });
  _backups.push_back(std::move(exchange));
  // A model whose run() failed stays until the service ends: releasing it would deinitialise
  // the cloud library under an exchange that another model runs. The service stays up.
  model->run(operation);
}

// A completed model goes at once when it is the last one. Beside another it stays until the
// service ends: its deinitialise could release the library under the other's exchange (a
// library that does not nest its initialisations would), and the service is ending anyway.
void MvSvcApp::_onBackupCompleted(void* model) {
  if (_backups.size() + _restores.size() > 1)
    return;
  auto found = std::find_if(_backups.begin(), _backups.end(), [model](const auto& exchange) {
    return exchange.model.get() == model;
  });
  if (found != _backups.end())
    _backups.erase(found);
}

void MvSvcApp::_startRestore(app_control_h request) {
  auto restore = std::make_unique<MvSvcRestoreModel>(request);
  MvSvcRestoreModel* model = restore.get();
  model->setOnRestoreCompleted([this](bool, void* done) {
    _onRestoreCompleted(done);
    service_app_exit();
  });
  _restores.push_back(std::move(restore));
  // Kept when run() fails, as a failed backup model is.
  model->run();
}

void MvSvcApp::_onRestoreCompleted(void* model) {
  if (_backups.size() + _restores.size() > 1)
    return;
  auto found = std::find_if(_restores.begin(), _restores.end(),
                            [model](const auto& restore) { return restore.get() == model; });
  if (found != _restores.end())
    _restores.erase(found);
}

void MvSvcApp::_setExitTimer() {
  _exitTimer.reset();
  // Carries `this`: a registration undone in the destructor (the owner of the timer), if not
  // already in onTerminate().
  _exitTimer.reset(ecore_timer_add(kExitDelaySeconds, _exitTimerCb, this));
}

Eina_Bool MvSvcApp::_exitTimerCb(void* data) {
  MvSvcApp* app = static_cast<MvSvcApp*>(data);
  // Ecore deletes a timer that cancels itself.
  (void)app->_exitTimer.release();
  service_app_exit();
  return ECORE_CALLBACK_CANCEL;
}

#ifndef MVSVC_WITHOUT_MAIN
int main(int argc, char* argv[]) {
  MvSvcApp app;
  return app.start(argc, argv);
}
#endif
