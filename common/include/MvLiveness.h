// The liveness rule, one for the service, the host platform and the emulated watch.
//
// A callback that may run after its target is gone (a platform callback delivered late, a reply,
// a task posted on the main loop, a timer) reaches its target through a liveness token, never
// through the target's address. The target holds an MvLiveness<T> and hands out token(); the
// callback asks find() for the target and does nothing when it is gone:
//
//   class Model {
//     ...
//     MvLiveness<Model> _liveness{this};
//   };
//
//   cloud_set_completed_cb(_completedCb, _liveness.token());
//
//   void Model::_completedCb(bool success, void* userData) {
//     Model* model = MvLiveness<Model>::find(userData);
//     if (!model)
//       return;  // a late callback: the model went
//     ...
//   }
//
// A late callback then finds nothing instead of freed memory, and never a newer object that
// happens to live at the same address: tokens are serial numbers, never given twice. A C++ task
// captures token() and asks find() the same way, or is wrapped by whileAlive(), which runs it
// only while the target lives, so that the task may use the target's address:
//
//   platform.post(_liveness.whileAlive([this] { _step(); }));
//
// This is the one mechanism, in every room: not std::weak_ptr, which asks that every target be
// held by a std::shared_ptr, and never a bare address.
//
// One exception: a registration undone in the destructor. A callback may carry `this` when its
// target undoes the registration before it can go: in its own destructor, or in the destructor of
// an owner it holds (an MvGSourceId, MvGSourcePtr or MvEcoreTimerPtr member; a local of one of
// its own calls, which ends before the target can), so that the callback can never come late.
// Each use of the exception says so in a comment where the registration is made.
//
// Shared ownership is another thing: a task that holds a std::shared_ptr keeps its object alive
// on purpose (a reply the platform still owes), and is not a way to learn whether it lives.
//
// Main loop thread only.
#ifndef MV_LIVENESS_H
#define MV_LIVENESS_H

#include <stdint.h>

#include <map>
#include <utility>

template <typename T>
class MvLiveness {
 public:
  explicit MvLiveness(T* target) : _serial(++lastSerial()) { targets()[_serial] = target; }
  ~MvLiveness() { targets().erase(_serial); }

  MvLiveness(const MvLiveness&) = delete;
  MvLiveness& operator=(const MvLiveness&) = delete;

  void* token() const { return reinterpret_cast<void*>(_serial); }

  // The live target that `token` stands for, or null.
  static T* find(void* token) {
    auto found = targets().find(reinterpret_cast<uintptr_t>(token));
    return found == targets().end() ? nullptr : found->second;
  }

  // `task`, made to do nothing once the target is gone.
  template <typename Task>
  auto whileAlive(Task task) const {
    return [token = token(), task = std::move(task)]() mutable {
      if (find(token))
        task();
    };
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
