#include "utils/git_config/git_config.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <thread>
#include <utility>
#include <vector>

extern char** environ;

namespace git_config {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds LONGEST_WAIT_FOR_LIST{10};
// In place of an exit status.
constexpr int NO_GIT = 127;  // there is none
constexpr int FAILED = -1;   // it could not be run, took too long, or a signal ended it
constexpr int TAKEN = -2;    // the host ignores SIGCHLD, or takes the status of every child

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

/// A pipe that no child inherits.
class Pipe {
 public:
  Pipe() {
#ifdef __APPLE__
    if (::pipe(_ends.data()) != 0) return;
    for (const int end : _ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
#else
    if (::pipe2(_ends.data(), O_CLOEXEC) != 0) return;
#endif
    ::fcntl(_ends[0], F_SETFL, O_NONBLOCK);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    for (const int end : _ends) {
      if (end >= 0) ::close(end);
    }
  }

  int input() const { return _ends[1]; }

  /// Adds what has been written into it, without waiting for more.
  void read(std::string& text) const {
    std::array<char, 64 * 1024> part;
    for (ssize_t count; (count = ::read(_ends[0], part.data(), part.size())) > 0;) {
      text.append(part.data(), static_cast<std::size_t>(count));
    }
  }

 private:
  std::array<int, 2> _ends{-1, -1};
};

/// The environment without those, and with no way to reach another machine: a stranger's repository
/// may lack objects, and name a program to fetch them. It points into the process's own.
std::vector<char*> git_environment() {
  static char no_protocol[] = "GIT_ALLOW_PROTOCOL=";
  std::vector<char*> variables{no_protocol};  // the first of a name counts
  for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
    const std::string_view text = *variable;
    if (std::ranges::find(REPOSITORY_VARIABLES, text.substr(0, text.find('='))) ==
        REPOSITORY_VARIABLES.end()) {
      variables.push_back(*variable);
    }
  }
  variables.push_back(nullptr);
  return variables;
}

/// Starts git, with `output` as its standard output. Returns an errno value.
int start_git(const char* const* arguments, int output, pid_t& child) {
  const std::vector<char*> environment = git_environment();
  posix_spawn_file_actions_t streams;
  int error = ::posix_spawn_file_actions_init(&streams);
  if (error != 0) return error;
  // In this order: the pipe may itself be one of these three.
  error = ::posix_spawn_file_actions_adddup2(&streams, output, STDOUT_FILENO);
  for (const int number : {STDIN_FILENO, STDERR_FILENO}) {
    if (error != 0) break;
    error = ::posix_spawn_file_actions_addopen(&streams, number, "/dev/null", O_RDWR, 0);
  }
  if (error == 0) {
    error = ::posix_spawnp(&child, "git", &streams, nullptr, const_cast<char* const*>(arguments),
                           environment.data());
  }
  ::posix_spawn_file_actions_destroy(&streams);
  return error;
}

struct GitAnswer {
  int status;
  std::string output = {};
};

/// Asks git, which does not outlive this. `arguments` end with a null.
GitAnswer ask_git(std::initializer_list<const char*> arguments, Clock::time_point deadline) {
  const Pipe pipe;
  pid_t child = -1;
  const int error = start_git(arguments.begin(), pipe.input(), child);
  if (error != 0) return {error == ENOENT ? NO_GIT : FAILED};

  GitAnswer answer{0};
  int status = 0;
  pid_t ended = 0;
  while ((ended = ::waitpid(child, &status, WNOHANG)) == 0) {
    pipe.read(answer.output);  // or it would wait when the pipe is full
    if (Clock::now() >= deadline) {
      ::kill(child, SIGKILL);
      while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
      }
      return {FAILED};
    }
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  pipe.read(answer.output);
  answer.status = WIFEXITED(status) ? WEXITSTATUS(status) : FAILED;
  // A value ends with a NUL: one that was read whole counts, whatever became of the child.
  if (ended < 0) answer.status = answer.output.ends_with('\0') ? 0 : TAKEN;
  return answer;
}

std::optional<std::filesystem::path> default_excludes_file() {
  const char* config = std::getenv("XDG_CONFIG_HOME");
  if (config != nullptr && *config != '\0') return std::filesystem::path(config) / "git/ignore";
  const char* home = std::getenv("HOME");
  if (home == nullptr || *home == '\0') return std::nullopt;
  return std::filesystem::path(home) / ".config/git/ignore";
}

}  // namespace

std::optional<std::filesystem::path> excludes_file(const std::filesystem::path& root,
                                                   const WarningHandler& warn,
                                                   std::chrono::milliseconds longest_wait) {
  const Clock::time_point deadline = Clock::now() + longest_wait;
  const std::string directory = root.empty() ? "." : root.string();
  GitAnswer answer = ask_git({"git", "-C", directory.c_str(), "config", "-z", "--path", "--get",
                              "core.excludesFile", nullptr},
                             deadline);
  // git refuses the configuration of a repository that belongs to somebody else; the
  // user's own counts all the same.
  if (answer.status > 1 || answer.status == TAKEN) {
    answer = ask_git({"git", "-C", "/", "config", "--global", "-z", "--path", "--get",
                      "core.excludesFile", nullptr},
                     deadline);
  }
  const bool failed = answer.status == FAILED || (answer.status > 1 && answer.status != NO_GIT);
  if (failed && warn) {
    warn("git does not say which file core.excludesFile names; its default place is read");
  }
  if (answer.status != 0) return default_excludes_file();
  const std::string file = answer.output.substr(0, answer.output.find('\0'));
  if (file.empty()) return std::nullopt;
  return file;
}

std::optional<std::string> tracked_files(const std::filesystem::path& root) {
  const std::string directory = root.empty() ? "." : root.string();
  // A stranger's repository may name a program to run there, too.
  GitAnswer answer = ask_git(
      {"git", "-C", directory.c_str(), "-c", "core.fsmonitor=false", "ls-files", "-z", nullptr},
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
