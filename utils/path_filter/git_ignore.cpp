#include "utils/path_filter/git_ignore.h"

#include <spdlog/logger.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>
#include <variant>

#include "utils/path_filter/internal/paths.h"
#include "utils/path_filter/internal/text.h"
#include "utils/path_filter/path_rules.h"

namespace path_filter {

namespace internal {

/// What a `.git` file begins with that points to a git directory.
constexpr std::string_view GITDIR_POINTER = "gitdir:";

}  // namespace internal

using internal::GlobKind;
using internal::GlobToken;
using internal::GlobTokens;
using internal::LiteralIndex;
using Place = LiteralIndex::Place;

namespace {

/// `line` up to the blanks at its end; a blank behind a backslash stays. Only blanks
/// count, not tabs.
std::string_view without_trailing_blanks(std::string_view line) {
  std::size_t kept = 0;
  for (std::size_t at = 0; at < line.size(); ++at) {
    if (line[at] == ' ') continue;
    if (line[at] == '\\') ++at;
    kept = at + 1;
  }
  return line.substr(0, kept);
}

bool is_literal(std::string_view pattern) {
  return pattern.find_first_of("*?[\\") == std::string_view::npos;
}

}  // namespace

/// Takes the lines one by one and files each rule where it is found fastest.
class GitIgnoreSpec::Builder {
 public:
  explicit Builder(GitIgnoreSpec& spec) : _spec(spec) {}

  void add_line(std::string_view line, std::size_t number) {
    // git ends a line at a NUL.
    line = line.substr(0, line.find('\0'));
    if (line.starts_with('#')) return;
    line = without_trailing_blanks(line);
    if (line.empty()) return;

    Rule rule{};
    rule.text_begin = static_cast<std::uint32_t>(_spec._text.size());
    rule.text_size = static_cast<std::uint32_t>(line.size());
    rule.line = static_cast<std::uint32_t>(number);
    _spec._text += line;

    std::string_view pattern = line;
    if (pattern.starts_with('!')) {
      rule.negated = true;
      pattern.remove_prefix(1);
    }
    if (pattern.ends_with('/')) {
      rule.directories_only = true;
      pattern.remove_suffix(1);
    }
    rule.kind = pattern.find('/') == std::string_view::npos ? GlobKind::name : GlobKind::path;
    if (rule.kind == GlobKind::path && pattern.starts_with('/')) pattern.remove_prefix(1);

    _spec._rules.push_back(rule);
    file(_spec._rules.back(), pattern);
  }

 private:
  RuleNumber number() const { return static_cast<RuleNumber>(_spec._rules.size()); }

  void file(Rule& rule, std::string_view pattern) {
    if (pattern.empty()) return;  // matches nothing
    if (is_literal(pattern)) {
      file_decided(rule, rule.kind == GlobKind::name ? Place::name : Place::path, pattern);
      return;
    }
    if (!internal::parse_glob(pattern, rule.kind, _parsed)) return;  // broken: matches nothing
    make_name_pattern_of_globstar(rule);
    _has_glob = false;
    for_each_variant([&](const std::vector<GlobToken>& tokens) { file_variant(rule, tokens); });
  }

  /// "**/name" asks for the name alone.
  void make_name_pattern_of_globstar(Rule& rule) {
    auto& tokens = _parsed.tokens;
    if (tokens.size() < 2 || tokens.front().kind != GlobToken::Kind::globstar) return;
    const bool one_component =
        std::none_of(tokens.begin() + 1, tokens.end(), [](const GlobToken& token) {
          return token.kind == GlobToken::Kind::globstar || token.kind == GlobToken::Kind::rest ||
                 (token.kind == GlobToken::Kind::byte && token.byte == '/');
        });
    if (!one_component) return;
    tokens.erase(tokens.begin());
    rule.kind = GlobKind::name;
  }

  /// Calls `file` with the pattern's tokens; when its bracket expressions stand for
  /// few texts ("[Dd]ebug", "*.py[cod]"), with each of them spelled out.
  template <typename File>
  void for_each_variant(File file) {
    std::size_t variants = 1;
    for (const auto& set : _parsed.sets) {
      variants *= set.count();
      if (variants == 0) return;  // an empty set: matches nothing
      if (variants > MOST_VARIANTS) break;
    }
    const std::size_t spelled_out = variants * _parsed.tokens.size();
    if (_parsed.sets.empty() || variants > MOST_VARIANTS || spelled_out > _bytes_left) {
      file(_parsed.tokens);
      return;
    }
    _bytes_left -= spelled_out;
    std::vector<GlobToken> tokens = _parsed.tokens;
    for (std::size_t variant = 0; variant < variants; ++variant) {
      std::size_t digits = variant;
      for (std::size_t at = 0; at < tokens.size(); ++at) {
        const GlobToken& token = _parsed.tokens[at];
        if (token.kind != GlobToken::Kind::set) continue;
        const auto& set = _parsed.sets[token.set];
        std::size_t skip = digits % set.count();
        digits /= set.count();
        std::size_t member = set._Find_first();
        for (; skip > 0; --skip) member = set._Find_next(member);
        tokens[at] = {GlobToken::Kind::byte, static_cast<std::uint8_t>(member)};
      }
      file(tokens);
    }
  }

  void file_variant(Rule& rule, const std::vector<GlobToken>& tokens) {
    const auto is_byte = [](const GlobToken& token) { return token.kind == GlobToken::Kind::byte; };
    const auto head_end = std::find_if_not(tokens.begin(), tokens.end(), is_byte);
    const auto tail_begin = std::find_if_not(tokens.rbegin(), tokens.rend(), is_byte).base();
    _head.clear();
    _tail.clear();
    for (auto at = tokens.begin(); at != head_end; ++at) _head += static_cast<char>(at->byte);
    const bool name = rule.kind == GlobKind::name;
    if (head_end == tokens.end()) {
      file_decided(rule, name ? Place::name : Place::path, _head);
      return;
    }
    for (auto at = tail_begin; at != tokens.end(); ++at) _tail += static_cast<char>(at->byte);

    // One wildcard at an end leaves nothing to ask but the literal.
    const bool one_wildcard = tail_begin - head_end == 1;
    const bool heads_fit = !_head.empty() && _head.size() <= LiteralIndex::LONGEST_PART;
    const bool tails_fit = !_tail.empty() && _tail.size() <= LiteralIndex::LONGEST_PART;
    if (one_wildcard && name && head_end->kind == GlobToken::Kind::star) {
      if (_head.empty() && tails_fit) return file_decided(rule, Place::name_tail, _tail);
      if (_tail.empty() && heads_fit) return file_decided(rule, Place::name_head, _head);
    }
    if (one_wildcard && head_end->kind == GlobToken::Kind::rest && heads_fit) {
      return file_decided(rule, Place::path_head, _head);
    }

    if (!_has_glob) rule.glob = _spec._globs.add(_parsed, rule.kind);
    _has_glob = true;
    if (_head.empty() && _tail.empty()) {
      Unindexed entry{number(), longest_literal(tokens)};
      if (_spec._unindexed.empty() || _spec._unindexed.back() != entry) {
        _spec._unindexed.push_back(std::move(entry));
      }
    } else if (_head.size() > _tail.size()) {
      _head.resize(std::min(_head.size(), LiteralIndex::LONGEST_PART));
      file_candidate(name ? Place::name_head : Place::path_head, _head);
    } else {
      _tail.erase(0, _tail.size() - std::min(_tail.size(), LiteralIndex::LONGEST_PART));
      file_candidate(name ? Place::name_tail : Place::path_tail, _tail);
    }
  }

  static std::string longest_literal(const std::vector<GlobToken>& tokens) {
    std::string longest;
    std::string run;
    for (const GlobToken& token : tokens) {
      if (token.kind == GlobToken::Kind::byte) {
        run += static_cast<char>(token.byte);
      } else {
        run.clear();
      }
      if (run.size() > longest.size()) longest = run;
    }
    return longest;
  }

  void file_decided(const Rule& rule, Place place, std::string_view key) {
    LiteralIndex::Entry& entry = _spec._index.add(place, key);
    (rule.directories_only ? entry.last_for_directories : entry.last_for_any) = number();
  }

  void file_candidate(Place place, std::string_view key) {
    _spec._index.add_candidate(_spec._index.add(place, key), number());
  }

  static constexpr std::size_t MOST_VARIANTS = 32;

  GitIgnoreSpec& _spec;
  /// What the spelled-out variants of a rule set may take in all: no honest file comes
  /// near it, a hostile one gets no more memory than this out of it.
  std::size_t _bytes_left = std::size_t{1} << 20;
  GlobTokens _parsed;  // reused from line to line, like the texts
  std::string _head;
  std::string _tail;
  bool _has_glob = false;
};

GitIgnoreSpec GitIgnoreSpec::from_lines(std::span<const std::string_view> lines) {
  GitIgnoreSpec spec;
  spec._index = LiteralIndex(lines.size());
  Builder builder(spec);
  for (std::size_t index = 0; index < lines.size(); ++index) {
    builder.add_line(lines[index], index + 1);
  }
  spec._text.shrink_to_fit();  // it is kept as long as the scope's caches
  spec._rules.shrink_to_fit();
  return spec;
}

GitIgnoreSpec::Pattern GitIgnoreSpec::pattern(RuleNumber number) const {
  const Rule& rule = _rules[number - 1];
  return {std::string_view(_text).substr(rule.text_begin, rule.text_size), rule.line,
          !rule.negated};
}

std::vector<GitIgnoreSpec::Pattern> GitIgnoreSpec::patterns() const {
  std::vector<Pattern> patterns;
  patterns.reserve(_rules.size());
  for (RuleNumber number = 1; number <= _rules.size(); ++number) {
    patterns.push_back(pattern(number));
  }
  return patterns;
}

CheckResult GitIgnoreSpec::check_file(std::string_view path) const {
  const bool is_directory = path.ends_with('/');
  while (path.ends_with('/')) path.remove_suffix(1);
  const RuleNumber decides =
      deciding_rule(Question(path, internal::SplitPath(path).name, is_directory), 0);
  if (decides == 0) return {};
  return {includes(decides)};
}

bool GitIgnoreSpec::rule_matches(RuleNumber number, const Subject& subject) const {
  const Rule& rule = _rules[number - 1];
  if (rule.directories_only && !subject.is_directory) return false;
  return _globs.matches(rule.glob, rule.kind == GlobKind::name ? subject.name : subject.path);
}

void GitIgnoreSpec::ask_entry(const LiteralIndex::Entry& entry, const Subject& subject,
                              RuleNumber& best) const {
  best = std::max(best, entry.last_for_any);
  if (subject.is_directory) best = std::max(best, entry.last_for_directories);
  for (std::uint32_t candidate = entry.last_to_try; candidate != 0;) {
    const auto& [rule, before] = _index.candidate(candidate);
    if (rule <= best) break;
    if (rule_matches(rule, subject)) {
      best = rule;
      break;
    }
    candidate = before;
  }
}

GitIgnoreSpec::RuleNumber GitIgnoreSpec::deciding_rule(const Question& question,
                                                       std::size_t skip) const {
  const Subject subject{question._path.substr(skip), question._name, question._is_directory};
  RuleNumber best = 0;
  const auto ask = [&](const LiteralIndex::Entry& entry) { ask_entry(entry, subject, best); };

  if (const auto* entry = _index.find_whole(Place::name, subject.name)) ask(*entry);
  if (const auto* entry = _index.find_whole(Place::path, subject.path)) ask(*entry);
  _index.for_each_part(Place::name_head, subject.name, ask);
  _index.for_each_part(Place::name_tail, subject.name, ask);
  _index.for_each_part(Place::path_head, subject.path, ask);
  _index.for_each_part(Place::path_tail, subject.path, ask);

  for (auto at = _unindexed.rbegin(); at != _unindexed.rend() && at->rule > best; ++at) {
    const bool name = _rules[at->rule - 1].kind == GlobKind::name;
    if ((name ? subject.name : subject.path).find(at->literal) == std::string_view::npos) continue;
    if (rule_matches(at->rule, subject)) return at->rule;
  }
  return best;
}

namespace {

/// Splits `text` at every line end that Unicode knows, the old control characters
/// that separate records included. A line end at the end adds no empty line.
std::vector<std::string_view> split_lines(std::string_view text) {
  std::vector<std::string_view> lines;
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
      lines.push_back(text.substr(begin, at - begin));
      begin = at + width;
    }
    at += std::max<std::size_t>(width, 1);
  }
  if (begin < text.size()) lines.push_back(text.substr(begin));
  return lines;
}

/// Reads a pointer file of git's, trimmed; absent when it cannot be read.
std::optional<std::string> read_pointer(const std::filesystem::path& path) {
  constexpr std::size_t MAX_POINTER_BYTES = std::size_t{1} << 20;  // as in git
  const auto content =
      internal::read_file(path.native(), internal::LastLink::follow, MAX_POINTER_BYTES);
  const auto* text = std::get_if<std::string>(&content);
  if (text == nullptr) return std::nullopt;
  if (const auto invalid = internal::find_invalid_utf8(*text)) {
    throw std::system_error(
        std::make_error_code(std::errc::illegal_byte_sequence),
        path.string() + ": not valid UTF-8 at byte " + std::to_string(*invalid));
  }
  return std::string(internal::trim(*text));
}

/// `base` joined with `target`: the target alone when it is absolute, `base` alone
/// when there is none.
std::filesystem::path joined(const std::filesystem::path& base, std::string_view target) {
  return target.empty() ? base : base / target;
}

}  // namespace

std::optional<GitIgnoreSpec> _ignore_rules_in(std::string_view content) {
  std::string replaced;
  if (internal::find_invalid_utf8(content)) {
    replaced = internal::replace_invalid_utf8(content);
    content = replaced;
  }
  auto spec = GitIgnoreSpec::from_lines(split_lines(content));
  if (!spec.has_patterns()) return std::nullopt;
  return spec;
}

void _warn_unreadable(const internal::ReadError& error, const std::function<std::string()>& path) {
  if (error.code == ENOENT || error.code == ENOTDIR) return;
  logger->warn("Cannot read the ignore rules in {}: {}", internal::printable(path()),
               error.message);
}

std::optional<GitIgnoreSpec> _read_ignore_rules(const std::filesystem::path& path,
                                                internal::LastLink last_link) {
  const auto content = internal::read_file(path.native(), last_link, MAX_IGNORE_FILE_BYTES);
  if (const auto* error = std::get_if<internal::ReadError>(&content)) {
    _warn_unreadable(*error, [&] { return path.string(); });
    return std::nullopt;
  }
  return _ignore_rules_in(std::get<std::string>(content));
}

std::optional<std::filesystem::path> _git_dir(const std::filesystem::path& root) {
  const std::filesystem::path dot_git = root / ".git";
  std::error_code unexamined;
  if (std::filesystem::is_directory(dot_git, unexamined)) return dot_git;
  const auto text = read_pointer(dot_git);
  if (!text || !text->starts_with(internal::GITDIR_POINTER)) return std::nullopt;
  return joined(root,
                internal::trim(std::string_view(*text).substr(internal::GITDIR_POINTER.size())));
}

std::filesystem::path _common_dir(const std::filesystem::path& git_dir) {
  const auto text = read_pointer(git_dir / "commondir");
  if (!text) return git_dir;
  return joined(git_dir, *text);
}

}  // namespace path_filter
