#include "program/settings.h"

#include <toml++/toml.h>

#include <algorithm>
#include <iostream>
#include <sstream>
#include <string_view>
#include <system_error>
#include <utility>

#include "program/excludes_file.h"
#include "utils/path_filter/internal/file_system.h"
#include "utils/path_filter/internal/text.h"

namespace program {

using path_filter::ConfigValue;
using path_filter::IndexConfig;
using path_filter::IndexLimits;
using path_filter::internal::printable;

namespace {

ConfigValue value_of(const toml::node& node) {
  if (const auto* text = node.as_string()) return {text->get()};
  if (const auto* number = node.as_integer()) return {number->get()};
  if (const auto* number = node.as_floating_point()) return {number->get()};
  if (const auto* flag = node.as_boolean()) return {flag->get()};
  if (const auto* array = node.as_array()) {
    ConfigValue::List list;
    for (const toml::node& entry : *array) list.push_back(value_of(entry));
    return {std::move(list)};
  }
  std::ostringstream literal;
  node.visit([&](const auto& value) { literal << value; });
  return {ConfigValue::Other{literal.str()}};
}

IndexConfig read_config(const std::string& file) {
  constexpr std::size_t MAX_CONFIG_BYTES = std::size_t{64} << 20;
  const auto content = path_filter::internal::read_file(
      file, path_filter::internal::LastLink::follow, MAX_CONFIG_BYTES);
  if (const auto* error = std::get_if<path_filter::internal::ReadError>(&content)) {
    throw UsageError("cannot read the configuration " + printable(file) + ": " + error->message);
  }
  toml::table table;
  try {
    table = toml::parse(std::get<std::string>(content), file);
  } catch (const toml::parse_error& error) {
    std::ostringstream message;
    message << printable(file) << ":" << error.source().begin.line << ":"
            << error.source().begin.column << ": " << error.description();
    throw UsageError(message.str());
  }
  const toml::table* index = table["index"].as_table();
  if (index == nullptr) {
    throw UsageError(printable(file) +
                     ": has no section [index]; write one, with max_file_size_mb or languages");
  }
  // What the file leaves out has its default.
  IndexConfig config{ConfigValue{path_filter::DEFAULT_MAX_FILE_SIZE_MB}, ConfigValue{}};
  if (const auto* node = index->get("max_file_size_mb")) config.max_file_size_mb = value_of(*node);
  if (const auto* node = index->get("languages")) config.languages = value_of(*node);
  return config;
}

}  // namespace

std::optional<IndexLimits> read_limits(const Settings& settings) {
  if (!settings.config && !settings.max_file_size_mb && !settings.languages) {
    return std::nullopt;
  }
  IndexConfig config{ConfigValue{path_filter::DEFAULT_MAX_FILE_SIZE_MB}, ConfigValue{}};
  if (settings.config) config = read_config(*settings.config);
  if (settings.max_file_size_mb) config.max_file_size_mb = ConfigValue{*settings.max_file_size_mb};
  if (settings.languages) {
    ConfigValue::List names;
    std::istringstream list(*settings.languages);
    for (std::string name; std::getline(list, name, ',');) {
      if (!name.empty()) names.push_back({name});
    }
    config.languages = ConfigValue{std::move(names)};
  }
  try {
    return IndexLimits::from_config(config);
  } catch (const std::invalid_argument& error) {
    throw UsageError((settings.config ? printable(*settings.config) + ": " : "") + error.what());
  }
}

path_filter::IndexScopeOptions scope_options(const Settings& settings,
                                             std::string* relative_excludes_file) {
  const auto warn = [](std::string_view problem) {
    std::cerr << "path-filter: " << problem << '\n';
  };
  const auto find = [=](const std::filesystem::path& root) {
    auto file = find_excludes_file(root, warn);
    if (file && file->is_relative()) {
      if (relative_excludes_file != nullptr) *relative_excludes_file = file->native();
      file = root / *file;
    }
    return file;
  };
  return {.limits = read_limits(settings), .excludes_file = find};
}

namespace {

void require_directory(const std::filesystem::path& directory) {
  std::error_code error;
  const auto status = std::filesystem::status(directory, error);
  if (std::filesystem::is_directory(status)) return;
  if (!error && std::filesystem::exists(status)) {
    error = std::make_error_code(std::errc::not_a_directory);
  } else if (!error) {
    error = std::make_error_code(std::errc::no_such_file_or_directory);
  }
  throw UsageError(printable(directory.native().empty() ? "''" : directory.native()) + ": " +
                   error.message());
}

}  // namespace

Place find_place(const std::string& directory, const std::optional<std::string>& root) {
  require_directory(directory);
  const auto asked = std::filesystem::canonical(directory);
  Place place{asked, "", directory};
  if (root) {
    require_directory(*root);
    place.root = std::filesystem::canonical(*root);
  } else {
    for (auto top = asked;; top = top.parent_path()) {
      std::error_code unexamined;
      if (std::filesystem::exists(top / ".git", unexamined)) {
        place.root = top;
        break;
      }
      if (top == top.parent_path()) break;
    }
  }
  if (auto below = path_filter::IndexScope(place.root).relative(asked)) {
    place.below = std::move(*below);
  } else if (asked != place.root) {
    throw UsageError(printable(directory) + ": outside the root " + printable(*root));
  }
  if (place.prefix == "." || place.prefix == "./") place.prefix.clear();
  if (!place.prefix.empty() && !place.prefix.ends_with('/')) place.prefix += '/';
  return place;
}

std::string Place::shown(std::string_view path) const {
  const std::size_t cut = below.empty() ? 0 : below.size() + 1;
  const std::string name = prefix + std::string(path.substr(std::min(cut, path.size())));
  return name.empty() ? "./" : name;
}

std::string Place::shown(const std::filesystem::filesystem_error& error) const {
  return shown(path_filter::IndexScope(root).relative(error.path1()).value_or(""));
}

}  // namespace program
