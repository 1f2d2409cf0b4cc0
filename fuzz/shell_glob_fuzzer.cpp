// The shell glob against a plain recursion over the same definition, and the text
// helpers that every path goes through.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/check.h"
#include "utils/path_filter/internal/text.h"
#include "utils/path_filter/path_rules.h"
#include "utils/path_filter/test_code.h"

namespace {

using namespace path_filter;

/// Matches ASCII texts; each answer is computed once.
class SlowGlob {
 public:
  SlowGlob(std::string_view pattern, std::string_view text)
      : _pattern(pattern), _text(text), _known((pattern.size() + 1) * (text.size() + 1), UNKNOWN) {}

  bool matches(std::size_t p = 0, std::size_t t = 0) {
    char& known = _known[p * (_text.size() + 1) + t];
    if (known == UNKNOWN) known = compute(p, t) ? YES : NO;
    return known == YES;
  }

 private:
  enum : char { UNKNOWN, NO, YES };

  bool compute(std::size_t p, std::size_t t) {
    if (p == _pattern.size()) return t == _text.size();
    if (_pattern[p] == '*') return matches(p + 1, t) || (t < _text.size() && matches(p, t + 1));
    if (t == _text.size()) return false;
    if (_pattern[p] == '?') return matches(p + 1, t + 1);
    if (_pattern[p] == '[') {
      // A "]" in the first place is a member; without another, the "[" is one itself.
      const bool negated = p + 1 < _pattern.size() && _pattern[p + 1] == '!';
      const std::size_t first = p + (negated ? 2 : 1);
      const std::size_t close = _pattern.find(']', first + 1);
      if (close != std::string_view::npos) {
        return in_set(_pattern.substr(first, close - first), _text[t]) != negated &&
               matches(close + 1, t + 1);
      }
    }
    return _pattern[p] == _text[t] && matches(p + 1, t + 1);
  }

  static bool in_set(std::string_view set, char character) {
    if (set.empty()) return false;
    if (set.size() >= 3 && set[1] == '-') {
      return (set[0] <= character && character <= set[2]) || in_set(set.substr(3), character);
    }
    return set[0] == character || in_set(set.substr(1), character);
  }

  std::string_view _pattern;
  std::string_view _text;
  std::vector<char> _known;
};

bool is_ascii(std::string_view text) {
  return std::ranges::all_of(text, [](char byte) { return static_cast<signed char>(byte) >= 0; });
}

}  // namespace

/// The input: a pattern, a line end, and the text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t end = std::min(input.find('\n'), input.size());
  const std::string_view pattern = input.substr(0, end);
  const std::string_view text = input.substr(std::min(end + 1, input.size()));

  const bool matches = internal::shell_glob_matches(pattern, text);
  if (pattern.size() <= 256 && text.size() <= 256 && is_ascii(input)) {
    fuzz::check(matches == SlowGlob(pattern, text).matches(), "as the definition says");
  }

  const std::string replaced = internal::replace_invalid_utf8(text);
  fuzz::check(!internal::find_invalid_utf8(replaced), "what was replaced is valid");
  fuzz::check(internal::find_invalid_utf8(text).has_value() == (replaced != text),
              "only what is invalid is replaced");
  const std::string_view trimmed = internal::trim(text);
  fuzz::check(internal::trim(trimmed) == trimmed, "nothing is left to trim");
  std::string lower;
  internal::append_lower(text, lower);
  std::string again;
  internal::append_lower(lower, again);
  fuzz::check(lower == again, "what is in lower case stays");
  is_test_path(text);
  internal::quoted(text);
  return 0;
}
