// The memo of the SQL function: the answers about the texts that were used last. It is there for
// slow registries, such as a host's in Python, and for the bound on how often they are asked; the
// default registry is nearly as fast. Plain least-recently-used order and a clock hand both lose to
// no memo at all when a query runs over 50,000 texts; this does not.
//
// Each use takes the next number of one clock, and the entry with the smallest number makes
// room for a new one. So a hit writes nothing but that number and takes no lock: it reads
// under a version that every change makes odd and then even again, and what it has read
// counts when the version is still the same. With a lock for each hit, two threads on two
// connections take twice the time of one; without it they are 1.75 times as fast.
//
// The entry that makes room is found without an order that each hit would have to keep. New entries
// stand in a queue with the number that they had when they came, which makes it sorted, and
// those found used since then go over to a heap with their later number, again and again
// until the least number of both is the entry's own. An entry is moved once for many uses,
// and never when a query runs over more texts than there are entries: then all are new.

#ifndef UTILS_PATH_FILTER_TEST_CODE_ANSWER_MEMO_H_
#define UTILS_PATH_FILTER_TEST_CODE_ANSWER_MEMO_H_

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "utils/path_filter/base/hash.h"
#include "utils/path_filter/base/words.h"

namespace path_filter::internal {

/// At most `CAPACITY` texts, or nothing in place of a text, with the answer about each. Any
/// number of threads may use it at once.
template <std::uint32_t CAPACITY>
class AnswerMemo {
 public:
  using Text = std::optional<std::string_view>;

  AnswerMemo() { _used_again.reserve(CAPACITY); }

  /// The answer about `text`: the one that is remembered, or else that of `ask`, which is then.
  /// `ask` is called without a lock; what it throws passes through, and nothing is remembered.
  template <typename Ask>
  bool answer(Text text, Ask ask) {
    const Key key(text);
    if (const std::optional<bool> known = find(key)) return *known;
    fetch(get(_next_victim));
    const bool answer = ask();
    store(key, answer);
    return answer;
  }

  // While it is held nothing changes, as a process that forks needs it.
  void lock() { _lock.lock(); }
  void unlock() { _lock.unlock(); }

 private:
  using Position = std::uint32_t;
  static constexpr Position NONE = UINT32_MAX;

  static constexpr std::size_t WORD = sizeof(std::uint64_t);
  static constexpr std::size_t WORDS = 14;
  static constexpr std::uint32_t NO_TEXT = UINT32_MAX;

  struct Key {
    explicit Key(Text asked)
        : text(asked.value_or(std::string_view())),
          hash(asked ? hash_text(text) : 0),
          size(asked ? static_cast<std::uint32_t>(text.size()) : NO_TEXT) {}

    /// Whether an entry has no room for it. It is looked for under the lock: longer paths are few.
    bool is_long() const { return text.size() > WORDS * WORD; }
    std::size_t words() const { return (text.size() + WORD - 1) / WORD; }
    std::uint64_t word(std::size_t number) const { return word_at(text, number * WORD); }

    std::string_view text;
    std::uint64_t hash;
    std::uint32_t size;
  };

  struct alignas(64) Entry {
    std::uint64_t hash;
    std::uint32_t size;
    std::uint32_t answer;
    std::array<std::uint64_t, WORDS> text;  // of a short one
  };

  /// An entry and when it was used, as far as is known.
  struct Use {
    std::uint64_t time;
    Position position;
    auto operator<=>(const Use&) const = default;
  };

  // Atomic, and in this order with the version before and after: what is seen of a change
  // that is under way brings its version along.
  template <typename Value>
  static Value get(const Value& value) {
    return std::atomic_ref(const_cast<Value&>(value)).load(std::memory_order_acquire);
  }
  template <typename Value>
  static void set(Value& value, Value to) {
    std::atomic_ref(value).store(to, std::memory_order_release);
  }

  /// Brings from memory what is likely to be used next: an entry and its slot. When a query
  /// asks the same again in the same order it is the one behind the last that was found,
  /// which saves a seventh of the row's time; before a new text is stored the one that makes
  /// room, a twentieth.
  void fetch(Position position) const {
    if (position >= get(_count)) return;
    const Entry& entry = _entries[position];
    __builtin_prefetch(&entry.text[WORDS - 1]);
    __builtin_prefetch(&_slots[home(get(entry.hash))]);
    if (position + 1 < get(_count)) __builtin_prefetch(&_entries[position + 1]);
  }

  std::optional<bool> find(const Key& key) {
    const std::uint64_t version = _version.load(std::memory_order_acquire);
    if (version % 2 == 0 && !key.is_long()) {
      const Position found = search(key, version);
      const bool answer = found != NONE && get(_entries[found].answer) != 0;
      if (_version.load(std::memory_order_relaxed) == version) {
        if (found == NONE) return std::nullopt;
        use(found);
        fetch(found + 1);
        return answer;
      }
    }
    const std::lock_guard hold(_lock);
    return find_unchanging(key);
  }

  /// The same under the lock.
  std::optional<bool> find_unchanging(const Key& key) {
    const Position found = search(key, _version.load(std::memory_order_relaxed));
    if (found == NONE) return std::nullopt;
    use(found);
    return _entries[found].answer != 0;
  }

  // An open hash table, at most half full. A slot has the upper bits of the hash, of which
  // the uppermost are the slot where the search begins, and below them the position, counted
  // from 1. So a text that is not there is told without looking at an entry.
  static constexpr std::size_t SLOTS = std::bit_ceil(std::size_t{2} * CAPACITY);
  static constexpr std::uint64_t POSITION_BITS = SLOTS - 1;
  static_assert(CAPACITY <= POSITION_BITS);

  static std::size_t home(std::uint64_t hash) {
    return hash >> (64 - std::bit_width(POSITION_BITS));
  }
  static Position position_in(std::uint64_t slot) {
    return static_cast<Position>((slot & POSITION_BITS) - 1);
  }

  /// The position of `key`, or NONE; anything once the version is another.
  Position search(const Key& key, std::uint64_t version) const {
    for (std::size_t at = home(key.hash);; at = (at + 1) % SLOTS) {
      const std::uint64_t slot = get(_slots[at]);
      if (slot == 0) return NONE;
      if (((slot ^ key.hash) & ~POSITION_BITS) == 0 && has(position_in(slot), key))
        return position_in(slot);
      if (_version.load(std::memory_order_relaxed) != version) return NONE;
    }
  }

  void add_slot(Position position) {
    const std::uint64_t hash = _entries[position].hash;
    std::size_t at = home(hash);
    while (_slots[at] != 0) at = (at + 1) % SLOTS;
    set(_slots[at], (hash & ~POSITION_BITS) | (position + std::uint64_t{1}));
  }

  void remove_slot(Position position) {
    std::size_t gap = home(_entries[position].hash);
    while (position_in(_slots[gap]) != position) gap = (gap + 1) % SLOTS;
    // What was put behind it because it was full moves up.
    for (std::size_t at = (gap + 1) % SLOTS; _slots[at] != 0; at = (at + 1) % SLOTS) {
      if ((at - home(_slots[at])) % SLOTS < (at - gap) % SLOTS) continue;
      set(_slots[gap], _slots[at]);
      gap = at;
    }
    set(_slots[gap], std::uint64_t{0});
  }

  bool has(Position position, const Key& key) const {
    const Entry& entry = _entries[position];
    if (get(entry.size) != key.size) return false;
    if (key.is_long()) return _long_texts[position] == key.text;
    for (std::size_t number = 0; number < key.words(); ++number) {
      if (get(entry.text[number]) != key.word(number)) return false;
    }
    return true;
  }

  void use(Position position) { _used[position].store(now(), std::memory_order_relaxed); }
  std::uint64_t now() { return _clock.fetch_add(1, std::memory_order_relaxed); }

  void store(const Key& key, bool answer) {
    const std::lock_guard hold(_lock);
    // Another thread may have stored the same since this one asked.
    if (find_unchanging(key)) return;
    std::string long_text;
    if (key.is_long()) {
      long_text = key.text;
      _long_texts.resize(CAPACITY);
    }
    // Nothing from here on throws.
    const bool full = _count == CAPACITY;
    const Position position = full ? take_least_recently_used() : _count;
    if (!_long_texts.empty()) _long_texts[position] = std::move(long_text);
    const std::uint64_t version = _version.load(std::memory_order_relaxed);
    _version.store(version + 1, std::memory_order_relaxed);
    Entry& entry = _entries[position];
    if (full) remove_slot(position);
    set(entry.hash, key.hash);
    set(entry.size, key.size);
    set(entry.answer, std::uint32_t{answer});
    if (!key.is_long()) {
      for (std::size_t number = 0; number < key.words(); ++number) {
        set(entry.text[number], key.word(number));
      }
    }
    add_slot(position);
    if (!full) set(_count, position + 1);
    _version.store(version + 2, std::memory_order_release);

    const Use first{now(), position};
    _used[position].store(first.time, std::memory_order_relaxed);
    _added[(_added_begin + _added_count++) % CAPACITY] = first;
    set(_next_victim, _added[_added_begin].position);
  }

  Position take_least_recently_used() {
    for (;;) {
      Use least;
      if (_added_count > 0 && (_used_again.empty() || _added[_added_begin] < _used_again.front())) {
        least = _added[_added_begin];
        _added_begin = (_added_begin + 1) % CAPACITY;
        --_added_count;
      } else {
        std::ranges::pop_heap(_used_again, std::greater<>());
        least = _used_again.back();
        _used_again.pop_back();
      }
      const std::uint64_t used = _used[least.position].load(std::memory_order_relaxed);
      if (used == least.time) return least.position;
      _used_again.push_back({used, least.position});
      std::ranges::push_heap(_used_again, std::greater<>());
    }
  }

  alignas(64) std::atomic<std::uint64_t> _version{0};  // odd while something changes
  alignas(64) std::atomic<std::uint64_t> _clock{0};

  alignas(64) std::mutex _lock;  // of all changes but that of a time
  Position _count = 0;
  Position _next_victim = 0;  // unless it is used again
  std::vector<std::uint64_t> _slots = std::vector<std::uint64_t>(SLOTS);
  // Not initialised, so that what is not used takes no memory.
  std::unique_ptr<Entry[]> _entries = std::make_unique_for_overwrite<Entry[]>(CAPACITY);
  // Of each entry the last use. Apart, as every hit writes it.
  std::vector<std::atomic<std::uint64_t>> _used = std::vector<std::atomic<std::uint64_t>>(CAPACITY);
  std::vector<std::string> _long_texts;  // by position; empty until there is one
  // Each entry is in one of the two.
  std::unique_ptr<Use[]> _added = std::make_unique_for_overwrite<Use[]>(CAPACITY);  // a ring
  std::size_t _added_begin = 0;
  std::size_t _added_count = 0;
  std::vector<Use> _used_again;  // a heap, the earliest use in front
};

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_TEST_CODE_ANSWER_MEMO_H_
