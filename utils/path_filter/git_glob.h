// One wildcard pattern of an ignore file, compiled: what git calls a wildmatch.
//
// A pattern is a row of tokens. In a path pattern (one with a "/") they form
// components, and "**" stands between components; in a name pattern they are one
// component. Bytes are matched, not characters, as git does.

#ifndef UTILS_PATH_FILTER_GIT_GLOB_H_
#define UTILS_PATH_FILTER_GIT_GLOB_H_

#include <bitset>
#include <cstdint>
#include <string_view>
#include <vector>

namespace path_filter::internal {

/// A set of bytes: what a bracket expression stands for.
using ByteSet = std::bitset<256>;

/// One step of a pattern.
struct GlobToken {
  enum class Kind : std::uint8_t {
    byte,      // this byte; "/" ends a component
    any,       // "?": one byte, not "/"
    set,       // one byte of sets[set]
    star,      // "*": any run of bytes without "/"
    globstar,  // "**/": any number of whole components, none included
    rest,      // "/**" at the end: all that is below, one component at least
  };
  Kind kind;
  std::uint8_t byte = 0;
  std::uint32_t set = 0;
};

/// A pattern as its tokens. Only the parser makes one.
struct GlobTokens {
  std::vector<GlobToken> tokens;
  std::vector<ByteSet> sets;
};

enum class GlobKind { name, path };

/// Parses `pattern` into `parsed` (cleared first). False when it can match nothing:
/// a bracket expression that is not closed or names an unknown class, or a backslash
/// at the end. In a path pattern the leading "/" has been removed. Linear.
bool parse_glob(std::string_view pattern, GlobKind kind, GlobTokens& parsed);

/// The compiled patterns of one rule set, in shared storage.
class GlobStore {
 public:
  using Number = std::uint32_t;

  /// Adds a pattern; its number asks `matches`.
  Number add(const GlobTokens& parsed, GlobKind kind);

  /// Whether the pattern matches the whole of `text`: a name for a name pattern, a
  /// path with "/" between components for a path pattern. Takes at most on the order
  /// of pattern times text, whatever the pattern.
  bool matches(Number number, std::string_view text) const;

 private:
  struct Component {
    enum class Kind : std::uint8_t { tokens, globstar, rest };
    Kind kind;
    std::uint32_t begin;  // into _tokens
    std::uint32_t end;
  };
  struct Glob {
    GlobKind kind;
    std::uint32_t begin;  // into _components
    std::uint32_t end;
  };

  bool component_matches(const Component& component, std::string_view text) const;
  bool path_matches(const Glob& glob, std::string_view path) const;

  std::vector<GlobToken> _tokens;
  std::vector<ByteSet> _sets;
  std::vector<Component> _components;
  std::vector<Glob> _globs;
};

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_GIT_GLOB_H_
