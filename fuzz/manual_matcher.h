// The format of an ignore file, slowly: the manual page's sentences as a memoised
// recursion over the text of the pattern and that of the path. It knows no tokens, no
// index and no shortcut; the rule sets are held against it.

#ifndef FUZZ_MANUAL_MATCHER_H_
#define FUZZ_MANUAL_MATCHER_H_

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace manual {

/// Whether a pattern matches a text: a name, or a path when the pattern has a "/".
class Matcher {
 public:
  Matcher(std::string_view pattern, std::string_view text, bool is_path)
      : _pattern(pattern),
        _text(text),
        _is_path(is_path),
        _known((pattern.size() + 1) * (text.size() + 1)) {}

  /// Whether the pattern from `p` on matches the text from `t` on.
  bool matches(std::size_t p = 0, std::size_t t = 0) {
    auto& known = _known[p * (_text.size() + 1) + t];
    if (!known) known = compute(p, t);
    return *known;
  }

 private:
  bool compute(std::size_t p, std::size_t t) {
    if (p == _pattern.size()) return t == _text.size();
    if (_pattern[p] == '*') return star_matches(p, t);
    if (t == _text.size()) return false;
    if (_pattern[p] == '?') return _text[t] != '/' && matches(p + 1, t + 1);
    if (_pattern[p] == '[') {
      const auto end = bracket_matches(p + 1, _text[t]);
      return end && _text[t] != '/' && matches(*end, t + 1);
    }
    if (_pattern[p] == '\\' && ++p == _pattern.size()) return false;
    return _pattern[p] == _text[t] && matches(p + 1, t + 1);
  }

  bool star_matches(std::size_t p, std::size_t t) {
    const std::size_t behind = std::min(_pattern.find_first_not_of('*', p), _pattern.size());
    const bool consecutive = behind - p >= 2;
    if (_is_path && consecutive && (p == 0 || _pattern[p - 1] == '/')) {
      const std::string_view rest = _pattern.substr(behind);
      // "A trailing "/**" matches everything inside."
      if (rest.empty()) return t < _text.size();
      // "... matches zero or more directories." An escaped slash is a slash too, but git
      // does not let it stand for none.
      if (rest.starts_with('/') && matches(behind + 1, t)) return true;
      const std::size_t slash = rest.find('/');  // that of the "**", or none
      for (; slash == 0 || rest.starts_with("\\/"); ++t) {
        if (t == _text.size()) return false;
        if (_text[t] == '/' && matches(behind + slash + 1, t + 1)) return true;
      }
    }
    // "Other consecutive asterisks are considered regular asterisks."
    return matches(behind, t) || (t < _text.size() && _text[t] != '/' && matches(p, t + 1));
  }

  /// Where the bracket expression that begins at `p`, behind its "[", ends, if it is a
  /// whole one that holds `byte`.
  std::optional<std::size_t> bracket_matches(std::size_t p, char byte) const {
    const auto at = [&](std::size_t i) { return i < _pattern.size() ? _pattern[i] : '\0'; };
    const auto value = [](char character) { return static_cast<unsigned char>(character); };
    const bool negated = at(p) == '!' || at(p) == '^';
    if (negated) ++p;
    bool holds = false;
    char low = '\0';  // of a range; a pattern holds no NUL
    for (const std::size_t first = p; p == first || at(p) != ']';) {
      if (p >= _pattern.size()) return std::nullopt;
      if (at(p) == '[' && at(p + 1) == ':') {
        const std::size_t close = _pattern.find(']', p + 2);
        if (close == std::string_view::npos) return std::nullopt;
        if (close > p + 2 && at(close - 1) == ':') {
          const auto in = in_class(_pattern.substr(p + 2, close - p - 3), value(byte));
          if (!in) return std::nullopt;
          holds |= *in;
          low = '\0';
          p = close + 1;
          continue;
        }
      }
      const bool range = low != '\0' && at(p) == '-' && p + 1 < _pattern.size() && at(p + 1) != ']';
      if (range) ++p;
      if (at(p) == '\\') ++p;
      if (p >= _pattern.size()) return std::nullopt;
      const char high = at(p++);
      holds |= value(range ? low : high) <= value(byte) && value(byte) <= value(high);
      low = range ? '\0' : high;
    }
    return holds == negated ? std::nullopt : std::optional(p + 1);
  }

  static std::optional<bool> in_class(std::string_view name, int byte) {
    if (name == "space" && (byte == '\v' || byte == '\f')) return false;  // as in git
    static constexpr std::pair<std::string_view, int (*)(int)> CLASSES[] = {
        {"alnum", std::isalnum}, {"alpha", std::isalpha}, {"blank", std::isblank},
        {"cntrl", std::iscntrl}, {"digit", std::isdigit}, {"graph", std::isgraph},
        {"lower", std::islower}, {"print", std::isprint}, {"punct", std::ispunct},
        {"space", std::isspace}, {"upper", std::isupper}, {"xdigit", std::isxdigit}};
    for (const auto& [known, holds] : CLASSES) {
      if (known == name) return holds(byte) != 0;
    }
    return std::nullopt;
  }

  std::string_view _pattern;
  std::string_view _text;
  bool _is_path;
  std::vector<std::optional<bool>> _known;
};

/// What one line says of a path (a directory's ends in "/"): ignored, included again,
/// or nothing.
inline std::optional<bool> line_says(std::string_view line, std::string_view path) {
  line = line.substr(0, line.find('\0'));
  if (line.starts_with('#')) return std::nullopt;
  // "Trailing spaces are ignored unless they are quoted with backslash."
  const std::size_t kept = line.find_last_not_of(' ') + 1;  // npos + 1 is 0
  const std::size_t escapes = kept - (line.substr(0, kept).find_last_not_of('\\') + 1);
  line = line.substr(0, kept + escapes % 2);
  const bool negated = line.starts_with('!');
  if (negated) line.remove_prefix(1);
  const bool is_directory = path.ends_with('/');
  if (is_directory) path.remove_suffix(1);
  if (line.ends_with('/')) {
    if (!is_directory) return std::nullopt;
    line.remove_suffix(1);
  }
  const bool is_path = line.find('/') != std::string_view::npos;
  if (line.starts_with('/')) line.remove_prefix(1);
  if (!is_path) path = path.substr(path.rfind('/') + 1);  // npos + 1 is 0
  if (line.empty() || !Matcher(line, path, is_path).matches()) return std::nullopt;
  return !negated;
}

/// What the last of `lines` that says something says.
inline std::optional<bool> lines_say(std::span<const std::string_view> lines,
                                     std::string_view path) {
  for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
    if (const auto says = line_says(*line, path)) return says;
  }
  return std::nullopt;
}

}  // namespace manual

#endif  // FUZZ_MANUAL_MATCHER_H_
