// The repository that a command is asked about.

#ifndef PROGRAM_REPOSITORY_H_
#define PROGRAM_REPOSITORY_H_

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "program/settings.h"
#include "utils/path_filter/index_scope/index_limits.h"
#include "utils/path_filter/index_scope/index_scope.h"

namespace program {

/// Where a command works.
struct Place {
  /// Of the scope: what --root says, or else the nearest directory, at or above the one asked
  /// about, that has a `.git`, or else that directory itself.
  /// Absolute, without links.
  std::filesystem::path root;
  /// The directory asked about, relative to the root; "" for the root.
  std::string below;
  /// The same as the user named it.
  std::string directory;
  /// What stands before a path below that directory: nothing for ".", or else the directory as
  /// the user named it, with a "/" at its end.
  std::string prefix;

  /// A path below that directory, relative to the root, as the user would name it.
  std::string shown(std::string_view path) const;
  void append_shown(std::string_view path, std::string& out) const;
  /// A directory that a walk could not list.
  std::string shown(const std::filesystem::filesystem_error& error) const;
};

/// Throws UsageError when the directory or the root is no directory, or the one is not at or
/// below the other.
Place find_place(const std::string& directory, const std::optional<std::string>& root);

/// Whether a size could not be told because there is no such file.
bool is_absence(std::error_code error);

/// The problem with a file whose size cannot be told for another reason.
std::string unknown_size(std::error_code error);

/// The scope of the repository at a root, git asked for core.excludesFile; and what is to be
/// known of its files. Any number of threads may ask.
class Repository {
 public:
  Repository(const std::filesystem::path& top, std::optional<path_filter::IndexLimits> limits);
  Repository(const Repository&) = delete;
  Repository& operator=(const Repository&) = delete;

 private:
  // Of the ignore file that git names relative to the root, that name. Before the scope, which
  // asks for it.
  mutable std::mutex _mutex;
  std::string _relative_excludes_file;

 public:
  const path_filter::IndexScope scope;

  /// The size in bytes of the file at `path` below the root; absent when there is none. Throws
  /// std::runtime_error when that cannot be told.
  std::optional<std::int64_t> size(std::string_view path) const;

  /// What the scope says of the file at `path`, with the ignore files named as git names them.
  path_filter::Explanation explain(std::string_view path, path_filter::FileFacts facts) const;

  /// Why a walk does not go into the directory at `rel_dir`, and what decided; absent when it
  /// does.
  std::optional<path_filter::Explanation> exclusion_of_directory(const std::string& rel_dir) const;
};

}  // namespace program

#endif  // PROGRAM_REPOSITORY_H_
