// Information about the emulated watch's installed apps.
#include <app_manager.h>

#include <string.h>

#include "host/Platform.h"

extern "C" {

int app_manager_get_shared_trusted_path(const char* app_id, char** path) {
  if (!app_id || !path)
    return APP_MANAGER_ERROR_INVALID_PARAMETER;
  host::Platform* platform = host::Platform::current();
  if (!platform)
    return APP_MANAGER_ERROR_IO_ERROR;
  if (platform->selfAppId() != app_id && !platform->packages().findApp(app_id))
    return APP_MANAGER_ERROR_NO_SUCH_APP;
  std::string trusted = platform->trustedPathAsGiven(app_id);
  if (trusted.empty())
    return APP_MANAGER_ERROR_IO_ERROR;
  *path = strdup(trusted.c_str());
  return APP_MANAGER_ERROR_NONE;
}

}  // extern "C"
