// Every unit test binary runs on the platform's simulated clock from its first instant: the
// service's 2 s, 20 s and 30 s waits pass as soon as nothing else is due, and what is due at the
// same time comes in the same order on every run.
#include "host/VirtualClock.h"

namespace {

const bool g_simulated = [] {
  host::VirtualClock::enable();
  return true;
}();

}  // namespace
