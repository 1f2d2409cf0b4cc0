// The walk of a tree that git does not list, and the listing of one directory at a time, for a
// walk on several threads or in another order.

#ifndef UTILS_PATH_FILTER_INDEX_SCOPE_TREE_WALK_H_
#define UTILS_PATH_FILTER_INDEX_SCOPE_TREE_WALK_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "utils/path_filter/base/export.h"
#include "utils/path_filter/index_scope/decision.h"
#include "utils/path_filter/index_scope/index_scope.h"

namespace path_filter {

namespace internal {
struct Directory;
}

/// A directory below a scope's root, as small as a pointer, so that many can wait to be listed.
/// It must not outlive the scope.
class PATH_FILTER_EXPORT ScopeDirectory {
 public:
  /// The directory at `rel_dir`, relative to the root and as it is on disk; "" is the root.
  ScopeDirectory(const IndexScope& scope, std::string_view rel_dir);

  /// The path relative to the root. Costs its length.
  std::string path() const;

 private:
  friend class DirectoryLister;

  explicit ScopeDirectory(const internal::Directory& directory) : _directory(&directory) {}

  const internal::Directory* _directory;
};

/// Called with each directory that a listing leaves out, its path relative to the root, and the
/// kind of rule that leaves it out: directory, index_data or gitignore.
using PruneHandler =
    std::function<void(ScopeDirectory directory, std::string_view rel_dir, Exclusion kind)>;

/// What a walk finds in a directory, for one directory after the other, as the caller says:
///
///   path_filter::DirectoryLister lister(scope, on_error);         // one for each thread
///   lister.list(path_filter::ScopeDirectory(scope, ""));          // to begin with
///   while (auto below = lister.next_directory()) queue.push(*below);
///   while (const std::string* path = lister.next_file()) print(*path, lister.decide());
///
/// Listing the root and each directory that is given, once, gives the files of a walk: the same
/// paths, decisions, errors and directories left out, in any order and on any threads. What
/// Walk says of links, names and rules holds here too; the handlers are called within `list`.
///
/// The directory listed last stays open until the next one is listed. One that lies in it is
/// opened from it; in a deep tree one that lies a few levels higher is opened by way of "..", if
/// that leads, by device and inode, to the directory that was listed there; all others are opened
/// from the root. So a listing that goes depth first, in whatever order, takes time linear
/// in a tree of any depth. One thread at a time uses a lister; any number of listers, walks and
/// questions may use one scope, which must outlive them.
class PATH_FILTER_EXPORT DirectoryLister {
 public:
  explicit DirectoryLister(const IndexScope& scope, WalkErrorHandler on_error = nullptr,
                           PruneHandler on_pruned = nullptr);
  explicit DirectoryLister(const IndexScope&& scope, WalkErrorHandler on_error = nullptr,
                           PruneHandler on_pruned = nullptr) = delete;
  ~DirectoryLister();
  DirectoryLister(DirectoryLister&& other) noexcept;
  DirectoryLister& operator=(DirectoryLister&& other) noexcept;

  /// Lists a directory: one that was given, or where to begin, of which it is not asked whether
  /// the scope admits it. When it cannot be listed, `on_error` is called, and this
  /// returns false and has nothing to give. Throws what a handler or the scope throws, and then
  /// has nothing to give either.
  bool list(ScopeDirectory directory);

  /// Lists a directory that the scope leaves out, and about whose contents nobody asks: no rule
  /// is read or applied, no handler is called, and next_directory gives all that is in it.
  bool list_unjudged(ScopeDirectory directory);

  /// The next subdirectory to list, in the order of the file system. Absent at the end.
  std::optional<ScopeDirectory> next_directory();

  /// The next file, in that order too: its path relative to the root, valid until the next
  /// call of this or of `list`. Null at the end.
  const std::string* next_file();

  /// What the scope's is_indexable answers about the file that next_file gave last, for less: the
  /// files of a directory share the search for it and its rules. A name with a backslash is
  /// judged without reading through a link. Throws as is_indexable does.
  Decision decide(FileFacts facts = {}) const;

  /// Whether that file is a regular one, and no link, FIFO, device or socket: whether a program
  /// that reads files reads a file of the repository. As it was when its directory was listed.
  bool is_regular_file() const;

  /// That file's size in bytes as it is now, a link's own. Absent when it cannot be told, and then
  /// `error` says why.
  std::optional<std::int64_t> file_size(std::error_code& error) const;

 private:
  friend class Walk;

  struct State;
  std::unique_ptr<State> _state;
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
/// when a directory is replaced by one meanwhile. A directory that cannot be listed goes
/// to `on_error` and is left out whole; so is one whose name reads as an absolute path
/// once backslashes are taken for separators (EINVAL). An exception of a handler or of
/// the scope ends the walk.
///
/// A file may be named like an absolute path, once backslashes are taken for separators
/// ("\x"): it is produced, and the scope's questions throw std::invalid_argument for it.
///
/// A directory's rules are those of when it is listed: a refresh of the scope counts from
/// the next directory on.
///
/// A directory costs its listing and, to open it, the system's way down from the root, as
/// nothing stays open between two paths: some 40,000 directories inside each other, each with a
/// file, take the kernel minutes. Those without files are opened one from another, and a
/// DirectoryLister takes time linear in any tree.
///
/// One thread at a time uses a walk; several walks of one scope may run at once. It can be
/// moved before begin() is called.
class PATH_FILTER_EXPORT Walk {
 public:
  class Iterator {
   public:
    using iterator_concept = std::input_iterator_tag;
    using value_type = std::string;
    using difference_type = std::ptrdiff_t;

    Iterator() = default;
    explicit Iterator(Walk* walk) : _walk(walk) {}
    /// The path; valid until the iterator is moved on.
    const std::string& operator*() const { return *_walk->_path; }
    const std::string* operator->() const { return _walk->_path; }
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
  Iterator begin() & { return ++Iterator(this); }
  std::default_sentinel_t end() const { return {}; }

 private:
  friend class IndexScope;

  Walk(const IndexScope& scope, WalkErrorHandler on_error);

  /// Moves on to the next path; false at the end.
  bool advance();

  DirectoryLister _lister;
  std::vector<ScopeDirectory> _pending;  // the next one last
  const std::string* _path = nullptr;
};

}  // namespace path_filter

#endif  // UTILS_PATH_FILTER_INDEX_SCOPE_TREE_WALK_H_
