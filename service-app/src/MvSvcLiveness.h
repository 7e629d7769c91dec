#ifndef MVSVC_LIVENESS_H
#define MVSVC_LIVENESS_H

#include <stdint.h>

#include <map>

// A weak liveness token for platform callbacks that may arrive after their target is gone: the
// target hands the platform token() as user data instead of its address, and the callback asks
// find() for the target. A late callback then finds nothing instead of freed memory, and never
// a newer object that happens to live at the same address. Main loop thread only.
template <typename T>
class MvSvcLiveness {
 public:
  explicit MvSvcLiveness(T* target) : _serial(++lastSerial()) { targets()[_serial] = target; }
  ~MvSvcLiveness() { targets().erase(_serial); }

  MvSvcLiveness(const MvSvcLiveness&) = delete;
  MvSvcLiveness& operator=(const MvSvcLiveness&) = delete;

  void* token() const { return reinterpret_cast<void*>(_serial); }

  // The live target that `token` stands for, or null.
  static T* find(void* token) {
    auto found = targets().find(reinterpret_cast<uintptr_t>(token));
    return found == targets().end() ? nullptr : found->second;
  }

 private:
  static std::map<uintptr_t, T*>& targets() {
    static std::map<uintptr_t, T*> live;
    return live;
  }
  static uintptr_t& lastSerial() {
    static uintptr_t serial = 0;
    return serial;
  }

  uintptr_t _serial;
};

#endif
