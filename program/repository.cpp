#include "program/repository.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "program/output.h"
#include "utils/git_config/git_config.h"
#include "utils/path_filter/base/file_system.h"

namespace program {

using path_filter::Explanation;
using path_filter::IndexScope;

namespace {

/// The directory's path, absolute and without links.
std::filesystem::path resolved(const std::string& directory) {
  std::error_code error;
  auto path = std::filesystem::canonical(directory, error);
  if (directory.empty()) error = std::make_error_code(std::errc::no_such_file_or_directory);
  if (!error && !std::filesystem::is_directory(path, error) && !error) {
    error = std::make_error_code(std::errc::not_a_directory);
  }
  if (!error) return path;
  throw UsageError(printable(directory.empty() ? "''" : directory) + ": " + error.message());
}

}  // namespace

Place find_place(const std::string& directory, const std::optional<std::string>& root) {
  const auto asked = resolved(directory);
  Place place{asked, "", directory, directory};
  if (root) {
    place.root = resolved(*root);
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
  if (auto below = IndexScope(place.root).relative(asked)) {
    place.below = std::move(*below);
  } else if (asked != place.root) {
    throw UsageError(printable(directory) + ": outside the root " + printable(*root));
  }
  if (place.prefix == "." || place.prefix == "./") place.prefix.clear();
  if (!place.prefix.empty() && !place.prefix.ends_with('/')) place.prefix += '/';
  return place;
}

std::string Place::shown(std::string_view path) const {
  std::string name;
  append_shown(path, name);
  return name;
}

void Place::append_shown(std::string_view path, std::string& out) const {
  const std::size_t cut = below.empty() ? 0 : below.size() + 1;
  const std::string_view name = path.substr(std::min(cut, path.size()));
  out += prefix;
  out += name;
  if (prefix.empty() && name.empty()) out += "./";
}

std::string Place::shown(const std::filesystem::filesystem_error& error) const {
  return shown(IndexScope(root).relative(error.path1()).value_or(""));
}

bool is_absence(std::error_code error) {
  return error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory ||
         error == std::errc::too_many_symbolic_link_levels ||
         error == std::errc::filename_too_long;  // of one component: no file has that name
}

std::string unknown_size(std::error_code error) {
  return "cannot tell its size: " + path_filter::internal::message(error);
}

Repository::Repository(const std::filesystem::path& top,
                       std::optional<path_filter::IndexLimits> limits)
    : scope(top, {.limits = std::move(limits),
                  .excludes_file = [this](const std::filesystem::path& root) {
                    auto file = git_config::excludes_file(
                        root, [](std::string_view problem) { warn(problem); });
                    if (file && file->is_relative()) {
                      const std::lock_guard lock(_mutex);
                      _relative_excludes_file = file->native();
                      file = root / *file;
                    }
                    return file;
                  }}) {}

std::optional<std::int64_t> Repository::size(std::string_view path) const {
  std::string file = scope.root.native();
  if (!file.empty() && !file.ends_with('/')) file += '/';
  file += path;
  std::error_code error;
  const auto size = path_filter::internal::file_size(file, error);
  if (error && !is_absence(error)) throw std::runtime_error(unknown_size(error));
  return size;
}

Explanation Repository::explain(std::string_view path, path_filter::FileFacts facts) const {
  Explanation explanation = scope.explain(path, facts);
  const std::lock_guard lock(_mutex);
  if (explanation.rule && !_relative_excludes_file.empty() &&
      explanation.rule->source == (scope.root / _relative_excludes_file).native()) {
    explanation.rule->source = _relative_excludes_file;
  }
  return explanation;
}

std::optional<Explanation> Repository::exclusion_of_directory(const std::string& rel_dir) const {
  if (scope.admits_directory(rel_dir)) return std::nullopt;
  // What leaves out a file of a known language in it is the rule for the directory.
  Explanation explanation = explain(rel_dir + "/a.c", {});
  explanation.decision = path_filter::Decision::excluded(*explanation.decision.kind());
  return explanation;
}

}  // namespace program
