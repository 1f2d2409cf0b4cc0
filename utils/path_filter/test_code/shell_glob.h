// Shell-style globs, as the conventions for test files are written.

#ifndef UTILS_PATH_FILTER_TEST_CODE_SHELL_GLOB_H_
#define UTILS_PATH_FILTER_TEST_CODE_SHELL_GLOB_H_

#include <string_view>

namespace path_filter::internal {

/// Matches the whole `text`, case-sensitively: "*" matches any run of characters ("/" included),
/// "?" one character, "[abc]", "[a-z]" and "[!abc]" one character of the set or outside it; a
/// "[" that is never closed and every other character match themselves. Takes at most on the
/// order of pattern times text.
bool shell_glob_matches(std::string_view pattern, std::string_view text);

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_TEST_CODE_SHELL_GLOB_H_
