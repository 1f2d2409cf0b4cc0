// A hash table over a fixed list of short texts, filled at compile time.

#ifndef UTILS_LANGUAGE_REGISTRY_TEXT_TABLE_H_
#define UTILS_LANGUAGE_REGISTRY_TEXT_TABLE_H_

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string_view>

#include "utils/path_filter/base/words.h"

namespace language_registry {

using path_filter::internal::tail_of;

/// Finds the place of a text in a list. The list must be static; the table refers to it.
///
/// The slots are found by the tail of a text, which nearly always settles a search alone. Texts can
/// come from anywhere, but cannot make a search slow: the runs of full slots are fixed and bounded,
/// and a text longer than all in the list is not looked at.
template <std::size_t key_count>
class TextTable {
 public:
  /// What `find` returns for a text that is not in the list.
  static constexpr std::size_t npos = key_count;

  /// Fails to compile when the list has an empty text, one text twice, or many collisions.
  consteval explicit TextTable(const std::array<std::string_view, key_count>& list)
      : keys(list.data()) {
    for (std::size_t key = 0; key < key_count; ++key) {
      const std::string_view text = list[key];
      if (text.empty() || text.size() > max_size) throw std::logic_error("empty or too long");
      longest = std::max(longest, text.size());
      sizes_by_ends[ends_of(text)] |= std::uint32_t{1} << text.size();

      std::size_t slot = home_of(tail_of(text));
      for (std::size_t probes = 1; slots[slot].size != 0; ++probes) {
        if (keys[slots[slot].key] == text) throw std::logic_error("one text twice");
        if (probes == max_probes) throw std::logic_error("too many collisions");
        slot = (slot + 1) % slot_count;
      }
      slots[slot] = {tail_of(text), static_cast<std::uint16_t>(key),
                     static_cast<std::uint16_t>(text.size())};
    }
  }

  /// The place of `text` in the list, or npos. Meant for texts that are seldom in the list: nearly
  /// all others are told by their size and their first and last byte.
  constexpr std::size_t find(std::string_view text) const {
    if (text.size() - 1 >= longest) return npos;  // longer, or empty
    if ((sizes_by_ends[ends_of(text)] >> text.size() & 1) == 0) return npos;
    return find(text, tail_of(text));
  }

  /// The same given the text's tail, which a caller may have at hand.
  constexpr std::size_t find(std::string_view text, std::uint64_t tail) const {
    for (std::size_t slot = home_of(tail);; slot = (slot + 1) % slot_count) {
      const Slot& candidate = slots[slot];
      if (candidate.size == 0) return npos;
      if (candidate.tail == tail && candidate.size == text.size() &&
          (text.size() <= 8 || keys[candidate.key] == text)) {
        return candidate.key;
      }
    }
  }

  constexpr bool contains(std::string_view text) const { return find(text) != npos; }

  /// The length of the longest text in the list.
  constexpr std::size_t longest_size() const { return longest; }

 private:
  /// A key, or nothing when the size is zero.
  struct Slot {
    std::uint64_t tail = 0;
    std::uint16_t key = 0;
    std::uint16_t size = 0;
  };

  // At most half of the slots are full.
  static constexpr std::size_t slot_count = std::bit_ceil(2 * key_count);
  static constexpr std::size_t max_probes = 16;
  static constexpr std::size_t max_size = 31;
  static constexpr std::size_t ends_count = 1024;
  static_assert(key_count > 0 && key_count < std::numeric_limits<std::uint16_t>::max());

  static constexpr std::size_t home_of(std::uint64_t tail) {
    const std::uint64_t product = (tail ^ tail >> 29) * 0x9e3779b97f4a7c15u;
    return static_cast<std::size_t>(product >> 40) % slot_count;
  }

  static constexpr std::size_t ends_of(std::string_view text) {
    const std::size_t first = static_cast<unsigned char>(text.front());
    const std::size_t last = static_cast<unsigned char>(text.back());
    return (first * 23 + last) % ends_count;
  }

  const std::string_view* keys;
  std::size_t longest = 0;
  /// Which sizes the texts of each pair of ends have, a bit for each.
  std::array<std::uint32_t, ends_count> sizes_by_ends{};
  std::array<Slot, slot_count> slots{};
};

}  // namespace language_registry

#endif  // UTILS_LANGUAGE_REGISTRY_TEXT_TABLE_H_
