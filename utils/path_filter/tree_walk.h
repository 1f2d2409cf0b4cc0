// The walk of a tree that git does not list.

#ifndef UTILS_PATH_FILTER_TREE_WALK_H_
#define UTILS_PATH_FILTER_TREE_WALK_H_

#include <cstddef>
#include <filesystem>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "utils/path_filter/decision.h"
#include "utils/path_filter/index_scope.h"
#include "utils/path_filter/internal/by_name_only.h"
#include "utils/path_filter/internal/file_system.h"

#pragma GCC visibility push(default)  // what a shared library shows

namespace path_filter {

/// Told of each directory that a walk leaves out, by its path relative to the root, and
/// of the kind of rule that leaves it out: directory, index_data or gitignore.
using PruneHandler = std::function<void(std::string_view rel_dir, Exclusion kind)>;

/// What a walk is told by name.
struct WalkOptions {
  internal::ByNameOnly by_name_only = internal::ByNameOnly();
  PruneHandler on_pruned = nullptr;
};

/// The files below a scope's root, in directories that the scope admits, as paths
/// relative to the root with "/" between components and the names' own bytes. An input
/// range, taken once; made by IndexScope::walk.
///
/// Top-down and depth-first: a directory's own files come first, in the order of the
/// file system, then each subdirectory with all below it. Every entry that is no
/// directory is a file: links to files, dangling links and special files too. A link
/// to a directory is neither a file nor entered. Files are not judged.
///
/// Each step lists directories until it has a path, and closes them again: between two
/// paths nothing is open, and the walk can be dropped at any time. A directory is
/// listed once. Below the root nothing is opened through a symbolic link, not even
/// when a directory is replaced by one meanwhile. A directory that cannot be listed is
/// told to `on_error` and left out whole; so is one whose name reads as an absolute path
/// once backslashes are taken for separators (EINVAL). An exception of a handler or of
/// the scope ends the walk.
///
/// A directory's rules are those of when it is listed: a refresh of the scope counts from
/// the next directory on.
///
/// A directory costs its listing and, to open it, the system's way down from the root, as
/// nothing stays open between two paths: some 40,000 directories inside each other, each
/// with a file, take the kernel minutes. Those without files are opened one from another.
///
/// One thread at a time uses a walk; several walks of one scope may run at once.
class Walk {
 public:
  class Iterator {
   public:
    using iterator_concept = std::input_iterator_tag;
    using value_type = std::string;
    using difference_type = std::ptrdiff_t;

    Iterator() = default;
    explicit Iterator(Walk* walk) : _walk(walk) {}
    /// The path; valid until the iterator is moved on.
    const std::string& operator*() const { return _walk->_path; }
    const std::string* operator->() const { return &_walk->_path; }
    Iterator& operator++() {
      if (!_walk->advance()) _walk = nullptr;
      return *this;
    }
    void operator++(int) { ++*this; }
    bool operator==(std::default_sentinel_t) const { return _walk == nullptr; }

   private:
    Walk* _walk = nullptr;
  };

  /// Takes the first path. To be called once.
  Iterator begin() { return ++Iterator(this); }
  std::default_sentinel_t end() const { return {}; }

  /// What the scope's is_indexable answers about the path that the walk has come to, for
  /// less: the files of a directory share the search for it and its rules. A name with a
  /// backslash is judged without reading through a link. Throws as is_indexable does.
  Decision decide(FileFacts facts = {}) const { return _listed->decide(_path, facts); }

 private:
  friend class IndexScope;

  /// A directory whose subdirectories are being visited.
  struct Level {
    const internal::Directory* directory;
    std::size_t prefix;  // bytes of _path that are the directory, its "/" included
    std::string names;   // of the admitted subdirectories, each followed by "/"
    std::size_t next;    // where the next one begins
  };

  Walk(const IndexScope& scope, WalkErrorHandler on_error, WalkOptions options);

  /// Moves on to the next path; false at the end.
  bool advance();
  bool step();
  void visit(internal::FileDescriptor& last);
  int open(internal::FileDescriptor& directory);
  internal::FileContent read_ignore_file(std::string_view rel_dir,
                                         const internal::FileDescriptor& directory) const;
  bool admits(bool is_link);
  void fail(int code, const std::string& below);

  const IndexScope* _scope;
  WalkErrorHandler _on_error;
  WalkOptions _options;
  bool _begun = false;
  std::string _top;  // the root's path without links
  std::vector<Level> _levels;
  std::string _path;  // the directory being produced, and then the file
  std::size_t _prefix = 0;
  std::string _below;  // the directory's path without its "/"
  std::optional<ListedDirectory> _listed;
  internal::Listing _listing;  // of the directory whose files are being produced
  std::size_t _next_file = 0;
};

}  // namespace path_filter

#pragma GCC visibility pop

#endif  // UTILS_PATH_FILTER_TREE_WALK_H_
