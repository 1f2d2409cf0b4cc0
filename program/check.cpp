#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "program/commands.h"
#include "program/decider.h"
#include "program/output.h"
#include "program/repository.h"
#include "utils/path_filter/internal/file_system.h"
#include "utils/path_filter/internal/text.h"

namespace program {

using path_filter::Decision;
using path_filter::Exclusion;
using path_filter::Explanation;
using path_filter::IndexScope;

namespace {

/// Standard input, split at a character.
class InputPaths {
 public:
  /// `before_waiting` is called before more is read, which may have to be waited for.
  InputPaths(char end, std::function<void()> before_waiting)
      : _end(end), _before_waiting(std::move(before_waiting)) {}

  /// The next path without its end, valid until the next call; absent at the end.
  std::optional<std::string_view> next() {
    for (;;) {
      const std::size_t end = _buffer.find(_end, _searched);
      if (end != std::string::npos) {
        const auto path = std::string_view(_buffer).substr(_begin, end - _begin);
        _begin = _searched = end + 1;
        return path;
      }
      _buffer.erase(0, _begin);
      _begin = 0;
      _searched = _buffer.size();
      if (!fill()) break;
    }
    if (_buffer.empty()) return std::nullopt;
    _last = std::exchange(_buffer, {});
    _searched = 0;
    return _last;
  }

 private:
  bool fill() {
    constexpr std::size_t READ_BYTES = 64 * 1024;
    _before_waiting();
    const std::size_t size = _buffer.size();
    _buffer.resize(size + READ_BYTES);
    ssize_t count = -1;
    for (;;) {
      count = ::read(STDIN_FILENO, _buffer.data() + size, READ_BYTES);
      if (count >= 0 || (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK)) break;
      pollfd readable{STDIN_FILENO, POLLIN, 0};
      ::poll(&readable, 1, -1);
    }
    _buffer.resize(size + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (count < 0) {
      throw std::system_error(errno, std::generic_category(), "cannot read the paths");
    }
    return count > 0;
  }

  char _end;
  std::function<void()> _before_waiting;
  std::string _buffer;
  std::string _last;
  std::size_t _begin = 0;     // of the path that is next
  std::size_t _searched = 0;  // no end before here
};

/// The repository, and how a path as the shell wrote it becomes one below its root.
class CheckedRoot {
 public:
  explicit CheckedRoot(const Settings& settings)
      : repository(settings),
        _base(repository.scope.root / repository.place.below),
        _prefix(repository.place.below.empty() ? "" : repository.place.below + '/') {
    if (!settings.root) return;
    const auto named = std::filesystem::absolute(*settings.root).lexically_normal();
    std::error_code unresolved;
    if (std::filesystem::canonical(named, unresolved) == repository.scope.root) _named = named;
  }

  /// `path`, which is relative to the current directory or to --root, relative to the root; a
  /// "/" at its end stays. Throws std::invalid_argument for a path outside the root.
  std::string relative(std::string_view path) const {
    if (path.empty()) throw std::invalid_argument("an empty path");
    if (path.find('\0') != path.npos) {
      throw std::invalid_argument("no path holds NUL; paths that end with it are for -0");
    }
    while (path.starts_with("./") && path.size() > 2) path.remove_prefix(2);
    // As git and find list them: nothing is to be resolved.
    if (is_plain(path)) return _prefix + std::string(path);
    std::filesystem::path absolute = (_base / path).lexically_normal();
    const bool is_directory = !absolute.has_filename();
    if (is_directory && absolute.has_relative_path()) absolute = absolute.parent_path();
    for (const bool resolve : {false, true}) {
      // Links may lead to the root, or out of it and back.
      if (resolve) absolute = resolved(absolute);
      if (absolute == repository.scope.root || absolute == _named) return "/";
      auto below = repository.scope.relative(absolute);
      if (!below && !_named.empty()) below = IndexScope(_named).relative(absolute);
      if (below) return std::move(*below) + (is_directory ? "/" : "");
    }
    throw std::invalid_argument("outside the repository " +
                                printable(repository.scope.root.native()));
  }

  /// What decided about the directory at `path`, or the file there. A directory is what ends in
  /// "/", and what is one on disk.
  Explanation answer(std::string_view path, bool verbose) {
    std::string directory(path.substr(0, path.find_last_not_of('/') + 1));  // npos + 1 is 0
    if (directory.size() == path.size()) {
      const path_filter::FileFacts facts{.size = repository.size_for_limits(path)};
      Explanation answer = verbose ? repository.explain(path, facts)
                                   : Explanation{repository.scope.is_indexable(path, facts)};
      const auto kind = answer.decision.kind();
      // What lies in a directory that is left out is left out with it, whatever it is.
      if (kind == Exclusion::directory || kind == Exclusion::index_data || !is_directory(path)) {
        return answer;
      }
    }
    return repository.exclusion_of(directory).value_or(Explanation{Decision(true)});
  }

  const Repository repository;

 private:
  /// Whether each component of a relative path is a name.
  static bool is_plain(std::string_view path) {
    bool at_name = true;
    for (std::size_t at = 0; at < path.size(); ++at) {
      if (at_name && (path[at] == '/' || path[at] == '.')) {
        const std::string_view name = path.substr(at, path.find('/', at) - at);
        if (name.empty() || name == "." || name == "..") return false;
      }
      at_name = path[at] == '/';
    }
    return !path.empty();
  }

  /// Paths come by directories, as git and find list them: the one of the last question stays
  /// open, and a question takes half of what it does by the whole path. To list it instead takes
  /// as long for the fifteen files that a directory of the kernel has.
  bool is_directory(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    const std::string_view above = path.substr(0, slash == path.npos ? 0 : slash);
    if (!_has_opened || above != _opened_path) {
      _opened_path = above;
      _has_opened = true;
      _opened = {};
      // The root's path has no links any more.
      path_filter::internal::open_directory_below(repository.scope.root.native(), above, _opened,
                                                  path_filter::internal::RootLinks::refuse);
    }
    const std::string name(path.substr(slash + 1));  // npos + 1 is 0
    struct stat status {};
    return _opened.is_open() &&
           ::fstatat(_opened.number(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(status.st_mode);
  }

  /// `path` with the links on the way to its last component followed.
  static std::filesystem::path resolved(const std::filesystem::path& path) {
    std::error_code unresolved;
    return std::filesystem::weakly_canonical(path.parent_path(), unresolved) / path.filename();
  }

  std::filesystem::path _base;   // of relative paths
  std::filesystem::path _named;  // the root as --root names it
  std::string _prefix;           // of _base below the root, with a "/" at its end
  bool _has_opened = false;
  std::string _opened_path;  // of the directory of the last question
  path_filter::internal::FileDescriptor _opened;
};

}  // namespace

int check(const CheckOptions& options) {
  Settings settings = options.settings;
  settings.directory = settings.root.value_or(".");
  CheckedRoot root(settings);
  Output output(options.color);
  int status = 0;

  const auto print = [&](std::string_view path, std::string_view relative,
                         const Explanation& explanation) {
    const Decision& decision = explanation.decision;
    if (options.json) {
      JsonLine object;
      object.add_path(path).add_decision(relative, decision);
      if (options.verbose) add_decider(object, explanation, relative, root.repository.scope);
      output << object.text() << '\n';
      return;
    }
    const bool raw = options.null;
    const char separator = raw ? '\0' : '\t';
    output << (raw ? std::string(path) : column(path)) << separator;
    const std::string_view verdict = !decision             ? to_string(*decision.kind())
                                     : decision.language() ? "indexed"
                                                           : "indexable";
    output << (raw ? std::string(verdict)
                   : output.styled(decision ? Style::in : Style::out, verdict));
    output << separator;
    if (!decision) {
      output << decision.reason();
    } else {
      output << (decision.language() ? std::string_view(*decision.language()) : "a directory");
    }
    if (options.verbose) {
      output << separator << decider(explanation, relative, root.repository.scope, raw);
    }
    output << (raw ? '\0' : '\n');
  };
  const auto complain = [&](std::string_view path, std::string_view problem) {
    status = 2;
    if (options.json && !options.quiet) {
      JsonLine object;
      output << object.add_path(path).add("error", problem).text() << '\n';
      return;
    }
    output.flush();
    std::cerr << "path-filter: " + (path.empty() ? "''" : printable(path)) + ": " +
                     printable(problem) + "\n";
  };
  const auto ask = [&](std::string_view path) {
    try {
      const std::string relative = root.relative(path);
      const Explanation explanation = root.answer(relative, options.verbose);
      if (!options.quiet) print(path, relative, explanation);
      if (!explanation.decision) status = std::max(status, 1);
    } catch (const std::exception& error) {
      complain(path, error.what());
    }
  };

  for (const std::string& path : options.paths) ask(path);
  if (options.read_stdin) {
    // Who writes a path and waits for its answer gets it.
    InputPaths paths(options.null ? '\0' : '\n', [&] { output.flush(); });
    try {
      while (auto path = paths.next()) {
        if (output.closed()) return status;
        if (!options.null && path->ends_with('\r')) path->remove_suffix(1);
        if (options.null || !path->starts_with('"')) {
          ask(*path);
        } else if (const auto meant = unquoted(*path)) {
          ask(*meant);
        } else {
          complain(*path, "badly quoted; write it as git does, or end paths with NUL (-0)");
        }
      }
    } catch (...) {
      output.flush();  // what was asked before has its answer
      throw;
    }
  }
  output.flush();
  return status;
}

}  // namespace program
