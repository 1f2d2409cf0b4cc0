// What a command is told about the repository and its limits, and the scope made of it.

#ifndef PROGRAM_SETTINGS_H_
#define PROGRAM_SETTINGS_H_

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

#include "utils/path_filter/index_scope.h"

namespace program {

/// A mistake in what the user gave; its text says what to do.
class UsageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Settings {
  std::string directory = ".";      // what is asked about
  std::optional<std::string> root;  // the repository's, when it is not to be looked for
  std::optional<std::string> config;
  std::optional<std::string> max_file_size_mb;
  std::optional<std::string> languages;  // names, separated by commas
};

/// The limits that the configuration file and the options ask for; absent when neither
/// is given. Throws UsageError for a file that cannot be read, does not parse, or has
/// no usable section [index].
std::optional<path_filter::IndexLimits> read_limits(const Settings& settings);

/// The scope's options for `settings`: its limits, and git for core.excludesFile. Where git
/// names a file relative to the root, the scope reads it there, and `relative_excludes_file`,
/// which then must outlive the scope, is told git's name for it.
path_filter::IndexScopeOptions scope_options(const Settings& settings,
                                             std::string* relative_excludes_file = nullptr);

/// Where a command works.
struct Place {
  /// Of the scope: what --root says, or else the nearest directory, at or above the one asked
  /// about, that has a `.git`, or else that directory itself.
  /// Absolute, without links.
  std::filesystem::path root;
  /// The directory asked about, relative to the root; "" for the root.
  std::string below;
  /// What stands before a path below that directory, as the user named it: nothing for ".",
  /// or else the directory with a "/" at its end.
  std::string prefix;

  /// A path below that directory, relative to the root, as the user would name it.
  std::string shown(std::string_view path) const;
  /// A directory that a walk could not list.
  std::string shown(const std::filesystem::filesystem_error& error) const;
};

/// Throws UsageError when the directory or the root is no directory, or the one is not at or
/// below the other.
Place find_place(const std::string& directory, const std::optional<std::string>& root);

}  // namespace program

#endif  // PROGRAM_SETTINGS_H_
