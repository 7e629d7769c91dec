#include "MvSvcWatchAppList.h"

#include <tzplatform_config.h>

#include "MvHandles.h"
#include "MvSvcLog.h"

void mvsvcForeachWatchApp(pkgmgrinfo_app_list_cb callback,
                          void* userData,
                          const MvSvcSourceLocation& caller) {
  pkgmgrinfo_appinfo_filter_h created = nullptr;
  if (pkgmgrinfo_appinfo_filter_create(&created) != PMINFO_R_OK) {
    MVSVC_LOGE_AT(caller, "pkgmgrinfo_appinfo_filter_create error");
    return;
  }
  MvAppInfoFilterPtr filter(created);
  if (pkgmgrinfo_appinfo_filter_add_string(filter.get(), PMINFO_APPINFO_PROP_APP_COMPONENT,
                                           "watchapp") != PMINFO_R_OK) {
    MVSVC_LOGE_AT(caller, "pkgmgrinfo_appinfo_filter_add_string[watchapp] error");
  } else {
    const int result = pkgmgrinfo_appinfo_usr_filter_foreach_appinfo(
        filter.get(), callback, userData, tzplatform_getuid(TZ_SYS_GLOBALAPP_USER));
    if (result != PMINFO_R_OK)
      MVSVC_LOGE_AT(caller, "pkgmgrinfo_appinfo_filter_foreach_appinfo error[err code = %d]",
                    result);
  }
}

bool mvsvcReadWatchApp(const pkgmgrinfo_appinfo_h handle,
                       void* userData,
                       char** pkgId,
                       bool* preload,
                       const MvSvcSourceLocation& caller) {
  if (!userData) {
    MVSVC_LOGE_AT(caller, "data is nullptr");
    return false;
  }
  *pkgId = nullptr;
  if (pkgmgrinfo_appinfo_get_pkgid(handle, pkgId) != PMINFO_R_OK || !*pkgId) {
    MVSVC_LOGE_AT(caller, "pkgmgrinfo_appinfo_get_pkgid error");
    return false;
  }
  *preload = false;
  if (pkgmgrinfo_appinfo_is_preload(handle, preload) != PMINFO_R_OK) {
    MVSVC_LOGE_AT(caller, "pkgmgrinfo_appinfo_is_preload error");
    return false;
  }
  return true;
}
