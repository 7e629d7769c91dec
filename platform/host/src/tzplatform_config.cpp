// Platform configuration variables of the emulated watch: its two users.
#include <tzplatform_config.h>

#include "host/Platform.h"

extern "C" {

uid_t tzplatform_getuid(enum tzplatform_variable id) {
  switch (id) {
    case TZ_SYS_GLOBALAPP_USER:
      return host::Platform::kGlobalAppUid;
    case TZ_SYS_DEFAULT_USER:
      return host::Platform::kOwnerUid;
    default:
      return static_cast<uid_t>(-1);
  }
}

}  // extern "C"
