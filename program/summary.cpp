#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "program/commands.h"
#include "program/output.h"
#include "program/repository.h"
#include "utils/path_filter/internal/file_system.h"
#include "utils/path_filter/test_code.h"
#include "utils/path_filter/tree_walk.h"

namespace program {

using path_filter::Decision;
using path_filter::Exclusion;
using path_filter::IndexScope;

namespace {

struct Count {
  std::size_t files = 0;
  std::size_t bytes = 0;

  void add(std::size_t size) {
    ++files;
    bytes += size;
  }
};

struct PrunedDirectory {
  std::string path;
  Exclusion kind;
  Count count;
};

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

  ~Progress() {
    if (_written) std::cerr << "\r\033[K" << std::flush;
  }

 private:
  const bool _shown = ::isatty(STDERR_FILENO) == 1;
  bool _written = false;
  std::size_t _files = 0;
  std::chrono::steady_clock::time_point _last = std::chrono::steady_clock::now();
};

/// Counts all that lies below a directory that the walk leaves out. Links are not
/// followed; what cannot be read is not counted.
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

template <typename Key>
std::vector<std::pair<Key, Count>> by_files(const std::map<Key, Count>& counts) {
  std::vector<std::pair<Key, Count>> rows(counts.begin(), counts.end());
  std::ranges::stable_sort(
      rows, [](const auto& a, const auto& b) { return a.second.files > b.second.files; });
  return rows;
}

constexpr std::size_t NUMBER_WIDTH = 12;
constexpr std::size_t BYTES_WIDTH = 12;

std::string right(std::string text, std::size_t width) {
  text.insert(0, width - std::min(text.size(), width), ' ');
  return text;
}

void print_row(Output& output, const Count& count, std::string_view title) {
  output << right(grouped(count.files), NUMBER_WIDTH)
         << right(readable_size(count.bytes), BYTES_WIDTH) << "  " << title << '\n';
}

void print_heading(Output& output, std::string_view title) {
  output << right("files", NUMBER_WIDTH) << right("size", BYTES_WIDTH) << "  "
         << output.styled(Style::heading, title) << '\n';
}

Json json_of(const Count& count) { return {{"files", count.files}, {"bytes", count.bytes}}; }

/// `object` with the two fields of a count.
Json with(Json object, const Count& count) {
  object.update(json_of(count));
  return object;
}

/// All that is counted below one directory.
struct Summary {
  Count in;
  Count out;
  Count tests;
  std::map<std::string, Count> languages;
  std::map<Exclusion, Count> exclusions;
  std::vector<PrunedDirectory> pruned;  // the largest first
  int status = 0;
};

Summary count(const Repository& repository) {
  const IndexScope& scope = repository.scope;
  const Place& place = repository.place;
  Summary summary;
  Progress progress;
  const auto complain = [&](std::string_view path, std::string_view problem) {
    std::cerr << "path-filter: " + printable(path) + ": " + std::string(problem) + "\n";
    summary.status = 1;
  };
  path_filter::Walk walk = scope.walk(
      [&](const std::filesystem::filesystem_error& error) {
        complain(place.shown(error), error.code().message());
      },
      {.on_pruned =
           [&](std::string_view rel_dir, Exclusion kind) {
             summary.pruned.push_back(
                 {std::string(rel_dir), kind, count_below(scope, rel_dir, progress)});
           },
       .below = place.below});
  for (const std::string& path : walk) {
    progress.step();
    if (!walk.is_regular_file()) continue;  // as `list` has it
    try {
      const auto size = repository.size(path);
      const auto bytes = static_cast<std::size_t>(size.value_or(0));
      const Decision decision = walk.decide({.size = size});
      (decision ? summary.in : summary.out).add(bytes);
      if (decision && path_filter::is_test_path(path)) summary.tests.add(bytes);
      (decision ? summary.languages[*decision.language()] : summary.exclusions[*decision.kind()])
          .add(bytes);
    } catch (const std::invalid_argument& error) {
      complain(place.shown(path), error.what());
    } catch (const FileSizeError& error) {
      complain(place.shown(path), error.what());
    }
  }
  for (const PrunedDirectory& directory : summary.pruned) {
    for (Count* count : {&summary.out, &summary.exclusions[directory.kind]}) {
      count->files += directory.count.files;
      count->bytes += directory.count.bytes;
    }
  }
  std::ranges::stable_sort(
      summary.pruned, [](const auto& a, const auto& b) { return a.count.bytes > b.count.bytes; });
  return summary;
}

void print_text(Output& output, const Summary& summary, const Place& place) {
  constexpr std::size_t MOST_PRUNED = 10;
  print_heading(output, "indexed, by language");
  for (const auto& [language, count] : by_files(summary.languages)) {
    print_row(output, count, language);
  }
  print_row(output, summary.in, "in all");
  print_row(output, summary.tests, "of it test code");
  output << '\n';
  print_heading(output, "left out, by kind");
  for (const auto& [kind, count] : by_files(summary.exclusions)) {
    print_row(output, count, to_string(kind));
  }
  print_row(output, summary.out, "in all");
  if (summary.pruned.empty()) return;
  output << '\n';
  print_heading(output, "largest pruned directories");
  for (std::size_t index = 0; index < std::min(summary.pruned.size(), MOST_PRUNED); ++index) {
    const PrunedDirectory& directory = summary.pruned[index];
    print_row(output, directory.count,
              column(place.shown(directory.path + "/")) + "  (" +
                  std::string(to_string(directory.kind)) + ")");
  }
}

void print_json(Output& output, const Summary& summary) {
  Json languages = Json::array();
  for (const auto& [language, count] : by_files(summary.languages)) {
    languages.push_back(with({{"language", language}}, count));
  }
  Json kinds = Json::array();
  for (const auto& [kind, count] : by_files(summary.exclusions)) {
    kinds.push_back(with({{"kind", to_string(kind)}}, count));
  }
  Json pruned = Json::array();
  for (const PrunedDirectory& directory : summary.pruned) {
    pruned.push_back(
        with({{"path", directory.path}, {"kind", to_string(directory.kind)}}, directory.count));
  }
  JsonLine line;
  Json indexed = json_of(summary.in);
  indexed["test"] = json_of(summary.tests);
  indexed["languages"] = languages;
  Json excluded = json_of(summary.out);
  excluded["kinds"] = kinds;
  excluded["pruned_directories"] = pruned;
  output << line.add_json("indexed", indexed).add_json("excluded", excluded).text() << '\n';
}

}  // namespace

int summarize(const SummaryOptions& options) {
  const Repository repository(options.settings);
  if (const auto excluded = repository.exclusion_of(repository.place.below)) {
    throw UsageError(printable(options.settings.directory) +
                     " is left out: " + std::string(excluded->decision.reason()));
  }
  const Summary summary = count(repository);
  Output output(options.color);
  if (options.json) {
    print_json(output, summary);
  } else {
    print_text(output, summary, repository.place);
  }
  output.flush();
  return summary.status;
}

}  // namespace program
