// The rules of one ignore file, filed under a literal that what they match must
// contain in a certain place: a few hash lookups find the rules that can match.
//
// Of 10,000 rules in the mix of public ignore templates all but some dozens have such
// a literal; the benchmark `rule_set` gives what that buys.

#ifndef UTILS_PATH_FILTER_LITERAL_INDEX_H_
#define UTILS_PATH_FILTER_LITERAL_INDEX_H_

#include <algorithm>
#include <array>
#include <bit>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
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

  /// For about this many rules.
  explicit LiteralIndex(std::size_t rules = 0)
      : _pairs(std::clamp<std::size_t>(std::bit_ceil(rules / 4), 32, 1024)) {}

  /// The entry of `key`, made when there is none.
  Entry& add(Place place, std::string_view key) {
    if ((_entries.size() + 1) * 2 > _slots.size()) grow();
    const std::uint64_t hash = placed(place, hash_text(key));
    Slot& slot = _slots[find_slot(place, key, hash)];
    if (slot.entry == 0) {
      _entries.push_back({hash, static_cast<std::uint32_t>(_keys.size()),
                          static_cast<std::uint32_t>(key.size()), place});
      _keys += key;
      slot = {static_cast<std::uint32_t>(_entries.size()), tag(hash)};
      filter(place).add(key, outer_end(place), _pairs);
    }
    return _entries[slot.entry - 1];
  }

  /// A rule that is filed twice under one literal is tried once.
  void add_candidate(Entry& entry, std::uint32_t rule) {
    if (entry.last_to_try != 0 && candidate(entry.last_to_try).rule == rule) return;
    _candidates.push_back({rule, entry.last_to_try});
    entry.last_to_try = static_cast<std::uint32_t>(_candidates.size());
  }

  const Candidate& candidate(std::uint32_t number) const { return _candidates[number - 1]; }

  /// The entry of the whole text `key`, or null. Hashes it only when some literal in
  /// `place` has its length and its last bytes.
  const Entry* find_whole(Place place, std::string_view key) const {
    const Filter& known = filter(place);
    if (known.sizes.empty() || key.empty()) return nullptr;
    if ((known.sizes[pair(key, End::back) & (_pairs - 1)] & size_bit(key.size())) == 0) {
      return nullptr;
    }
    return find(place, key);
  }

  /// Calls `visit` with the entry of each head (or tail) of `text` that is filed in
  /// `place`. Only the sizes that occur together with the text's outermost bytes are
  /// tried, and of those only the ones whose innermost byte fits: for the suffixes of a
  /// template that is one or two.
  template <typename Visit>
  void for_each_part(Place place, std::string_view text, Visit visit) const {
    const Filter& known = filter(place);
    if (known.sizes.empty() || text.empty()) return;
    const bool tail = outer_end(place) == End::back;
    std::uint64_t sizes = known.sizes[pair(text, outer_end(place)) & (_pairs - 1)];
    if (text.size() < LONGEST_PART) sizes &= (std::uint64_t{2} << text.size()) - 1;
    for (; sizes != 0; sizes &= sizes - 1) {
      const auto size = static_cast<std::size_t>(std::countr_zero(sizes));
      const std::string_view part = text.substr(tail ? text.size() - size : 0, size);
      if (!known.inner_bytes.test(inner_byte(part, outer_end(place)))) continue;
      if (const Entry* entry = find(place, part)) visit(*entry);
    }
  }

 private:
  /// The end of a literal that lies at the end of what is matched; a whole text may take
  /// either.
  enum class End : std::uint8_t { front, back };

  /// What can be said of the keys of one place without looking for one.
  struct Filter {
    std::vector<std::uint64_t> sizes;  // by the pair of outermost bytes; bit n: n bytes
    std::bitset<256> inner_bytes;      // those at the other end

    void add(std::string_view key, End outer, std::size_t pairs) {
      if (sizes.empty()) sizes.resize(pairs);
      // A literal of one byte goes with any neighbour.
      const std::size_t last = key.size() == 1 ? pairs : (pair(key, outer) & (pairs - 1)) + 1;
      const std::size_t step = key.size() == 1 ? 32 : pairs;
      for (std::size_t at = pair(key, outer) & (pairs - 1); at < last; at += step) {
        sizes[at] |= size_bit(key.size());
      }
      inner_bytes.set(inner_byte(key, outer));
    }
  };

  /// The low bits of the outermost byte, and above them those of its neighbour.
  static std::size_t pair(std::string_view text, End outer) {
    const bool back = outer == End::back;
    const auto byte = [&](std::size_t from_end) {
      return static_cast<std::size_t>(text[back ? text.size() - 1 - from_end : from_end]) & 31;
    };
    return byte(0) | (text.size() > 1 ? byte(1) << 5 : 0);
  }

  static std::uint64_t size_bit(std::size_t size) {
    return std::uint64_t{1} << std::min<std::size_t>(size, LONGEST_PART);
  }

  struct Slot {
    std::uint32_t entry = 0;  // 1 + index; 0: empty
    std::uint32_t tag = 0;    // saves the look at nearly every entry that is another
  };

  const Filter& filter(Place place) const { return _filters[static_cast<std::size_t>(place)]; }
  Filter& filter(Place place) { return _filters[static_cast<std::size_t>(place)]; }

  static End outer_end(Place place) {
    return place == Place::name_head || place == Place::path_head ? End::front : End::back;
  }

  static std::size_t inner_byte(std::string_view key, End outer) {
    return static_cast<unsigned char>(outer == End::back ? key.front() : key.back());
  }

  static std::uint32_t tag(std::uint64_t hash) { return static_cast<std::uint32_t>(hash >> 32); }

  static std::uint64_t placed(Place place, std::uint64_t text_hash) {
    return text_hash + static_cast<std::uint64_t>(place) * 0x9E3779B97F4A7C15U;
  }

  std::string_view key_of(const Entry& entry) const {
    return std::string_view(_keys).substr(entry.key_begin, entry.key_size);
  }

  const Entry* find(Place place, std::string_view key) const {
    const Slot& slot = _slots[find_slot(place, key, placed(place, hash_text(key)))];
    return slot.entry == 0 ? nullptr : &_entries[slot.entry - 1];
  }

  /// The slot of `key`, or the empty one where it belongs. There is one.
  std::size_t find_slot(Place place, std::string_view key, std::uint64_t hash) const {
    const std::size_t mask = _slots.size() - 1;
    for (std::size_t at = hash & mask;; at = (at + 1) & mask) {
      const Slot& slot = _slots[at];
      if (slot.entry == 0) return at;
      if (slot.tag != tag(hash)) continue;
      const Entry& entry = _entries[slot.entry - 1];
      if (entry.hash == hash && entry.place == place && key_of(entry) == key) return at;
    }
  }

  void grow() {
    std::vector<Slot> slots(std::max<std::size_t>(8, _slots.size() * 2));
    const std::size_t mask = slots.size() - 1;
    for (const Slot& slot : _slots) {
      if (slot.entry == 0) continue;
      std::size_t at = _entries[slot.entry - 1].hash & mask;
      while (slots[at].entry != 0) at = (at + 1) & mask;
      slots[at] = slot;
    }
    _slots = std::move(slots);
  }

  std::size_t _pairs;  // how many pairs of bytes a filter tells apart: a power of two
  std::string _keys;
  std::vector<Entry> _entries;
  std::vector<Candidate> _candidates;
  std::vector<Slot> _slots = std::vector<Slot>(1);
  std::array<Filter, PLACES> _filters;
};

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_LITERAL_INDEX_H_
