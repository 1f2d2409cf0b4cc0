// A value that many threads use while others replace it whole.

#ifndef UTILS_PATH_FILTER_INDEX_SCOPE_REPLACEABLE_H_
#define UTILS_PATH_FILTER_INDEX_SCOPE_REPLACEABLE_H_

#include <array>
#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>

#include "utils/path_filter/base/platform.h"

namespace path_filter::internal {

/// Holds one `Value`. What is replaced stays alive for those who still use it.
///
/// Any number of threads may take and replace. A plain shared pointer would have all of
/// them count their uses on one cache line; so the value is held in sixteen slots, each
/// with a lock and a count of its own, and a thread takes it through the slot of the
/// processor that it runs on (or, where none is told, of the thread). Two threads are then twice as
/// fast as one, not slower.
template <typename Value>
class Replaceable {
 public:
  static constexpr std::size_t SLOTS = 16;

  explicit Replaceable(const std::shared_ptr<Value>& value) { replace(value); }

  /// The value, through a slot that few others use at the same time.
  std::shared_ptr<Value> take(std::size_t number = running_place() % SLOTS) const {
    Slot& slot = _slots[number];
    const std::lock_guard hold(slot.lock);
    return slot.value;
  }

  /// One step to every `take` and every other `replace`: the locks of all slots are held,
  /// taken in their order, before the first slot is changed.
  void replace(const std::shared_ptr<Value>& value) {
    std::array<std::shared_ptr<Value>, SLOTS> values;
    for (auto& counted : values) {
      // A count of its own: a pointer to the value that shares the life of a pointer to it.
      auto owner = std::make_shared<std::shared_ptr<Value>>(value);
      counted = std::shared_ptr<Value>(std::move(owner), value.get());
    }
    std::array<std::unique_lock<std::mutex>, SLOTS> held;
    for (std::size_t number = 0; number < SLOTS; ++number) {
      held[number] = std::unique_lock(_slots[number].lock);
    }
    for (std::size_t number = 0; number < SLOTS; ++number) {
      _slots[number].value.swap(values[number]);
    }
  }

 private:
  struct alignas(64) Slot {
    std::mutex lock;
    std::shared_ptr<Value> value;
  };
  mutable std::array<Slot, SLOTS> _slots;
};

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_INDEX_SCOPE_REPLACEABLE_H_
