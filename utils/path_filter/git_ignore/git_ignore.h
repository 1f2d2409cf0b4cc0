// Git's ignore rules: the rules of one ignore file as a rule set, and asking it about a
// path. A scope (index_scope.h) reads and combines those of a repository.
//
//   const std::vector<std::string_view> lines{"*.log", "!keep.log", "build/"};
//   const GitIgnoreSpec rules = GitIgnoreSpec::from_lines(lines);
//   rules.check_file("src/a.log").include      // true: ignored
//   rules.check_file("src/keep.log").include   // false: included again
//   rules.check_file("build/").include         // true: a directory
//   rules.check_file("build").include          // absent: a file of that name
//
// The format is that of the gitignore manual page. Where the page leaves a point
// open, the answer is that of `git check-ignore`; docs/git-differences.md, in the
// sources, lists the few places where the two differ, or where this component reads
// files otherwise.
//
// A rule set is immutable: any number of threads may ask it at once. Asking takes no
// memory and, for all but wildcard patterns that neither begin nor end with a literal,
// a few hash lookups however many rules there are; at worst it takes on the order of
// the rules' text times the path's.
//
// A rule set takes its text, 8 bytes a rule and, when it has many rules, an index of about
// 5 bytes a rule: with the content of the file that is being read never more than 8 times
// the text. One of a few rules takes 150 bytes beside its text.

#ifndef UTILS_PATH_FILTER_GIT_IGNORE_GIT_IGNORE_H_
#define UTILS_PATH_FILTER_GIT_IGNORE_GIT_IGNORE_H_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <variant>
#include <vector>

#include "utils/path_filter/base/export.h"
#include "utils/path_filter/base/path_argument.h"

namespace path_filter {

namespace internal {
enum class Case : bool;
enum class GlobKind : std::uint8_t;
struct GlobProgress;
}  // namespace internal

/// The name of the ignore file of a directory.
inline constexpr std::string_view IGNORE_FILE_NAME = ".gitignore";

/// The largest ignore file that is read, in bytes (16 MiB); a larger one is refused
/// with a warning, so that a stranger's file costs a bounded amount of memory. (git has
/// no limit in 2.39, and one of 100 MiB later.)
inline constexpr std::size_t MAX_IGNORE_FILE_BYTES = std::size_t{16} << 20;

/// Given the repository root, the file that git's `core.excludesFile` names; absent
/// when none is configured. Called when the exclude files are loaded, from any thread,
/// and only for a root that has a git directory.
using ExcludesFileLookup =
    std::function<std::optional<std::filesystem::path>(const std::filesystem::path& root)>;

/// Given the repository root, whether git ignores case there (`core.ignorecase`). Called when the
/// first ignore rules are read, from any thread, and always before the ExcludesFileLookup: the two
/// may share what they find out.
using IgnoreCaseLookup = std::function<bool(const std::filesystem::path& root)>;

/// Whether case is ignored, or who knows it; one that is empty says that it is not.
using IgnoreCase = std::variant<bool, IgnoreCaseLookup>;

/// The rule of an ignore file that decided about a path.
struct IgnoreRule {
  /// The ignore file, as git names it: relative to the root where it lies below it.
  std::string source;
  /// The pattern's line, counted from 1.
  std::size_t line;
  /// The pattern as written.
  std::string pattern;
};

/// A `.git` or `commondir` file that is not valid UTF-8 (illegal_byte_sequence).
class PATH_FILTER_EXPORT DecodingError : public std::system_error {
 public:
  DecodingError(const std::filesystem::path& path, std::string content, std::size_t position);

  /// What the file holds.
  const std::string& content() const { return *_content; }
  /// Where in it the first invalid sequence begins, in bytes.
  std::size_t position() const { return _position; }

 private:
  std::shared_ptr<const std::string> _content;  // shared: copying an exception must not throw
  std::size_t _position;
};

/// What a rule set says of one path.
struct CheckResult {
  /// True: ignored. False: a negated pattern includes the path again. Absent: no
  /// pattern matches.
  std::optional<bool> include;
};

/// The rules of one ignore file. Can be moved, not copied.
class PATH_FILTER_EXPORT GitIgnoreSpec {
 public:
  /// No rules.
  GitIgnoreSpec();
  ~GitIgnoreSpec();
  GitIgnoreSpec(GitIgnoreSpec&& other) noexcept;
  GitIgnoreSpec& operator=(GitIgnoreSpec&& other) noexcept;

  /// One line that holds a pattern.
  struct Pattern {
    std::string_view text;  // as written, without trailing blanks; lives in the set
    std::size_t line;       // counted from 1
    bool include;           // false when the pattern is negated by "!"
  };

  /// Builds the rule set of `lines`, given without their line ends. No line is an
  /// error: one whose pattern is broken matches nothing. With `ignore_case` the rules match as
  /// git's do with core.ignorecase. Linear in the text, which has at most 2^27 lines and 4 GiB.
  static GitIgnoreSpec from_lines(std::span<const std::string_view> lines,
                                  bool ignore_case = false);

  /// The rule set of an ignore file's content, or absent when it holds no pattern. Invalid UTF-8
  /// reads as U+FFFD.
  static std::optional<GitIgnoreSpec> from_content(std::string_view content,
                                                   bool ignore_case = false);

  /// The lines that hold a pattern, in file order. Blank lines and comments have no
  /// entry.
  std::vector<Pattern> patterns() const;

  bool has_patterns() const { return !_rules.empty(); }

  /// What the last pattern that matches `path` says. `path` is relative to the
  /// directory of the ignore file, with "/" between components; a directory's ends
  /// in "/". Asks about `path` itself; that what lies below an ignored directory is ignored
  /// is the caller's to know.
  CheckResult check_file(PathArgument path) const;

  /// One path as all the rule sets of a repository are asked about it: the parts that
  /// stay the same for each of them are computed once. `path` has no "/" at its end;
  /// `name` is its last component. For rule sets that ignore case both have small letters for
  /// ASCII's capital ones.
  class Question {
   public:
    /// How far the rules of each set have come in a path that is asked about level by level,
    /// "a", "a/b", "a/b/c", in questions that share it: all of them together then take no more
    /// than on the order of the rules' text times the longest path. It takes 16 bytes a rule.
    using Progress = std::unordered_map<const GitIgnoreSpec*, std::vector<internal::GlobProgress>>;

    Question(std::string_view path, std::string_view name, bool is_directory,
             Progress* progress = nullptr)
        : _path(path), _name(name), _is_directory(is_directory), _progress(progress) {}

   private:
    friend class GitIgnoreSpec;
    std::string_view _path;
    std::string_view _name;
    bool _is_directory;
    Progress* _progress;
  };

  /// A rule, as its position among the rules of its set; valid when not 0.
  using RuleNumber = std::uint32_t;

  /// The last rule that matches, or 0. The first `skip` bytes of the question's path
  /// lead to the directory of this set's ignore file.
  RuleNumber deciding_rule(const Question& question, std::size_t skip) const;

  /// The pattern of a rule that deciding_rule named.
  Pattern pattern(RuleNumber number) const;

  /// Whether a rule that deciding_rule named ignores what it matches.
  bool ignores(RuleNumber number) const { return !_rules[number - 1].negated; }

 private:
  /// A rule's text goes on to where the next one's begins.
  struct Rule {
    std::uint32_t text_begin;
    std::uint32_t line : 27;
    std::uint32_t negated : 1;
    std::uint32_t directories_only : 1;
    std::uint32_t is_literal : 1;        // byte by byte
    std::uint32_t is_path : 1;           // else it asks for the name alone
    std::uint32_t in_any_directory : 1;  // a name behind "**/", which says nothing more
  };

  struct Index;
  struct Part {
    std::uint32_t begin;  // in the text of all patterns
    std::uint32_t size;
  };

  template <typename ForEachLine>
  static GitIgnoreSpec build(const ForEachLine& for_each_line, bool ignore_case);

  void add_rule(std::string_view line, std::uint32_t number);
  void make_index();
  std::string_view text_of(RuleNumber number) const;
  internal::GlobKind kind_of(RuleNumber number) const;
  Part longest_part(std::string_view glob) const;
  internal::GlobProgress& progress_of(RuleNumber number, Question::Progress& progress) const;
  std::string_view glob_of(RuleNumber number) const;

  std::string _text;  // of all patterns
  std::vector<Rule> _rules;
  std::unique_ptr<const Index> _index;  // of more than a few rules
  internal::Case _case{};
};

}  // namespace path_filter

#endif  // UTILS_PATH_FILTER_GIT_IGNORE_GIT_IGNORE_H_
