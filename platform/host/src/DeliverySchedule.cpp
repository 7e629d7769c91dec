#include "host/DeliverySchedule.h"

namespace host {

DeliverySchedule::DeliverySchedule(uint64_t seed) : seed_(seed), state_(seed) {}

// splitmix64: the same numbers on every machine and library.
uint64_t DeliverySchedule::next() {
  uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
  return z ^ (z >> 31);
}

unsigned DeliverySchedule::extraDelayMs(const std::string&) {
  const uint64_t draw = next();
  const unsigned bucket = static_cast<unsigned>(draw % 100);
  const uint64_t spread = draw >> 8;
  if (bucket < 45)
    return 0;
  if (bucket < 80)
    return 1 + static_cast<unsigned>(spread % 20);
  if (bucket < 95)
    return 20 + static_cast<unsigned>(spread % 480);
  return 500 + static_cast<unsigned>(spread % 4500);
}

}  // namespace host
