// What git says of its configuration, to decide about paths as git does, and of what it tracks.
// path_filter reads no configuration: it is given a lookup, and this is one, as a library of its
// own that asks git.
//
//   IndexScope scope(root, {.excludes_file = git_config::excludes_file_lookup()});

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

/// The file that core.excludesFile names for the repository at `root`, as git gives it: a
/// relative path is relative to the root, "~" is replaced. git's default place for it
/// ($XDG_CONFIG_HOME/git/ignore, or else $HOME/.config/git/ignore) when none is configured;
/// absent when git is set to use none, or there is no home. Whether there is such a file is not
/// looked at.
///
/// git itself is asked, as a child process that gets `longest_wait` and does not see the variables,
/// such as GIT_DIR, that would point it to another repository. `warn` is called when it does not
/// answer in time or fails; the default place stands in then, as it does where there is no git.
/// The host may ignore SIGCHLD or take the status of every child, and its standard streams may be
/// closed. Throws only what `warn` throws, and std::bad_alloc. Takes some milliseconds. Any number
/// of threads may ask at once; the environment must not change meanwhile.
PATH_FILTER_EXPORT std::optional<std::filesystem::path> excludes_file(
    const std::filesystem::path& root, const WarningHandler& warn = nullptr,
    std::chrono::milliseconds longest_wait = DEFAULT_LONGEST_WAIT);

/// That as a lookup for path_filter::IndexScopeOptions::excludes_file: what is relative to
/// the root is joined with it.
PATH_FILTER_EXPORT
std::function<std::optional<std::filesystem::path>(const std::filesystem::path& root)>
excludes_file_lookup(WarningHandler warn = nullptr);

/// The paths that git tracks at and below `root`, relative to it, each with a NUL at its end and
/// all in the order of their bytes. Absent when git does not say: there is none, it fails, as it
/// does outside a repository, or it takes more than ten seconds. Asked as above, in git's time to
/// read its index.
PATH_FILTER_EXPORT std::optional<std::string> tracked_files(const std::filesystem::path& root);

}  // namespace git_config

#endif  // UTILS_GIT_CONFIG_GIT_CONFIG_H_
