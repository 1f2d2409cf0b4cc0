// Answers about paths as a user names them: finds the repository that each lies in, looks at what
// is on disk, and asks the repository's scope.

#ifndef PROGRAM_JUDGE_H_
#define PROGRAM_JUDGE_H_

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "program/repository.h"
#include "utils/path_filter/base/file_system.h"
#include "utils/path_filter/index_scope/decision.h"

namespace program {

/// What lies at a path below a root.
///
/// Paths come by directories, as git and find list them: the one of the last question stays
/// open, and a question takes half of what it does by the whole path. To list each directory
/// takes as long, as most are left and entered again, and is of any size.
class OnDisk {
 public:
  struct Entry {
    std::optional<path_filter::internal::FileStatus> status;
    std::error_code error;     // why there is no status
    bool behind_link = false;  // a link is on the way: there is no status
  };

  /// `root` is absolute and without links. Throws std::system_error when the system has no
  /// descriptor or memory left.
  Entry look(const std::string& root, std::string_view path);

  /// Keeps nothing open: until the next question somebody may put another in its place.
  void close();

 private:
  std::string _root;
  std::optional<std::string> _above;  // the path of the directory that is open, or could not be
  std::error_code _error;             // why not
  path_filter::internal::FileHandle _opened;
  std::string _name;
};

/// The answers of one thread. A path belongs to the innermost repository on its way, as git has it;
/// outside all of them, to the current directory when it lies there.
class Judge {
 public:
  /// Paths are relative to `root` and judged by it, when there is one, or else relative to the
  /// current directory. Throws UsageError when that is no directory.
  Judge(Repositories& repositories, const std::optional<std::string>& root);

  struct Answer {
    const Repository& repository;
    std::string path;  // below its root; "" is the root
    bool is_directory;
    path_filter::Explanation explanation;
  };

  /// What decides about the file at `path`, or about all in the directory there. A directory is
  /// what ends in "/", and what is one on disk. `verbose` asks for more than the decision. Throws
  /// std::invalid_argument for what cannot be asked about: a path in no repository, or outside the
  /// root; a link, or what lies behind one below the repository's root; a device; a file whose size
  /// counts and cannot be told.
  Answer ask(std::string_view path, bool verbose);

  /// Whether `path` names what is there and no directory.
  bool is_file(const std::string& path) const;

  /// Holds nothing of what was on disk.
  void forget();

 private:
  struct Located {
    const Repository& repository;
    std::string path;
    bool is_directory;
  };
  struct Root {
    std::size_t size;  // of its path, which begins `_way`
    const Repository* repository;
  };

  Located locate(std::string_view given);
  const Root* root_of(std::string_view directory);
  bool is_root(const std::string& directory) const;

  Repositories& _repositories;
  const bool _has_root;     // that is told, and not to be looked for
  const std::string _base;  // of relative paths; absolute and without links, "" is "/"
  const Root _base_root;    // if it is one
  OnDisk _on_disk;
  std::optional<std::string> _way;  // the directory of the last question, like _base
  std::vector<Root> _roots;         // on it, the innermost last
  std::string _absolute;
};

}  // namespace program

#endif  // PROGRAM_JUDGE_H_
