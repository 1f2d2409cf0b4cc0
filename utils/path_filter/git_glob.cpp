#include "utils/path_filter/git_glob.h"

#include <algorithm>
#include <cstddef>
#include <optional>

namespace path_filter::internal {
namespace {

using Kind = GlobToken::Kind;

std::size_t byte_of(char character) { return static_cast<unsigned char>(character); }

struct NamedClass {
  std::string_view name;
  bool (*holds)(unsigned byte);
};

bool is_upper(unsigned byte) { return byte >= 'A' && byte <= 'Z'; }
bool is_lower(unsigned byte) { return byte >= 'a' && byte <= 'z'; }
bool is_digit(unsigned byte) { return byte >= '0' && byte <= '9'; }
bool is_alnum(unsigned byte) { return is_upper(byte) || is_lower(byte) || is_digit(byte); }
bool is_graph(unsigned byte) { return byte > 0x20 && byte < 0x7F; }

// ASCII only, in every locale, as in git.
constexpr NamedClass NAMED_CLASSES[] = {
    {"alnum", is_alnum},
    {"alpha", [](unsigned byte) { return is_upper(byte) || is_lower(byte); }},
    {"blank", [](unsigned byte) { return byte == ' ' || byte == '\t'; }},
    {"cntrl", [](unsigned byte) { return byte < 0x20 || byte == 0x7F; }},
    {"digit", is_digit},
    {"graph", is_graph},
    {"lower", is_lower},
    {"print", [](unsigned byte) { return is_graph(byte) || byte == ' '; }},
    {"punct", [](unsigned byte) { return is_graph(byte) && !is_alnum(byte); }},
    // Without the vertical tab and the form feed, which git counts as no space.
    {"space",
     [](unsigned byte) { return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r'; }},
    {"upper", is_upper},
    {"xdigit",
     [](unsigned byte) {
       return is_digit(byte) || (byte >= 'A' && byte <= 'F') || (byte >= 'a' && byte <= 'f');
     }},
};

const NamedClass* find_class(std::string_view name) {
  const auto* found = std::ranges::find(NAMED_CLASSES, name, &NamedClass::name);
  return found == std::end(NAMED_CLASSES) ? nullptr : found;
}

/// Parses the bracket expression whose "[" is at `at`, and moves `at` behind its
/// "]". False when it is broken. A "]" in the first place is a member; so is a "-" in
/// the first or last place or behind a range or a class.
bool parse_set(std::string_view pattern, std::size_t& at, ByteSet& set) {
  std::size_t p = at + 1;
  const auto peek = [&](std::size_t offset) {
    return p + offset < pattern.size() ? pattern[p + offset] : '\0';
  };
  const bool negated = peek(0) == '!' || peek(0) == '^';
  if (negated) ++p;
  constexpr std::size_t NONE = 256;
  std::size_t previous = NONE;  // where a range may begin
  std::size_t close = 0;        // the first "]" behind the last "[:"
  bool first = true;
  for (;; first = false) {
    if (p >= pattern.size()) return false;
    const char character = pattern[p];
    if (character == ']' && !first) break;
    if (character == '-' && previous != NONE && peek(1) != '\0' && peek(1) != ']') {
      ++p;
      if (pattern[p] == '\\' && ++p >= pattern.size()) return false;
      for (std::size_t byte = previous; byte <= byte_of(pattern[p]); ++byte) set.set(byte);
      previous = NONE;
      ++p;
      continue;
    }
    if (character == '[' && peek(1) == ':') {
      const std::size_t name = p + 2;
      if (close < name) close = pattern.find(']', name);  // searched once, not for each "[:"
      if (close == std::string_view::npos) return false;
      if (close > name && pattern[close - 1] == ':') {
        const NamedClass* named = find_class(pattern.substr(name, close - 1 - name));
        if (named == nullptr) return false;
        for (unsigned byte = 0; byte < 256; ++byte) {
          if (named->holds(byte)) set.set(byte);
        }
        previous = NONE;
        p = close + 1;
        continue;
      }
      // No ":]" there: the "[" is an ordinary member.
    }
    if (character == '\\' && ++p >= pattern.size()) return false;
    set.set(byte_of(pattern[p]));
    previous = byte_of(pattern[p]);
    ++p;
  }
  if (negated) set.flip();
  set.reset(byte_of('/'));
  at = p + 1;
  return true;
}

}  // namespace

bool parse_glob(std::string_view pattern, GlobKind kind, GlobTokens& parsed) {
  parsed.tokens.clear();
  parsed.sets.clear();
  auto& tokens = parsed.tokens;
  for (std::size_t at = 0; at < pattern.size();) {
    switch (pattern[at]) {
      case '\\':
        if (at + 1 == pattern.size()) return false;
        tokens.push_back({Kind::byte, static_cast<std::uint8_t>(pattern[at + 1])});
        at += 2;
        break;
      case '?':
        tokens.push_back({Kind::any});
        ++at;
        break;
      case '[': {
        ByteSet set;
        if (!parse_set(pattern, at, set)) return false;
        tokens.push_back({Kind::set, 0, static_cast<std::uint32_t>(parsed.sets.size())});
        parsed.sets.push_back(set);
        break;
      }
      case '*': {
        const bool starts_component = at == 0 || pattern[at - 1] == '/';
        const std::size_t end = std::min(pattern.find_first_not_of('*', at), pattern.size());
        const std::string_view after = pattern.substr(end);
        // "**" means more than "*" only as a whole component.
        const bool whole = kind == GlobKind::path && end - at >= 2 && starts_component;
        at = end;
        if (whole && after.empty()) {
          tokens.push_back({Kind::rest});
        } else if (whole && after.starts_with('/')) {
          tokens.push_back({Kind::globstar});
          ++at;
        } else if (whole && after.starts_with("\\/")) {
          // git takes an escaped "/" for the end of the component, but does not let
          // the "**" match nothing before it: one directory at least.
          tokens.push_back({Kind::star});
          tokens.push_back({Kind::globstar});
          at += 2;
        } else {
          tokens.push_back({Kind::star});
        }
        break;
      }
      default:
        tokens.push_back({Kind::byte, static_cast<std::uint8_t>(pattern[at])});
        ++at;
    }
  }
  return true;
}

GlobStore::Number GlobStore::add(const GlobTokens& parsed, GlobKind kind) {
  const auto first_set = static_cast<std::uint32_t>(_sets.size());
  const auto first_component = static_cast<std::uint32_t>(_components.size());
  auto begin = static_cast<std::uint32_t>(_tokens.size());
  _sets.insert(_sets.end(), parsed.sets.begin(), parsed.sets.end());

  const auto position = [&] { return static_cast<std::uint32_t>(_tokens.size()); };
  const auto end_component = [&] {
    _components.push_back({Component::Kind::tokens, begin, position()});
    begin = position();
  };
  bool open = true;  // whether a component is to be ended at the end
  for (GlobToken token : parsed.tokens) {
    token.set += first_set;
    if (token.kind == Kind::globstar || token.kind == Kind::rest) {
      if (begin != position()) end_component();
      const bool rest = token.kind == Kind::rest;
      _components.push_back(
          {rest ? Component::Kind::rest : Component::Kind::globstar, begin, begin});
      open = !rest;
    } else if (kind == GlobKind::path && token.kind == Kind::byte && token.byte == '/') {
      end_component();
    } else {
      _tokens.push_back(token);
    }
  }
  if (open) end_component();

  _globs.push_back({kind, first_component, static_cast<std::uint32_t>(_components.size())});
  return static_cast<Number>(_globs.size() - 1);
}

bool GlobStore::matches(Number number, std::string_view text) const {
  const Glob& glob = _globs[number];
  return glob.kind == GlobKind::name ? component_matches(_components[glob.begin], text)
                                     : path_matches(glob, text);
}

// Both loops below take back only the last star they met (the last "**"): it can take
// over whatever an earlier one would have had to match. Between two stars each token
// meets each byte of the text at most once, which is where the bound comes from.

bool GlobStore::component_matches(const Component& component, std::string_view text) const {
  std::uint32_t p = component.begin;
  std::size_t t = 0;
  std::optional<std::uint32_t> after_star;
  std::size_t star_text = 0;  // where the text behind the last star's run begins
  for (;;) {
    if (p < component.end && _tokens[p].kind == Kind::star) {
      after_star = ++p;
      star_text = t;
      if (p == component.end) return true;
      continue;
    }
    if (t == text.size()) return p == component.end;
    bool matches = false;
    if (p < component.end) {
      const GlobToken& token = _tokens[p];
      matches = token.kind == Kind::any ||
                (token.kind == Kind::byte ? token.byte == byte_of(text[t])
                                          : _sets[token.set].test(byte_of(text[t])));
    }
    if (matches) {
      ++p;
      ++t;
    } else if (after_star) {
      p = *after_star;
      t = ++star_text;
    } else {
      return false;
    }
  }
}

bool GlobStore::path_matches(const Glob& glob, std::string_view path) const {
  // Where the component behind the one at `from` begins; past the end after the last.
  const auto next = [&](std::size_t from) {
    return std::min(path.find('/', from), path.size()) + 1;
  };
  std::uint32_t p = glob.begin;
  std::size_t at = 0;
  std::optional<std::uint32_t> after_globstar;
  std::size_t globstar_at = 0;
  for (;;) {
    const bool at_end = at > path.size();
    if (p < glob.end && _components[p].kind == Component::Kind::globstar) {
      after_globstar = ++p;
      globstar_at = at;
      continue;
    }
    if (at_end) return p == glob.end;
    bool matches = false;
    std::size_t following = 0;
    if (p < glob.end) {
      if (_components[p].kind == Component::Kind::rest) return true;
      following = next(at);
      matches = component_matches(_components[p], path.substr(at, following - 1 - at));
    }
    if (matches) {
      ++p;
      at = following;
    } else if (after_globstar) {
      p = *after_globstar;
      at = globstar_at = next(globstar_at);
    } else {
      return false;
    }
  }
}

}  // namespace path_filter::internal
