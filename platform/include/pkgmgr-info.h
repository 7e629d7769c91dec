/* Package information: the installed applications and their properties. */
#ifndef __PKG_INFO_H__
#define __PKG_INFO_H__

#include <stdbool.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The device's header gives these no type name. */
enum {
  PMINFO_R_ERROR = -1,
  PMINFO_R_EINVAL = -2,
  PMINFO_R_OK = 0,
};

#define PMINFO_APPINFO_PROP_APP_ID "PMINFO_APPINFO_PROP_APP_ID"
#define PMINFO_APPINFO_PROP_APP_COMPONENT "PMINFO_APPINFO_PROP_APP_COMPONENT"

typedef void* pkgmgrinfo_appinfo_h;
typedef void* pkgmgrinfo_appinfo_filter_h;

/* Return 0 to go on, a negative value to stop the enumeration. The handle and the strings it
 * hands out are valid for the call only. */
typedef int (*pkgmgrinfo_app_list_cb)(const pkgmgrinfo_appinfo_h handle, void* user_data);

int pkgmgrinfo_appinfo_filter_create(pkgmgrinfo_appinfo_filter_h* handle);
int pkgmgrinfo_appinfo_filter_destroy(pkgmgrinfo_appinfo_filter_h handle);
int pkgmgrinfo_appinfo_filter_add_string(pkgmgrinfo_appinfo_filter_h handle,
                                         const char* property,
                                         const char* value);
/* Lists the apps of `uid` and the global apps that match every condition of the filter. */
int pkgmgrinfo_appinfo_usr_filter_foreach_appinfo(pkgmgrinfo_appinfo_filter_h handle,
                                                  pkgmgrinfo_app_list_cb app_cb,
                                                  void* user_data,
                                                  uid_t uid);
/* *pkgid is owned by the handle. */
int pkgmgrinfo_appinfo_get_pkgid(pkgmgrinfo_appinfo_h handle, char** pkgid);
int pkgmgrinfo_appinfo_get_appid(pkgmgrinfo_appinfo_h handle, char** appid);
int pkgmgrinfo_appinfo_is_preload(pkgmgrinfo_appinfo_h handle, bool* preload);

#ifdef __cplusplus
}
#endif

#endif
