// How a text that may come from a repository is shown to a person.

#ifndef UTILS_PATH_FILTER_BASE_QUOTING_H_
#define UTILS_PATH_FILTER_BASE_QUOTING_H_

#include <string>
#include <string_view>

namespace path_filter::internal {

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

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_BASE_QUOTING_H_
