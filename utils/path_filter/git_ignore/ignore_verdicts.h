// Git's verdicts on the paths of one repository: which file or directory its ignore
// rules leave out, and by which rule.
//
// The `.gitignore` of a path's own directory decides first, then each one above it up to
// the root, then `$GIT_DIR/info/exclude`, then the file of `core.excludesFile`. Below a
// directory that is ignored all is, whatever a negation says.
//
// An IgnoreVerdicts is one state of the rules. Each file is read when a question first
// needs it, once, and what was read never changes: to read it anew, make another. Nothing
// is held open between two questions. Directory links are followed on the way to an
// ignore file (unless Links::refuse says otherwise); one that is a link itself is not
// read, as in git.
//
// Threads  Any number may ask at once. Those that meet the same unread file may both read
//   it; their answers are the same and the later one is kept. No lock is held while
//   anything is read.
// Cost  For a known directory the rule sets on the way up that have rules, each asked
//   once. A new directory costs one open for itself and each new one above it, and all of
//   them together at most on the order of the rules' text times the path's: where several are
//   new, each pattern goes on from where it came to in the one above, 16 bytes a rule.
// Failures  What a lookup throws, and DecodingError for a `.git` or `commondir` file that
//   is not valid UTF-8, pass through. The caches stay
//   whole and the next question tries again. A file that cannot be read gives one warning
//   and no rules.

#ifndef UTILS_PATH_FILTER_GIT_IGNORE_IGNORE_VERDICTS_H_
#define UTILS_PATH_FILTER_GIT_IGNORE_IGNORE_VERDICTS_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "utils/path_filter/base/directory_table.h"
#include "utils/path_filter/base/file_system.h"
#include "utils/path_filter/git_ignore/git_ignore.h"

namespace path_filter {

/// Reads the ignore file of the directory at `rel_dir`.
using IgnoreFileReader = std::function<internal::FileContent(std::string_view rel_dir)>;

class IgnoreVerdicts {
 public:
  /// Reads nothing. `root` and the two lookups are referred to and must outlive it; `links` are
  /// those to directories on the way to an ignore file.
  IgnoreVerdicts(const std::string& root, const ExcludesFileLookup& excludes_file,
                 const IgnoreCase& ignore_case, internal::Links links = internal::Links::follow);

  // In what follows, paths are relative to the root, with "/" between components, and come
  // with the table's entry of the directory that their text names: for a file's path, of
  // what precedes its last "/".

  /// Whether the file at `path` is excluded, through its directory or by itself.
  bool _ignored(std::string_view path, const internal::Directory& directory);

  /// Whether the directory `rel_dir`, which is not the root, is excluded, by itself or
  /// through one above it.
  bool _directory_ignored(std::string_view rel_dir, const internal::Directory& directory);

  /// The rule that decides about the file at `path`, or about the directory there when it
  /// ends in "/"; below an ignored directory, the one that ignores the topmost such.
  std::optional<IgnoreRule> deciding_rule(std::string_view path,
                                          const internal::Directory& directory);

  /// For a listing of directories: makes the rules of `rel_dir` known by `read`, and those of
  /// the directories above it that are not known yet. `read` is called from the top down,
  /// for what has not been read, and not again. Questions about what lies in the directory
  /// then read nothing but the repository's exclude files.
  void learn(std::string_view rel_dir, const internal::Directory& directory,
             const IgnoreFileReader& read);

  /// The same rules read without following a directory link, once for all who ask: for
  /// paths that do not lie where their text says.
  IgnoreVerdicts& without_links();

 private:
  enum class Verdict : std::uint8_t { unknown, not_ignored, ignored };

  /// The rules of one ignore file, in a chain from a directory up to the root.
  struct IgnoreFile {
    GitIgnoreSpec rules;
    const internal::Directory* directory;  // where it lies; null for an exclude file
    const IgnoreFile* up;                  // of the nearest directory above that has rules
    std::string_view source;               // of an exclude file

    std::size_t bytes_to_skip() const;  // of a path's front, that lead to the directory
  };

  struct ExcludeFiles {
    std::vector<IgnoreFile> files;
    std::deque<std::string> sources;  // viewed by the files: they never move
  };

  /// The rule that decides about a path, or nothing.
  struct Match {
    const IgnoreFile* file = nullptr;
    GitIgnoreSpec::RuleNumber rule = 0;
    bool ignores() const { return file != nullptr && file->rules.ignores(rule); }
  };

  bool ignores_case();
  bool questions_are_folded();
  std::vector<std::string> _exclude_files();
  const IgnoreFile* _ignore_rules(std::string_view rel_dir, const internal::Directory& directory);
  const std::vector<IgnoreFile>& _repository_excludes();
  Match _matches(std::string_view path, const internal::Directory& directory, bool is_directory,
                 GitIgnoreSpec::Question::Progress* progress = nullptr);

  Verdict judge(std::string_view rel_dir, const internal::Directory& directory);
  const IgnoreFile* read_rules(std::string_view rel_dir, const internal::Directory& directory,
                               const IgnoreFileReader& read);
  internal::FileContent read_below_root(std::string_view rel_dir) const;

  static const IgnoreFile NO_RULES;

  const std::string& _root;
  const ExcludesFileLookup& _excludes_file;
  const IgnoreCase& _ignore_case;
  const internal::Links _links;  // on the way to an ignore file

  enum class Asked : std::uint8_t { not_yet, no, yes };
  std::atomic<Asked> _ignores_case;  // asked before there are rules

  internal::DirectoryMap<Verdict> _ignored_directories;
  /// The first of the chain that judges the directory's files; NO_RULES when neither it
  /// nor a directory above has rules.
  internal::DirectoryMap<const IgnoreFile*> _ignore_files;
  std::atomic<const ExcludeFiles*> _excludes{nullptr};

  std::mutex _lock;  // of all below: held to add to them
  std::deque<IgnoreFile> _files;
  std::deque<ExcludeFiles> _exclude_lists;
  std::unique_ptr<IgnoreVerdicts> _without_links;
};

}  // namespace path_filter

#endif  // UTILS_PATH_FILTER_GIT_IGNORE_IGNORE_VERDICTS_H_
