/* Platform configuration variables (users, well-known directories). */
#ifndef _TZPLATFORM_CONFIG_H
#define _TZPLATFORM_CONFIG_H

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

enum tzplatform_variable {
  TZ_USER_NAME = 0,
  TZ_USER_HOME = 1,
  TZ_USER_APP = 2,
  TZ_SYS_HOME = 10,
  TZ_SYS_RW_APP = 12,
  TZ_SYS_RO_APP = 13,
  TZ_SYS_DEFAULT_USER = 16,
  TZ_SYS_GLOBALAPP_USER = 17,
};

/* The user ID that the variable names; (uid_t)-1 when it names no user. */
uid_t tzplatform_getuid(enum tzplatform_variable id);

#ifdef __cplusplus
}
#endif

#endif
