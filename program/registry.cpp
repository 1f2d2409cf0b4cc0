#include <algorithm>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "program/commands.h"
#include "program/output.h"
#include "program/suggestion.h"
#include "utils/language_registry/catalog.h"
#include "utils/language_registry/language_registry.h"
#include "utils/path_filter/path_filter.h"

namespace program {
namespace {

namespace registry = language_registry;

using path_filter::Exclusion;

template <typename Texts>
std::string joined(const Texts& texts) {
  std::string line;
  for (const std::string_view text : texts) {
    if (!line.empty()) line += ' ';
    line += text;
  }
  return line;
}

Json json_of(const registry::Language& language) {
  return {{"name", language.name},
          {"tier", language.tier},
          {"extensions", language.extensions},
          {"file_names", language.file_names},
          {"file_name_stems", language.file_name_stems},
          {"test_file_globs", language.test_file_globs}};
}

void print(Output& output, const registry::Language& language) {
  output << output.styled(Style::heading, language.name) << '\t' << language.tier << '\n';
  const auto row = [&](std::string_view title, std::span<const std::string_view> texts) {
    if (!texts.empty()) output << "    " << title << joined(texts) << '\n';
  };
  row("extensions: ", language.extensions);
  row("file names: ", language.file_names);
  row("file name stems: ", language.file_name_stems);
  row("test files: ", language.test_file_globs);
}

std::vector<registry::Language> languages_named(const std::vector<std::string>& names) {
  const auto all = registry::languages();
  if (names.empty()) return {all.begin(), all.end()};
  std::vector<registry::Language> languages;
  for (const std::string& name : names) {
    const auto found = std::ranges::find(all, name, &registry::Language::name);
    if (found == all.end()) {
      throw UsageError("languages: no language '" + printable(name) + "'" +
                       did_you_mean(nearest_language(name)));
    }
    const bool is_new =
        std::ranges::find(languages, name, &registry::Language::name) == languages.end();
    if (is_new) languages.push_back(*found);
  }
  return languages;
}

/// What no file and no option changes: which names a rule leaves out, or keeps.
struct FixedRule {
  Exclusion kind;
  std::string_view rule;
  std::vector<std::string_view> names = {};
};

std::vector<FixedRule> fixed_rules() {
  const auto list = [](const auto& names) {
    return std::vector<std::string_view>(names.begin(), names.end());
  };
  std::vector<std::string_view> dunder_tests = list(registry::test_dir_names());
  std::erase_if(dunder_tests, [](std::string_view name) {
    return !name.starts_with("__") && !name.ends_with("__");
  });
  return {
      {Exclusion::directory, "directories of these names", list(path_filter::ALWAYS_SKIP_DIRS)},
      {Exclusion::directory, "directories whose names begin with \".\", but",
       list(path_filter::ALLOWED_HIDDEN_DIRS)},
      {Exclusion::directory, "directories in .github, but",
       list(path_filter::GITHUB_ALLOWED_SUBDIRS)},
      {Exclusion::directory, "directories whose names begin or end with \"__\", but, in any case",
       std::move(dunder_tests)},
      {Exclusion::directory, "directories whose names end in", {".egg-info"}},
      {Exclusion::index_data, "the directory", {path_filter::INDEX_DATA_DIR}},
      {Exclusion::unknown_language, "files that 'path-filter languages' does not name"},
      {Exclusion::unknown_language,
       "files that often hold secrets, which are of no language on purpose",
       list(registry::secret_names())},
      {Exclusion::lockfile, "files of these names", list(registry::lockfile_names())},
      {Exclusion::minified, "files of these names", list(path_filter::MINIFIED_FILE_GLOBS)},
      {Exclusion::gitignore,
       "what git ignores by the rules in",
       {path_filter::IGNORE_FILE_NAME, "$GIT_DIR/info/exclude", "core.excludesFile"}},
      {Exclusion::size, "files over --max-file-size-mb or max_file_size_mb in [index]"},
      {Exclusion::language,
       "files of code and documentation languages that --languages or "
       "languages in [index] leaves out"},
  };
}

}  // namespace

int print_languages(const RegistryOptions& options) {
  const auto languages = languages_named(options.names);
  std::vector<std::pair<std::string, std::span<const std::string_view>>> lists;
  if (options.names.empty()) {
    lists = {{"test_dir_names", registry::test_dir_names()},
             {"test_file_globs", registry::LANGUAGES.test_file_globs()},
             {"lockfiles", registry::lockfile_names()}};
  }
  Output output(options.color);
  if (options.json) {
    Json all;
    all["languages"] = Json::array();
    for (const registry::Language& language : languages) {
      all["languages"].push_back(json_of(language));
    }
    for (const auto& [title, texts] : lists) all[title] = texts;
    output << all.dump(2) << '\n';
  } else {
    for (const registry::Language& language : languages) print(output, language);
    for (const auto& [title, texts] : lists) {
      output << '\n' << output.styled(Style::heading, title) << "\n    " << joined(texts) << '\n';
    }
  }
  output.flush();
  return 0;
}

int print_rules(const RegistryOptions& options) {
  Output output(options.color);
  Json all = Json::array();
  std::optional<Exclusion> kind;
  for (const FixedRule& rule : fixed_rules()) {
    all.push_back({{"kind", to_string(rule.kind)}, {"rule", rule.rule}, {"names", rule.names}});
    if (options.json) continue;
    if (kind != rule.kind) output << output.styled(Style::heading, to_string(rule.kind)) << '\n';
    kind = rule.kind;
    output << "    " << rule.rule << (rule.names.empty() ? "" : ": ") << joined(rule.names) << '\n';
  }
  if (options.json) output << all.dump(2) << '\n';
  output.flush();
  return 0;
}

}  // namespace program
