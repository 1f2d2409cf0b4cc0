#include "utils/git_config/git_config.h"

#include <array>
#include <initializer_list>
#include <string>
#include <utility>

#include "utils/git_config/child_process.h"
#include "utils/path_filter/base/path_argument.h"

namespace git_config {
namespace {

using path_filter::internal::path_of;
using path_filter::internal::path_text;

constexpr std::chrono::seconds LONGEST_WAIT_FOR_LIST{10};

/// What binds git to a repository other than that of its directory. `git rev-parse
/// --local-env-vars` lists them; the two that carry the settings of `git -c` are the
/// user's own words and stay.
constexpr std::array<std::string_view, 15> REPOSITORY_VARIABLES{"GIT_ALTERNATE_OBJECT_DIRECTORIES",
                                                                "GIT_COMMON_DIR",
                                                                "GIT_CONFIG",
                                                                "GIT_DIR",
                                                                "GIT_GRAFT_FILE",
                                                                "GIT_IMPLICIT_WORK_TREE",
                                                                "GIT_INDEX_FILE",
                                                                "GIT_INTERNAL_SUPER_PREFIX",
                                                                "GIT_NAMESPACE",
                                                                "GIT_NO_REPLACE_OBJECTS",
                                                                "GIT_OBJECT_DIRECTORY",
                                                                "GIT_PREFIX",
                                                                "GIT_REPLACE_REF_BASE",
                                                                "GIT_SHALLOW_FILE",
                                                                "GIT_WORK_TREE"};

/// Asks git, which has no way to reach another machine: a stranger's repository may lack objects,
/// and name a program to fetch them.
ChildAnswer ask_git(std::initializer_list<const char*> arguments, Clock::time_point deadline) {
  ChildAnswer answer =
      run_program(arguments, {REPOSITORY_VARIABLES, "GIT_ALLOW_PROTOCOL="}, deadline);
  // A value ends with a NUL: one that was read whole counts, whatever became of the child.
  if (answer.status == TAKEN && answer.output.ends_with('\0')) answer.status = 0;
  return answer;
}

std::optional<std::filesystem::path> default_excludes_file() {
  const std::filesystem::path config = directory_variable("XDG_CONFIG_HOME");
  if (!config.empty()) return config / "git/ignore";
  const std::filesystem::path home = home_directory();
  if (home.empty()) return std::nullopt;
  return home / ".config/git/ignore";
}

}  // namespace

std::optional<std::filesystem::path> excludes_file(const std::filesystem::path& root,
                                                   const WarningHandler& warn,
                                                   std::chrono::milliseconds longest_wait) {
  const Clock::time_point deadline = Clock::now() + longest_wait;
  const std::string directory = root.empty() ? "." : path_text(root);
  ChildAnswer answer = ask_git(
      {"git", "-C", directory.c_str(), "config", "-z", "--path", "--get", "core.excludesFile"},
      deadline);
  // git refuses the configuration of a repository that belongs to somebody else; the
  // user's own counts all the same.
  if (answer.status > 1 || answer.status == TAKEN) {
    answer = ask_git(
        {"git", "-C", "/", "config", "--global", "-z", "--path", "--get", "core.excludesFile"},
        deadline);
  }
  const bool failed = answer.status == FAILED || (answer.status > 1 && answer.status != NO_PROGRAM);
  if (failed && warn) {
    warn("git does not say which file core.excludesFile names; its default place is read");
  }
  if (answer.status != 0) return default_excludes_file();
  const std::string file = answer.output.substr(0, answer.output.find('\0'));
  if (file.empty()) return std::nullopt;
  return path_of(file);
}

std::optional<std::string> tracked_files(const std::filesystem::path& root) {
  const std::string directory = root.empty() ? "." : path_text(root);
  // A stranger's repository may name a program to run there, too.
  ChildAnswer answer =
      ask_git({"git", "-C", directory.c_str(), "-c", "core.fsmonitor=false", "ls-files", "-z"},
              Clock::now() + LONGEST_WAIT_FOR_LIST);
  if (answer.status != 0) return std::nullopt;
  return std::move(answer.output);
}

std::function<std::optional<std::filesystem::path>(const std::filesystem::path& root)>
excludes_file_lookup(WarningHandler warn) {
  return [warn = std::move(warn)](const std::filesystem::path& root) {
    auto file = excludes_file(root, warn);
    if (file && file->is_relative()) file = root / *file;
    return file;
  };
}

}  // namespace git_config
