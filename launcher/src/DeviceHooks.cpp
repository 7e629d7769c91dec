#include "launcher/DeviceHooks.h"

namespace launcher {

namespace {

DeviceHooks* g_hooks = nullptr;

}  // namespace

void setDeviceHooks(DeviceHooks* hooks) {
  g_hooks = hooks;
}

DeviceHooks* deviceHooks() {
  return g_hooks;
}

}  // namespace launcher
