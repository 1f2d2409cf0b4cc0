// The repository that a command is asked about.

#ifndef PROGRAM_REPOSITORY_H_
#define PROGRAM_REPOSITORY_H_

#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "program/settings.h"
#include "utils/git_config/git_config.h"
#include "utils/path_filter/index_scope/index_limits.h"
#include "utils/path_filter/index_scope/index_scope.h"

namespace program {

/// Where a command works.
struct Place {
  /// Of the scope: what --root says, or else the nearest directory, at or above the one asked
  /// about, that has a `.git`, or else that directory itself.
  /// Absolute, without links.
  std::string root;
  /// The directory asked about, relative to the root; "" for the root.
  std::string below;
  /// The same as the user named it; "." when nobody did.
  std::string directory;
  /// What stands before a path below that directory: as the user named it, with a "/" at its end.
  std::string prefix;

  /// A path below that directory, relative to the root, as the user would name it.
  std::string shown(std::string_view path) const;
  void append_shown(std::string_view path, std::string& out) const;
  /// A directory that a walk could not list.
  std::string shown(const std::filesystem::filesystem_error& error) const;
};

/// The place that the settings' directory is, relative to the root that they name or else to the
/// current directory; that itself when they name none. Throws UsageError when the directory or the
/// root is no directory, or the one is not at or below the other, or a link on the way may lead out
/// of a stranger's tree.
Place find_place(const std::optional<std::string>& directory,
                 const std::optional<std::string>& root);

/// A path that the user names, with "/" between its components.
std::string native(std::string_view path);

/// The directory's path, absolute and without links. Throws UsageError when it is none.
std::string resolved_directory(const std::string& directory);

/// Whether there is a `.git` in the directory: whether a repository begins there.
bool has_git(const std::string& directory);

/// The nearest directory, at or above this absolute one, where a repository begins.
std::optional<std::string> nearest_root(const std::string& directory);

/// The first link among the directories on the way from a root to what is `below` it, that itself
/// included; absent when there is none, or the system does not say.
std::optional<std::string> first_link(std::string_view root, std::string_view below);

/// Whether the path is that of a repository's own store, which is no file of it.
bool is_git_store(std::string_view path);

/// Whether a file could not be looked at because there is none.
bool is_absence(std::error_code error);

/// The problem with a file whose size cannot be told for another reason.
std::string unknown_size(std::error_code error);

/// The scope of the repository at a root, git asked for its settings; and what is to be
/// known of its files. Any number of threads may ask.
class Repository {
 public:
  Repository(const std::string& top, std::optional<path_filter::IndexLimits> limits);
  Repository(const Repository&) = delete;
  Repository& operator=(const Repository&) = delete;

 private:
  // Of the ignore file that git names relative to the root, that name. Before the scope, which
  // asks for it.
  mutable std::mutex _mutex;
  std::string _relative_excludes_file;
  std::once_flag _git_once;  // a scope here is never refreshed
  git_config::Settings _git{};

  const git_config::Settings& settings_of_git();

 public:
  const std::string root;
  const path_filter::IndexScope scope;

  /// What the scope says of the file at `path`, with the ignore files named as git names them.
  path_filter::Explanation explain(std::string_view path, path_filter::FileFacts facts) const;

  /// Why a walk does not go into the directory at `rel_dir`, and what decided; absent when it
  /// does.
  std::optional<path_filter::Explanation> exclusion_of_directory(const std::string& rel_dir) const;

  /// Whether git tracks the file, or one in the directory, at `path`; absent when git does not say.
  /// It is asked once.
  std::optional<bool> is_tracked(std::string_view path) const;

 private:
  mutable std::once_flag _tracked_once;
  mutable std::optional<std::string> _tracked_text;
  mutable std::vector<std::string_view> _tracked;  // of it, in the order of their bytes
};

/// The repositories that a command meets, by their roots. Any number of threads may ask.
class Repositories {
 public:
  /// The limits are those of all.
  explicit Repositories(std::optional<path_filter::IndexLimits> limits)
      : _limits(std::move(limits)) {}

  /// The repository whose root the directory is. It stays. Throws UsageError when there is no such
  /// directory.
  const Repository& at(const std::string& directory);

 private:
  const std::optional<path_filter::IndexLimits> _limits;
  std::mutex _mutex;  // of what follows
  std::map<std::string, Repository> _by_root;
};

}  // namespace program

#endif  // PROGRAM_REPOSITORY_H_
