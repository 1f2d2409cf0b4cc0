#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <deque>
#include <exception>
#include <filesystem>
#include <future>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "program/commands.h"
#include "program/decider.h"
#include "program/input.h"
#include "program/output.h"
#include "program/repository.h"
#include "utils/path_filter/base/file_system.h"
#include "utils/path_filter/base/quoting.h"

namespace program {

using path_filter::Decision;
using path_filter::Exclusion;
using path_filter::Explanation;
using path_filter::IndexScope;

namespace {

/// Which paths below a root are directories on disk.
///
/// Paths come by directories, as git and find list them: the one of the last question stays
/// open, and a question takes half of what it does by the whole path. To list each directory
/// takes as long, as most are left and entered again, and is of any size.
class DirectoriesOnDisk {
 public:
  explicit DirectoriesOnDisk(const std::filesystem::path& root) : _root(root) {}

  bool contains(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    const std::string_view above = path.substr(0, slash == path.npos ? 0 : slash);
    if (above != _above) {
      close();
      // The root's path has no links any more.
      const std::error_code error = path_filter::internal::open_directory_below(
          _root.native(), above, _opened, path_filter::internal::Links::refuse);
      if (error == std::errc::too_many_files_open || error == std::errc::not_enough_memory ||
          error == std::errc::too_many_files_open_in_system) {
        throw std::system_error(error, "cannot look at its directory");
      }
      _above = above;
    }
    if (!_opened.is_open()) return false;
    // With a "/" the kernel says that a file is no directory without looking at the file, in a
    // fifth less time; and takes a link to a directory for one.
    _name.assign(path.substr(slash + 1)) += '/';  // npos + 1 is 0
    struct stat status {};
    if (::fstatat(_opened.number(), _name.c_str(), &status, 0) != 0) return false;
    _name.pop_back();
    return ::fstatat(_opened.number(), _name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(status.st_mode);
  }

  /// Keeps nothing open: until the next question somebody may put another in its place.
  void close() {
    _above.reset();
    _opened = {};
  }

 private:
  const std::filesystem::path& _root;
  std::optional<std::string> _above;  // the path of the directory that is open
  path_filter::internal::FileDescriptor _opened;
  std::string _name;
};

/// The repository, and how a path as the shell wrote it becomes one below its root.
class CheckedRoot {
 public:
  explicit CheckedRoot(const Settings& settings)
      : CheckedRoot(find_place(settings.root.value_or("."), settings.root), read_limits(settings)) {
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
    if (has_plain_names(path)) return std::string(_prefix).append(path);
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

  const Repository repository;

 private:
  CheckedRoot(const Place& place, std::optional<path_filter::IndexLimits> limits)
      : repository(place.root, std::move(limits)),
        _base(place.root / place.below),
        _prefix(place.below.empty() ? "" : place.below + '/') {}

  /// Whether each component of a relative path is a name.
  static bool has_plain_names(std::string_view path) {
    for (std::size_t begin = 0; begin < path.size();) {
      const std::string_view name = path.substr(begin, path.find('/', begin) - begin);
      if (name.empty() || name == "." || name == "..") return false;
      begin += name.size() + 1;
    }
    return true;
  }

  /// `path` with the links on the way to its last component followed.
  static std::filesystem::path resolved(const std::filesystem::path& path) {
    std::error_code unresolved;
    return std::filesystem::weakly_canonical(path.parent_path(), unresolved) / path.filename();
  }

  std::filesystem::path _base;   // of relative paths
  std::filesystem::path _named;  // the root as --root names it
  std::string _prefix;           // of _base below the root, with a "/" at its end
};

/// Asks about paths, on one thread, and holds the answers as text until they are printed.
class Checker {
 public:
  Checker(const CheckOptions& options, const CheckedRoot& root, const Output& output)
      : _options(options), _root(root), _output(output), _on_disk(root.repository.scope.root) {}

  /// Asks about the paths of lines, or of texts that end with NUL.
  void ask_lines(std::span<const std::string_view> lines) {
    for (std::string_view line : lines) {
      if (!_options.null && line.ends_with('\r')) line.remove_suffix(1);
      if (_options.null || !line.starts_with('"')) {
        ask(line);
      } else if (const auto meant = unquoted(line)) {
        ask(*meant);
      } else {
        complain(line, "badly quoted; write it as git does, or end paths with NUL (-0)");
      }
    }
  }

  void ask(std::string_view path) {
    try {
      const std::string relative = _root.relative(path);
      const Explanation explanation = answer(relative);
      if (!_options.quiet) add(path, relative, explanation);
      if (!explanation.decision) _status = std::max(_status, 1);
    } catch (const std::exception& error) {
      complain(path, error.what());
    }
  }

  /// Prints the answers, and what is wrong where it was met.
  void print(Output& output) {
    std::size_t printed = 0;
    for (const auto& [end, complaint] : _complaints) {
      output << std::string_view(_text).substr(printed, end - printed);
      output.flush();
      program::complain(complaint);
      printed = end;
    }
    output << std::string_view(_text).substr(printed);
    _text.clear();
    _complaints.clear();
    _on_disk.close();
  }

  int status() const { return _status; }

 private:
  /// What decided about the directory at `path`, or the file there. A directory is what ends in
  /// "/", and what is one on disk.
  Explanation answer(const std::string& path) {
    const Repository& repository = _root.repository;
    if (!path.ends_with('/')) {
      path_filter::FileFacts facts;
      if (repository.scope.limits) facts.size = repository.size(path);
      Explanation answer = _options.verbose
                               ? repository.explain(path, facts)
                               : Explanation{repository.scope.is_indexable(path, facts)};
      const auto kind = answer.decision.kind();
      // What lies in a directory that is left out is left out with it, whatever it is.
      if (kind == Exclusion::directory || kind == Exclusion::index_data ||
          !_on_disk.contains(path)) {
        return answer;
      }
    }
    const std::string directory = path.substr(0, path.find_last_not_of('/') + 1);  // npos + 1 is 0
    return repository.exclusion_of_directory(directory).value_or(Explanation{Decision(true)});
  }

  void add(std::string_view path, std::string_view relative, const Explanation& explanation) {
    const Decision& decision = explanation.decision;
    const auto& scope = _root.repository.scope;
    if (_options.json) {
      JsonLine object;
      object.add_path(path).add_decision(relative, decision);
      if (_options.verbose) add_decider(object, explanation, relative, scope);
      _text.append(object.text()) += '\n';
      return;
    }
    const bool raw = _options.null;
    const char separator = raw ? '\0' : '\t';
    const std::size_t begin = _text.size();
    _text += path;
    if (!raw) make_column(_text, begin);
    _text += separator;
    const std::string_view verdict = !decision             ? to_string(*decision.kind())
                                     : decision.language() ? "indexed"
                                                           : "indexable";
    _text += raw ? verdict : _output.styled(decision ? Style::in : Style::out, verdict);
    _text += separator;
    if (!decision) {
      _text += decision.reason();
    } else {
      _text += decision.language() ? std::string_view(*decision.language()) : "a directory";
    }
    if (_options.verbose) (_text += separator) += decider(explanation, relative, scope, raw);
    _text += raw ? '\0' : '\n';
  }

  void complain(std::string_view path, std::string_view problem) {
    _status = 2;
    if (_options.json && !_options.quiet) {
      JsonLine object;
      _text.append(object.add_path(path).add("error", problem).text()) += '\n';
      return;
    }
    _complaints.emplace_back(_text.size(),
                             (path.empty() ? "''" : printable(path)) + ": " + printable(problem));
  }

  const CheckOptions& _options;
  const CheckedRoot& _root;
  const Output& _output;
  DirectoriesOnDisk _on_disk;
  std::string _text;
  /// What goes to standard error when so much of the text is printed.
  std::vector<std::pair<std::size_t, std::string>> _complaints;
  int _status = 0;
};

/// Asks about the lines, each checker about as many of them, all at the same time. Fewer
/// checkers do when there are few lines.
void ask_lines(std::deque<Checker>& checkers, std::span<const std::string_view> lines) {
  constexpr std::size_t LEAST_LINES = 100;  // take longer than to start a thread
  std::size_t count = std::clamp<std::size_t>(lines.size() / LEAST_LINES, 1, checkers.size());
  std::vector<std::future<void>> others;
  for (; count > 1; --count) {
    const std::size_t share = lines.size() / count;
    Checker& checker = checkers[count - 1];
    const auto last = lines.last(share);
    try {
      others.push_back(
          std::async(std::launch::async, [&checker, last] { checker.ask_lines(last); }));
    } catch (const std::system_error&) {  // the system gives no more: it goes without
      break;
    }
    lines = lines.first(lines.size() - share);
  }
  checkers.front().ask_lines(lines);
  for (auto& other : others) other.get();
}

}  // namespace

int check(const CheckOptions& options) {
  const CheckedRoot root(options.settings);
  Output output(options.color);
  std::deque<Checker> checkers;
  for (std::size_t i = 0; i < options.threads; ++i) checkers.emplace_back(options, root, output);
  const auto print = [&] {
    for (Checker& checker : checkers) checker.print(output);
    output.flush();  // a program that writes a path and waits for its answer gets it
  };

  for (const std::string& path : options.paths) checkers.front().ask(path);
  print();
  if (options.read_stdin) {
    Input input(options.null ? '\0' : '\n');
    while (!output.closed()) {
      const auto lines = input.read();
      if (lines.empty()) break;
      ask_lines(checkers, lines);
      print();
    }
  }
  int status = 0;
  for (const Checker& checker : checkers) status = std::max(status, checker.status());
  return status;
}

}  // namespace program
