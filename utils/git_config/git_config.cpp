#include "utils/git_config/git_config.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <utility>
#include <vector>

extern char** environ;

namespace git_config {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds LONGEST_WAIT{2};
// In place of an exit status.
constexpr int NO_GIT = 127;  // there is none
constexpr int FAILED = -1;   // it could not be run, or a signal ended it
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

/// A file descriptor, which is closed with this object.
class Descriptor {
 public:
  explicit Descriptor(int number) : _number(number) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { close(); }

  int number() const { return _number; }
  void close() {
    if (_number >= 0) ::close(_number);
    _number = -1;
  }

 private:
  int _number;
};

/// The environment without those; it points into the process's own.
std::vector<char*> git_environment() {
  std::vector<char*> variables;
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

/// A child process, which does not outlive this object.
class Child {
 public:
  explicit Child(pid_t number) : _number(number) {}
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() {
    if (_ended) return;
    ::kill(_number, SIGKILL);
    while (::waitpid(_number, nullptr, 0) < 0 && errno == EINTR) {
    }
  }

  /// Its exit status, FAILED or TAKEN; absent while it runs at `deadline`.
  std::optional<int> wait(Clock::time_point deadline) {
    int status = 0;
    for (;;) {
      const pid_t ended = ::waitpid(_number, &status, WNOHANG);
      _ended = ended == _number || (ended < 0 && errno != EINTR);
      if (_ended && ended < 0) return TAKEN;
      if (_ended) return WIFEXITED(status) ? WEXITSTATUS(status) : FAILED;
      if (Clock::now() >= deadline) return std::nullopt;
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  }

 private:
  pid_t _number;
  bool _ended = false;
};

/// Reads `from` to its end. False when that has not come by `deadline`.
bool read_all(const Descriptor& from, Clock::time_point deadline, std::string& text) {
  std::array<char, 4096> buffer{};
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) return false;
    pollfd readable{from.number(), POLLIN, 0};
    if (::poll(&readable, 1, static_cast<int>(left.count())) <= 0) continue;
    const ssize_t count = ::read(from.number(), buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return true;
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

/// Both ends of a pipe that no child inherits.
std::optional<std::array<int, 2>> make_pipe() {
  std::array<int, 2> ends{};
#ifdef __APPLE__
  if (::pipe(ends.data()) != 0) return std::nullopt;
  for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
#else
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return std::nullopt;
#endif
  return ends;
}

/// Starts git, with `output` as its standard output; absent when it cannot be run. The error is
/// an errno value.
std::optional<pid_t> start_git(char* const* arguments, int output, int& error) {
  const std::vector<char*> environment = git_environment();
  posix_spawn_file_actions_t streams;
  error = ::posix_spawn_file_actions_init(&streams);
  if (error != 0) return std::nullopt;
  pid_t child = -1;
  // In this order: the pipe may itself be one of these three.
  error = ::posix_spawn_file_actions_adddup2(&streams, output, STDOUT_FILENO);
  for (const int number : {STDIN_FILENO, STDERR_FILENO}) {
    if (error != 0) break;
    error = ::posix_spawn_file_actions_addopen(&streams, number, "/dev/null", O_RDWR, 0);
  }
  if (error == 0) {
    error = ::posix_spawnp(&child, "git", &streams, nullptr, arguments, environment.data());
  }
  ::posix_spawn_file_actions_destroy(&streams);
  return error == 0 ? std::optional(child) : std::nullopt;
}

struct GitAnswer {
  std::optional<int> status;  // as of Child::wait
  std::string output;
};

GitAnswer ask_git(std::vector<std::string> arguments, Clock::time_point deadline) {
  const auto pipe = make_pipe();
  if (!pipe) return {FAILED, {}};
  const Descriptor from((*pipe)[0]);
  Descriptor to((*pipe)[1]);

  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  int error = 0;
  const auto number = start_git(argv.data(), to.number(), error);
  if (!number) return {error == ENOENT ? NO_GIT : FAILED, {}};

  Child child(*number);
  to.close();
  GitAnswer answer;
  if (!read_all(from, deadline, answer.output)) return answer;
  answer.status = child.wait(deadline);
  // A value ends with a NUL: one that was read whole counts, whatever became of the child.
  if (answer.status == TAKEN && answer.output.ends_with('\0')) answer.status = 0;
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
                                                   const WarningHandler& warn) {
  const Clock::time_point deadline = Clock::now() + LONGEST_WAIT;
  const std::string directory = root.empty() ? "." : root.string();
  GitAnswer answer = ask_git(
      {"git", "-C", directory, "config", "-z", "--path", "--get", "core.excludesFile"}, deadline);
  // git refuses the configuration of a repository that belongs to somebody else; the
  // user's own counts all the same.
  if (answer.status > 1 || answer.status == TAKEN) {
    answer = ask_git(
        {"git", "-C", "/", "config", "--global", "-z", "--path", "--get", "core.excludesFile"},
        deadline);
  }
  const bool has_said = answer.status && *answer.status <= 1 && *answer.status != FAILED;
  if (!has_said && answer.status != NO_GIT && warn) {
    warn("git does not say which file core.excludesFile names; its default place is read");
  }
  if (answer.status != 0) return default_excludes_file();
  const std::string file = answer.output.substr(0, answer.output.find('\0'));
  if (file.empty()) return std::nullopt;
  return file;
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
