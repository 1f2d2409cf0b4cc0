// Text helpers that several units share. Text is UTF-8; a byte that is not part of
// a valid sequence stands for itself, so that a file name of any bytes can be
// handled as text and comes out unchanged.

#ifndef UTILS_PATH_FILTER_INTERNAL_TEXT_H_
#define UTILS_PATH_FILTER_INTERNAL_TEXT_H_

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace path_filter::internal {

/// `text` without the white space at both ends. White space is what Unicode gives a
/// bidirectional type of white space or separator (tab, line ends, U+001C to U+001F,
/// U+0085, the blanks), and every space separator (category Zs).
std::string_view trim(std::string_view text);

/// Eight bytes of `text` from `at` on, the first of them lowest; those behind the end are zero.
/// Texts are as short as paths and names: a loop over words takes a quarter of the
/// instructions of one over bytes.
inline std::uint64_t word_at(std::string_view text, std::size_t at) {
  constexpr std::size_t WORD = sizeof(std::uint64_t);
  const auto load = [&](std::size_t from) {
    std::uint64_t word;
    std::memcpy(&word, text.data() + from, WORD);
    return std::endian::native == std::endian::big ? __builtin_bswap64(word) : word;
  };
  if (at + WORD <= text.size()) return load(at);
  if (text.size() >= WORD) return load(text.size() - WORD) >> (8 * (at + WORD - text.size()));
  std::uint64_t word = 0;
  for (std::size_t from = text.size(); from > at; --from) {
    word = word << 8 | static_cast<unsigned char>(text[from - 1]);
  }
  return word;
}

/// The bytes of `word` that are `byte`: of each the highest bit.
inline std::uint64_t places_in_word(std::uint64_t word, char byte) {
  constexpr std::uint64_t EACH = 0x0101010101010101;
  constexpr std::uint64_t LOW_BITS = 0x7F * EACH;
  const std::uint64_t differences = word ^ EACH * static_cast<unsigned char>(byte);
  return ~(((differences & LOW_BITS) + LOW_BITS) | differences | LOW_BITS);
}

/// Whether the eight bytes, or all of `text`, are ASCII.
inline bool word_is_ascii(std::uint64_t word) { return (word & 0x8080808080808080) == 0; }
inline bool is_ascii(std::string_view text) {
  std::uint64_t bytes = 0;
  for (std::size_t at = 0; at < text.size(); at += sizeof bytes) bytes |= word_at(text, at);
  return word_is_ascii(bytes);
}

/// The size, in bytes, of the first character of `text`, which is not empty.
std::size_t first_character_size(std::string_view text);

/// Appends `text` in lower case to `out`, by Unicode's default mapping, which is the same
/// in every locale: one character to one character, but that U+0130 becomes an "i" with
/// a combining dot, and a capital sigma at the end of a word the final sigma. Takes time
/// linear in `text`.
void append_lower(std::string_view text, std::string& out);

/// The offset of the first byte that is not valid UTF-8, or absent.
std::optional<std::size_t> find_invalid_utf8(std::string_view text);

/// `text` with U+FFFD in place of each invalid sequence: a longest run of bytes that
/// begins a character and is not continued, or else a single byte (the practice
/// that chapter 3.9 of the Unicode standard recommends).
std::string replace_invalid_utf8(std::string_view text);

/// Whether `text` is printable ASCII without a double quote or a backslash, as nearly all names
/// are: it stands for itself in all that is written.
bool is_plain(std::string_view text);

/// Whether `text` can be shown on one line of a terminal: it is valid UTF-8, and holds no
/// control character (C0, DEL, C1), no line or paragraph separator (U+2028, U+2029) and no
/// mark that turns the direction of what follows (U+061C, U+200E, U+200F, U+202A to U+202E,
/// U+2066 to U+2069).
bool is_printable(std::string_view text);

/// `text` as a literal in single quotes: quotes and backslashes after a backslash, and what
/// is not printable as \n, \r, \t or byte by byte as \xNN.
std::string quoted(std::string_view text);

/// `text` in double quotes, as git writes file names: quotes and backslashes after a backslash,
/// and what is not printable as \a, \b, \t, \n, \v, \f, \r or byte by byte in octal, as \ooo.
std::string c_quoted(std::string_view text);

/// `text` for a message: as it is, or c_quoted when it is not printable.
std::string printable(std::string_view text);

/// Shell-style matching of the whole `text`, case-sensitive: "*" matches any run of
/// characters ("/" included), "?" one character, "[abc]", "[a-z]" and "[!abc]" one
/// character of the set or outside it; a "[" that is never closed and every other
/// character match themselves. Takes at most on the order of pattern times text.
bool shell_glob_matches(std::string_view pattern, std::string_view text);

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_INTERNAL_TEXT_H_
