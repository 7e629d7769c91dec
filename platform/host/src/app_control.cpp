// The platform's app-control API on the emulated watch.
#include <app_control.h>

#include <stdlib.h>
#include <string.h>

#include <memory>

#include "MvHandles.h"
#include "host/AppControl.h"
#include "host/EmulatedApp.h"
#include "host/HostLog.h"
#include "host/PendingReply.h"
#include "host/Platform.h"

namespace host {

namespace {

int g_liveAppControls = 0;

// Whether the platform's personality keeps the running app from launching `target`: a service
// app of another package.
bool isOtherPackagesService(Platform& platform, const PackageInfo& target) {
  if (platform.personality().otherPackageServiceLaunch || target.component != "svcapp")
    return false;
  const PackageInfo* self = platform.packages().findApp(platform.selfAppId());
  return target.pkgId != (self ? self->pkgId : platform.selfAppId());
}

}  // namespace

int liveAppControlCount() {
  return g_liveAppControls;
}

app_control_h cloneAppControl(const app_control_s& source) {
  ++g_liveAppControls;
  return new app_control_s(source);
}

const std::string* findExtra(const app_control_s& handle, const std::string& key) {
  for (const auto& entry : handle.extras) {
    if (entry.first == key)
      return &entry.second;
  }
  return nullptr;
}

}  // namespace host

using host::BoundaryEvent;
using host::Platform;

extern "C" {

int app_control_create(app_control_h* app_control) {
  if (!app_control)
    return APP_CONTROL_ERROR_INVALID_PARAMETER;
  *app_control = host::cloneAppControl(app_control_s());
  return APP_CONTROL_ERROR_NONE;
}

int app_control_destroy(app_control_h app_control) {
  if (!app_control)
    return APP_CONTROL_ERROR_INVALID_PARAMETER;
  --host::g_liveAppControls;
  delete app_control;
  return APP_CONTROL_ERROR_NONE;
}

int app_control_clone(app_control_h* clone, app_control_h app_control) {
  if (!clone || !app_control)
    return APP_CONTROL_ERROR_INVALID_PARAMETER;
  *clone = host::cloneAppControl(*app_control);
  return APP_CONTROL_ERROR_NONE;
}

int app_control_set_operation(app_control_h app_control, const char* operation) {
  if (!app_control)
    return APP_CONTROL_ERROR_INVALID_PARAMETER;
  app_control->hasOperation = operation != nullptr;
  app_control->operation = operation ? operation : "";
  return APP_CONTROL_ERROR_NONE;
}

int app_control_get_operation(app_control_h app_control, char** operation) {
  if (!app_control || !operation)
    return APP_CONTROL_ERROR_INVALID_PARAMETER;
  *operation = app_control->hasOperation ? strdup(app_control->operation.c_str()) : nullptr;
  return APP_CONTROL_ERROR_NONE;
}

int app_control_set_app_id(app_control_h app_control, const char* app_id) {
  if (!app_control)
    return APP_CONTROL_ERROR_INVALID_PARAMETER;
  app_control->appId = app_id ? app_id : "";
  return APP_CONTROL_ERROR_NONE;
}

int app_control_get_app_id(app_control_h app_control, char** app_id) {
  if (!app_control || !app_id)
    return APP_CONTROL_ERROR_INVALID_PARAMETER;
  *app_id = app_control->appId.empty() ? nullptr : strdup(app_control->appId.c_str());
  return APP_CONTROL_ERROR_NONE;
}

int app_control_add_extra_data(app_control_h app_control, const char* key, const char* value) {
  // The device refuses an empty value as it refuses an empty key.
  if (!app_control || !key || !value || key[0] == '\0' || value[0] == '\0')
    return APP_CONTROL_ERROR_INVALID_PARAMETER;
  for (auto& entry : app_control->extras) {
    if (entry.first == key) {
      entry.second = value;
      return APP_CONTROL_ERROR_NONE;
    }
  }
  app_control->extras.emplace_back(key, value);
  return APP_CONTROL_ERROR_NONE;
}

int app_control_remove_extra_data(app_control_h app_control, const char* key) {
  if (!app_control || !key)
    return APP_CONTROL_ERROR_INVALID_PARAMETER;
  auto& extras = app_control->extras;
  for (auto it = extras.begin(); it != extras.end(); ++it) {
    if (it->first == key) {
      extras.erase(it);
      return APP_CONTROL_ERROR_NONE;
    }
  }
  return APP_CONTROL_ERROR_KEY_NOT_FOUND;
}

int app_control_get_extra_data(app_control_h app_control, const char* key, char** value) {
  if (!app_control || !key || !value)
    return APP_CONTROL_ERROR_INVALID_PARAMETER;
  const std::string* found = host::findExtra(*app_control, key);
  if (!found)
    return APP_CONTROL_ERROR_KEY_NOT_FOUND;
  *value = strdup(found->c_str());
  return APP_CONTROL_ERROR_NONE;
}

int app_control_send_launch_request(app_control_h app_control,
                                    app_control_reply_cb callback,
                                    void* user_data) {
  if (!app_control)
    return APP_CONTROL_ERROR_INVALID_PARAMETER;
  Platform* platform = Platform::current();
  if (!platform)
    return APP_CONTROL_ERROR_LAUNCH_FAILED;

  const std::string target = app_control->appId;
  int result = APP_CONTROL_ERROR_NONE;
  const char* refusal = nullptr;
  std::shared_ptr<host::EmulatedApp> app;
  const host::PackageInfo* installed = platform->packages().findApp(target);
  if (target.empty()) {
    result = APP_CONTROL_ERROR_INVALID_PARAMETER;
    refusal = "no app ID";
  } else if (!installed) {
    result = APP_CONTROL_ERROR_APP_NOT_FOUND;
    refusal = "no such app is installed";
  } else if (host::isOtherPackagesService(*platform, *installed)) {
    result = APP_CONTROL_ERROR_LAUNCH_REJECTED;
    refusal = "the platform launches no service app of another package";
  } else if (!(app = platform->findApp(target))) {
    result = APP_CONTROL_ERROR_LAUNCH_REJECTED;
    refusal = "nothing on this watch runs it";
  }
  platform->addEvent(BoundaryEvent::Kind::kAppControlSent, target, app_control->operation,
                     app_control->extras, result);
  if (result != APP_CONTROL_ERROR_NONE) {
    host::logWarn(host::kHostLogTag, "launch request to '%s' refused: %s", target.c_str(), refusal);
    return result;
  }

  auto reply =
      std::make_shared<host::PendingReply>(*platform, target, app_control, callback, user_data);
  platform->trackLaunchRequest(reply);
  std::shared_ptr<app_control_s> request(MvAppControlPtr(host::cloneAppControl(*app_control)));
  platform->postToPeer([app, reply, request] { app->onLaunchRequest(request.get(), reply); },
                       "appcontrol:" + target);
  return APP_CONTROL_ERROR_NONE;
}

int app_control_reply_to_launch_request(app_control_h reply,
                                        app_control_h request,
                                        app_control_result_e result) {
  if (!reply || !request)
    return APP_CONTROL_ERROR_INVALID_PARAMETER;
  Platform* platform = Platform::current();
  if (!platform || request->launchId == 0)
    return APP_CONTROL_ERROR_INVALID_PARAMETER;

  platform->addEvent(BoundaryEvent::Kind::kReplyToLauncher, std::string(), request->operation,
                     reply->extras, result, request->launchId);
  const unsigned launchId = request->launchId;
  host::KeyValues extras = reply->extras;
  // The launcher is another app: the reply reaches it even when the service ends first.
  platform->postToPeer(
      [platform, launchId, extras, result] {
        if (platform->launcherReplyHandler())
          platform->launcherReplyHandler()(launchId, extras, result);
      },
      "launcher");
  return APP_CONTROL_ERROR_NONE;
}

}  // extern "C"
