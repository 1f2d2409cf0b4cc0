#include "utils/git_config/git_config.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "utils/git_config/child_process.h"
#include "utils/path_filter/base/path_argument.h"

namespace git_config {
namespace {

using path_filter::path_of;
using path_filter::path_text;

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

Settings settings(const std::filesystem::path& root, const WarningHandler& warn,
                  std::chrono::milliseconds longest_wait) {
  const Clock::time_point deadline = Clock::now() + longest_wait;
  const std::string directory = root.empty() ? "." : path_text(root);
  bool failed = false;
  const auto ask = [&](auto... question) -> std::optional<std::string> {
    ChildAnswer answer =
        ask_git({"git", "-C", directory.c_str(), "config", "-z", question...}, deadline);
    // git refuses the configuration of a repository that belongs to somebody else; the
    // user's own counts all the same.
    if (answer.status > 1 || answer.status == TAKEN) {
      answer = ask_git({"git", "-C", "/", "config", "--global", "-z", question...}, deadline);
    }
    failed |= answer.status == FAILED || (answer.status > 1 && answer.status != NO_PROGRAM);
    if (answer.status != 0) return std::nullopt;
    return std::move(answer.output);
  };
  const auto ask_for_value = [&](auto... question) {
    auto value = ask(question...);
    if (value) value->resize(std::min(value->find('\0'), value->size()));
    return value;
  };

  // One call gives both as they are written, the last of a key being the one that counts. What is
  // more than a plain value git reads itself, in a call of its own: in one call there is but one
  // type for all values.
  std::optional<std::string> file;
  std::optional<std::string> ignores;
  const auto both = ask("--get-regexp", "^core\\.(excludesfile|ignorecase)$");
  for (std::size_t begin = 0, end = 0; both && (end = both->find('\0', begin)) != both->npos;
       begin = end + 1) {
    const std::string entry = both->substr(begin, end - begin);
    const std::size_t key_end = std::min(entry.find('\n'), entry.size() - 1);
    (entry.starts_with("core.e") ? file : ignores) = entry.substr(key_end + 1);
  }
  const std::string home = path_text(home_directory());
  if (file && file->starts_with("~/") && !home.empty()) {
    file->replace(0, 1, home);
  } else if (file && file->find_first_of("~%:") == 0) {
    file = ask_for_value("--path", "--get", "core.excludesFile");
  }
  if (ignores && ignores != "true" && ignores != "false") {
    ignores = ask_for_value("--bool", "--get", "core.ignorecase");
  }
  if (failed && warn) {
    warn(
        "git does not say which file core.excludesFile names; its default place is read, and "
        "core.ignorecase taken for false");
  }
  Settings made{default_excludes_file(), ignores == "true"};
  if (file) made.excludes_file = path_of(*file);
  if (file && file->empty()) made.excludes_file.reset();
  return made;
}

std::optional<std::filesystem::path> excludes_file(const std::filesystem::path& root,
                                                   const WarningHandler& warn,
                                                   std::chrono::milliseconds longest_wait) {
  return settings(root, warn, longest_wait).excludes_file;
}

Lookups lookups(WarningHandler warn) {
  const auto ask = [warn = std::move(warn)](const std::filesystem::path& root) {
    Settings told = settings(root, warn);
    auto& file = told.excludes_file;
    if (file && file->is_relative()) file = root / *file;
    return told;
  };
  // What git said last about case, and has not been asked of it yet.
  struct Left {
    std::mutex mutex;
    std::filesystem::path root;
    std::optional<Settings> told;
  };
  const auto left = std::make_shared<Left>();
  const auto excludes_file = [=](const std::filesystem::path& root) {
    std::unique_lock hold(left->mutex);
    std::optional<Settings> told;
    if (left->root == root) left->told.swap(told);
    hold.unlock();
    return (told ? *told : ask(root)).excludes_file;
  };
  const auto ignore_case = [=](const std::filesystem::path& root) {
    Settings told = ask(root);
    const std::lock_guard hold(left->mutex);
    left->root = root;
    left->told = std::move(told);
    return left->told->ignore_case;
  };
  return {excludes_file, ignore_case};
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

ExcludesFileLookup excludes_file_lookup(WarningHandler warn) {
  return lookups(std::move(warn)).excludes_file;
}

}  // namespace git_config
