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

/// The scope and the two absolute forms of its root, as text and without its links.
struct CheckedRoot {
  explicit CheckedRoot(const Settings& settings)
      : scope(std::filesystem::absolute(settings.root).lexically_normal(),
              scope_options(settings, &relative_excludes_file)),
        resolved(std::filesystem::canonical(settings.root)) {}

  /// `path` relative to the root: as it is, but for an absolute one below the root.
  std::string_view relative(std::string_view path, std::string& storage) const {
    if (!path.starts_with('/')) return path;
    auto below = scope.relative(path);
    if (!below) below = IndexScope(resolved).relative(path);
    if (!below) {
      throw std::invalid_argument(path_filter::internal::quoted(path) + " is not below the root " +
                                  printable(scope.root.native()));
    }
    storage = std::move(*below);
    return storage;
  }

  /// What decided about a path, with each ignore file named as git names it.
  Explanation explain(std::string_view path, path_filter::FileFacts facts) const {
    Explanation explanation = scope.explain(path, facts);
    if (explanation.rule && !relative_excludes_file.empty() &&
        explanation.rule->source == (scope.root / relative_excludes_file).native()) {
      explanation.rule->source = relative_excludes_file;
    }
    return explanation;
  }

  std::string relative_excludes_file;
  IndexScope scope;
  std::filesystem::path resolved;
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
  if (decision) {
    output << "indexed\t" << *decision.language();
  } else {
    output << to_string(*decision.kind()) << '\t' << decision.reason();
  }
  if (verbose) output << '\t' << decider(explanation, scope);
  output << '\n';
}

}  // namespace

int check(const CheckOptions& options) {
  require_directory(options.settings.root);
  const CheckedRoot root(options.settings);
  const IndexScope& scope = root.scope;
  Output output;
  int status = 0;

  const auto ask = [&](std::string_view path) {
    std::string storage;
    try {
      const std::string_view relative = root.relative(path, storage);
      const path_filter::FileFacts facts{.size = size_for_limits(scope, relative)};
      const Explanation explanation = options.verbose
                                          ? root.explain(relative, facts)
                                          : Explanation{scope.is_indexable(relative, facts)};
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
        std::cerr << "path-filter: " << printable(path) << ": " << printable(error.what()) << '\n';
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
