#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "program/commands.h"
#include "program/directory.h"
#include "program/file_size.h"
#include "program/output.h"
#include "utils/path_filter/internal/text.h"

namespace program {

using path_filter::Decision;
using path_filter::Explanation;
using path_filter::IndexScope;

namespace {

/// Standard input, split at a character.
class InputPaths {
 public:
  explicit InputPaths(char end) : _end(end) {}

  /// The next path, valid until the next call; absent at the end.
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
    const std::size_t size = _buffer.size();
    _buffer.resize(size + READ_BYTES);
    ssize_t count = -1;
    do {
      count = ::read(STDIN_FILENO, _buffer.data() + size, READ_BYTES);
    } while (count < 0 && errno == EINTR);
    _buffer.resize(size + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (count < 0) {
      throw std::system_error(errno, std::generic_category(), "cannot read the paths");
    }
    return count > 0;
  }

  char _end;
  std::string _buffer;
  std::string _last;
  std::size_t _begin = 0;     // of the path that is next
  std::size_t _searched = 0;  // no end before here
};

/// The scope, and how a path as the shell wrote it becomes one below its root.
class CheckedRoot {
 public:
  explicit CheckedRoot(const Settings& settings)
      : _base(std::filesystem::absolute(settings.root.value_or(".")).lexically_normal()),
        _top(find_place(settings.root.value_or("."), settings.root).root),
        scope(_top, scope_options(settings, &_relative_excludes_file)) {
    if (settings.root) _named = _base;
    if (const auto below = scope.relative(std::filesystem::canonical(_base)))
      _prefix = *below + '/';
  }

  /// `path`, which is relative to the current directory or to --root, relative to the root; a
  /// "/" at its end stays. Throws std::invalid_argument for a path outside the root.
  std::string relative(std::string_view path) const {
    if (path.empty()) throw std::invalid_argument("an empty path");
    while (path.starts_with("./") && path.size() > 2) path.remove_prefix(2);
    // As git and find list them: nothing is to be resolved.
    if (is_plain(path)) return _prefix + std::string(path);
    std::filesystem::path absolute = (_base / path).lexically_normal();
    const bool is_directory = !absolute.has_filename();
    if (is_directory && absolute.has_relative_path()) absolute = absolute.parent_path();
    for (const bool resolve : {false, true}) {
      // Links may lead to the root, or out of it and back.
      if (resolve) absolute = resolved(absolute);
      if (absolute == _top || absolute == _named) return "/";
      auto below = scope.relative(absolute);
      if (!below && !_named.empty()) below = IndexScope(_named).relative(absolute);
      if (below) return std::move(*below) + (is_directory ? "/" : "");
    }
    throw std::invalid_argument("outside the repository " + printable(_top.native()));
  }

  /// What decided about the directory at `path`, or the file there. A directory is what ends in
  /// "/", and what is one on disk and has a name of no language: to look at each path on disk
  /// would take four times as long as to answer.
  Explanation answer(std::string_view path, bool verbose) const {
    std::string directory(path.substr(0, path.find_last_not_of('/') + 1));  // npos + 1 is 0
    if (directory.size() == path.size()) {
      const path_filter::FileFacts facts{.size = size_for_limits(scope, path)};
      Explanation answer = verbose ? as_git_names_it(scope.explain(path, facts))
                                   : Explanation{scope.is_indexable(path, facts)};
      if (answer.decision.kind() != path_filter::Exclusion::unknown_language ||
          !is_directory(directory)) {
        return answer;
      }
    }
    auto excluded = exclusion_of(scope, directory);
    return excluded ? as_git_names_it(std::move(*excluded)) : Explanation{Decision(true)};
  }

 private:
  /// A relative core.excludesFile is named as it is configured.
  Explanation as_git_names_it(Explanation explanation) const {
    if (explanation.rule && !_relative_excludes_file.empty() &&
        explanation.rule->source == (_top / _relative_excludes_file).native()) {
      explanation.rule->source = _relative_excludes_file;
    }
    return explanation;
  }

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

  bool is_directory(const std::string& path) const {
    struct stat status {};
    return ::lstat((_top.native() + '/' + path).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
  }

  /// `path` with the links on the way to its last component followed.
  static std::filesystem::path resolved(const std::filesystem::path& path) {
    std::error_code unresolved;
    return std::filesystem::weakly_canonical(path.parent_path(), unresolved) / path.filename();
  }

  std::string _relative_excludes_file;
  std::filesystem::path _base;   // of relative paths
  std::filesystem::path _top;    // the root, without links
  std::filesystem::path _named;  // and as --root names it
  std::string _prefix;           // of _base below the root, with a "/" at its end

 public:
  const IndexScope scope;
};

/// What decided, in one column for a reader: the rule as `git check-ignore -v` prints
/// it, or what stands for it.
std::string decider(const Explanation& explanation, const IndexScope& scope) {
  if (explanation.rule) {
    const auto& rule = *explanation.rule;
    return printable(rule.source) + ":" + std::to_string(rule.line) + ":" + printable(rule.pattern);
  }
  if (explanation.directory) return printable(*explanation.directory + "/");
  if (explanation.glob) return *explanation.glob;
  if (explanation.decision.kind() == path_filter::Exclusion::size) {
    return std::to_string(scope.limits->max_file_bytes()) + " bytes";
  }
  return "";
}

void print_json(Output& output, std::string_view path, std::string_view relative,
                const Explanation& explanation, bool verbose) {
  Json object = json_of_path(path);
  add_decision(object, relative, explanation.decision);
  if (verbose) {
    object["rule"] = nullptr;
    if (explanation.rule) {
      const auto& rule = *explanation.rule;
      object["rule"] = {{"source", rule.source}, {"line", rule.line}, {"pattern", rule.pattern}};
    }
    if (explanation.directory) object["directory"] = *explanation.directory;
    if (explanation.glob) object["glob"] = *explanation.glob;
  }
  output << json_line(object) << '\n';
}

void print_text(Output& output, std::string_view path, const Explanation& explanation,
                const IndexScope& scope, bool verbose) {
  const Decision& decision = explanation.decision;
  output << printable(path) << '\t';
  if (decision && decision.language()) {
    output << "indexed\t" << *decision.language();
  } else if (decision) {
    output << "indexable\ta directory";
  } else {
    output << to_string(*decision.kind()) << '\t' << decision.reason();
  }
  if (verbose) output << '\t' << decider(explanation, scope);
  output << '\n';
}

}  // namespace

int check(const CheckOptions& options) {
  const CheckedRoot root(options.settings);
  const IndexScope& scope = root.scope;
  Output output;
  int status = 0;

  const auto ask = [&](std::string_view path) {
    try {
      const std::string relative = root.relative(path);
      const Explanation explanation = root.answer(relative, options.verbose);
      if (options.json) {
        print_json(output, path, relative, explanation, options.verbose);
      } else {
        print_text(output, path, explanation, scope, options.verbose);
      }
      if (!explanation.decision) status = std::max(status, 1);
    } catch (const std::exception& error) {
      status = 2;
      if (options.json) {
        Json object = json_of_path(path);
        object["error"] = error.what();
        output << json_line(object) << '\n';
      } else {
        output.flush();
        std::cerr << "path-filter: " << (path.empty() ? "''" : printable(path)) << ": "
                  << printable(error.what()) << '\n';
      }
    }
  };

  for (const std::string& path : options.paths) ask(path);
  if (options.read_stdin) {
    InputPaths paths(options.null ? '\0' : '\n');
    try {
      while (const auto path = paths.next()) ask(*path);
    } catch (...) {
      output.flush();  // what was asked before has its answer
      throw;
    }
  }
  output.flush();
  return status;
}

}  // namespace program
