// For toml++, which forgets it; before all else, as macOS's headers take a part of it.
#include <cfloat>
//
#include <toml++/toml.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <sstream>
#include <string_view>
#include <system_error>
#include <utility>

#include "program/output.h"
#include "program/settings.h"
#include "program/suggestion.h"
#include "program/system.h"
#include "utils/language_registry/language_registry.h"
#include "utils/path_filter/base/file_system.h"
#include "utils/path_filter/base/quoting.h"
#include "utils/path_filter/base/utf8.h"

namespace program {

using path_filter::ConfigValue;
using path_filter::IndexConfig;
using path_filter::IndexLimits;

namespace {

/// The value as the file writes it, on one line.
std::string source_of(const toml::node& node) {
  std::ostringstream source;
  node.visit([&](const auto& value) { source << value; });
  return printable(source.str());
}

ConfigValue value_of(const toml::node& node) {
  if (const auto* text = node.as_string()) return {text->get()};
  if (const auto* number = node.as_integer()) return {number->get()};
  if (const auto* number = node.as_floating_point()) return {number->get()};
  if (const auto* flag = node.as_boolean()) return {std::int64_t{flag->get()}};
  return {ConfigValue::Other{source_of(node)}};
}

std::vector<std::string> names_in(const toml::node& languages, const std::string& file) {
  std::vector<std::string> names;
  if (const auto* text = languages.as_string(); text != nullptr && text->get().empty())
    return names;
  const auto* list = languages.as_array();
  const auto is_list = [](const toml::node& node) { return node.is_array(); };
  if (list == nullptr || std::ranges::any_of(*list, is_list)) {
    throw UsageError(printable(file) + ": index.languages=" + source_of(languages) +
                     " is not a list of language names");
  }
  for (const toml::node& name : *list) {
    names.push_back(name.is_string() ? name.as_string()->get() : source_of(name));
  }
  return names;
}

void warn_of(const std::string& file, const std::string& problem) {
  warn(printable(file) + ": " + problem);
}

/// What --max-file-size-mb says, in MiB.
double megabytes(std::string_view text) {
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const std::string_view unit(end, static_cast<std::size_t>(text.data() + text.size() - end));
  std::string unit_name;
  path_filter::internal::append_lower(unit, unit_name);
  constexpr std::array<std::string_view, 10> UNITS{"",   "m",   "mb", "mib", "k",
                                                   "kb", "kib", "g",  "gb",  "gib"};
  if (unit_name.starts_with('k')) number /= 1024;
  if (unit_name.starts_with('g')) number *= 1024;
  // Less than a byte would be no limit that anybody means.
  if (error != std::errc() || std::ranges::find(UNITS, unit_name) == UNITS.end() ||
      !std::isfinite(number) || number * 1024 * 1024 < 1) {
    throw UsageError("--max-file-size-mb: '" + printable(text) +
                     "' is not a size; write 2 or 0.5 for MiB, or 10k, 2MB, 1GiB");
  }
  return number;
}

/// "no language 'x'" and what may have been meant; nothing for a language of the registry.
std::optional<std::string> unknown_language(std::string_view name) {
  if (!language_registry::tier_of(name).empty()) return std::nullopt;
  return "no language '" + printable(name) + "'" + did_you_mean(nearest_language(name)) +
         " ('path-filter languages' lists them)";
}

constexpr std::size_t MAX_CONFIG_BYTES = std::size_t{64} << 20;

/// The text of what is no file: a pipe, a terminal.
path_filter::internal::FileContent read_stream(Stream stream) {
  std::string text;
  std::array<char, 4096> part;
  std::error_code error;
  while (const std::size_t count = read_some(stream, part.data(), part.size(), error)) {
    text.append(part.data(), count);
    if (text.size() > MAX_CONFIG_BYTES) return std::make_error_code(std::errc::file_too_large);
  }
  if (error) return error;
  return text;
}

std::string read_text(const std::string& file) {
  using path_filter::internal::Links;
  auto content = file == "-"
                     ? read_stream(standard_input())
                     : path_filter::internal::read_file(file, Links::follow, MAX_CONFIG_BYTES);
  const auto* error = std::get_if<std::error_code>(&content);
  if (error != nullptr && *error == path_filter::internal::NOT_A_FILE) {
    std::error_code failed;
    const auto opened = open_stream(file, failed);
    content = opened.is_open() ? read_stream(opened.value()) : failed;
  }
  if (const auto* failed = std::get_if<std::error_code>(&content)) {
    throw UsageError("cannot read the configuration " + printable(file.empty() ? "''" : file) +
                     ": " + path_filter::internal::message(*failed));
  }
  return std::get<std::string>(std::move(content));
}

IndexConfig read_config(const std::string& file) {
  toml::table table;
  try {
    table = toml::parse(read_text(file), file);
  } catch (const toml::parse_error& error) {
    std::ostringstream message;
    message << printable(file) << ":" << error.source().begin.line << ":"
            << error.source().begin.column << ": " << printable(error.description());
    throw UsageError(message.str());
  }
  const toml::table* index = table["index"].as_table();
  if (index == nullptr) {
    throw UsageError(printable(file) +
                     ": has no section [index]; write one, with max_file_size_mb or languages");
  }
  // The section is the host's, whose other keys are its own: only a slip of the pen is named.
  constexpr std::array<std::string_view, 2> KEYS{"max_file_size_mb", "languages"};
  for (const auto& [key, value] : *index) {
    const std::string_view name = key.str();
    if (std::ranges::find(KEYS, name) != KEYS.end()) continue;
    if (const auto suggestion = nearest(name, KEYS)) {
      warn_of(file, "[index] has no key '" + printable(name) + "'" + did_you_mean(suggestion));
    }
  }
  // What the file leaves out has its default.
  IndexConfig config{ConfigValue{path_filter::DEFAULT_MAX_FILE_SIZE_MB}, {{}}};
  if (const auto* node = index->get("max_file_size_mb")) config.max_file_size_mb = value_of(*node);
  if (const auto* node = index->get("languages")) config.languages = names_in(*node, file);
  return config;
}

}  // namespace

std::vector<std::string> split_at_commas(const std::string& text) {
  std::vector<std::string> parts;
  std::istringstream rest(text);
  for (std::string part; std::getline(rest, part, ',');) {
    if (!part.empty()) parts.push_back(part);
  }
  return parts;
}

std::optional<IndexLimits> read_limits(const Settings& settings) {
  if (!settings.config && !settings.max_file_size_mb && !settings.languages) {
    return std::nullopt;
  }
  IndexConfig config{ConfigValue{path_filter::DEFAULT_MAX_FILE_SIZE_MB}, {{}}};
  if (settings.config) config = read_config(*settings.config);
  if (settings.max_file_size_mb) {
    config.max_file_size_mb = ConfigValue{megabytes(*settings.max_file_size_mb)};
  }
  if (settings.languages) {
    config.languages = split_at_commas(*settings.languages);
    for (const std::string& name : *config.languages) {
      if (const auto problem = unknown_language(name)) {
        throw UsageError("--languages: " + *problem);
      }
    }
  }
  IndexLimits limits = IndexLimits::from_config(config);
  if (limits.languages() && !settings.languages) {
    for (const std::string& name : *limits.languages()) {
      if (const auto problem = unknown_language(name)) warn_of(*settings.config, *problem);
    }
  }
  return limits;
}

}  // namespace program
