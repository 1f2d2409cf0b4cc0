#include "program/repository.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "program/output.h"
#include "program/system.h"
#include "utils/path_filter/base/file_system.h"
#include "utils/path_filter/base/paths.h"

namespace program {

using path_filter::Explanation;
using path_filter::IndexScope;
using path_filter::path_of;
using path_filter::path_text;
using path_filter::internal::FileType;
using path_filter::internal::joined;
using path_filter::internal::Links;
using path_filter::internal::resolved;

namespace {

/// How long git may take: what the user sets, in seconds.
std::chrono::milliseconds git_timeout() {
  const std::string text = variable("PATH_FILTER_GIT_TIMEOUT");
  if (text.empty()) return git_config::DEFAULT_LONGEST_WAIT;
  double seconds = 0;
  const char* const end = text.data() + text.size();
  const auto [parsed, error] = std::from_chars(text.data(), end, seconds);
  constexpr double MOST = 86400;
  if (error != std::errc() || parsed != end || !(seconds > 0 && seconds <= MOST)) {
    throw UsageError("PATH_FILTER_GIT_TIMEOUT: '" + printable(text) +
                     "' is no number of seconds up to 86400");
  }
  return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
}

/// The first link on the way to a directory that a user names, below the root or, without a
/// repository, below the current directory: nothing of a stranger's leads out of his tree. A "/"
/// behind the last one says that it is meant.
std::optional<std::string> link_on_way(const std::string& directory,
                                       const std::optional<std::string>& root) {
  std::error_code unexamined;
  const std::string base = root ? *root : path_text(std::filesystem::current_path(unexamined));
  const std::string named = path_filter::internal::normalized(resolved(base, directory));
  const std::string top = root ? *root : nearest_root(named).value_or(base);
  const auto below = IndexScope(path_of(top)).relative(named);
  if (!below) return std::nullopt;
  const bool is_meant = directory.ends_with('/');
  return first_link(top, is_meant ? path_filter::internal::SplitPath(*below).directory : *below);
}

}  // namespace

std::string native(std::string_view path) {
  std::string storage;
  return std::string(path_filter::internal::native_path(path, storage));
}

std::string resolved_directory(const std::string& directory) {
  std::error_code error = std::make_error_code(std::errc::no_such_file_or_directory);
  std::string path;
  if (!directory.empty()) path = path_filter::internal::real_path(native(directory), error);
  if (!error) {
    const auto status = path_filter::internal::status(path, Links::follow, error);
    if (status && status->type == FileType::directory) return path;
    if (status) error = std::make_error_code(std::errc::not_a_directory);
  }
  throw UsageError(printable(directory.empty() ? "''" : directory) + ": " + error.message());
}

bool has_git(const std::string& directory) {
  std::error_code missing;
  return path_filter::internal::status(directory + "/.git", Links::follow, missing).has_value();
}

std::optional<std::string> nearest_root(const std::string& directory) {
  for (auto above = path_of(directory);; above = above.parent_path()) {
    if (has_git(path_text(above))) return path_text(above);
    if (above == above.parent_path()) return std::nullopt;
  }
}

std::optional<std::string> first_link(std::string_view root, std::string_view below) {
  std::error_code unexamined;
  for (std::size_t end = 0; end < below.size(); ++end) {
    end = std::min(below.find('/', end), below.size());
    std::string way = joined({root, below.substr(0, end)});
    const auto status = path_filter::internal::status(way, Links::refuse, unexamined);
    if (!status) break;
    if (status->type == FileType::link) return way;
  }
  return std::nullopt;
}

bool is_git_store(std::string_view path) { return path == ".git" || path.ends_with("/.git"); }

Place find_place(const std::optional<std::string>& directory,
                 const std::optional<std::string>& root) {
  Place place;
  place.directory = native(directory.value_or("."));
  if (root) place.root = resolved_directory(*root);
  // An empty name would be the root's own.
  const bool is_below_root = root && !place.directory.empty();
  const auto asked =
      resolved_directory(is_below_root ? resolved(place.root, place.directory) : place.directory);
  if (!root) place.root = nearest_root(asked).value_or(asked);
  if (const auto link =
          link_on_way(place.directory, root ? std::optional(place.root) : std::nullopt)) {
    throw LeftOut(printable(place.directory), "by way of the symbolic link " + printable(*link));
  }
  if (auto below = IndexScope(path_of(place.root)).relative(asked)) {
    place.below = std::move(*below);
  } else if (asked != place.root) {
    throw UsageError(printable(place.directory) + ": outside the root " + printable(*root));
  }
  if (directory) place.prefix = place.directory + (place.directory.ends_with('/') ? "" : "/");
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
  return shown(IndexScope(path_of(root)).relative(error.path1()).value_or(""));
}

bool is_absence(std::error_code error) {
  return error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory ||
         error == std::errc::filename_too_long;  // of one component: no file has that name
}

std::string unknown_size(std::error_code error) {
  return "cannot tell its size: " + path_filter::internal::message(error);
}

Repository::Repository(const std::string& top, std::optional<path_filter::IndexLimits> limits)
    : root(top),
      scope(path_of(top),
            {.limits = std::move(limits),
             .excludes_file =
                 [this](const std::filesystem::path& asked) {
                   auto file = settings_of_git().excludes_file;
                   if (file && file->is_relative()) {
                     const std::lock_guard lock(_mutex);
                     _relative_excludes_file = path_text(*file);
                     file = asked / *file;
                   }
                   return file;
                 },
             .ignore_case =
                 [this](const std::filesystem::path&) { return settings_of_git().ignore_case; }}) {}

const git_config::Settings& Repository::settings_of_git() {
  std::call_once(_git_once, [this] {
    _git = git_config::settings(
        path_of(root), [](std::string_view problem) { warn(problem); }, git_timeout());
  });
  return _git;
}

Explanation Repository::explain(std::string_view path, path_filter::FileFacts facts) const {
  Explanation explanation = scope.explain(path, facts);
  const std::lock_guard lock(_mutex);
  if (explanation.rule && !_relative_excludes_file.empty() &&
      explanation.rule->source == joined({root, _relative_excludes_file})) {
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

std::optional<bool> Repository::is_tracked(std::string_view path) const {
  std::call_once(_tracked_once, [this] {
    _tracked_text = git_config::tracked_files(scope.root);
    std::string_view rest = _tracked_text ? *_tracked_text : std::string_view();
    for (std::size_t end; (end = rest.find('\0')) != rest.npos; rest.remove_prefix(end + 1)) {
      _tracked.push_back(rest.substr(0, end));
    }
  });
  if (!_tracked_text) return std::nullopt;
  if (std::ranges::binary_search(_tracked, path)) return true;
  const std::string directory = std::string(path) + '/';
  const auto below = std::ranges::lower_bound(_tracked, directory);
  return below != _tracked.end() && below->starts_with(directory);
}

const Repository& Repositories::at(const std::string& directory) {
  auto root = resolved_directory(directory);
  const std::lock_guard lock(_mutex);
  return _by_root.try_emplace(root, root, _limits).first->second;
}

}  // namespace program
