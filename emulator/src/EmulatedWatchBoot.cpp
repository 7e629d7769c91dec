// Linked into the service binary: makes the launcher run on the emulated watch.
#include "emu/EmulatedWatch.h"

namespace {

emu::EmulatedWatch g_watch;

const bool g_registered = [] {
  launcher::setDeviceHooks(&g_watch);
  return true;
}();

}  // namespace
