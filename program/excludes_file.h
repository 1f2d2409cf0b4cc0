#ifndef PROGRAM_EXCLUDES_FILE_H_
#define PROGRAM_EXCLUDES_FILE_H_

#include <filesystem>
#include <functional>
#include <optional>
#include <string_view>

namespace program {

/// The file that core.excludesFile names for the repository at `root`, as git gives it (a
/// relative path is relative to the root); or git's default place for it when none is configured.
/// Absent when git is set to use none.
///
/// git itself is asked, as a child that gets two seconds, ends with the calling thread and
/// does not see the variables that would point it to another repository. `warn` is told
/// when it does not answer in time; the default place stands in then, as it does where
/// there is no git. Any number of threads may ask at once.
std::optional<std::filesystem::path> find_excludes_file(
    const std::filesystem::path& root, const std::function<void(std::string_view)>& warn);

}  // namespace program

#endif  // PROGRAM_EXCLUDES_FILE_H_
