#ifndef HOST_VIRTUAL_CLOCK_H
#define HOST_VIRTUAL_CLOCK_H

#include <cstdint>

namespace host {

// A simulated monotonic clock for runs whose schedule must not depend on the machine's speed.
// Once enabled, every reading of the monotonic clock in the process (GLib's timeouts, Ecore's
// timers, the platform's own timestamps) sees a time that stands still while work is done and
// jumps ahead only when the main loop would otherwise sleep: a 20 s timeout then takes no real
// time, and the order of events depends only on their due times. Main loop thread only; once on,
// it stays on for the process.
class VirtualClock {
 public:
  // Starts the simulated clock, at the same time on every run. Call it before anything in the
  // process has read the monotonic clock.
  static void enable();
  static bool enabled();
  // Microseconds on the monotonic clock, simulated or real.
  static int64_t nowUs();
  // Lets `us` microseconds pass (simulated clock only).
  static void advance(int64_t us);
};

}  // namespace host

#endif
