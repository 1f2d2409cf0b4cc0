#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "program/commands.h"
#include "program/directory.h"
#include "program/file_size.h"
#include "program/output.h"
#include "utils/path_filter/test_code.h"
#include "utils/path_filter/tree_walk.h"

namespace program {

using path_filter::Decision;
using path_filter::Exclusion;
using path_filter::IndexScope;

int list(const ListOptions& options) {
  const Place place = find_place(options.settings.directory, options.settings.root);
  const IndexScope scope(place.root, scope_options(options.settings));
  Output output;
  int status = 0;

  const auto complain = [&](std::string_view path, std::string_view problem) {
    std::cerr << "path-filter: " << printable(path) << ": " << problem << '\n';
    status = 1;
  };
  const char end = options.null ? '\0' : '\n';
  const char separator = options.null ? '\0' : '\t';
  const auto print = [&](std::string_view path, const Decision& decision) {
    if (options.json) {
      Json object = json_of_path(path);
      add_decision(object, path, decision);
      output << json_line(object) << '\n';
      return;
    }
    const std::string shown = place.shown(path);
    output << (options.null ? shown : printable(shown));
    if (options.excluded) {
      output << separator << to_string(*decision.kind()) << separator << decision.reason();
    }
    output << end;
  };

  if (const auto excluded = exclusion_of(scope, place.below); excluded && options.excluded) {
    print(place.below + '/', excluded->decision);
    output.flush();
    return status;
  } else if (excluded) {
    std::cerr << "path-filter: " << printable(options.settings.directory) << ": "
              << excluded->decision.reason() << '\n';
    return status;
  }
  path_filter::Walk walk = scope.walk(
      [&](const std::filesystem::filesystem_error& error) {
        complain(place.shown(error), error.code().message());
      },
      {.on_pruned =
           [&](std::string_view rel_dir, Exclusion kind) {
             // All that a directory holds is left out with it: one line names it.
             if (!options.excluded) return;
             print(std::string(rel_dir) + '/', path_filter::_excluded(kind));
           },
       .below = place.below});
  // A repository that is nothing but tests has them as its production surface: they
  // are kept until the first file that is none.
  std::vector<std::pair<std::string, Decision>> only_tests;
  bool has_production = false;
  for (const std::string& path : walk) {
    try {
      Decision decision = walk.decide({.size = size_for_limits(scope, path)});
      if (decision.indexable() == options.excluded) continue;
      if (options.surface != Surface::all) {
        const bool is_test = path_filter::is_test_path(path);
        if (options.surface == Surface::tests && !is_test) continue;
        if (options.surface == Surface::production) {
          if (is_test && !has_production) only_tests.emplace_back(path, std::move(decision));
          if (is_test) continue;
          has_production = true;
          only_tests.clear();
        }
      }
      print(path, decision);
    } catch (const std::invalid_argument& error) {
      complain(place.shown(path), error.what());
    } catch (const FileSizeError& error) {
      complain(place.shown(path), error.what());
    }
    if (output.closed()) return status;
  }
  for (const auto& [path, decision] : only_tests) print(path, decision);
  output.flush();
  return status;
}

}  // namespace program
