#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "program/commands.h"
#include "program/decider.h"
#include "program/output.h"
#include "program/report/page.h"
#include "program/report/tree.h"
#include "program/repository.h"
#include "program/survey.h"
#include "program/system.h"
#include "utils/path_filter/base/paths.h"
#include "utils/path_filter/base/platform.h"

namespace program {

using path_filter::Exclusion;
using path_filter::Explanation;
using path_filter::internal::random_seed;

namespace {

report::Verdict verdict_of(Exclusion kind) {
  return static_cast<report::Verdict>(2 + static_cast<unsigned>(kind));
}

/// `plain` with other texts for some characters.
std::string escaped(std::string_view plain, const std::map<char, std::string_view>& escapes) {
  std::string text;
  text.reserve(plain.size());
  for (const char character : plain) {
    const auto escape = escapes.find(character);
    escape == escapes.end() ? text += character : text += escape->second;
  }
  return text;
}

/// What only the page itself can know, so that nothing else that gets into it can run.
std::string nonce() {
  std::array<char, 33> digits{};
  std::snprintf(digits.data(), digits.size(), "%016jx%016jx", std::uintmax_t{random_seed()},
                std::uintmax_t{random_seed()});
  return digits.data();
}

/// `pattern` with the parts in place of their names in double braces.
std::string filled(std::string_view pattern,
                   const std::map<std::string_view, std::string_view>& parts) {
  std::string text;
  for (std::size_t begin; (begin = pattern.find("{{")) != pattern.npos;) {
    const std::size_t end = pattern.find("}}", begin);
    text += pattern.substr(0, begin);
    text += parts.at(pattern.substr(begin + 2, end - begin - 2));
    pattern.remove_prefix(end + 2);
  }
  return text += pattern;
}

std::string now() {
  const std::time_t time = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M UTC", std::gmtime(&time));
  return text.data();
}

/// What decided about a file that is left out, where that is more than its name and kind.
std::string decider_of(const SurveyedFile& file, const Repository& repository) {
  if (file.decision || file.decision.kind() == Exclusion::unknown_language) return "";
  const Explanation asked = repository.explain(file.path, {.size = file.size});
  // A walk does not take a "\\" in a name for a way through a link: there it may differ.
  if (asked.decision != file.decision || asked.directory) return "";
  return decider(asked, file.path, repository.scope);
}

std::string decider_of(const PrunedDirectory& directory, const Repository& repository) {
  if (directory.kind != Exclusion::gitignore) return "";
  const auto excluded = repository.exclusion_of_directory(directory.path);
  return excluded && excluded->rule ? decider(*excluded, directory.path, repository.scope) : "";
}

}  // namespace

int write_report(const ReportOptions& options) {
  if (report::LIBRARY.empty()) {
    throw UsageError("this path-filter was built without 'report': d3-hierarchy was missing");
  }
  if (options.file && options.file->empty()) {
    throw UsageError("report: --output: '' is no name of a file");
  }
  std::optional<PageFile> target;
  if (options.file && *options.file != "-") target.emplace(*options.file);
  if (is_terminal(target ? target->stream() : standard_output())) {
    throw UsageError(
        "report: a page is no text for a terminal\nTry 'path-filter report -o report.html'.");
  }
  const Place place = find_place(options.settings.directory, options.settings.root);
  const Repository repository(place.root, read_limits(options.settings));
  report::Tree tree(place.below);
  const int status = survey(
      repository, place,
      {.on_file =
           [&](const SurveyedFile& file) {
             const report::Verdict verdict =
                 file.decision ? report::Verdict{file.is_test} : verdict_of(*file.decision.kind());
             tree.add(file.path, report::Form::file, verdict,
                      file.decision.language() ? std::string_view(*file.decision.language()) : "",
                      decider_of(file, repository), {1, file.bytes()});
           },
       .on_pruned =
           [&](const PrunedDirectory& directory) {
             tree.add(directory.path, report::Form::pruned_directory, verdict_of(directory.kind),
                      "", decider_of(directory, repository), directory.count);
           }});
  tree.fit();
  Json data = tree.json();
  data["verdicts"][0]["reason"] = data["verdicts"][1]["reason"] = "indexed";
  for (const auto& [kind, reason] : path_filter::internal::REASONS) {
    data["verdicts"][verdict_of(kind)]["reason"] = reason;
  }
  data["verdicts"][verdict_of(Exclusion::size)]["reason"] = "larger than the limit";
  data["verdicts"][verdict_of(Exclusion::language)]["reason"] =
      "of a language that is not asked for";
  data["root"] = column(path_filter::internal::SplitPath(place.root).name);
  data["below"] = column(place.below);
  data["made"] = now();
  data["version"] = PATH_FILTER_VERSION;
  data["complete"] = status == 0;

  const std::string secret = nonce();
  // Nothing in it ends the element of the page that it stands in.
  const std::string json =
      escaped(data.dump(-1, ' ', false, Json::error_handler_t::replace), {{'<', "\\u003c"}});
  const std::string notice = escaped(report::LIBRARY_NOTICE, {{'<', "&lt;"}, {'&', "&amp;"}});
  const std::string page = filled(report::PAGE, {{"nonce", secret},
                                                 {"style", report::STYLE},
                                                 {"data", json},
                                                 {"library", report::LIBRARY},
                                                 {"notice", notice},
                                                 {"script", report::SCRIPT}});
  if (target) {
    target->write(page);
  } else {
    Output output;
    output << page;
    output.flush();
  }
  return status;
}

}  // namespace program
