#include <algorithm>
#include <deque>
#include <exception>
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
#include "program/judge.h"
#include "program/output.h"

namespace program {

using path_filter::Decision;

namespace {

/// Asks about paths, on one thread, and holds the answers as text until they are printed.
class Checker {
 public:
  Checker(const CheckOptions& options, Repositories& repositories, const Output& output)
      : _options(options), _output(output), _judge(repositories, options.settings.root) {}

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
      const Judge::Answer answer = _judge.ask(path, _options.verbose);
      if (!_options.quiet) add(path, answer);
      if (!answer.explanation.decision) _status = std::max(_status, 1);
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
    _judge.forget();
  }

  int status() const { return _status; }

 private:
  void add(std::string_view path, const Judge::Answer& answer) {
    const Decision& decision = answer.explanation.decision;
    const auto& scope = answer.repository.scope;
    if (_options.json) {
      JsonLine object;
      object.add_path(path).add_decision(answer.path, decision);
      if (_options.verbose) {
        add_decider(object, answer.explanation, answer.path, scope);
        const auto tracked = tracked_although_ignored(answer);
        if (tracked) object.add_json("tracked", *tracked);
      }
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
    if (_options.verbose) {
      (_text += separator) += decider(answer.explanation, answer.path, scope, raw);
      const bool is_tracked = tracked_although_ignored(answer).value_or(false);
      if (is_tracked || raw) (_text += separator) += is_tracked ? "tracked" : "";
    }
    _text += raw ? '\0' : '\n';
  }

  /// Whether git tracks what its rules leave out, which its own commands do not ask them about.
  static std::optional<bool> tracked_although_ignored(const Judge::Answer& answer) {
    if (answer.explanation.decision.kind() != path_filter::Exclusion::gitignore) return {};
    return answer.repository.is_tracked(answer.path);
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
  const Output& _output;
  Judge _judge;
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
  Repositories repositories(read_limits(options.settings));
  Output output(options.color);
  std::deque<Checker> checkers;
  for (std::size_t i = 0; i < options.threads; ++i)
    checkers.emplace_back(options, repositories, output);
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
