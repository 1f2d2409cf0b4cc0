#include "utils/path_filter/git_ignore/git_ignore.h"

#include <algorithm>
#include <utility>

#include "utils/path_filter/base/paths.h"
#include "utils/path_filter/base/utf8.h"
#include "utils/path_filter/git_ignore/git_glob.h"
#include "utils/path_filter/git_ignore/literal_index.h"

namespace path_filter {

using internal::Case;
using internal::GlobKind;
using internal::GlobStep;
using internal::LiteralIndex;
using Anchor = LiteralIndex::Anchor;

namespace {

/// Up to so many rules are tried one by one faster than they are found in an index.
constexpr std::size_t FEW_RULES = 8;

/// `line` up to the blanks at its end; a blank behind a backslash stays. Only blanks
/// count, not tabs.
std::string_view without_trailing_blanks(std::string_view line) {
  if (!line.ends_with(' ')) return line;
  std::size_t kept = 0;
  for (std::size_t at = 0; at < line.size(); ++at) {
    if (line[at] == ' ') continue;
    if (line[at] == '\\') ++at;
    kept = at + 1;
  }
  return line.substr(0, kept);
}

/// The pattern of a line, or nothing.
std::string_view pattern_in(std::string_view line) {
  if (line.starts_with('#')) return {};
  return without_trailing_blanks(line.substr(0, line.find('\0')));  // as in git
}

/// Finds the literals that a rule is filed under. Asked about the same rules twice it gives
/// the same literals.
class Literals {
 public:
  /// For rules of so much text.
  Literals(std::size_t text_size, Case letters) : _spelled_left(text_size / 8), _case(letters) {}

  /// Calls `file` with each literal, one of which stands in whatever the pattern matches,
  /// and its place. Calls `other` when there is none, and neither for what matches nothing.
  template <typename File, typename Other>
  void find(std::string_view pattern, GlobKind kind, File file, Other other) {
    const bool name = kind == GlobKind::name;
    _pattern = pattern;
    if (!measure(true)) return;
    if ((_variants > MOST_VARIANTS || _variants > _spelled_left) && !measure(false)) return;

    constexpr std::size_t LONGEST = LiteralIndex::LONGEST_PART;
    if (_whole && _tail_steps <= LONGEST) {
      spell(0, _tail_steps, name ? Anchor::name : Anchor::path, file);
    } else if (_head_steps > _tail_steps) {
      spell(0, std::min(_head_steps, LONGEST), name ? Anchor::name_head : Anchor::path_head, file);
    } else if (_tail_steps > 0) {
      std::size_t begin = _tail_begin;
      for (; _tail_steps > LONGEST; --_tail_steps) begin = step(begin).end;
      spell(begin, _tail_steps, name ? Anchor::name_tail : Anchor::path_tail, file);
    } else {
      other();
    }
  }

 private:
  GlobStep step(std::size_t at) { return internal::read_glob_step(_pattern, at, _set, _case); }

  /// Finds the literals at the pattern's ends; with `sets`, bracket expressions are parts
  /// of them. False when the pattern is broken.
  bool measure(bool sets) {
    _variants = 1;
    _whole = true;
    _head_steps = _tail_steps = _tail_begin = 0;
    for (std::size_t at = 0; at < _pattern.size();) {
      const GlobStep read = step(at);
      if (read.kind == GlobStep::Kind::broken) return false;
      at = read.end;
      if (sets && read.kind == GlobStep::Kind::set) {
        _variants = std::min(_variants * _set.count(), MOST_VARIANTS + 1);
      } else if (read.kind != GlobStep::Kind::byte) {
        if (_whole) _head_steps = _tail_steps;
        _whole = false;
        _tail_steps = 0;
        _tail_begin = at;
        continue;
      }
      ++_tail_steps;
    }
    return true;
  }

  /// Files the literal of so many steps; when there are bracket expressions among them
  /// ("[Dd]ebug", "*.py[cod]"), each of the texts that they stand for.
  template <typename File>
  void spell(std::size_t begin, std::size_t steps, Anchor anchor, File file) {
    _literal.clear();
    _sets.clear();
    std::size_t variants = 1;
    for (; steps > 0; --steps) {
      const GlobStep read = step(begin);
      begin = read.end;
      if (read.kind == GlobStep::Kind::set) {
        std::string& members = _sets.emplace_back(_literal.size(), std::string()).second;
        for (std::size_t byte = 0; byte < _set.size(); ++byte) {
          if (_set[byte]) members += static_cast<char>(byte);
        }
        variants *= _set.count();
      }
      _literal += read.byte;
    }
    if (!_sets.empty()) _spelled_left -= variants;
    for (std::size_t variant = 0; variant < variants; ++variant) {
      std::size_t digits = variant;
      for (const auto& [at, members] : _sets) {
        _literal[at] = members[digits % members.size()];
        digits /= members.size();
      }
      file(anchor, _literal);
    }
  }

  static constexpr std::size_t MOST_VARIANTS = 32;

  /// What may yet be spelled out: no honest file comes near it, a hostile one gets no more
  /// memory than this out of it.
  std::size_t _spelled_left;
  const Case _case;
  std::string_view _pattern;
  std::size_t _variants = 1;  // at most one over MOST_VARIANTS
  bool _whole = true;         // there is no wildcard: all is tail
  std::size_t _head_steps = 0;
  std::size_t _tail_steps = 0;
  std::size_t _tail_begin = 0;
  internal::ByteSet _set;
  std::string _literal;
  std::vector<std::pair<std::size_t, std::string>> _sets;  // where they stand in it; their bytes
};

}  // namespace

/// The rules that can match, found by what stands in them, and those that have no
/// literal at either end: these are tried one by one, from the last back. What does not
/// have the longest literal between the wildcards is passed over.
struct GitIgnoreSpec::Index {
  LiteralIndex literals;
  std::vector<RuleNumber> others;
  std::vector<Part> parts;  // of the others; empty when they are most of the text
};

GitIgnoreSpec::GitIgnoreSpec() = default;
GitIgnoreSpec::~GitIgnoreSpec() = default;
GitIgnoreSpec::GitIgnoreSpec(GitIgnoreSpec&& other) noexcept = default;
GitIgnoreSpec& GitIgnoreSpec::operator=(GitIgnoreSpec&& other) noexcept = default;

/// `for_each_line` calls what it is given with each line, the same each time.
template <typename ForEachLine>
GitIgnoreSpec GitIgnoreSpec::build(const ForEachLine& for_each_line, bool ignore_case) {
  GitIgnoreSpec spec;
  if (ignore_case) spec._case = Case::folded;
  std::size_t rules = 0;
  std::size_t text_size = 0;
  for_each_line([&](std::string_view line) {
    const std::string_view pattern = pattern_in(line);
    text_size += pattern.size();
    if (!pattern.empty()) ++rules;
  });
  // To size: it is kept as long as the scope's caches.
  spec._text.reserve(text_size);
  spec._rules.reserve(rules);
  std::uint32_t number = 0;
  for_each_line([&](std::string_view line) {
    ++number;
    const std::string_view pattern = pattern_in(line);
    if (!pattern.empty()) spec.add_rule(pattern, number);
  });
  if (rules > FEW_RULES) spec.make_index();
  return spec;
}

GitIgnoreSpec GitIgnoreSpec::from_lines(std::span<const std::string_view> lines, bool ignore_case) {
  const auto for_each = [lines](auto take) {
    for (const std::string_view line : lines) take(line);
  };
  return build(for_each, ignore_case);
}

void GitIgnoreSpec::add_rule(std::string_view line, std::uint32_t number) {
  constexpr std::uint32_t LINE_BITS = (std::uint32_t{1} << 27) - 1;
  Rule rule{};
  rule.text_begin = static_cast<std::uint32_t>(_text.size());
  rule.line = number & LINE_BITS;
  _text += line;

  if (line.starts_with('!')) {
    rule.negated = true;
    line.remove_prefix(1);
  }
  if (line.ends_with('/')) {
    rule.directories_only = true;
    line.remove_suffix(1);
  }
  std::size_t slash = std::string_view::npos;  // the last
  rule.is_literal = _case == Case::exact;
  for (std::size_t at = 0; at < line.size(); ++at) {
    if (line[at] == '/') slash = at;
    if (line[at] == '*' || line[at] == '?' || line[at] == '[' || line[at] == '\\') {
      rule.is_literal = false;
    }
  }
  if (slash != std::string_view::npos) {
    const std::size_t begin = line.starts_with('/') ? 1 : 0;
    rule.in_any_directory = slash + 1 < line.size() && slash >= begin + 2 &&
                            line.find_first_not_of('*', begin) == slash;
    rule.is_path = !rule.in_any_directory;
  }
  _rules.push_back(rule);
}

void GitIgnoreSpec::make_index() {
  Index index{LiteralIndex(_rules.size()), {}, {}};
  const auto for_each_literal = [this](auto file, auto other) {
    Literals literals(_text.size(), _case);
    for (RuleNumber rule = 1; rule <= _rules.size(); ++rule) {
      const std::string_view glob = glob_of(rule);
      const GlobKind kind = kind_of(rule);
      if (glob.empty()) continue;
      if (_rules[rule - 1].is_literal) {
        file(kind == GlobKind::name ? Anchor::name : Anchor::path, glob, rule);
        continue;
      }
      literals.find(
          glob, kind, [&](Anchor anchor, std::string_view literal) { file(anchor, literal, rule); },
          [&] { other(rule); });
    }
  };
  std::size_t others = 0;
  for_each_literal([&](Anchor anchor, std::string_view literal,
                       RuleNumber) { index.literals.count(anchor, literal); },
                   [&](RuleNumber) { ++others; });
  index.literals.allot();
  index.others.reserve(others);
  for_each_literal([&](Anchor anchor, std::string_view literal,
                       RuleNumber rule) { index.literals.file(anchor, literal, rule); },
                   [&](RuleNumber rule) { index.others.push_back(rule); });
  if (others <= _text.size() / 32) {
    index.parts.reserve(others);
    for (const RuleNumber rule : index.others) index.parts.push_back(longest_part(glob_of(rule)));
  }
  _index = std::make_unique<const Index>(std::move(index));
}

std::string_view GitIgnoreSpec::text_of(RuleNumber number) const {
  const std::size_t begin = _rules[number - 1].text_begin;
  const std::size_t end = number < _rules.size() ? _rules[number].text_begin : _text.size();
  return std::string_view(_text).substr(begin, end - begin);
}

/// What of a rule's text is matched.
std::string_view GitIgnoreSpec::glob_of(RuleNumber number) const {
  const Rule& rule = _rules[number - 1];
  std::string_view glob = text_of(number);
  if (rule.negated) glob.remove_prefix(1);
  if (rule.directories_only) glob.remove_suffix(1);
  if (rule.in_any_directory) return glob.substr(glob.rfind('/') + 1);
  if (glob.starts_with('/')) glob.remove_prefix(1);
  return glob;
}

/// The longest literal of a glob outside brackets, escapes left out.
GitIgnoreSpec::Part GitIgnoreSpec::longest_part(std::string_view glob) const {
  internal::ByteSet set;
  std::string_view longest;
  std::size_t begin = 0;
  for (std::size_t at = 0; at < glob.size();) {
    const GlobStep step = internal::read_glob_step(glob, at, set, _case);
    const bool is_plain = step.kind == GlobStep::Kind::byte && step.end == at + 1;
    at = step.end;
    if (!is_plain) begin = at;
    if (at - begin > longest.size()) longest = glob.substr(begin, at - begin);
  }
  if (longest.empty()) return {0, 0};
  return {static_cast<std::uint32_t>(longest.data() - _text.data()),
          static_cast<std::uint32_t>(longest.size())};
}

GlobKind GitIgnoreSpec::kind_of(RuleNumber number) const {
  return _rules[number - 1].is_path ? GlobKind::path : GlobKind::name;
}

GitIgnoreSpec::Pattern GitIgnoreSpec::pattern(RuleNumber number) const {
  return {text_of(number), _rules[number - 1].line, ignores(number)};
}

std::vector<GitIgnoreSpec::Pattern> GitIgnoreSpec::patterns() const {
  std::vector<Pattern> patterns;
  patterns.reserve(_rules.size());
  for (RuleNumber number = 1; number <= _rules.size(); ++number) {
    patterns.push_back(pattern(number));
  }
  return patterns;
}

CheckResult GitIgnoreSpec::check_file(PathArgument asked) const {
  std::string_view path = asked;
  const bool is_directory = path.ends_with('/');
  while (path.ends_with('/')) path.remove_suffix(1);
  const auto answer = [&](std::string_view text) -> CheckResult {
    const RuleNumber decides =
        deciding_rule(Question(text, internal::SplitPath(text).name, is_directory), 0);
    if (decides == 0) return {};
    return {ignores(decides)};
  };
  return _case == Case::folded ? answer(internal::folded(path)) : answer(path);
}

/// Kept apart from what most questions ask.
[[gnu::noinline]] internal::GlobProgress& GitIgnoreSpec::progress_of(
    RuleNumber number, Question::Progress& progress) const {
  auto& of_rules = progress[this];
  of_rules.resize(_rules.size());
  return of_rules[number - 1];
}

GitIgnoreSpec::RuleNumber GitIgnoreSpec::deciding_rule(const Question& question,
                                                       std::size_t skip) const {
  const std::string_view path = question._path.substr(skip);
  const std::string_view name = question._name;
  const auto matches = [&](RuleNumber rule) {
    if (_rules[rule - 1].directories_only && !question._is_directory) return false;
    const GlobKind kind = kind_of(rule);
    const std::string_view glob = glob_of(rule);
    const std::string_view text = kind == GlobKind::name ? name : path;
    if (glob.empty()) return false;
    if (_rules[rule - 1].is_literal) return glob == text;
    if (question._progress != nullptr && kind == GlobKind::path) {
      return glob_matches_further(glob, path, progress_of(rule, *question._progress), _case);
    }
    if (_case == Case::folded) return glob_matches_folded(glob, kind, text);
    return glob_matches(glob, kind, text);
  };
  if (!_index) {
    RuleNumber rule = static_cast<RuleNumber>(_rules.size());
    while (rule > 0 && !matches(rule)) --rule;
    return rule;
  }
  RuleNumber best = 0;
  const auto ask = [&](RuleNumber rule) {
    if (rule <= best) return false;
    if (!matches(rule)) return true;
    best = rule;
    return false;
  };
  const LiteralIndex& literals = _index->literals;
  literals.find(LiteralIndex::IN_NAME, name, ask);
  literals.find(LiteralIndex::IN_PATH, path, ask);
  for (std::size_t at = _index->others.size(); at-- > 0;) {
    const RuleNumber rule = _index->others[at];
    if (rule <= best) break;
    const bool is_name = kind_of(rule) == GlobKind::name;
    // Where there is progress, a path is not searched from its beginning.
    if (at < _index->parts.size() && (is_name || question._progress == nullptr)) {
      const auto [begin, size] = _index->parts[at];
      const std::string_view part = std::string_view(_text).substr(begin, size);
      const std::string_view text = is_name ? name : path;
      const std::size_t found =
          _case == Case::exact ? text.find(part) : internal::find_folded(text, part, 0);
      if (found == std::string_view::npos) continue;
    }
    if (matches(rule)) return rule;
  }
  return best;
}

namespace {

/// Calls `take` with each line of `text`. Lines end at every line end that Unicode knows,
/// the old control characters that separate records included. A line end at the end adds
/// no empty line.
template <typename Take>
void for_each_line(std::string_view text, Take take) {
  std::size_t begin = 0;
  for (std::size_t at = 0; at < text.size();) {
    std::size_t width = 0;
    switch (text[at]) {
      case '\r':
        width = text.substr(at).starts_with("\r\n") ? 2 : 1;
        break;
      case '\n':
      case '\v':
      case '\f':
      case '\x1C':
      case '\x1D':
      case '\x1E':
        width = 1;
        break;
      case '\xC2':  // U+0085
        width = text.substr(at).starts_with("\xC2\x85") ? 2 : 0;
        break;
      case '\xE2':  // U+2028 and U+2029
        width = text.substr(at).starts_with("\xE2\x80\xA8") ||
                        text.substr(at).starts_with("\xE2\x80\xA9")
                    ? 3
                    : 0;
        break;
      default:
        break;
    }
    if (width > 0) {
      take(text.substr(begin, at - begin));
      begin = at + width;
    }
    at += std::max<std::size_t>(width, 1);
  }
  if (begin < text.size()) take(text.substr(begin));
}

}  // namespace

std::optional<GitIgnoreSpec> GitIgnoreSpec::from_content(std::string_view content,
                                                         bool ignore_case) {
  // No invalid sequence reaches past a line end, so a line can be made valid by itself.
  const bool valid = !internal::find_invalid_utf8(content);
  const auto for_each = [=](auto take) {
    for_each_line(content, [&](std::string_view line) {
      take(valid ? line : std::string_view(internal::replace_invalid_utf8(line)));
    });
  };
  auto spec = build(for_each, ignore_case);
  if (!spec.has_patterns()) return std::nullopt;
  return spec;
}

}  // namespace path_filter
