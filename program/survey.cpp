#include "program/survey.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "program/output.h"
#include "program/system.h"
#include "utils/path_filter/index_scope/tree_walk.h"
#include "utils/path_filter/test_code/test_code.h"

namespace program {

using path_filter::Decision;
using path_filter::Exclusion;
using path_filter::IndexScope;
using path_filter::ScopeDirectory;

namespace {

/// How far the work is, on a line of a terminal that is written over.
class Progress {
 public:
  void step() {
    if (!_shown || ++_files % 512 != 0) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - _last < std::chrono::milliseconds(100)) return;
    _last = now;
    write_all(standard_error(), "\r" + grouped(_files) + " files");
    _written = true;
  }

  /// Leaves the line to something else.
  void clear() {
    if (std::exchange(_written, false)) write_all(standard_error(), "\r\033[K");
  }

  ~Progress() { clear(); }

 private:
  const bool _shown = obeys_escapes(standard_error());
  bool _written = false;
  std::size_t _files = 0;
  std::chrono::steady_clock::time_point _last = std::chrono::steady_clock::now();
};

}  // namespace

int survey(const Repository& repository, const Place& place, const SurveyHandlers& handlers) {
  const IndexScope& scope = repository.scope;
  if (const auto excluded = repository.exclusion_of_directory(place.below)) {
    throw LeftOut(printable(place.directory), excluded->decision.reason());
  }
  Progress progress;
  int status = 0;
  const auto complain = [&](std::string_view path, std::string_view problem) {
    progress.clear();
    program::complain(printable(path) + ": " + std::string(problem));
    status = 1;
  };
  std::vector<ScopeDirectory> pending{ScopeDirectory(scope, place.below)};  // the next one last
  std::vector<std::pair<ScopeDirectory, PrunedDirectory>> pruned;           // in the one listed
  path_filter::DirectoryLister lister(
      scope,
      [&](const std::filesystem::filesystem_error& error) {
        complain(place.shown(error), error.code().message());
      },
      [&](ScopeDirectory directory, std::string_view rel_dir, Exclusion kind) {
        if (is_git_store(rel_dir)) return;
        pruned.push_back({directory, {std::string(rel_dir), kind, {}}});
      });
  const auto add_subdirectories = [&] {
    const auto added = pending.size();
    while (const auto below = lister.next_directory()) pending.push_back(*below);
    std::reverse(pending.begin() + static_cast<std::ptrdiff_t>(added), pending.end());
  };
  const auto count_below = [&](ScopeDirectory directory, Count& count) {
    const auto base = pending.size();
    for (pending.push_back(directory); pending.size() > base;) {
      const ScopeDirectory listed = pending.back();
      pending.pop_back();
      if (!lister.list_unjudged(listed)) continue;
      add_subdirectories();
      while (lister.next_file() != nullptr) {
        progress.step();
        if (!lister.is_regular_file()) continue;
        std::error_code error;
        if (const auto size = lister.file_size(error)) count.add(static_cast<std::size_t>(*size));
      }
    }
  };
  while (!pending.empty()) {
    const ScopeDirectory listed = pending.back();
    pending.pop_back();
    lister.list(listed);
    add_subdirectories();
    while (const std::string* path = lister.next_file()) {
      progress.step();
      if (!lister.is_regular_file() || is_git_store(*path)) continue;  // as `list` has it
      std::error_code error;
      const auto size = lister.file_size(error);
      if (error && !is_absence(error)) {
        complain(place.shown(*path), unknown_size(error));
        continue;
      }
      try {
        const Decision decision = lister.decide({.size = size});
        handlers.on_file({*path, size, decision, decision && path_filter::is_test_path(*path)});
      } catch (const std::invalid_argument& problem) {
        complain(place.shown(*path), problem.what());
      }
    }
    for (auto& [directory, counted] : std::exchange(pruned, {})) {
      count_below(directory, counted.count);
      handlers.on_pruned(std::move(counted));
    }
  }
  return status;
}

}  // namespace program
