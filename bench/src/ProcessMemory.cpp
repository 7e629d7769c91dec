#include "ProcessMemory.h"

#include <stdio.h>
#include <string.h>

#include "MvHandles.h"

namespace bench {

ResidentMemory readResidentMemory() {
  ResidentMemory memory;
  MvFilePtr status(fopen("/proc/self/status", "r"));
  if (!status)
    return memory;
  char line[256];
  while (fgets(line, sizeof line, status.get())) {
    if (strncmp(line, "VmRSS:", 6) == 0)
      sscanf(line + 6, "%ld", &memory.currentKb);
    else if (strncmp(line, "VmHWM:", 6) == 0)
      sscanf(line + 6, "%ld", &memory.peakKb);
  }
  return memory;
}

bool resetPeakMemory() {
  MvFilePtr clearRefs(fopen("/proc/self/clear_refs", "w"));
  if (!clearRefs)
    return false;
  // "5" resets the peak resident set size (Linux 4.0 and later).
  const bool written = fputs("5", clearRefs.get()) >= 0;
  return mvReleaseNow(clearRefs) == 0 && written;
}

}  // namespace bench
