/* Paths and identity of the running application. */
#ifndef __TIZEN_APPFW_APP_COMMON_H__
#define __TIZEN_APPFW_APP_COMMON_H__

#ifdef __cplusplus
extern "C" {
#endif

/* The absolute path of the running app's shared trusted directory; a copy the caller frees with
 * free(), or NULL. Whether it ends with '/' is not documented. */
char* app_get_shared_trusted_path(void);
/* The running app's ID in *id, a copy the caller frees with free(). Returns 0 on success. */
int app_get_id(char** id);

#ifdef __cplusplus
}
#endif

#endif
