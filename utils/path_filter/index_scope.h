// What belongs in the index of one repository. Every way into the index asks a scope:
//
//   IndexScope scope("/srv/repo", {.limits = IndexLimits::from_config(config)});
//   scope.is_indexable("src/app.py")                   // true: a Decision
//   scope.is_indexable("build/out.py").reason          // "in a directory the index skips"
//   scope.is_indexable("big.sql", {.size = 1 << 30})   // the limits know the size
//   for (const std::string& path : scope.walk()) ...   // a tree that git does not list
//
// The rules, in their order: the fixed directory rules and the index's own data
// directory; the language registry (unknown languages, dependency locks); minified
// bundles; git's ignore rules, as git applies them; the configuration's limits.
//
// Paths are relative to the repository root; "\" separates components as "/" does. An
// absolute path throws std::invalid_argument. Nothing is normalised: "./a.py" lies in
// the hidden directory ".". Names are bytes and need not be valid UTF-8.
//
// Reading  Making a scope reads nothing. A directory's `.gitignore` and the
//   repository's exclude files are read when a question first needs them, once, and
//   kept until refresh(); a file that cannot be read gives one warning and no rules.
//   Directory links are followed on the way to a `.gitignore`, a `.gitignore` that is
//   a link itself is not read (as in git). Nothing is held open between calls.
//
// Threads  Any number of threads may ask one scope at once, and one of them may call
//   refresh() meanwhile. A question that is under way then is answered from the ignore
//   rules of before or after. Two threads that meet the same new directory may both
//   compute its verdict; the later store wins. No lock is held while anything is read
//   or the registry is asked, and a question about known directories writes to no
//   memory that a thread on another processor reads.
//
// Cost  A question about a file in a known directory takes one hash lookup for the
//   directory, those of the registry and those of the rule sets on the way up, and no
//   allocation when the file is in. A new directory costs one failed or successful
//   open for itself and each new directory above it. Memory grows with the directories
//   asked about, by their names' length and some 80 bytes.
//
// Failures  What the registry, the excludes-file lookup or an `on_error` throws passes
//   through; so does std::system_error (illegal_byte_sequence) for a `.git` or
//   `commondir` file that is not valid UTF-8. The caches stay whole and the next
//   question tries again.

#ifndef UTILS_PATH_FILTER_INDEX_SCOPE_H_
#define UTILS_PATH_FILTER_INDEX_SCOPE_H_

#include <array>
#include <atomic>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "utils/path_filter/decision.h"
#include "utils/path_filter/directory_table.h"
#include "utils/path_filter/git_ignore.h"
#include "utils/path_filter/index_limits.h"
#include "utils/path_filter/internal/by_name_only.h"
#include "utils/path_filter/internal/paths.h"
#include "utils/path_filter/tree_walk.h"

namespace path_filter {

/// The file-name globs of minified bundles.
inline constexpr std::array<std::string_view, 3> MINIFIED_FILE_GLOBS{"*.min.js", "*.min.mjs",
                                                                     "*.min.cjs"};

/// Given the repository root, the file that git's `core.excludesFile` names; absent
/// when none is configured. A relative one is below the root. Called when the exclude files are loaded, from any thread,
/// and only for a root that has a git directory.
using ExcludesFileLookup =
    std::function<std::optional<std::filesystem::path>(const std::filesystem::path& root)>;

/// What a scope is given by name.
struct IndexScopeOptions {
  internal::ByNameOnly by_name_only = internal::ByNameOnly();
  /// The configuration's limits; absent: none.
  std::optional<IndexLimits> limits = std::nullopt;
  /// Absent: no such file is read.
  ExcludesFileLookup excludes_file = nullptr;
};

/// The rule of an ignore file that decided about a path.
struct IgnoreRule {
  /// The ignore file, as git names it: relative to the root where it lies below it.
  std::string source;
  /// The pattern's line, counted from 1.
  std::size_t line;
  /// The pattern as written.
  std::string pattern;
};

/// What decided about a file, for a person who asks why.
struct Explanation {
  Decision decision;
  /// Of a file left out by its directory: the skipped directory, by its path.
  std::optional<std::string> directory = std::nullopt;
  /// Of a minified bundle: the glob its name matches.
  std::optional<std::string> glob = std::nullopt;
  /// The rule of git's that decided, be it that it ignores the file or that it
  /// includes it again; absent when none matches or none was asked.
  std::optional<IgnoreRule> rule = std::nullopt;
};

class IndexScope {
 public:
  /// Reads nothing and tests nothing: `root` is kept as it is given.
  explicit IndexScope(std::filesystem::path root, IndexScopeOptions options = {});

  IndexScope(const IndexScope&) = delete;
  IndexScope& operator=(const IndexScope&) = delete;

  const std::filesystem::path root;
  const std::optional<IndexLimits> limits;

  /// Forgets git's ignore rules and verdicts; the next question reads them again. The
  /// fixed directory rules, which no file changes, are kept.
  void refresh();

  /// The path below the root that an absolute path names, with "/" between its
  /// components; absent for the root itself, for a path outside it, and for one that
  /// climbs out with "..". Both are compared as text: no link is followed.
  std::optional<std::string> relative(std::string_view path) const;

  template <std::same_as<std::filesystem::path> Path>
  std::optional<std::string> relative(const Path& path) const {
    return relative(std::string_view(path.native()));
  }

  /// Whether the file at `rel_path` is indexed.
  Decision is_indexable(std::string_view rel_path, FileFacts facts = {}) const;

  /// Whether git's ignore rules alone leave out the file at `rel_path`.
  bool is_ignored(std::string_view rel_path) const;

  /// Whether a walk goes into the directory at `rel_dir`: false when a rule leaves out
  /// all that it holds. True for "", the root.
  bool admits_directory(std::string_view rel_dir) const;

  /// The files below the root, outside the directories that are left out, one at a
  /// time as they are taken. `on_error` is told of each directory that cannot be
  /// listed. The scope must outlive the walk.
  Walk walk(WalkErrorHandler on_error = nullptr, WalkOptions options = {}) const;

  /// What is_indexable answers, and what decided. Computed anew on each call: it costs
  /// what a first question costs, and those who do not ask nothing.
  Explanation explain(std::string_view rel_path, FileFacts facts = {}) const;

  /// The rule by which git's ignore rules alone decide about the file at `rel_path`, or
  /// about the directory there when it ends in "/": what `git check-ignore -v` prints.
  /// It may be one that includes the path again ("!..."). Below an ignored directory it
  /// is the rule that ignores the directory. Absent when no rule matches.
  std::optional<IgnoreRule> deciding_ignore_rule(std::string_view rel_path) const;

 private:
  friend class Walk;

  enum class DirectoryRule : std::uint8_t { unknown, none, directory, index_data };
  enum class IgnoreVerdict : std::uint8_t { unknown, not_ignored, ignored };

  /// The rules of one ignore file, in a chain from a directory up to the root.
  struct IgnoreFile {
    GitIgnoreSpec rules;
    std::string source;
    std::size_t skip;      // bytes of a path's front that lead to the file's directory
    const IgnoreFile* up;  // of the nearest directory above that has rules; or null
  };

  /// The three caches that refresh replaces, together. What is in them is never
  /// changed, and lives as long as they do.
  struct IgnoreCaches {
    internal::DirectoryMap<IgnoreVerdict> _ignored_directories;
    /// The first of the chain that judges the directory's files; NO_RULES when neither
    /// it nor a directory above has rules.
    internal::DirectoryMap<const IgnoreFile*> _ignore_files;
    std::atomic<const std::vector<IgnoreFile>*> _excludes{nullptr};

    static const IgnoreFile NO_RULES;

    std::mutex lock;  // of the two below: held to add to them
    std::deque<IgnoreFile> files;
    std::deque<std::vector<IgnoreFile>> exclude_lists;
  };

  /// The rule that decides about a path, or nothing.
  struct Match {
    const IgnoreFile* file = nullptr;
    GitIgnoreSpec::RuleNumber rule = 0;
    bool includes() const { return file != nullptr && file->rules.includes(rule); }
  };

  std::shared_ptr<IgnoreCaches> _caches() const;

  Decision _decide(std::string_view path, const internal::SplitPath& split,
                   const internal::Directory& known_directory, FileFacts facts,
                   const ListedDirectory* listed) const;
  std::optional<Exclusion> _directory_rule(const internal::Directory& directory) const;
  Decision _within_limits(std::string_view language, std::optional<std::int64_t> size) const;
  std::optional<Exclusion> _excludes_directory(std::string_view path,
                                               const ListedDirectory* listed) const;

  std::vector<std::filesystem::path> _exclude_files() const;
  const IgnoreFile* _ignore_rules(IgnoreCaches& caches, const internal::Directory& directory,
                                  std::string_view rel_dir, const ListedDirectory* listed) const;
  std::optional<GitIgnoreSpec> _rules_of_directory(std::string_view rel_dir,
                                                   const ListedDirectory* listed) const;
  const std::vector<IgnoreFile>& _repository_excludes(IgnoreCaches& caches) const;
  Match _matches(IgnoreCaches& caches, std::string_view path, internal::SplitPath split,
                 bool is_directory, const internal::Directory& parent,
                 const ListedDirectory* listed) const;
  bool _directory_ignored(IgnoreCaches& caches, std::string_view rel_dir,
                          const internal::Directory& directory,
                          const ListedDirectory* listed) const;
  bool _ignored(std::string_view path, const internal::SplitPath& split,
                const internal::Directory& known_directory, const ListedDirectory* listed) const;

  const ExcludesFileLookup _excludes_file;

  /// All directories asked about. Like _directory_rules it outlives every refresh.
  mutable internal::DirectoryTable _directories;
  mutable internal::DirectoryMap<DirectoryRule> _directory_rules;
  const internal::Directory* const _index_data_directory = &_directories[INDEX_DATA_DIR];

  /// The current caches, once for each slot. A thread takes them through the slot of
  /// the processor it runs on, under that slot's lock, and each slot counts its own
  /// users: threads that ask at the same time write to different cache lines.
  struct alignas(64) CacheSlot {
    std::mutex lock;
    std::shared_ptr<IgnoreCaches> caches;
  };
  static constexpr std::size_t CACHE_SLOTS = 16;
  mutable std::array<CacheSlot, CACHE_SLOTS> _slots;
};

}  // namespace path_filter

#endif  // UTILS_PATH_FILTER_INDEX_SCOPE_H_
