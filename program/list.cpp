#include <algorithm>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "program/commands.h"
#include "program/decider.h"
#include "program/output.h"
#include "program/repository.h"
#include "utils/path_filter/test_code.h"
#include "utils/path_filter/tree_walk.h"

namespace program {

using path_filter::Decision;
using path_filter::Exclusion;
using path_filter::Explanation;

namespace {

/// Prints what the options ask for, at once or sorted at the end.
class Lister {
 public:
  Lister(const ListOptions& options, const Repository& repository)
      : _options(options), _repository(repository), _output(options.color) {}

  /// Whether the options ask for what has this decision.
  bool wants(const Decision& decision) const {
    if (decision.indexable() == _options.excluded) return false;
    return _options.kinds.empty() ||
           std::ranges::find(_options.kinds, *decision.kind()) != _options.kinds.end();
  }

  /// `path` is relative to the root.
  void print(std::string_view path, const Explanation& explanation) {
    if (_options.sorted) {
      _sorted.emplace_back(path, line(path, explanation));
    } else {
      _output << line(path, explanation);
    }
  }

  void finish() {
    std::ranges::sort(_sorted, {}, &std::pair<std::string, std::string>::first);
    for (const auto& [path, text] : _sorted) _output << text;
    _output.flush();
  }

  bool closed() const { return _output.closed(); }

 private:
  std::string line(std::string_view path, const Explanation& explanation) const {
    const Decision& decision = explanation.decision;
    if (_options.json) {
      JsonLine object;
      object.add_path(path).add_decision(path, decision);
      if (_options.verbose) add_decider(object, explanation, path, _repository.scope);
      return std::string(object.text()) + '\n';
    }
    const std::string shown = _repository.place.shown(path);
    const bool raw = _options.null;
    std::string text = raw ? shown : column(shown);
    const auto add = [&](std::string_view field) {
      text += raw ? '\0' : '\t';
      text += field;
    };
    if (_options.excluded) {
      const std::string_view kind = to_string(*decision.kind());
      add(raw ? kind : _output.styled(Style::out, kind));
      add(decision.reason());
      if (_options.verbose) add(decider(explanation, path, _repository.scope, raw));
    }
    return text += raw ? '\0' : '\n';
  }

  const ListOptions& _options;
  const Repository& _repository;
  Output _output;
  std::vector<std::pair<std::string, std::string>> _sorted;
};

}  // namespace

int list(const ListOptions& options) {
  const Repository repository(options.settings);
  const Place& place = repository.place;
  Lister lister(options, repository);
  int status = 0;

  const auto complain = [&](std::string_view path, std::string_view problem) {
    std::cerr << "path-filter: " + printable(path) + ": " + std::string(problem) + "\n";
    status = 1;
  };

  if (const auto excluded = repository.exclusion_of(place.below)) {
    if (lister.wants(excluded->decision)) {
      lister.print(place.below + '/', *excluded);
    } else if (!options.excluded) {
      std::cerr << "path-filter: " + printable(options.settings.directory) + ": " +
                       std::string(excluded->decision.reason()) + "\n";
    }
    lister.finish();
    return status;
  }
  path_filter::Walk walk = repository.scope.walk(
      [&](const std::filesystem::filesystem_error& error) {
        complain(place.shown(error), error.code().message());
      },
      {.on_pruned =
           [&](std::string_view rel_dir, Exclusion kind) {
             // All that a directory holds is left out with it: one line names it.
             Explanation explanation{path_filter::_excluded(kind)};
             if (!lister.wants(explanation.decision)) return;
             if (options.verbose) {
               explanation = repository.exclusion_of(std::string(rel_dir)).value_or(explanation);
             }
             lister.print(std::string(rel_dir) + '/', explanation);
           },
       .below = place.below});
  // A repository that is nothing but tests has them as its production surface: they
  // are kept until the first file that is none.
  std::vector<std::pair<std::string, Explanation>> only_tests;
  bool has_production = false;
  for (const std::string& path : walk) {
    try {
      const path_filter::FileFacts facts{.size = repository.size_for_limits(path)};
      Explanation explanation{walk.decide(facts)};
      if (!lister.wants(explanation.decision)) continue;
      if (options.verbose) {
        // A walk does not take a "\\" in a name for a way through a link: there it may differ.
        Explanation asked = repository.explain(path, facts);
        if (asked.decision == explanation.decision) explanation = std::move(asked);
      }
      if (options.surface != Surface::all) {
        const bool is_test = path_filter::is_test_path(path);
        if (options.surface == Surface::tests && !is_test) continue;
        if (options.surface == Surface::production) {
          if (is_test && !has_production) only_tests.emplace_back(path, std::move(explanation));
          if (is_test) continue;
          has_production = true;
          only_tests.clear();
        }
      }
      lister.print(path, explanation);
    } catch (const std::invalid_argument& error) {
      complain(place.shown(path), error.what());
    } catch (const FileSizeError& error) {
      complain(place.shown(path), error.what());
    }
    if (lister.closed()) return status;
  }
  for (const auto& [path, explanation] : only_tests) lister.print(path, explanation);
  lister.finish();
  return status;
}

}  // namespace program
