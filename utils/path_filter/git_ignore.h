// Git's ignore rules: reading one ignore file into a rule set, asking the rule set
// about a path, and finding the git directory of a work tree. How the rule sets of a
// repository work together is ignore_verdicts.h.
//
//   const std::vector<std::string_view> lines{"*.log", "!keep.log", "build/"};
//   const GitIgnoreSpec rules = GitIgnoreSpec::from_lines(lines);
//   rules.check_file("src/a.log").include      // true: ignored
//   rules.check_file("src/keep.log").include   // false: included again
//   rules.check_file("build/").include         // true: a directory
//   rules.check_file("build").include          // absent: a file of that name
//
// The format is that of the gitignore manual page. Where the page leaves a point
// open, the answer is that of `git check-ignore`; docs/git-differences.md lists the
// few places where the two differ, or where this component reads files otherwise.
//
// A rule set is immutable: any number of threads may ask it at once. Asking takes no
// memory and, for all but wildcard patterns that neither begin nor end with a literal,
// a few hash lookups however many rules there are; at worst it takes on the order of
// the rules' text times the path's.
//
// A rule set takes its text, 8 bytes a rule and, when it has many rules, an index of about
// 5 bytes a rule: with the content of the file that is being read never more than 8 times
// the text. One of a few rules takes 150 bytes beside its text.

#ifndef UTILS_PATH_FILTER_GIT_IGNORE_H_
#define UTILS_PATH_FILTER_GIT_IGNORE_H_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "utils/path_filter/git_glob.h"
#include "utils/path_filter/internal/file_system.h"
#include "utils/path_filter/literal_index.h"

#pragma GCC visibility push(default)  // what a shared library shows

namespace path_filter {

/// The name of the ignore file of a directory.
inline constexpr std::string_view IGNORE_FILE_NAME = ".gitignore";

/// The largest ignore file that is read, in bytes (16 MiB); a larger one is refused
/// with a warning, so that a stranger's file costs a bounded amount of memory. (git has
/// no limit in 2.39, and one of 100 MiB later.)
inline constexpr std::size_t MAX_IGNORE_FILE_BYTES = std::size_t{16} << 20;

/// What a rule set says of one path.
struct CheckResult {
  /// True: ignored. False: a negated pattern includes the path again. Absent: no
  /// pattern matches.
  std::optional<bool> include;
};

/// The rules of one ignore file.
class GitIgnoreSpec {
 public:
  /// One line that holds a pattern.
  struct Pattern {
    std::string_view text;  // as written, without trailing blanks; lives in the set
    std::size_t line;       // counted from 1
    bool include;           // false when the pattern is negated by "!"
  };

  /// Builds the rule set of `lines`, given without their line ends. No line is an
  /// error: one whose pattern is broken matches nothing. Linear in the text, which has at
  /// most 2^27 lines and 4 GiB.
  static GitIgnoreSpec from_lines(std::span<const std::string_view> lines);

  /// The lines that hold a pattern, in file order. Blank lines and comments have no
  /// entry.
  std::vector<Pattern> patterns() const;

  bool has_patterns() const { return !_rules.empty(); }

  /// What the last pattern that matches `path` says. `path` is relative to the
  /// directory of the ignore file, with "/" between components; a directory's ends
  /// in "/".
  CheckResult check_file(std::string_view path) const;

  /// One path as all the rule sets of a repository are asked about it: the parts that
  /// stay the same for each of them are computed once. `path` has no "/" at its end;
  /// `name` is its last component.
  class Question {
   public:
    Question(std::string_view path, std::string_view name, bool is_directory)
        : _path(path), _name(name), _is_directory(is_directory) {}

   private:
    friend class GitIgnoreSpec;
    std::string_view _path;
    std::string_view _name;
    bool _is_directory;
  };

  /// A rule, as its position among the rules of its set; valid when not 0.
  using RuleNumber = std::uint32_t;

  /// The last rule that matches, or 0. The first `skip` bytes of the question's path
  /// lead to the directory of this set's ignore file.
  RuleNumber deciding_rule(const Question& question, std::size_t skip) const;

  /// The pattern of a rule that deciding_rule named.
  Pattern pattern(RuleNumber number) const;

  /// Whether a rule that deciding_rule named ignores what it matches.
  bool includes(RuleNumber number) const { return !_rules[number - 1].negated; }

 private:
  friend std::optional<GitIgnoreSpec> _ignore_rules_in(std::string_view content);

  /// A rule's text goes on to where the next one's begins.
  struct Rule {
    std::uint32_t text_begin;
    std::uint32_t line : 27;
    std::uint32_t negated : 1;
    std::uint32_t directories_only : 1;
    std::uint32_t is_literal : 1;
    std::uint32_t is_path : 1;           // else it asks for the name alone
    std::uint32_t in_any_directory : 1;  // a name behind "**/", which says nothing more
  };

  /// The rules that can match, found by what stands in them, and those that have no
  /// literal at either end: these are tried one by one, from the last back. What does not
  /// have the longest literal between the wildcards is passed over.
  struct Index {
    struct Part {
      std::uint32_t begin;  // in the text of all patterns
      std::uint32_t size;
    };
    internal::LiteralIndex literals;
    std::vector<RuleNumber> others;
    std::vector<Part> parts;  // of the others; empty when they are most of the text
  };

  template <typename ForEachLine>
  static GitIgnoreSpec build(const ForEachLine& for_each_line);

  void add_rule(std::string_view line, std::uint32_t number);
  void make_index();
  std::string_view text_of(RuleNumber number) const;
  internal::GlobKind kind_of(RuleNumber number) const;
  Index::Part longest_part(std::string_view glob) const;
  std::string_view glob_of(RuleNumber number) const;

  std::string _text;  // of all patterns
  std::vector<Rule> _rules;
  std::unique_ptr<const Index> _index;  // of more than a few rules
};

/// Reads the ignore file at `path`. Absent when there is no such file, when a
/// component of its path is no directory, when it holds no pattern, and, after one
/// warning in the log, when it cannot be read for another reason, is not a regular
/// file or is over MAX_IGNORE_FILE_BYTES. Invalid UTF-8 reads as U+FFFD. Whether a
/// symbolic link is read is the caller's to say: git reads none for a `.gitignore`.
std::optional<GitIgnoreSpec> _read_ignore_rules(
    const std::filesystem::path& path, internal::LastLink last_link = internal::LastLink::follow);

/// The rule set of an ignore file's content, or absent when it holds no pattern.
std::optional<GitIgnoreSpec> _ignore_rules_in(std::string_view content);

/// Logs the one warning for an ignore file that could not be read, unless it is only
/// missing. `path` gives its path and is called when there is something to log.
void _warn_unreadable(const internal::ReadError& error, const std::function<std::string()>& path);

/// The git directory of the work tree `root`: its `.git` when that is a directory, or
/// what the `.git` file there points to ("gitdir: PATH"), or absent. Throws
/// std::system_error (illegal_byte_sequence) when the file is not valid UTF-8; a file
/// that cannot be read, or of over 1 MiB, gives absent.
std::optional<std::filesystem::path> _git_dir(const std::filesystem::path& root);

/// The directory that the linked work tree of `git_dir` shares with its repository,
/// as its `commondir` file names it; `git_dir` itself when there is no such file.
/// Throws as _git_dir does.
std::filesystem::path _common_dir(const std::filesystem::path& git_dir);

}  // namespace path_filter

#pragma GCC visibility pop

#endif  // UTILS_PATH_FILTER_GIT_IGNORE_H_
