// Paths and identity of the running app on the emulated watch.
#include <app_common.h>

#include <stdlib.h>
#include <string.h>

#include "host/Platform.h"

extern "C" {

char* app_get_shared_trusted_path(void) {
  host::Platform* platform = host::Platform::current();
  if (!platform)
    return nullptr;
  std::string path = platform->trustedPathAsGiven(platform->selfAppId());
  return path.empty() ? nullptr : strdup(path.c_str());
}

int app_get_id(char** id) {
  host::Platform* platform = host::Platform::current();
  if (!id || !platform || platform->selfAppId().empty())
    return -1;
  *id = strdup(platform->selfAppId().c_str());
  return 0;
}

}  // extern "C"
