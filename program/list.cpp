#include <algorithm>
#include <atomic>
#include <exception>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "program/commands.h"
#include "program/decider.h"
#include "program/directory_queue.h"
#include "program/judge.h"
#include "program/output.h"
#include "program/repository.h"
#include "utils/path_filter/index_scope/tree_walk.h"
#include "utils/path_filter/test_code/test_code.h"

namespace program {

using path_filter::Decision;
using path_filter::Exclusion;
using path_filter::Explanation;

namespace {

/// What is printed for a path.
struct Line {
  std::string path;  // as it is shown
  std::string text;
};

/// What all listings and their threads share.
class Lines {
 public:
  explicit Lines(Color color) : _output(color) {}

  std::string styled(Style style, std::string_view text) const {
    return _output.styled(style, text);
  }

  /// Prints whole lines; false when nobody reads them any more.
  bool print(std::string_view text) {
    const std::lock_guard lock(_mutex);
    _output << text;
    return !_output.closed();
  }

  /// Keeps lines that are printed at the end.
  void keep(std::vector<Line>&& lines) {
    const std::lock_guard lock(_mutex);
    std::ranges::move(lines, std::back_inserter(_kept));
  }

  /// The same for test code, which is printed if nothing else has been found by then.
  void keep_tests(std::vector<Line>&& lines) {
    const std::lock_guard lock(_mutex);
    std::ranges::move(lines, std::back_inserter(_kept_tests));
  }

  /// Prints what is kept, in the order of the paths if it is to be `sorted`.
  void finish(bool sorted) {
    if (!has_production) std::ranges::move(_kept_tests, std::back_inserter(_kept));
    if (sorted) std::ranges::sort(_kept, {}, &Line::path);
    for (const Line& line : _kept) _output << line.text;
    _output.flush();
  }

  /// Whether somebody still reads.
  bool is_read() {
    const std::lock_guard lock(_mutex);
    return !_output.closed();
  }

  /// Tells a problem, after which the exit status is at least this.
  void fail(int status, const std::string& problem) {
    program::complain(problem);
    const std::lock_guard lock(_mutex);
    _status = std::max(_status, status);
  }

  /// Of a path that is passed over.
  void complain(std::string_view path, std::string_view problem) {
    fail(1, printable(path) + ": " + std::string(problem));
  }

  int status() const { return _status; }

  std::atomic<bool> has_production = false;

 private:
  std::mutex _mutex;  // of what follows
  Output _output;
  std::vector<Line> _kept;
  std::vector<Line> _kept_tests;
  int _status = 0;
};

/// Finds and prints what the options ask for in one place, on one thread.
class TreePrinter {
 public:
  TreePrinter(const ListOptions& options, const Repository& repository, const Place& place,
              Lines& lines)
      : _options(options),
        _repository(repository),
        _place(place),
        _lines(lines),
        _files(
            repository.scope,
            [this](const std::filesystem::filesystem_error& error) {
              _lines.complain(_place.shown(error), error.code().message());
            },
            [this](ScopeDirectory, std::string_view rel_dir, Exclusion kind) {
              print_pruned(rel_dir, kind);
            }) {}

  /// Lists the directories of the queue, and puts into it what is below them.
  void run(DirectoryQueue& queue) {
    for (auto directory = queue.take(false); directory;) {
      directory = visit(*directory, queue);
      if (!directory) directory = queue.take(true);
    }
    finish();
  }

  /// Prints what was named: a file at `path`, or a directory that is left out as a whole.
  void print_named(const std::string& path, const Explanation& explanation) {
    if (!explanation.decision && !_options.excluded) {
      throw LeftOut(printable(_place.directory), explanation.decision.reason());
    }
    print_judged(path, explanation);
    finish();
  }

 private:
  static constexpr std::size_t BUFFER_BYTES = 16 * 1024;

  /// Prints the files of a directory. Of its subdirectories the first is this thread's own, which
  /// has the way to it open; the others go into the queue.
  std::optional<ScopeDirectory> visit(ScopeDirectory directory, DirectoryQueue& queue) {
    std::vector<ScopeDirectory> others;
    _files.list(directory);
    const auto first = _files.next_directory();
    while (const auto next = _files.next_directory()) others.push_back(*next);
    std::ranges::reverse(others);
    const bool goes_on = queue.add(others);
    while (const std::string* path = _files.next_file()) print_file(*path);
    if (flush(BUFFER_BYTES) && goes_on) return first;
    queue.stop();
    return std::nullopt;
  }

  /// Whether the options ask for what has this decision.
  bool wants(const Decision& decision) const {
    if (decision.indexable() == _options.excluded) return false;
    return _options.kinds.empty() ||
           std::ranges::find(_options.kinds, *decision.kind()) != _options.kinds.end();
  }

  /// All that a directory holds is left out with it: one line names it.
  void print_pruned(std::string_view rel_dir, Exclusion kind) {
    Explanation explanation{path_filter::Decision::excluded(kind)};
    if (!wants(explanation.decision) || is_git_store(rel_dir)) return;
    if (_options.verbose) {
      explanation = _repository.exclusion_of_directory(std::string(rel_dir)).value_or(explanation);
    }
    print(std::string(rel_dir) + '/', explanation);
  }

  /// Hands on what is kept.
  void finish() {
    flush(0);
    // Kept until the end, or until somebody finds a file that is none.
    if (!_lines.has_production) _lines.keep_tests(std::move(_only_tests));
    _lines.keep(std::move(_sorted));
  }

  void print_file(const std::string& path) {
    // The next program in a pipe would wait for a FIFO, and read what a link names anywhere.
    if (!_files.is_regular_file() || is_git_store(path)) return;
    try {
      path_filter::FileFacts facts;
      std::error_code error;
      if (_repository.scope.limits) facts.size = _files.file_size(error);
      if (error && !is_absence(error)) {
        return _lines.complain(_place.shown(path), unknown_size(error));
      }
      Explanation explanation{_files.decide(facts)};
      if (!wants(explanation.decision)) return;
      if (_options.verbose) {
        // A walk does not take a "\" in a name for a way through a link: there it may differ.
        Explanation asked = _repository.explain(path, facts);
        if (asked.decision == explanation.decision) explanation = std::move(asked);
      }
      print_judged(path, explanation);
    } catch (const std::invalid_argument& error) {
      _lines.complain(_place.shown(path), error.what());
    }
  }

  void print_judged(const std::string& path, const Explanation& explanation) {
    if (!wants(explanation.decision)) return;
    const bool is_test = _options.surface != Surface::all && path_filter::is_test_path(path);
    if (_options.surface == Surface::tests && !is_test) return;
    if (_options.surface == Surface::production) {
      // A repository that is nothing but tests has them as its production surface: they
      // are kept until the first file that is none.
      if (!is_test) _lines.has_production = true;
      if (_lines.has_production) _only_tests = {};
      if (is_test && !_lines.has_production) keep(path, explanation, _only_tests);
      if (is_test) return;
    }
    print(path, explanation);
  }

  void print(std::string_view path, const Explanation& explanation) {
    if (_options.sorted) {
      keep(path, explanation, _sorted);
    } else {
      append_line(path, explanation, _buffer);
    }
  }

  void keep(std::string_view path, const Explanation& explanation, std::vector<Line>& lines) const {
    lines.push_back({_place.shown(path), {}});
    append_line(path, explanation, lines.back().text);
  }

  /// Prints what is found when it is more than `bytes`; false when nobody reads it any more.
  bool flush(std::size_t bytes) {
    if (_buffer.size() <= bytes) return true;
    const bool is_read = _lines.print(_buffer);
    _buffer.clear();
    return is_read;
  }

  void append_line(std::string_view path, const Explanation& explanation, std::string& out) const {
    const Decision& decision = explanation.decision;
    if (_options.json) {
      JsonLine object;
      object.add_path(_place.shown(path)).add_decision(path, decision);
      if (_options.verbose) add_decider(object, explanation, path, _repository.scope);
      out.append(object.text()) += '\n';
      return;
    }
    const bool raw = _options.null;
    const std::size_t begin = out.size();
    _place.append_shown(path, out);
    if (!raw) make_column(out, begin);
    const auto add = [&](std::string_view field) {
      out += raw ? '\0' : '\t';
      out += field;
    };
    if (_options.excluded) {
      const std::string_view kind = to_string(*decision.kind());
      add(raw ? kind : _lines.styled(Style::out, kind));
      add(decision.reason());
    } else if (_options.verbose) {
      add(*decision.language());
    }
    if (_options.verbose) add(decider(explanation, path, _repository.scope, raw));
    out += raw ? '\0' : '\n';
  }

  const ListOptions& _options;
  const Repository& _repository;
  const Place& _place;
  Lines& _lines;
  path_filter::DirectoryLister _files;
  std::string _buffer;
  std::vector<Line> _sorted;
  std::vector<Line> _only_tests;
};

/// Lists a directory.
void list_directory(const ListOptions& options, const Repository& repository, const Place& place,
                    Lines& lines) {
  if (const auto excluded = repository.exclusion_of_directory(place.below)) {
    TreePrinter(options, repository, place, lines).print_named(place.below + '/', *excluded);
    return;
  }
  DirectoryQueue queue(ScopeDirectory(repository.scope, place.below));
  std::exception_ptr failure;
  std::mutex failing;
  const auto run = [&] {
    try {
      TreePrinter(options, repository, place, lines).run(queue);
    } catch (...) {
      const std::lock_guard lock(failing);
      failure = std::current_exception();
      queue.stop();
    }
  };
  {
    std::vector<std::jthread> others;
    try {
      for (std::size_t count = 1; count < options.threads; ++count) others.emplace_back(run);
    } catch (const std::system_error&) {  // the system gives no more: it goes without
    }
    run();
  }
  if (failure) std::rethrow_exception(failure);
}

/// Lists a file that was named.
void list_file(const ListOptions& options, const std::string& name, Judge& judge, Lines& lines) {
  const Judge::Answer answer = judge.ask(name, options.verbose);
  Place place;
  place.root = answer.repository.root;
  place.directory = name;
  // What stands before the file's name, here and below the root.
  const auto above = [](const std::string& path) { return path.substr(0, path.rfind('/') + 1); };
  place.prefix = above(name);
  place.below = above(answer.path);
  if (!place.below.empty()) place.below.pop_back();
  TreePrinter(options, answer.repository, place, lines)
      .print_named(answer.path, answer.explanation);
}

}  // namespace

int list(const ListOptions& options) {
  const auto& root = options.settings.root;
  Repositories repositories(read_limits(options.settings));
  Judge judge(repositories, root);  // a wrong root is told once
  Lines lines(options.color);
  const auto list_path = [&](const std::optional<std::string>& path) {
    try {
      if (path && judge.is_file(*path)) return list_file(options, *path, judge, lines);
      const Place place = find_place(path, root);
      list_directory(options, repositories.at(place.root), place, lines);
    } catch (const LeftOut& error) {
      lines.fail(1, error.what());
    } catch (const UsageError& error) {
      lines.fail(2, error.what());
    } catch (const path_filter::DecodingError& error) {  // its ".git"
      lines.fail(2, printable(error.what()));
    } catch (const std::invalid_argument& error) {
      lines.complain(path.value_or("."), error.what());
    }
  };
  if (options.paths.empty()) list_path(std::nullopt);
  for (const std::string& path : options.paths) {
    if (!lines.is_read()) break;
    list_path(native(path));
  }
  lines.finish(options.sorted);
  return lines.status();
}

}  // namespace program
