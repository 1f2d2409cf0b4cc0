// What asking git takes of the operating system: another program, run to its end, and where the
// user's configuration lies.

#ifndef UTILS_GIT_CONFIG_CHILD_PROCESS_H_
#define UTILS_GIT_CONFIG_CHILD_PROCESS_H_

#include <chrono>
#include <filesystem>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>

namespace git_config {

using Clock = std::chrono::steady_clock;

// In place of an exit status.
inline constexpr int NO_PROGRAM = 127;  // there is none
inline constexpr int FAILED = -1;       // it could not be run, took too long, or was ended
inline constexpr int TAKEN = -2;        // the host took the status, or lets the system drop it

struct ChildAnswer {
  int status;
  std::string output = {};
};

/// What the environment of a program has other than that of this process.
struct Environment {
  std::span<const std::string_view> without;  // variables' names
  std::string_view with;                      // "NAME=value", for whatever the name had
};

/// Runs a program, which does not outlive this. The first of the `arguments` is its name, which is
/// looked for on PATH. It inherits nothing: it has no input, and its messages go nowhere. Of one
/// that is not done at the `deadline` the status is FAILED. Throws std::bad_alloc.
ChildAnswer run_program(std::initializer_list<const char*> arguments,
                        const Environment& environment, Clock::time_point deadline);

/// The directory that a variable of the environment names; "" when it is not set.
std::filesystem::path directory_variable(const char* name);

/// The user's home as git finds it; "" when there is none.
std::filesystem::path home_directory();

}  // namespace git_config

#endif  // UTILS_GIT_CONFIG_CHILD_PROCESS_H_
