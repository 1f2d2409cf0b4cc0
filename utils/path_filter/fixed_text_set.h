// A set of a few texts that is fixed at compile time and asked on hot paths: an open
// hash table in constant memory, ready before any code runs.

#ifndef UTILS_PATH_FILTER_FIXED_TEXT_SET_H_
#define UTILS_PATH_FILTER_FIXED_TEXT_SET_H_

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace path_filter::internal {

/// An immutable set of `N` texts. Iterates in the order in which they were written.
template <std::size_t N>
class FixedTextSet {
 public:
  consteval explicit FixedTextSet(const std::array<std::string_view, N>& members)
      : _members(members) {
    for (std::size_t index = 0; index < N; ++index) {
      std::size_t slot = hash(members[index]);
      while (_slots[slot % SLOTS] != 0) ++slot;
      _slots[slot % SLOTS] = static_cast<std::uint8_t>(index + 1);
    }
  }

  constexpr bool contains(std::string_view text) const {
    for (std::size_t slot = hash(text);; ++slot) {
      const std::uint8_t entry = _slots[slot % SLOTS];
      if (entry == 0) return false;
      if (_members[entry - 1] == text) return true;
    }
  }

  constexpr std::size_t size() const { return N; }
  constexpr auto begin() const { return _members.begin(); }
  constexpr auto end() const { return _members.end(); }

 private:
  static_assert(N > 0 && N < 256);
  static constexpr std::size_t SLOTS = std::bit_ceil(4 * N);

  /// Length and both ends tell nearly all directory names apart, whatever the length.
  static constexpr std::size_t hash(std::string_view text) {
    if (text.empty()) return 0;
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    return text.size() * 7 + byte(text.size() / 2) * 31U + byte(text.size() - 1) * 113U + byte(0);
  }

  std::array<std::string_view, N> _members;
  std::array<std::uint8_t, SLOTS> _slots{};
};

template <typename... Text>
FixedTextSet(Text...) -> FixedTextSet<sizeof...(Text)>;

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_FIXED_TEXT_SET_H_
