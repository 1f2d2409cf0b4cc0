#include "program/decider.h"

#include <algorithm>
#include <optional>
#include <set>

#include "utils/language_registry/catalog.h"
#include "utils/path_filter/base/quoting.h"
#include "utils/path_filter/base/utf8.h"
#include "utils/path_filter/test_code/shell_glob.h"

namespace program {

using path_filter::Exclusion;
using path_filter::Explanation;
using path_filter::IndexScope;

namespace {

/// The glob that made a name one of a lock file or a bundle.
std::optional<std::string_view> deciding_glob(const Explanation& explanation,
                                              std::string_view path) {
  if (explanation.glob) return *explanation.glob;
  if (explanation.decision.kind() != Exclusion::lockfile) return std::nullopt;
  const std::string_view name = path.substr(path.find_last_of("/\\") + 1);
  for (const std::string_view pattern : language_registry::lockfile_names()) {
    if (path_filter::internal::shell_glob_matches(pattern, name)) return pattern;
  }
  return std::nullopt;
}

/// The name of files that often hold secrets by which this one is of no language.
std::optional<std::string_view> secret_name(const Explanation& explanation, std::string_view path) {
  if (explanation.decision.kind() != Exclusion::unknown_language) return std::nullopt;
  const std::string_view name = path.substr(path.find_last_of("/\\") + 1);
  std::string lower;
  path_filter::internal::append_lower(name, lower);
  for (const std::string_view known : language_registry::secret_names()) {
    const bool is_ending = known.starts_with('*');
    if (is_ending ? lower.ends_with(known.substr(1)) : name == known) return known;
  }
  return std::nullopt;
}

std::set<std::string> allowed_languages(const IndexScope& scope) {
  const auto& languages = *scope.limits->languages();
  return {languages.begin(), languages.end()};
}

}  // namespace

std::string decider(const Explanation& explanation, std::string_view path, const IndexScope& scope,
                    bool raw) {
  if (explanation.rule) {
    const auto& rule = *explanation.rule;
    return (raw ? rule.source : column(rule.source)) + ":" + std::to_string(rule.line) + ":" +
           (raw ? rule.pattern : printable(rule.pattern));
  }
  if (explanation.directory) {
    const std::string directory = *explanation.directory + "/";
    return raw ? directory : column(directory);
  }
  if (const auto glob = deciding_glob(explanation, path)) return std::string(*glob);
  if (const auto secret = secret_name(explanation, path)) {
    return "often holds secrets: " + std::string(*secret);
  }
  if (explanation.decision.kind() == Exclusion::size) {
    return std::to_string(scope.limits->max_file_bytes()) + " bytes";
  }
  std::string names;
  if (explanation.decision.kind() == Exclusion::language) {
    for (const std::string& name : allowed_languages(scope)) {
      names += (names.empty() ? "" : ",") + (raw ? name : printable(name));
    }
  }
  return names;
}

void add_decider(JsonLine& object, const Explanation& explanation, std::string_view path,
                 const IndexScope& scope) {
  Json rule;
  if (explanation.rule) {
    rule = {{"source", explanation.rule->source},
            {"line", explanation.rule->line},
            {"pattern", explanation.rule->pattern}};
  }
  object.add_json("rule", rule);
  if (explanation.directory) object.add("directory", *explanation.directory + "/");
  if (const auto glob = deciding_glob(explanation, path)) object.add("glob", *glob);
  if (const auto secret = secret_name(explanation, path)) object.add("secret", *secret);
  if (explanation.decision.kind() == Exclusion::size) {
    object.add_json("max_file_bytes", Json(scope.limits->max_file_bytes()));
  }
  if (explanation.decision.kind() == Exclusion::language) {
    object.add_json("languages", Json(allowed_languages(scope)));
  }
}

}  // namespace program
