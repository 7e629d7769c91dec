/* App manager: information about installed applications. */
#ifndef __TIZEN_APPFW_APP_MANAGER_H
#define __TIZEN_APPFW_APP_MANAGER_H

#include <tizen_error.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
  APP_MANAGER_ERROR_NONE = TIZEN_ERROR_NONE,
  APP_MANAGER_ERROR_INVALID_PARAMETER = TIZEN_ERROR_INVALID_PARAMETER,
  APP_MANAGER_ERROR_OUT_OF_MEMORY = TIZEN_ERROR_OUT_OF_MEMORY,
  APP_MANAGER_ERROR_IO_ERROR = TIZEN_ERROR_IO_ERROR,
  APP_MANAGER_ERROR_NO_SUCH_APP = TIZEN_ERROR_APPLICATION_MANAGER | 0x01,
  APP_MANAGER_ERROR_PERMISSION_DENIED = TIZEN_ERROR_PERMISSION_DENIED,
} app_manager_error_e;

/* The absolute path of an installed app's shared trusted directory; *path is a copy the caller
 * frees with free(). Whether it ends with '/' is not documented. */
int app_manager_get_shared_trusted_path(const char* app_id, char** path);

#ifdef __cplusplus
}
#endif

#endif
