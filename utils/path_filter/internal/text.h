// Text helpers that several units share. Text is UTF-8; a byte that is not part of
// a valid sequence stands for itself, so that a file name of any bytes can be
// handled as text and comes out unchanged.

#ifndef UTILS_PATH_FILTER_INTERNAL_TEXT_H_
#define UTILS_PATH_FILTER_INTERNAL_TEXT_H_

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace path_filter::internal {

/// `text` without the white space at both ends. White space is what Unicode gives a
/// bidirectional type of white space or separator (tab, line ends, U+001C to U+001F,
/// U+0085, the blanks), and every space separator (category Zs).
std::string_view trim(std::string_view text);

/// Whether all of `text` is ASCII.
inline bool is_ascii(std::string_view text) {
  unsigned bytes = 0;  // no branch in the loop: it is done sixteen bytes at a time
  for (const char byte : text) bytes |= static_cast<unsigned char>(byte);
  return bytes < 0x80;
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
