/* Service application life cycle. */
#ifndef __TIZEN_APPFW_SERVICE_APP_H__
#define __TIZEN_APPFW_SERVICE_APP_H__

#ifdef __cplusplus
extern "C" {
#endif

/* Asks the platform to end the running service application: its main loop returns once the
 * current callback has finished, and the terminate hook runs. */
void service_app_exit(void);

#ifdef __cplusplus
}
#endif

#endif
