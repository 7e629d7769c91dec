#ifndef BENCH_FLOOR_H
#define BENCH_FLOOR_H

#include <string>

#include "Measurement.h"

namespace bench {

// What a backup and a restore of the watch in `deviceDir` cannot avoid, done directly with
// GLib and json-glib: "encode" (read the photos, base64), "generate" (the document as the
// service writes it), "write" (to a file), "read" (it back), "parse", "decode" (base64 the
// photos back and write each as a file into `workDir`). Also reports "doc_bytes", the CPU time
// ("cpu_ms") and the memory. What json-glib no longer needs goes at once, as its best use would
// have it. False with a one-line reason.
bool measureFloor(const std::string& deviceDir,
                  const std::string& workDir,
                  Measurement& measurement,
                  std::string& error);

}  // namespace bench

#endif
