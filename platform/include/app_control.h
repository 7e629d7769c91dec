/* App-control: launch requests between applications and their replies. */
#ifndef __TIZEN_APPFW_APP_CONTROL_H__
#define __TIZEN_APPFW_APP_CONTROL_H__

#include <stdbool.h>
#include <tizen_error.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Opaque. Whoever creates or clones a handle destroys it with app_control_destroy(). */
typedef struct app_control_s* app_control_h;

typedef enum {
  APP_CONTROL_ERROR_NONE = TIZEN_ERROR_NONE,
  APP_CONTROL_ERROR_INVALID_PARAMETER = TIZEN_ERROR_INVALID_PARAMETER,
  APP_CONTROL_ERROR_OUT_OF_MEMORY = TIZEN_ERROR_OUT_OF_MEMORY,
  APP_CONTROL_ERROR_APP_NOT_FOUND = TIZEN_ERROR_APPLICATION | 0x21,
  APP_CONTROL_ERROR_KEY_NOT_FOUND = TIZEN_ERROR_KEY_NOT_AVAILABLE,
  APP_CONTROL_ERROR_KEY_REJECTED = TIZEN_ERROR_KEY_REJECTED,
  APP_CONTROL_ERROR_INVALID_DATA_TYPE = TIZEN_ERROR_APPLICATION | 0x22,
  APP_CONTROL_ERROR_LAUNCH_REJECTED = TIZEN_ERROR_APPLICATION | 0x23,
  APP_CONTROL_ERROR_PERMISSION_DENIED = TIZEN_ERROR_PERMISSION_DENIED,
  APP_CONTROL_ERROR_LAUNCH_FAILED = TIZEN_ERROR_APPLICATION | 0x24,
  APP_CONTROL_ERROR_TIMED_OUT = TIZEN_ERROR_TIMED_OUT,
  APP_CONTROL_ERROR_IO_ERROR = TIZEN_ERROR_IO_ERROR,
} app_control_error_e;

typedef enum {
  APP_CONTROL_RESULT_APP_STARTED = 1,
  APP_CONTROL_RESULT_SUCCEEDED = 0,
  APP_CONTROL_RESULT_FAILED = -1,
  APP_CONTROL_RESULT_CANCELED = -2,
} app_control_result_e;

/* Called on the main loop with the request as sent (kept alive by the platform for the call)
 * and the callee's reply; neither handle may be destroyed by the callback. */
typedef void (*app_control_reply_cb)(app_control_h request,
                                     app_control_h reply,
                                     app_control_result_e result,
                                     void* user_data);

int app_control_create(app_control_h* app_control);
int app_control_destroy(app_control_h app_control);
int app_control_clone(app_control_h* clone, app_control_h app_control);

int app_control_set_operation(app_control_h app_control, const char* operation);
/* *operation is NULL when none is set; otherwise a copy the caller frees with free(). */
int app_control_get_operation(app_control_h app_control, char** operation);
int app_control_set_app_id(app_control_h app_control, const char* app_id);
int app_control_get_app_id(app_control_h app_control, char** app_id);

/* Refuses an empty key or an empty value with APP_CONTROL_ERROR_INVALID_PARAMETER. */
int app_control_add_extra_data(app_control_h app_control, const char* key, const char* value);
int app_control_remove_extra_data(app_control_h app_control, const char* key);
/* *value is a copy the caller frees with free(). */
int app_control_get_extra_data(app_control_h app_control, const char* key, char** value);

/* Since wearable 3.0 the platform restricts launching a service app of another package. */
int app_control_send_launch_request(app_control_h app_control,
                                    app_control_reply_cb callback,
                                    void* user_data);
int app_control_reply_to_launch_request(app_control_h reply,
                                        app_control_h request,
                                        app_control_result_e result);

#ifdef __cplusplus
}
#endif

#endif
