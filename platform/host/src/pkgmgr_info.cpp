// The platform's package information API over the emulated watch's package database.
#include <pkgmgr-info.h>

#include <string.h>
#include <tzplatform_config.h>

#include <string>
#include <utility>
#include <vector>

#include "host/Platform.h"

namespace {

struct AppInfoFilter {
  std::vector<std::pair<std::string, std::string>> conditions;
};

bool matches(const AppInfoFilter& filter, const host::PackageInfo& app) {
  for (const auto& condition : filter.conditions) {
    const std::string& actual =
        condition.first == PMINFO_APPINFO_PROP_APP_COMPONENT ? app.component : app.appId;
    if (actual != condition.second)
      return false;
  }
  return true;
}

// What a test made the call `function` fail with, or PMINFO_R_OK.
int seamFailure(const char* function) {
  host::Platform* platform = host::Platform::current();
  return platform ? platform->packages().failure(function) : PMINFO_R_OK;
}

}  // namespace

extern "C" {

int pkgmgrinfo_appinfo_filter_create(pkgmgrinfo_appinfo_filter_h* handle) {
  if (!handle)
    return PMINFO_R_EINVAL;
  if (const int failed = seamFailure(__func__))
    return failed;
  *handle = new AppInfoFilter();
  return PMINFO_R_OK;
}

int pkgmgrinfo_appinfo_filter_destroy(pkgmgrinfo_appinfo_filter_h handle) {
  if (!handle)
    return PMINFO_R_EINVAL;
  delete static_cast<AppInfoFilter*>(handle);
  return PMINFO_R_OK;
}

int pkgmgrinfo_appinfo_filter_add_string(pkgmgrinfo_appinfo_filter_h handle,
                                         const char* property,
                                         const char* value) {
  if (!handle || !property || !value)
    return PMINFO_R_EINVAL;
  if (const int failed = seamFailure(__func__))
    return failed;
  if (strcmp(property, PMINFO_APPINFO_PROP_APP_COMPONENT) != 0 &&
      strcmp(property, PMINFO_APPINFO_PROP_APP_ID) != 0)
    return PMINFO_R_EINVAL;
  static_cast<AppInfoFilter*>(handle)->conditions.emplace_back(property, value);
  return PMINFO_R_OK;
}

int pkgmgrinfo_appinfo_usr_filter_foreach_appinfo(pkgmgrinfo_appinfo_filter_h handle,
                                                  pkgmgrinfo_app_list_cb app_cb,
                                                  void* user_data,
                                                  uid_t uid) {
  if (!handle || !app_cb)
    return PMINFO_R_EINVAL;
  if (const int failed = seamFailure(__func__))
    return failed;
  host::Platform* platform = host::Platform::current();
  if (!platform)
    return PMINFO_R_ERROR;
  if (uid != host::Platform::kOwnerUid && uid != tzplatform_getuid(TZ_SYS_GLOBALAPP_USER))
    return PMINFO_R_EINVAL;

  const auto& filter = *static_cast<AppInfoFilter*>(handle);
  // A snapshot: the callback may change the database.
  std::vector<host::PackageInfo> apps = platform->packages().apps();
  for (host::PackageInfo& app : apps) {
    if (!matches(filter, app))
      continue;
    if (app_cb(&app, user_data) < 0)
      break;
  }
  return PMINFO_R_OK;
}

int pkgmgrinfo_appinfo_get_pkgid(pkgmgrinfo_appinfo_h handle, char** pkgid) {
  if (!handle || !pkgid)
    return PMINFO_R_EINVAL;
  if (const int failed = seamFailure(__func__))
    return failed;
  *pkgid = &static_cast<host::PackageInfo*>(handle)->pkgId[0];
  return PMINFO_R_OK;
}

int pkgmgrinfo_appinfo_get_appid(pkgmgrinfo_appinfo_h handle, char** appid) {
  if (!handle || !appid)
    return PMINFO_R_EINVAL;
  *appid = &static_cast<host::PackageInfo*>(handle)->appId[0];
  return PMINFO_R_OK;
}

int pkgmgrinfo_appinfo_is_preload(pkgmgrinfo_appinfo_h handle, bool* preload) {
  if (!handle || !preload)
    return PMINFO_R_EINVAL;
  if (const int failed = seamFailure(__func__))
    return failed;
  *preload = static_cast<host::PackageInfo*>(handle)->preload;
  return PMINFO_R_OK;
}

}  // extern "C"
