/* Message ports: named endpoints for bundles between applications. */
#ifndef __TIZEN_APPFW_MESSAGE_PORT_H__
#define __TIZEN_APPFW_MESSAGE_PORT_H__

#include <bundle.h>
#include <stdbool.h>
#include <tizen_error.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
  MESSAGE_PORT_ERROR_NONE = TIZEN_ERROR_NONE,
  MESSAGE_PORT_ERROR_IO_ERROR = TIZEN_ERROR_IO_ERROR,
  MESSAGE_PORT_ERROR_OUT_OF_MEMORY = TIZEN_ERROR_OUT_OF_MEMORY,
  MESSAGE_PORT_ERROR_INVALID_PARAMETER = TIZEN_ERROR_INVALID_PARAMETER,
  MESSAGE_PORT_ERROR_PORT_NOT_FOUND = TIZEN_ERROR_MESSAGE_PORT | 0x01,
  MESSAGE_PORT_ERROR_CERTIFICATE_NOT_MATCH = TIZEN_ERROR_MESSAGE_PORT | 0x02,
  MESSAGE_PORT_ERROR_MAX_EXCEEDED = TIZEN_ERROR_MESSAGE_PORT | 0x03,
  MESSAGE_PORT_ERROR_RESOURCE_UNAVAILABLE = TIZEN_ERROR_MESSAGE_PORT | 0x04,
} message_port_error_e;

/* Called on the main loop; `message` belongs to the platform and lives for the call only. */
typedef void (*message_port_trusted_message_cb)(int trusted_local_port_id,
                                                const char* remote_app_id,
                                                const char* remote_port,
                                                bool trusted_remote_port,
                                                bundle* message,
                                                void* user_data);

/* Returns a positive port ID, or a negative error. Registering a name again returns the same
 * ID and replaces its callback. */
int message_port_register_trusted_local_port(const char* local_port,
                                             message_port_trusted_message_cb callback,
                                             void* user_data);
int message_port_unregister_trusted_local_port(int trusted_local_port_id);
/* The bundle stays the caller's. Messages should stay under 4 KB; one over the platform's limit
 * fails with MESSAGE_PORT_ERROR_MAX_EXCEEDED. */
int message_port_send_trusted_message(const char* remote_app_id,
                                      const char* remote_port,
                                      bundle* message);

#ifdef __cplusplus
}
#endif

#endif
