// Eight bytes of a text at once. Texts are as short as paths and names: a loop over words takes
// a quarter of the instructions of one over bytes.

#ifndef UTILS_PATH_FILTER_BASE_WORDS_H_
#define UTILS_PATH_FILTER_BASE_WORDS_H_

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

namespace path_filter::internal {

/// A word in which each byte is 1: times a byte it is a word of that byte.
inline constexpr std::uint64_t EACH_BYTE = 0x0101010101010101;

/// The `COUNT` bytes at `text` as a little-endian number.
template <std::size_t COUNT>
constexpr std::uint64_t load(const char* text) {
  std::uint64_t value = 0;
  if (std::endian::native == std::endian::little && !std::is_constant_evaluated()) {
    std::memcpy(&value, text, COUNT);
    return value;
  }
  for (std::size_t i = 0; i < COUNT; ++i) {
    value |= std::uint64_t{static_cast<unsigned char>(text[i])} << (8 * i);
  }
  return value;
}

/// The last eight bytes of a text as a little-endian number: the last byte is the highest one
/// that is used, and a text shorter than eight bytes leaves the bytes above it zero.
constexpr std::uint64_t tail_of(std::string_view text) {
  const std::size_t size = std::min<std::size_t>(text.size(), 8);
  const char* const begin = text.data() + (text.size() - size);
  // Two loads, which agree on the bytes that they share, spare the branch on the size that would
  // be mispredicted most.
  if (size >= 4) return load<4>(begin) | load<4>(begin + size - 4) << (8 * (size - 4));
  if (size >= 2) return load<2>(begin) | load<2>(begin + size - 2) << (8 * (size - 2));
  return size == 1 ? load<1>(begin) : 0;
}

/// Eight bytes of `text` from `at` on, before its end, the first of them lowest; those behind the
/// end are zero.
inline std::uint64_t word_at(std::string_view text, std::size_t at) {
  if (at + 8 <= text.size()) return load<8>(text.data() + at);
  if (text.size() < 8) return tail_of(text.substr(at));
  return load<8>(text.data() + text.size() - 8) >> (8 * (at + 8 - text.size()));
}

/// The bytes of `word` that are `byte`: of each the highest bit.
constexpr std::uint64_t places_in_word(std::uint64_t word, char byte) {
  constexpr std::uint64_t LOW_BITS = 0x7F * EACH_BYTE;
  const std::uint64_t differences = word ^ EACH_BYTE * static_cast<unsigned char>(byte);
  return ~(((differences & LOW_BITS) + LOW_BITS) | differences | LOW_BITS);
}

/// Whether the eight bytes, or all of `text`, are ASCII.
constexpr bool word_is_ascii(std::uint64_t word) { return (word & 0x80 * EACH_BYTE) == 0; }
inline bool is_ascii(std::string_view text) {
  std::uint64_t bytes = 0;
  for (std::size_t at = 0; at < text.size(); at += sizeof bytes) bytes |= word_at(text, at);
  return word_is_ascii(bytes);
}

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_BASE_WORDS_H_
