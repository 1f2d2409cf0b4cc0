// Text is UTF-8; a byte that is not part of a valid sequence stands for itself, so that a file
// name of any bytes can be handled as text and comes out unchanged.

#ifndef UTILS_PATH_FILTER_BASE_UTF8_H_
#define UTILS_PATH_FILTER_BASE_UTF8_H_

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace path_filter::internal {

/// A character of a text, or a byte that belongs to none.
struct Character {
  char32_t code;     // the character, or NO_CHARACTER plus the byte
  std::size_t size;  // in bytes
};

/// The codes from here on are no characters.
inline constexpr char32_t NO_CHARACTER = 0x110000;

/// The character of `text` that begins at `at`, before the text's end.
Character character_at(std::string_view text, std::size_t at);

/// `text` without the white space at both ends. White space is what Unicode gives a
/// bidirectional type of white space or separator (tab, line ends, U+001C to U+001F, U+0085, the
/// blanks), and every space separator (category Zs).
std::string_view trim(std::string_view text);

/// Appends `text` in lower case to `out`, by Unicode's default mapping, which is the same in
/// every locale: one character to one character, but that U+0130 becomes an "i" with a combining
/// dot, and a capital sigma at the end of a word the final sigma. Takes time linear in `text`.
void append_lower(std::string_view text, std::string& out);

/// The offset of the first byte that is not valid UTF-8, or absent.
std::optional<std::size_t> find_invalid_utf8(std::string_view text);

/// `text` with U+FFFD in place of each invalid sequence: a longest run of bytes that begins a
/// character and is not continued, or else a single byte (the practice that chapter 3.9 of the
/// Unicode standard recommends).
std::string replace_invalid_utf8(std::string_view text);

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_BASE_UTF8_H_
