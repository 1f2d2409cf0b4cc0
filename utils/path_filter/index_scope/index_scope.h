// What belongs in the index of one repository. Every way into the index asks a scope:
//
//   IndexScope scope("/srv/repo", {.limits = IndexLimits::from_config(config)});
//   scope.is_indexable("src/app.py")                   // true: a Decision
//   scope.is_indexable("build/out.py").reason()        // "in a directory the index skips"
//   scope.is_indexable("big.sql", {.size = 1 << 30})   // the limits know the size
//   for (const std::string& path : scope.walk()) ...   // a tree that git does not list;
//                                                      // include tree_walk.h
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
// Threads  Any number of threads may ask one scope at once, and any number may call
//   refresh() meanwhile. A question that is under way then is answered from the ignore
//   rules of before or after, one that begins when refresh() has returned from those after.
//   Two threads that meet the same new directory may both compute its verdict; the later
//   store wins. No lock is held while anything is read or the registry is asked, and a
//   question about known directories writes to no memory that a thread on another
//   processor reads, but for this: processors share a lock and a counter, held for an instant,
//   with the sixteenth after them; where the system does not tell the processor, two threads
//   share one with a probability of 1/16.
//
// Cost  A question about a file in a known directory takes one hash lookup for the
//   directory, those of the registry and those of the rule sets on the way up, and no
//   allocation when the file is in. A new directory costs one failed or successful
//   open for itself and each new directory above it. Memory grows with the directories
//   asked about, by their names' length and some 80 bytes.
//
// Failures  What the registry, a lookup, an `on_error` or the logger's sink
//   throws passes through; so does DecodingError for a `.git` or `commondir` file that is
//   not valid UTF-8. The caches stay whole and the next question tries again.

#ifndef UTILS_PATH_FILTER_INDEX_SCOPE_INDEX_SCOPE_H_
#define UTILS_PATH_FILTER_INDEX_SCOPE_INDEX_SCOPE_H_

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "utils/path_filter/base/export.h"
#include "utils/path_filter/base/path_argument.h"
#include "utils/path_filter/git_ignore/git_ignore.h"
#include "utils/path_filter/index_scope/decision.h"
#include "utils/path_filter/index_scope/index_limits.h"

namespace path_filter::internal {
class ScopeState;
}  // namespace path_filter::internal

namespace path_filter {

/// The file-name globs of minified bundles.
inline constexpr std::array<std::string_view, 3> MINIFIED_FILE_GLOBS{"*.min.js", "*.min.mjs",
                                                                     "*.min.cjs"};

/// What a scope is given by name.
struct IndexScopeOptions {
  /// The configuration's limits; absent: none.
  std::optional<IndexLimits> limits = std::nullopt;
  /// Absent: no such file is read.
  ExcludesFileLookup excludes_file = nullptr;
  /// Whether the ignore rules match as git's do with `core.ignorecase`, or a lookup of it, which is
  /// asked when the first of them are read, and again after refresh(). No other rule ignores case.
  IgnoreCase ignore_case = false;
};

/// What a question about a file is told by name.
struct FileFacts {
  /// The file's size in bytes, when the caller knows it. A negative one counts as small.
  std::optional<std::int64_t> size = std::nullopt;
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

class Walk;

/// Told of each directory that a walk cannot list; the error carries the operating
/// system's code, its message and the directory's path.
using WalkErrorHandler = std::function<void(const std::filesystem::filesystem_error&)>;

class PATH_FILTER_EXPORT IndexScope {
 public:
  /// Reads nothing and tests nothing: `root` is kept as it is given.
  explicit IndexScope(std::filesystem::path root, IndexScopeOptions options = {});
  ~IndexScope();

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
  std::optional<std::string> relative(PathArgument path) const;

  /// Whether the file at `rel_path` is indexed.
  Decision is_indexable(PathArgument rel_path, FileFacts facts = {}) const;

  /// Whether git's ignore rules alone leave out the file at `rel_path`.
  bool is_ignored(PathArgument rel_path) const;

  /// Whether a walk goes into the directory at `rel_dir`: false when a rule leaves out
  /// all that it holds. True for "", the root.
  bool admits_directory(PathArgument rel_dir) const;

  /// The files below the root, outside the directories that are left out, one at a
  /// time as they are taken. `on_error` is called for each directory that cannot be
  /// listed. The scope must outlive the walk, which tree_walk.h declares: a temporary one
  /// gives none.
  Walk walk(WalkErrorHandler on_error = nullptr) const&;
  Walk walk(WalkErrorHandler on_error = nullptr) const&& = delete;

  /// What is_indexable answers, and what decided, both by one state of the ignore rules.
  /// The reason is computed anew on each call; those who do not ask pay nothing.
  Explanation explain(PathArgument rel_path, FileFacts facts = {}) const;

  /// The rule by which git's ignore rules alone decide about the file at `rel_path`, or
  /// about the directory there when it ends in "/": what `git check-ignore -v` prints.
  /// It may be one that includes the path again ("!..."). Below an ignored directory it
  /// is the rule that ignores the directory. Absent when no rule matches.
  std::optional<IgnoreRule> deciding_ignore_rule(PathArgument rel_path) const;

 private:
  friend class DirectoryLister;
  friend class ScopeDirectory;

  const std::unique_ptr<internal::ScopeState> _state;
};

}  // namespace path_filter

#endif  // UTILS_PATH_FILTER_INDEX_SCOPE_INDEX_SCOPE_H_
