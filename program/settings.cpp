#include "program/settings.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <toml++/toml.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <system_error>
#include <utility>

#include "utils/path_filter/internal/file_system.h"

extern char** environ;

namespace program {

using path_filter::ConfigValue;
using path_filter::IndexConfig;
using path_filter::IndexLimits;

namespace {

ConfigValue value_of(const toml::node& node) {
  if (const auto* text = node.as_string()) return {text->get()};
  if (const auto* number = node.as_integer()) return {number->get()};
  if (const auto* number = node.as_floating_point()) return {number->get()};
  if (const auto* flag = node.as_boolean()) return {flag->get()};
  if (const auto* array = node.as_array()) {
    ConfigValue::List list;
    for (const toml::node& entry : *array) list.push_back(value_of(entry));
    return {std::move(list)};
  }
  std::ostringstream literal;
  node.visit([&](const auto& value) { literal << value; });
  return {ConfigValue::Other{literal.str()}};
}

IndexConfig read_config(const std::string& file) {
  constexpr std::size_t MAX_CONFIG_BYTES = std::size_t{64} << 20;
  const auto content = path_filter::internal::read_file(
      file, path_filter::internal::LastLink::follow, MAX_CONFIG_BYTES);
  if (const auto* error = std::get_if<path_filter::internal::ReadError>(&content)) {
    throw UsageError("cannot read the configuration " + file + ": " + error->message);
  }
  toml::table table;
  try {
    table = toml::parse(std::get<std::string>(content), file);
  } catch (const toml::parse_error& error) {
    std::ostringstream message;
    message << file << ":" << error.source().begin.line << ":" << error.source().begin.column
            << ": " << error.description();
    throw UsageError(message.str());
  }
  const toml::table* index = table["index"].as_table();
  if (index == nullptr) {
    throw UsageError(file +
                     ": has no section [index]; write one, with max_file_size_mb or languages");
  }
  // What the file leaves out has its default.
  IndexConfig config{ConfigValue{path_filter::DEFAULT_MAX_FILE_SIZE_MB}, ConfigValue{}};
  if (const auto* node = index->get("max_file_size_mb")) config.max_file_size_mb = value_of(*node);
  if (const auto* node = index->get("languages")) config.languages = value_of(*node);
  return config;
}

struct GitAnswer {
  int status;  // the exit status; -1 when git could not be run
  std::string output;
};

GitAnswer ask_git(std::vector<std::string> arguments) {
  std::array<int, 2> pipe{};
  if (::pipe2(pipe.data(), O_CLOEXEC) != 0) return {-1, {}};
  const path_filter::internal::FileDescriptor from(pipe[0]);
  path_filter::internal::FileDescriptor to(pipe[1]);

  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_adddup2(&actions, to.number(), STDOUT_FILENO);
  ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  pid_t child = -1;
  const int failed = ::posix_spawnp(&child, "git", &actions, nullptr, argv.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  to = {};
  if (failed != 0) return {-1, {}};

  GitAnswer answer{-1, {}};
  std::array<char, 4096> buffer{};
  for (;;) {
    const ssize_t count = ::read(from.number(), buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    answer.output.append(buffer.data(), static_cast<std::size_t>(count));
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) answer.status = WEXITSTATUS(status);
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

std::optional<IndexLimits> read_limits(const Settings& settings) {
  if (!settings.config && !settings.max_file_size_mb && settings.languages.empty()) {
    return std::nullopt;
  }
  IndexConfig config{ConfigValue{path_filter::DEFAULT_MAX_FILE_SIZE_MB}, ConfigValue{}};
  if (settings.config) config = read_config(*settings.config);
  if (settings.max_file_size_mb) config.max_file_size_mb = ConfigValue{*settings.max_file_size_mb};
  if (!settings.languages.empty()) {
    ConfigValue::List names;
    for (const std::string& name : settings.languages) names.push_back({name});
    config.languages = ConfigValue{std::move(names)};
  }
  try {
    return IndexLimits::from_config(config);
  } catch (const std::invalid_argument& error) {
    throw UsageError((settings.config ? *settings.config + ": " : "") + error.what());
  }
}

path_filter::IndexScopeOptions scope_options(const Settings& settings) {
  return {.limits = read_limits(settings), .excludes_file = find_excludes_file};
}

void require_directory(const std::filesystem::path& root) {
  std::error_code error;
  const auto status = std::filesystem::status(root, error);
  if (std::filesystem::is_directory(status)) return;
  if (!error && std::filesystem::exists(status)) {
    error = std::make_error_code(std::errc::not_a_directory);
  } else if (!error) {
    error = std::make_error_code(std::errc::no_such_file_or_directory);
  }
  throw UsageError("the root " + root.string() + ": " + error.message());
}

std::optional<std::filesystem::path> find_excludes_file(const std::filesystem::path& root) {
  const std::string directory = root.empty() ? "." : root.string();
  GitAnswer answer =
      ask_git({"git", "-C", directory, "config", "-z", "--path", "--get", "core.excludesFile"});
  // git refuses the configuration of a repository that belongs to somebody else; the
  // user's own counts all the same.
  if (answer.status > 1) {
    answer = ask_git({"git", "config", "--global", "-z", "--path", "--get", "core.excludesFile"});
  }
  if (answer.status != 0) return default_excludes_file();
  const std::string file = answer.output.substr(0, answer.output.find('\0'));
  if (file.empty()) return std::nullopt;
  return root / file;
}

}  // namespace program
