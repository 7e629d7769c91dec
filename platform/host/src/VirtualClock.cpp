#include "host/VirtualClock.h"

#include <dlfcn.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace {

// A million seconds: no earlier reading of the clock in the run is to be later than that.
constexpr int64_t kStartUs = 1000000ll * 1000000;

bool g_enabled = false;
int64_t g_nowUs = 0;

using ClockGettime = int (*)(clockid_t, struct timespec*);

int realClockGettime(clockid_t clock, struct timespec* time) {
  static ClockGettime next = reinterpret_cast<ClockGettime>(dlsym(RTLD_NEXT, "clock_gettime"));
  if (next)
    return next(clock, time);
  return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
}

bool isMonotonic(clockid_t clock) {
  return clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_RAW ||
         clock == CLOCK_MONOTONIC_COARSE || clock == CLOCK_BOOTTIME;
}

}  // namespace

// GLib and Ecore read the monotonic clock through the C library; this definition takes their
// calls first, so that the simulated clock is the one clock of the process.
extern "C" int clock_gettime(clockid_t clock, struct timespec* time) {
  if (!g_enabled || !isMonotonic(clock))
    return realClockGettime(clock, time);
  time->tv_sec = static_cast<time_t>(g_nowUs / 1000000);
  time->tv_nsec = static_cast<long>(g_nowUs % 1000000) * 1000;
  return 0;
}

namespace host {

void VirtualClock::enable() {
  if (g_enabled)
    return;
  // The same start on every run, so that a replay computes the very same times.
  g_nowUs = kStartUs;
  g_enabled = true;
}

bool VirtualClock::enabled() {
  return g_enabled;
}

int64_t VirtualClock::nowUs() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

void VirtualClock::advance(int64_t us) {
  if (g_enabled && us > 0)
    g_nowUs += us;
}

}  // namespace host
