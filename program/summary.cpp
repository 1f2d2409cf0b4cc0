#include <algorithm>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "program/commands.h"
#include "program/output.h"
#include "program/repository.h"
#include "program/survey.h"

namespace program {

using path_filter::Decision;
using path_filter::Exclusion;

namespace {

template <typename Key>
std::vector<std::pair<Key, Count>> by_files(const std::map<Key, Count>& counts) {
  std::vector<std::pair<Key, Count>> rows(counts.begin(), counts.end());
  std::ranges::stable_sort(
      rows, [](const auto& a, const auto& b) { return a.second.files > b.second.files; });
  return rows;
}

/// A field of a table.
std::string right(std::string text) {
  constexpr std::size_t WIDTH = 12;
  text.insert(0, WIDTH - std::min(text.size(), WIDTH), ' ');
  return text;
}

void print_row(Output& output, const Count& count, std::string_view title) {
  output << right(grouped(count.files)) << right(readable_size(count.bytes)) << "  " << title
         << '\n';
}

void print_heading(Output& output, std::string_view title) {
  output << right("files") << right("size") << "  " << output.styled(Style::heading, title) << '\n';
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

Summary count(const Repository& repository, const Place& place) {
  Summary summary;
  summary.status = survey(
      repository, place,
      {.on_file =
           [&](const SurveyedFile& file) {
             const Decision& decision = file.decision;
             const std::size_t bytes = file.bytes();
             (decision ? summary.in : summary.out).add(bytes);
             if (file.is_test) summary.tests.add(bytes);
             (decision ? summary.languages[*decision.language()]
                       : summary.exclusions[*decision.kind()])
                 .add(bytes);
           },
       .on_pruned =
           [&](PrunedDirectory directory) { summary.pruned.push_back(std::move(directory)); }});
  for (const PrunedDirectory& directory : summary.pruned) {
    summary.out.add(directory.count);
    summary.exclusions[directory.kind].add(directory.count);
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

void print_json(Output& output, const Summary& summary, const Place& place) {
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
        with({{"path", place.shown(directory.path + "/")}, {"kind", to_string(directory.kind)}},
             directory.count));
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
  const Place place = find_place(options.settings.directory, options.settings.root);
  const Repository repository(place.root, read_limits(options.settings));
  const Summary summary = count(repository, place);
  Output output(options.color);
  if (options.json) {
    print_json(output, summary, place);
  } else {
    print_text(output, summary, place);
  }
  output.flush();
  return summary.status;
}

}  // namespace program
