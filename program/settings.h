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
  std::string root = ".";
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

/// Throws UsageError when `root` is not a directory.
void require_directory(const std::filesystem::path& root);

}  // namespace program

#endif  // PROGRAM_SETTINGS_H_
