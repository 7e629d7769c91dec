#include "CpuTime.h"

#include <sys/resource.h>

namespace bench {

namespace {

double milliseconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) * 1000 + static_cast<double>(time.tv_usec) / 1000;
}

}  // namespace

double cpuTimeMs() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
}

}  // namespace bench
