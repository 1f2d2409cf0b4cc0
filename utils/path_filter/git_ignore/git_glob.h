// The wildcard patterns of ignore files: what git calls a wildmatch.
//
// A pattern is matched as it is written, nothing is compiled: the text is all that a rule
// set keeps of it. Bytes are matched, not characters, as git does.

#ifndef UTILS_PATH_FILTER_GIT_IGNORE_GIT_GLOB_H_
#define UTILS_PATH_FILTER_GIT_IGNORE_GIT_GLOB_H_

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace path_filter::internal {

/// What a pattern is asked about: the name alone, or the path, when the pattern has a "/".
enum class GlobKind : std::uint8_t { name, path };

/// Whether the case of letters counts. As git does with core.ignorecase: of the letters of ASCII
/// alone, and in two places it counts all the same. A capital letter that is escaped, or a member
/// of a bracket expression that is no range and no class, matches nothing: what is asked about is
/// folded, and git compares these as they are.
enum class Case : bool { exact, folded };

/// `text` as it is asked about with Case::folded: a capital letter of ASCII as its small one.
constexpr char folded(char byte) {
  return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}
std::string folded(std::string_view text);

/// The first place from `from` on where `text`, which is folded, has `literal`, which is not, or
/// npos.
std::size_t find_folded(std::string_view text, std::string_view literal, std::size_t from);

/// Whether `pattern`, which is not empty, matches the whole of `text`: a name for a name
/// pattern, a path with "/" between components for a path pattern, whose leading "/" has
/// been removed. A broken pattern matches nothing: one with a bracket expression that is
/// not closed or names an unknown class, or with a backslash at its end. Takes no memory
/// and at most on the order of pattern times text, whatever the pattern.
bool glob_matches(std::string_view pattern, GlobKind kind, std::string_view text);

/// The same with Case::folded, for a text that is folded.
bool glob_matches_folded(std::string_view pattern, GlobKind kind, std::string_view text);

/// How far a path pattern has come in a path; made without arguments, nowhere yet.
struct GlobProgress {
  std::uint32_t pattern = 0;         // where it goes on
  std::uint32_t path = 0;            // and in the path
  std::uint32_t after_globstar = 0;  // the pattern behind its last "**"; 0 before the first
  std::uint32_t globstar_path = 0;   // what that "**" takes ends here
};

/// The same of a path pattern, for paths of under 4 GiB that are asked about one after the
/// other and each begin with the components of the last ("a", "a/b", "a/b/c/d"): `progress`
/// stands where the last question ended, and all of them together take what the longest would.
bool glob_matches_further(std::string_view pattern, std::string_view path, GlobProgress& progress,
                          Case letters = Case::exact);

/// A set of bytes: what a bracket expression stands for.
using ByteSet = std::bitset<256>;

/// One step of a pattern.
struct GlobStep {
  enum class Kind : std::uint8_t { byte, set, wildcard, broken };
  Kind kind;
  char byte;        // of a byte
  std::size_t end;  // where the next step begins
};

/// The step of `pattern` that begins at `at`, in `set` what a set stands for. A "**" takes
/// the "/" behind it along: it may match nothing, and then there is none. With Case::folded both
/// are of folded text.
GlobStep read_glob_step(std::string_view pattern, std::size_t at, ByteSet& set, Case letters);

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_GIT_IGNORE_GIT_GLOB_H_
