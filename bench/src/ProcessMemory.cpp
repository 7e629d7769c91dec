#include "ProcessMemory.h"

#include <stdio.h>
#include <string.h>

namespace bench {

ResidentMemory readResidentMemory() {
  ResidentMemory memory;
  FILE* status = fopen("/proc/self/status", "r");
  if (!status)
    return memory;
  char line[256];
  while (fgets(line, sizeof line, status)) {
    if (strncmp(line, "VmRSS:", 6) == 0)
      sscanf(line + 6, "%ld", &memory.currentKb);
    else if (strncmp(line, "VmHWM:", 6) == 0)
      sscanf(line + 6, "%ld", &memory.peakKb);
  }
  fclose(status);
  return memory;
}

bool resetPeakMemory() {
  FILE* clearRefs = fopen("/proc/self/clear_refs", "w");
  if (!clearRefs)
    return false;
  // "5" resets the peak resident set size (Linux 4.0 and later).
  const bool written = fputs("5", clearRefs) >= 0;
  return fclose(clearRefs) == 0 && written;
}

}  // namespace bench
