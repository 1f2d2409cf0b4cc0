#include "program/survey.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "program/output.h"
#include "utils/path_filter/internal/file_system.h"
#include "utils/path_filter/test_code.h"
#include "utils/path_filter/tree_walk.h"

namespace program {

using path_filter::Decision;
using path_filter::Exclusion;
using path_filter::IndexScope;

namespace {

/// How far the work is, on a line of a terminal that is written over.
class Progress {
 public:
  void step() {
    if (!_shown || ++_files % 512 != 0) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - _last < std::chrono::milliseconds(100)) return;
    _last = now;
    std::cerr << '\r' << grouped(_files) << " files" << std::flush;
    _written = true;
  }

  /// Leaves the line to something else.
  void clear() {
    if (std::exchange(_written, false)) std::cerr << "\r\033[K" << std::flush;
  }

  ~Progress() { clear(); }

 private:
  const bool _shown = ::isatty(STDERR_FILENO) == 1 && !is_dumb_terminal();
  bool _written = false;
  std::size_t _files = 0;
  std::chrono::steady_clock::time_point _last = std::chrono::steady_clock::now();
};

/// Counts all that lies below a directory that the walk leaves out.
Count count_below(const IndexScope& scope, std::string_view directory, Progress& progress) {
  struct Pending {
    std::size_t prefix;  // of the path to the directory that holds it
    std::string name;
  };
  Count count;
  std::string path;
  path_filter::internal::Listing listing;
  std::vector<Pending> pending{{0, std::string(directory)}};
  while (!pending.empty()) {
    path.replace(pending.back().prefix, std::string::npos, pending.back().name);
    pending.pop_back();
    path_filter::internal::FileDescriptor opened;
    if (path_filter::internal::open_directory_below(scope.root.native(), path, opened) != 0 ||
        listing.read(opened) != 0) {
      continue;
    }
    path += '/';
    for (std::size_t index = 0; index < listing.size(); ++index) {
      const auto entry = listing[index];
      std::string name(entry.name);
      if (entry.is_directory && !entry.is_link) {
        pending.push_back({path.size(), std::move(name)});
        continue;
      }
      struct stat status {};
      if (::fstatat(opened.number(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
      count.add(static_cast<std::size_t>(status.st_size));
      progress.step();
    }
  }
  return count;
}

}  // namespace

int survey(const Repository& repository, const Place& place, const SurveyHandlers& handlers) {
  const IndexScope& scope = repository.scope;
  if (const auto excluded = repository.exclusion_of(place.below)) {
    throw UsageError(printable(place.directory) +
                     " is left out: " + std::string(excluded->decision.reason()));
  }
  Progress progress;
  int status = 0;
  const auto complain = [&](std::string_view path, std::string_view problem) {
    progress.clear();
    std::cerr << "path-filter: " + printable(path) + ": " + std::string(problem) + "\n";
    status = 1;
  };
  path_filter::Walk walk = scope.walk(
      [&](const std::filesystem::filesystem_error& error) {
        complain(place.shown(error), error.code().message());
      },
      {.on_pruned =
           [&](std::string_view rel_dir, Exclusion kind) {
             handlers.on_pruned(
                 {std::string(rel_dir), kind, count_below(scope, rel_dir, progress)});
           },
       .below = place.below});
  for (const std::string& path : walk) {
    progress.step();
    if (!walk.is_regular_file()) continue;  // as `list` has it
    try {
      const auto size = repository.size(path);
      const Decision decision = walk.decide({.size = size});
      handlers.on_file({path, size, decision, decision && path_filter::is_test_path(path)});
    } catch (const std::invalid_argument& error) {
      complain(place.shown(path), error.what());
    } catch (const FileSizeError& error) {
      complain(place.shown(path), error.what());
    }
  }
  return status;
}

}  // namespace program
