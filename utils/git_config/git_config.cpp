#include "utils/git_config/git_config.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

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
constexpr int NO_GIT = 127;  // the exit status where there is none

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

/// Becomes git. Runs in the child of a process that may have threads: it only makes
/// system calls.
[[noreturn]] void become_git(char* const* arguments, char* const* environment, int output,
                             pid_t parent) {
#ifdef __linux__
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
#endif
  if (::getppid() != parent) ::_exit(EXIT_FAILURE);  // it ended before that call
  ::dup2(output, STDOUT_FILENO);
  const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  ::dup2(null, STDIN_FILENO);
  ::dup2(null, STDERR_FILENO);
  ::execvpe("git", arguments, environment);
  ::_exit(NO_GIT);
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

  /// Its exit status; -1 when a signal ended it, absent while it runs at `deadline`.
  std::optional<int> wait(Clock::time_point deadline) {
    int status = 0;
    for (;;) {
      const pid_t ended = ::waitpid(_number, &status, WNOHANG);
      _ended = ended == _number || (ended < 0 && errno != EINTR);
      if (_ended) return ended == _number && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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

struct GitAnswer {
  std::optional<int> status;  // the exit status; -1 when git could not be run, absent: no answer
  std::string output;
};

GitAnswer ask_git(std::vector<std::string> arguments, Clock::time_point deadline) {
  std::array<int, 2> pipe{};
  if (::pipe2(pipe.data(), O_CLOEXEC) != 0) return {-1, {}};
  const Descriptor from(pipe[0]);
  Descriptor to(pipe[1]);

  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  const std::vector<char*> environment = git_environment();
  const pid_t parent = ::getpid();
  const pid_t number = ::fork();
  if (number < 0) return {-1, {}};
  if (number == 0) become_git(argv.data(), environment.data(), to.number(), parent);

  Child child(number);
  to.close();
  GitAnswer answer;
  if (read_all(from, deadline, answer.output)) answer.status = child.wait(deadline);
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
  if (answer.status > 1) {
    answer = ask_git(
        {"git", "-C", "/", "config", "--global", "-z", "--path", "--get", "core.excludesFile"},
        deadline);
  }
  const bool has_said = answer.status == 0 || answer.status == 1 || answer.status == NO_GIT;
  if (!has_said && warn) {
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
