#include "utils/path_filter/test_code/shell_glob.h"

#include <cstddef>

#include "utils/path_filter/base/utf8.h"

namespace path_filter::internal {

namespace {

/// Whether a character of a pattern can be more than itself, or belong to what is.
bool is_special(char character) {
  return character == '*' || character == '?' || character == '[' || character == ']';
}

/// Matches `code` against the set whose inside is `set` ("!" included).
bool set_matches(std::string_view set, char32_t code) {
  const bool negated = set.starts_with('!');
  std::size_t at = negated ? 1 : 0;
  bool found = false;
  while (at < set.size()) {
    const Character low = character_at(set, at);
    at += low.size;
    if (at + 1 < set.size() && set[at] == '-') {
      const Character high = character_at(set, at + 1);
      at += 1 + high.size;
      found = found || (low.code <= code && code <= high.code);
    } else {
      found = found || low.code == code;
    }
  }
  return found != negated;
}

/// The offset of the "]" that closes the "[" at `open`, or npos. `last` is where the
/// pattern's last "]" is: a row of brackets that nothing closes is not searched anew
/// for each of them.
std::size_t closing_bracket(std::string_view pattern, std::size_t open, std::size_t last) {
  if (last == std::string_view::npos || last < open) return std::string_view::npos;
  std::size_t at = open + 1;
  if (at < pattern.size() && pattern[at] == '!') ++at;
  // A "]" in the first place of a set is a member of it.
  return pattern.find(']', at + 1);
}

}  // namespace

bool shell_glob_matches(std::string_view pattern, std::string_view text) {
  // Nearly every glob is literals around one star, and nearly every text differs from
  // them in the first bytes of one end: a few comparisons decide.
  std::size_t head = 0;
  for (; head < pattern.size() && !is_special(pattern[head]); ++head) {
    if (head == text.size() || pattern[head] != text[head]) return false;
  }
  if (head == pattern.size()) return text.size() == head;
  pattern.remove_prefix(head);
  text.remove_prefix(head);
  std::size_t tail = 0;
  for (; !is_special(pattern[pattern.size() - 1 - tail]); ++tail) {
    if (tail == text.size() || pattern[pattern.size() - 1 - tail] != text[text.size() - 1 - tail]) {
      return false;
    }
  }
  if (pattern.front() == '*' && tail == pattern.size() - 1) return true;

  // Only the last star met is ever taken back: it can take over whatever an earlier
  // one would have had to match.
  constexpr std::size_t NONE = std::string_view::npos;
  const std::size_t last_bracket = pattern.rfind(']');
  std::size_t p = 0;
  std::size_t t = 0;
  std::size_t star = NONE;    // the pattern after the last star
  std::size_t star_text = 0;  // where the text after that star's run begins
  for (;;) {
    if (p < pattern.size() && pattern[p] == '*') {
      star = ++p;
      star_text = t;
      continue;
    }
    if (t == text.size()) return p == pattern.size();
    bool matches = false;
    if (p < pattern.size()) {
      const Character unit = character_at(text, t);
      std::size_t width = 1;
      if (pattern[p] == '?') {
        matches = true;
      } else if (const std::size_t close =
                     pattern[p] == '[' ? closing_bracket(pattern, p, last_bracket) : NONE;
                 close != NONE) {
        matches = set_matches(pattern.substr(p + 1, close - p - 1), unit.code);
        width = close + 1 - p;
      } else {
        const Character literal = character_at(pattern, p);
        matches = literal.code == unit.code;
        width = literal.size;
      }
      if (matches) {
        p += width;
        t += unit.size;
      }
    }
    if (!matches) {
      if (star == NONE) return false;
      p = star;
      star_text += character_at(text, star_text).size;
      t = star_text;
    }
  }
}

}  // namespace path_filter::internal
