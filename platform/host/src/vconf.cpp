// vconf string keys of the emulated watch.
#include <vconf.h>

#include <string.h>

#include "host/Platform.h"

extern "C" {

char* vconf_get_str(const char* in_key) {
  host::Platform* platform = host::Platform::current();
  if (!in_key || !platform)
    return nullptr;
  std::string value;
  if (!platform->config().get(in_key, value))
    return nullptr;
  return strdup(value.c_str());
}

int vconf_set_str(const char* in_key, const char* strval) {
  host::Platform* platform = host::Platform::current();
  if (!in_key || !strval || !platform || !platform->writeConfig(in_key, strval))
    return VCONF_ERROR;
  return VCONF_OK;
}

}  // extern "C"
