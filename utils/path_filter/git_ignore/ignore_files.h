// Reading git's ignore files, and finding the git directory of a work tree.

#ifndef UTILS_PATH_FILTER_GIT_IGNORE_IGNORE_FILES_H_
#define UTILS_PATH_FILTER_GIT_IGNORE_IGNORE_FILES_H_

#include <functional>
#include <optional>
#include <string>
#include <system_error>

#include "utils/path_filter/base/file_system.h"
#include "utils/path_filter/base/path_argument.h"
#include "utils/path_filter/git_ignore/git_ignore.h"

namespace path_filter {

/// Reads the ignore file at `path`. Absent when there is no such file, when a
/// component of its path is no directory, when it holds no pattern, and, after one
/// warning in the log, when it cannot be read for another reason, is not a regular
/// file or is over MAX_IGNORE_FILE_BYTES. Invalid UTF-8 reads as U+FFFD. Whether a
/// symbolic link is read is the caller's to say: git reads none for a `.gitignore`.
std::optional<GitIgnoreSpec> _read_ignore_rules(PathArgument path,
                                                internal::Links last_link = internal::Links::follow,
                                                bool ignore_case = false);

/// Logs the one warning for an ignore file that could not be read, unless it is only
/// missing. `path` gives its path and is called when there is something to log.
void warn_unreadable(std::error_code error, const std::function<std::string()>& path);

/// The git directory of the work tree `root`: its `.git` when that is a directory, or
/// what the `.git` file there points to ("gitdir: PATH"), or absent. Throws
/// DecodingError when the file is not valid UTF-8; a file
/// that cannot be read, or of over 1 MiB, gives absent.
std::optional<std::string> _git_dir(PathArgument root);

/// The directory that the linked work tree of `git_dir` shares with its repository,
/// as its `commondir` file names it; `git_dir` itself when there is no such file.
/// Throws as _git_dir does.
std::string _common_dir(PathArgument git_dir);

}  // namespace path_filter

#endif  // UTILS_PATH_FILTER_GIT_IGNORE_IGNORE_FILES_H_
