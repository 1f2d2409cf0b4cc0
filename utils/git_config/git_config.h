// What git says of its configuration, to decide about paths as git does, and of what it tracks.
// path_filter reads no configuration: it is given a lookup, and this is one, as a library of its
// own that asks git.
//
//   const auto git = git_config::lookups();
//   IndexScope scope(root, {.excludes_file = git.excludes_file, .ignore_case = git.ignore_case});

#ifndef UTILS_GIT_CONFIG_GIT_CONFIG_H_
#define UTILS_GIT_CONFIG_GIT_CONFIG_H_

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "utils/path_filter/base/export.h"

namespace git_config {

/// Gets a sentence that says what went wrong, for a log. Called from the thread that asks.
using WarningHandler = std::function<void(std::string_view problem)>;

/// How long git may take to read its configuration, which is some milliseconds.
inline constexpr std::chrono::milliseconds DEFAULT_LONGEST_WAIT{2000};

/// What git is told about ignoring files.
struct Settings {
  /// The file that core.excludesFile names, as git gives it: a relative path is relative to the
  /// root, "~" is replaced. git's default place for it ($XDG_CONFIG_HOME/git/ignore, or else
  /// $HOME/.config/git/ignore) when none is configured; absent when git is set to use none, or
  /// there is no home. Whether there is such a file is not looked at.
  std::optional<std::filesystem::path> excludes_file;
  /// core.ignorecase.
  bool ignore_case;
};

/// The settings for the repository at `root`.
///
/// git itself is asked, as a child process that gets `longest_wait` and does not see the variables,
/// such as GIT_DIR, that would point it to another repository; a second one where a value is
/// written in an uncommon way, such as "~name/file" or "ignorecase = on". `warn` is called when it
/// does not answer in time or fails; the default place and false stand in then, as they do where
/// there is no git. The host may ignore SIGCHLD or take the status of every child, and its standard
/// streams may be closed. Throws only what `warn` throws, and std::bad_alloc. Takes some
/// milliseconds. Any number of threads may ask at once; the environment must not change meanwhile.
PATH_FILTER_EXPORT Settings settings(const std::filesystem::path& root,
                                     const WarningHandler& warn = nullptr,
                                     std::chrono::milliseconds longest_wait = DEFAULT_LONGEST_WAIT);

/// The file alone.
PATH_FILTER_EXPORT std::optional<std::filesystem::path> excludes_file(
    const std::filesystem::path& root, const WarningHandler& warn = nullptr,
    std::chrono::milliseconds longest_wait = DEFAULT_LONGEST_WAIT);

/// Both as lookups for path_filter::IndexScopeOptions; a file that is relative to the root is
/// joined with it.
using ExcludesFileLookup =
    std::function<std::optional<std::filesystem::path>(const std::filesystem::path& root)>;
struct Lookups {
  ExcludesFileLookup excludes_file;
  std::function<bool(const std::filesystem::path& root)> ignore_case;
};

/// The two share one call of git: what git says when it is asked about case is kept for the
/// question about the file that follows, of the same root, and given once; a scope that has both
/// asks in this order, anew after each refresh. Several scopes and threads may use them.
PATH_FILTER_EXPORT Lookups lookups(WarningHandler warn = nullptr);

/// The one of them alone, which asks git each time.
PATH_FILTER_EXPORT ExcludesFileLookup excludes_file_lookup(WarningHandler warn = nullptr);

/// The paths that git tracks at and below `root`, relative to it, each with a NUL at its end and
/// all in the order of their bytes. Absent when git does not say: there is none, it fails, as it
/// does outside a repository, or it takes more than ten seconds. Asked as above, in git's time to
/// read its index.
PATH_FILTER_EXPORT std::optional<std::string> tracked_files(const std::filesystem::path& root);

}  // namespace git_config

#endif  // UTILS_GIT_CONFIG_GIT_CONFIG_H_
