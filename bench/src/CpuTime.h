#ifndef BENCH_CPU_TIME_H
#define BENCH_CPU_TIME_H

namespace bench {

// The CPU time this process has used so far, user and system, in milliseconds. Unlike wall
// time, a neighbour on a shared machine barely moves it.
double cpuTimeMs();

}  // namespace bench

#endif
