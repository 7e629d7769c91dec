#ifndef HOST_DELIVERY_SCHEDULE_H
#define HOST_DELIVERY_SCHEDULE_H

#include <cstdint>
#include <string>

namespace host {

// Seeded extra delays for the platform's deliveries, so that a run explores one interleaving of
// replies, messages and cloud steps, and the same seed gives the same interleaving again (on the
// simulated clock). The delays depend only on the seed and on the order of the deliveries.
class DeliverySchedule {
 public:
  explicit DeliverySchedule(uint64_t seed);

  uint64_t seed() const { return seed_; }
  // The extra delay of the next delivery on `channel`: often none, sometimes a few
  // milliseconds, now and then seconds.
  unsigned extraDelayMs(const std::string& channel);

 private:
  uint64_t next();

  uint64_t seed_;
  uint64_t state_;
};

}  // namespace host

#endif
