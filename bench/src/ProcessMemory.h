#ifndef BENCH_PROCESS_MEMORY_H
#define BENCH_PROCESS_MEMORY_H

namespace bench {

// This process's resident memory, from /proc/self/status.
struct ResidentMemory {
  long currentKb = -1;  // VmRSS
  long peakKb = -1;     // VmHWM
};

ResidentMemory readResidentMemory();

// Sets the peak back to the current resident size, so that a later peak belongs to what ran
// after this call. False when the kernel refuses; the peak then still covers the process's life.
bool resetPeakMemory();

}  // namespace bench

#endif
