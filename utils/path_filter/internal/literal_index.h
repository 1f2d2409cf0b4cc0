// The rules of one ignore file, filed under a literal that what they match must
// contain in a certain place: a few hash lookups find the rules that can match.
//
// Of 10,000 rules in the mix of public ignore templates all but some dozens have such
// a literal; the benchmark `rule_set` gives what that buys.

#ifndef UTILS_PATH_FILTER_INTERNAL_LITERAL_INDEX_H_
#define UTILS_PATH_FILTER_INTERNAL_LITERAL_INDEX_H_

#include <algorithm>
#include <array>
#include <bit>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "utils/path_filter/internal/hash.h"

namespace path_filter::internal {

class LiteralIndex {
 public:
  /// Where the literal stands in what is matched.
  enum class Place : std::uint8_t { name, name_head, name_tail, path, path_head, path_tail };
  static constexpr std::size_t PLACES = 6;

  /// The longest head or tail that is filed; of a longer one the outer end is.
  static constexpr std::size_t LONGEST_PART = 63;

  /// The rules filed under one literal. Rule numbers begin at 1; 0 is none.
  struct Entry {
    std::uint64_t hash;
    std::uint32_t key_begin;
    std::uint32_t key_size;
    Place place;
    std::uint32_t last_for_any = 0;          // the last rule that the literal alone decides
    std::uint32_t last_for_directories = 0;  // the same of those for directories only
    std::uint32_t last_to_try = 0;           // the last candidate: 1 + index in candidates
  };

  /// A rule that can match where its literal stands, and the one filed before it.
  struct Candidate {
    std::uint32_t rule;
    std::uint32_t before;
  };

  /// The entry of `key`, made when there is none.
  Entry& add(Place place, std::string_view key) {
    if ((_entries.size() + 1) * 2 > _slots.size()) grow();
    const std::uint64_t hash = placed(place, hash_text(key));
    std::size_t slot = find_slot(place, key, hash);
    if (_slots[slot] == 0) {
      _entries.push_back({hash, static_cast<std::uint32_t>(_keys.size()),
                          static_cast<std::uint32_t>(key.size()), place});
      _keys += key;
      _slots[slot] = static_cast<std::uint32_t>(_entries.size());
      Filter& filter = _filters[static_cast<std::size_t>(place)];
      filter.longest = std::max(filter.longest, key.size());
      filter.any = true;
      if (key.size() <= LONGEST_PART && !key.empty()) {
        filter.sizes |= std::uint64_t{1} << key.size();
        filter.inner_bytes.set(inner_byte(place, key));
      }
    }
    return _entries[_slots[slot] - 1];
  }

  /// A rule that is filed twice under one literal is tried once.
  void add_candidate(Entry& entry, std::uint32_t rule) {
    if (entry.last_to_try != 0 && candidate(entry.last_to_try).rule == rule) return;
    _candidates.push_back({rule, entry.last_to_try});
    entry.last_to_try = static_cast<std::uint32_t>(_candidates.size());
  }

  const Candidate& candidate(std::uint32_t number) const { return _candidates[number - 1]; }

  bool has(Place place) const { return _filters[static_cast<std::size_t>(place)].any; }

  /// The entry of the whole text `key`, whose hash_text is `text_hash`; or null.
  const Entry* find(Place place, std::string_view key, std::uint64_t text_hash) const {
    const std::uint32_t entry = _slots[find_slot(place, key, placed(place, text_hash))];
    return entry == 0 ? nullptr : &_entries[entry - 1];
  }

  /// The longest literal that is filed in `place`, in bytes.
  std::size_t longest(Place place) const {
    return _filters[static_cast<std::size_t>(place)].longest;
  }

  /// Calls `visit` with the entry of each head (or tail) of `text` that is filed in
  /// `place`. Only the sizes that occur are tried, and of those only the ones whose
  /// innermost byte fits: for the suffixes of a template that is the dots.
  template <typename Visit>
  void for_each_part(Place place, std::string_view text, Visit visit) const {
    const Filter& filter = _filters[static_cast<std::size_t>(place)];
    const bool tail = place == Place::name_tail || place == Place::path_tail;
    std::uint64_t sizes = filter.sizes;
    if (text.size() < LONGEST_PART) sizes &= (std::uint64_t{2} << text.size()) - 1;
    for (; sizes != 0; sizes &= sizes - 1) {
      const auto size = static_cast<std::size_t>(std::countr_zero(sizes));
      const std::string_view part = text.substr(tail ? text.size() - size : 0, size);
      if (!filter.inner_bytes.test(inner_byte(place, part))) continue;
      if (const Entry* entry = find(place, part, hash_text(part))) visit(*entry);
    }
  }

 private:
  struct Filter {
    std::bitset<256> inner_bytes;  // the first bytes of tails, the last bytes of heads
    std::uint64_t sizes = 0;       // bit n: some key has n bytes
    std::size_t longest = 0;
    bool any = false;
  };

  static std::size_t inner_byte(Place place, std::string_view key) {
    const bool tail = place == Place::name_tail || place == Place::path_tail;
    return static_cast<unsigned char>(tail ? key.front() : key.back());
  }

  static std::uint64_t placed(Place place, std::uint64_t text_hash) {
    return text_hash + static_cast<std::uint64_t>(place) * 0x9E3779B97F4A7C15U;
  }

  std::string_view key_of(const Entry& entry) const {
    return std::string_view(_keys).substr(entry.key_begin, entry.key_size);
  }

  /// The slot of `key`, or the empty one where it belongs. There is one.
  std::size_t find_slot(Place place, std::string_view key, std::uint64_t hash) const {
    const std::size_t mask = _slots.size() - 1;
    for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
      if (_slots[slot] == 0) return slot;
      const Entry& entry = _entries[_slots[slot] - 1];
      if (entry.hash == hash && entry.place == place && key_of(entry) == key) return slot;
    }
  }

  void grow() {
    std::vector<std::uint32_t> slots(std::max<std::size_t>(8, _slots.size() * 2));
    const std::size_t mask = slots.size() - 1;
    for (std::size_t index = 0; index < _entries.size(); ++index) {
      std::size_t slot = _entries[index].hash & mask;
      while (slots[slot] != 0) slot = (slot + 1) & mask;
      slots[slot] = static_cast<std::uint32_t>(index + 1);
    }
    _slots = std::move(slots);
  }

  std::string _keys;
  std::vector<Entry> _entries;
  std::vector<Candidate> _candidates;
  std::vector<std::uint32_t> _slots = std::vector<std::uint32_t>(1);  // 1 + index; 0: empty
  std::array<Filter, PLACES> _filters{};
};

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_INTERNAL_LITERAL_INDEX_H_
