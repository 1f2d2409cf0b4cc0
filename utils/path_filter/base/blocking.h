// Where the component waits for the operating system.
//
// A program that holds a lock over all its threads, as Python does, is told: its hooks let go of
// the lock and take it again. No lock of the component is held in between. It may also end what
// runs for long, on Ctrl-C.

#ifndef UTILS_PATH_FILTER_BASE_BLOCKING_H_
#define UTILS_PATH_FILTER_BASE_BLOCKING_H_

#include <atomic>

namespace path_filter::internal {

/// `begins` is called before a call that may wait, and what it returns is given to `ends`, on the
/// same thread, which keeps errno. `interrupts` is called now and then by what neither waits nor
/// returns for long. What the first and the last throw passes through the question.
struct BlockingHooks {
  void* (*begins)();
  void (*ends)(void* begun) noexcept;
  void (*interrupts)();
};

/// Null: nobody is told. Set before the first question, and not again.
inline std::atomic<const BlockingHooks*> blocking_hooks{nullptr};

/// The time in which this thread may wait.
class Blocking {
 public:
  Blocking() = default;
  ~Blocking() {
    if (_hooks != nullptr) _hooks->ends(_begun);
  }
  Blocking(const Blocking&) = delete;
  Blocking& operator=(const Blocking&) = delete;

 private:
  const BlockingHooks* _hooks = blocking_hooks.load(std::memory_order_acquire);
  void* _begun = _hooks == nullptr ? nullptr : _hooks->begins();
};

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_BASE_BLOCKING_H_
