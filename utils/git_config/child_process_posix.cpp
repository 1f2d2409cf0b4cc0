#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <thread>
#include <vector>

#include "utils/git_config/child_process.h"

#ifdef __APPLE__
#include <crt_externs.h>  // a loaded module does not see `environ`
#define environ (*_NSGetEnviron())
#else
extern char** environ;
#endif

namespace git_config {
namespace {

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

/// It points into the process's own, and to `added`.
std::vector<char*> variables_of(const Environment& environment, std::string& added) {
  added = environment.with;
  std::vector<char*> variables{added.data()};  // the first of a name counts
  for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
    const std::string_view text = *variable;
    if (std::ranges::find(environment.without, text.substr(0, text.find('='))) ==
        environment.without.end()) {
      variables.push_back(*variable);
    }
  }
  variables.push_back(nullptr);
  return variables;
}

/// Starts the program, with `output` as its standard output. Returns an errno value.
int start(const char* const* arguments, const Environment& environment, int output, pid_t& child) {
  std::string added;
  const std::vector<char*> variables = variables_of(environment, added);
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
    error = ::posix_spawnp(&child, arguments[0], &streams, nullptr,
                           const_cast<char* const*>(arguments), variables.data());
  }
  ::posix_spawn_file_actions_destroy(&streams);
  return error;
}

}  // namespace

ChildAnswer run_program(std::initializer_list<const char*> arguments,
                        const Environment& environment, Clock::time_point deadline) {
  std::vector<const char*> terminated(arguments);
  terminated.push_back(nullptr);
  const Pipe pipe;
  pid_t child = -1;
  const int error = start(terminated.data(), environment, pipe.input(), child);
  if (error != 0) return {error == ENOENT ? NO_PROGRAM : FAILED};

  ChildAnswer answer{0};
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
  if (ended < 0) answer.status = TAKEN;
  return answer;
}

std::filesystem::path directory_variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

std::filesystem::path home_directory() { return directory_variable("HOME"); }

}  // namespace git_config
