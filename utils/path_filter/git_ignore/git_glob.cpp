#include "utils/path_filter/git_ignore/git_glob.h"

#include <algorithm>
#include <optional>

namespace path_filter::internal {
namespace {

using namespace std::string_view_literals;

constexpr std::size_t NONE = std::string_view::npos;

/// A named class, as the first and last bytes of its ranges.
struct NamedClass {
  std::string_view name;
  std::string_view ranges;
};

// ASCII only, in every locale, as in git.
constexpr NamedClass NAMED_CLASSES[] = {
    {"alnum", "09AZaz"},
    {"alpha", "AZaz"},
    {"blank", "\t\t  "},
    {"cntrl", "\0\x1F\x7F\x7F"sv},
    {"digit", "09"},
    {"graph", "!~"},
    {"lower", "az"},
    {"print", " ~"},
    {"punct", "!/:@[`{~"},
    {"space", "\t\n\r\r  "},  // git counts neither vertical tab nor form feed
    {"upper", "AZ"},
    {"xdigit", "09AFaf"},
};

struct Bracket {
  std::size_t end;  // behind its "]"
  bool negated;
};

/// Reads the bracket expression whose "[" is at `p`, and calls `add` with the first and the
/// last byte of each range in it, and whether it is a single member. Absent when it is broken. A
/// "]" in the first place is a member; so is a "-" in the first or last place or behind a range or
/// a class.
template <typename Add>
std::optional<Bracket> read_bracket(std::string_view pattern, std::size_t p, Add add) {
  const auto peek = [&](std::size_t offset) {
    return p + offset < pattern.size() ? pattern[p + offset] : '\0';
  };
  const auto byte = [](char character) { return static_cast<unsigned char>(character); };
  ++p;
  const bool negated = peek(0) == '!' || peek(0) == '^';
  if (negated) ++p;
  char low = '\0';        // where a range may begin; no pattern holds a NUL
  std::size_t close = 0;  // the first "]" behind the last "[:"
  for (const std::size_t first = p; p == first || peek(0) != ']';) {
    if (p >= pattern.size()) return std::nullopt;
    if (peek(0) == '[' && peek(1) == ':') {
      const std::size_t name = p + 2;
      if (close < name) close = pattern.find(']', name);  // searched once, not for each "[:"
      if (close == NONE) return std::nullopt;
      if (close > name && pattern[close - 1] == ':') {
        const auto* named = std::ranges::find(NAMED_CLASSES, pattern.substr(name, close - 1 - name),
                                              &NamedClass::name);
        if (named == std::end(NAMED_CLASSES)) return std::nullopt;
        for (std::size_t at = 0; at < named->ranges.size(); at += 2) {
          add(byte(named->ranges[at]), byte(named->ranges[at + 1]), false);
        }
        low = '\0';
        p = close + 1;
        continue;
      }
      // No ":]" there: the "[" is an ordinary member.
    }
    const bool range = low != '\0' && peek(0) == '-' && peek(1) != '\0' && peek(1) != ']';
    if (range) ++p;
    if (peek(0) == '\\') ++p;
    if (p >= pattern.size()) return std::nullopt;
    const char high = pattern[p++];
    add(byte(range ? low : high), byte(high), !range);
    low = range ? '\0' : high;
  }
  return Bracket{p + 1, negated};
}

/// What a byte of a pattern that stands for itself matches.
template <Case LETTERS>
char matched_by(char byte) {
  return LETTERS == Case::folded ? folded(byte) : byte;
}

/// Whether a character of a pattern can stand for nothing but itself.
bool is_byte(char character) {
  return character != '*' && character != '?' && character != '[' && character != ']' &&
         character != '\\' && character != '/';
}

/// Behind the component of a pattern that ends at `p`, or NONE when none ends there: past
/// the pattern's end behind its last.
std::size_t behind_component(std::string_view pattern, std::size_t p) {
  if (p == pattern.size() || pattern[p] == '/') return p + 1;
  return pattern.substr(p).starts_with("\\/") ? p + 2 : NONE;
}

std::size_t behind_stars(std::string_view pattern, std::size_t p) {
  return std::min(pattern.find_first_not_of('*', p), pattern.size());
}

// Both loops below take back only the last star they met (the last "**"): it can take
// over whatever an earlier one would have had to match. Between two stars each step
// meets each byte of the text at most once, which is where the bound comes from.

/// The first place from `t` on where the text has the literal that the pattern has from `p`
/// on, or NONE.
template <Case LETTERS>
std::size_t find_literal(std::string_view pattern, std::size_t p, std::string_view text,
                         std::size_t t) {
  std::size_t end = p;
  while (end < pattern.size() && is_byte(pattern[end])) ++end;
  const std::string_view literal = pattern.substr(p, end - p);
  return LETTERS == Case::exact ? text.find(literal, t) : find_folded(text, literal, t);
}

/// Where the pattern goes on behind its component that begins at `p` when that matches
/// `text`, or NONE.
template <Case LETTERS>
std::size_t match_component(std::string_view pattern, std::size_t p, std::string_view text) {
  std::size_t t = 0;
  std::size_t after_star = NONE;
  for (std::size_t star_text = 0;;) {  // where the text behind the last star's run begins
    bool matches = false;
    std::size_t next = p + 1;
    switch (p < pattern.size() ? pattern[p] : '/') {
      case '*': {
        after_star = p = behind_stars(pattern, p);
        const std::size_t behind = behind_component(pattern, p);
        if (behind != NONE) return behind;
        star_text = t = find_literal<LETTERS>(pattern, p, text, t);
        if (t == NONE) return NONE;
        continue;
      }
      case '?':
        matches = t < text.size();
        break;
      case '[': {
        if (t == text.size()) break;
        bool holds = false;
        const auto byte = static_cast<unsigned char>(text[t]);
        const bool is_letter = LETTERS == Case::folded && byte >= 'a' && byte <= 'z';
        const auto add = [&](unsigned char first, unsigned char last, bool is_member) {
          holds |= first <= byte && byte <= last;
          if (is_letter && !is_member) {
            const int capital = byte - 'a' + 'A';
            holds |= first <= capital && capital <= last;
          }
        };
        const auto bracket = read_bracket(pattern, p, add);
        if (!bracket) return NONE;
        matches = holds != bracket->negated;
        next = bracket->end;
        break;
      }
      case '/':
        if (t == text.size()) return next;
        break;
      case '\\':
        if (next == pattern.size()) return NONE;
        if (pattern[next] == '/' && t == text.size()) return next + 1;
        matches = t < text.size() && pattern[next] == text[t];
        ++next;
        break;
      default:
        matches = t < text.size() && matched_by<LETTERS>(pattern[p]) == text[t];
    }
    if (matches) {
      p = next;
      ++t;
    } else if (after_star != NONE && t < text.size()) {
      p = after_star;
      star_text = t = find_literal<LETTERS>(pattern, p, text, star_text + 1);
      if (t == NONE) return NONE;
    } else {
      return NONE;
    }
  }
}

/// A path pattern's way through a path, from the left to the right. What lies behind the path's
/// end has no say in it: in a longer path it goes on from where it stands.
template <Case LETTERS>
struct PathMatch {
  std::size_t p = 0;  // past the pattern's end behind its last component
  std::size_t at = 0;
  std::size_t after_globstar = 0;  // 0 before the first
  std::size_t globstar_at = 0;

  bool run(std::string_view pattern, std::string_view path) {
    // Where the component behind the one at `from` begins; past the end after the last.
    const auto next = [&](std::size_t from) {
      return std::min(path.find('/', from), path.size()) + 1;
    };
    for (;;) {
      if (at > path.size()) return p > pattern.size();
      // "**" means more than "*" only as a whole component.
      if (pattern.substr(std::min(p, pattern.size())).starts_with("**")) {
        const std::size_t stars_end = behind_stars(pattern, p);
        if (stars_end == pattern.size()) return true;  // all that is below
        const std::size_t behind = behind_component(pattern, stars_end);
        if (behind != NONE) {
          // git takes an escaped "/" for the end of the component, but does not let the
          // "**" match nothing before it: one directory at least.
          if (pattern[stars_end] == '\\') at = next(at);
          after_globstar = p = behind;
          globstar_at = at;
          continue;
        }
      }
      const std::size_t following = next(at);
      const std::string_view component = path.substr(at, following - 1 - at);
      const std::size_t behind =
          p > pattern.size() ? NONE : match_component<LETTERS>(pattern, p, component);
      if (behind != NONE) {
        p = behind;
        at = following;
      } else if (after_globstar != 0) {
        p = after_globstar;
        at = globstar_at = next(globstar_at);
      } else {
        p = pattern.size() + 1;  // where no longer path matches either
        return false;
      }
    }
  }
};

/// Whether the outermost bytes, which turn nearly every text away, leave a match possible.
template <Case LETTERS>
bool ends_fit(std::string_view pattern, std::string_view text) {
  const auto fits = [](char outermost, char byte) {
    return !is_byte(outermost) || matched_by<LETTERS>(outermost) == byte;
  };
  return text.empty() || (fits(pattern.front(), text.front()) && fits(pattern.back(), text.back()));
}

template <Case LETTERS>
bool matches(std::string_view pattern, GlobKind kind, std::string_view text) {
  if (!ends_fit<LETTERS>(pattern, text)) return false;
  return kind == GlobKind::name ? match_component<LETTERS>(pattern, 0, text) != NONE
                                : PathMatch<LETTERS>().run(pattern, text);
}

template <Case LETTERS>
bool matches_further(std::string_view pattern, std::string_view path, GlobProgress& progress) {
  if (!ends_fit<LETTERS>(pattern, path)) return false;
  PathMatch<LETTERS> match{progress.pattern, progress.path, progress.after_globstar,
                           progress.globstar_path};
  const bool matches = match.run(pattern, path);
  const auto narrow = [](std::size_t offset) { return static_cast<std::uint32_t>(offset); };
  progress = {narrow(match.p), narrow(match.at), narrow(match.after_globstar),
              narrow(match.globstar_at)};
  return matches;
}

}  // namespace

std::string folded(std::string_view text) {
  std::string made(text);
  for (char& byte : made) byte = folded(byte);
  return made;
}

std::size_t find_folded(std::string_view text, std::string_view literal, std::size_t from) {
  const auto same = [](char byte, char of_literal) { return byte == folded(of_literal); };
  const auto* const begin = text.data() + std::min(from, text.size());
  const auto* const end = text.data() + text.size();
  const auto* const found = std::search(begin, end, literal.begin(), literal.end(), same);
  const bool is_there = from <= text.size() && (found != end || literal.empty());
  return is_there ? static_cast<std::size_t>(found - text.data()) : NONE;
}

bool glob_matches(std::string_view pattern, GlobKind kind, std::string_view text) {
  return matches<Case::exact>(pattern, kind, text);
}

[[gnu::noinline]] bool glob_matches_folded(std::string_view pattern, GlobKind kind,
                                           std::string_view text) {
  return matches<Case::folded>(pattern, kind, text);
}

[[gnu::noinline]] bool glob_matches_further(std::string_view pattern, std::string_view path,
                                            GlobProgress& progress, Case letters) {
  return letters == Case::exact ? matches_further<Case::exact>(pattern, path, progress)
                                : matches_further<Case::folded>(pattern, path, progress);
}

GlobStep read_glob_step(std::string_view pattern, std::size_t at, ByteSet& set, Case letters) {
  using Kind = GlobStep::Kind;
  switch (pattern[at]) {
    case '\\':
      if (at + 1 == pattern.size()) return {Kind::broken, {}, at};
      return {Kind::byte, pattern[at + 1], at + 2};
    case '?':
      return {Kind::wildcard, {}, at + 1};
    case '*': {
      const std::size_t end = behind_stars(pattern, at);
      const std::size_t behind = behind_component(pattern, end);
      const bool takes_slash = end - at >= 2 && behind != NONE && end < pattern.size();
      return {Kind::wildcard, {}, takes_slash ? behind : end};
    }
    case '[': {
      set.reset();
      const bool folds = letters == Case::folded;
      const auto add = [&](std::size_t first, std::size_t last, bool is_member) {
        for (std::size_t byte = first; byte <= last; ++byte) {
          const char small = folded(static_cast<char>(byte));
          set.set(folds && !is_member ? static_cast<unsigned char>(small) : byte);
        }
      };
      const auto bracket = read_bracket(pattern, at, add);
      if (!bracket) return {Kind::broken, {}, at};
      if (bracket->negated) set.flip();
      return {Kind::set, {}, bracket->end};
    }
    default:
      return {Kind::byte, letters == Case::folded ? folded(pattern[at]) : pattern[at], at + 1};
  }
}

}  // namespace path_filter::internal
