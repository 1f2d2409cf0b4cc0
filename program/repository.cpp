#include "program/repository.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "program/output.h"
#include "utils/git_config/git_config.h"
#include "utils/path_filter/base/file_system.h"

namespace program {

using path_filter::Explanation;
using path_filter::IndexScope;

namespace {

/// How long git may take: what the user sets, in seconds.
std::chrono::milliseconds git_timeout() {
  const char* const text = std::getenv("PATH_FILTER_GIT_TIMEOUT");
  if (text == nullptr || *text == '\0') return git_config::DEFAULT_LONGEST_WAIT;
  double seconds = 0;
  const char* const end = text + std::strlen(text);
  const auto [parsed, error] = std::from_chars(text, end, seconds);
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
std::optional<std::filesystem::path> link_on_way(const std::string& directory,
                                                 const std::optional<std::filesystem::path>& root) {
  std::error_code unexamined;
  const auto base = root ? *root : std::filesystem::current_path(unexamined);
  auto named = (base / directory).lexically_normal();
  const bool is_meant = directory.ends_with('/');
  if (!named.has_filename()) named = named.parent_path();
  auto top = root ? root : nearest_root(named);
  if (!top) top = base;
  const auto below = named.lexically_relative(*top);
  if (below.empty() || *below.begin() == "." || *below.begin() == "..") return std::nullopt;
  return first_link(*top, (is_meant ? below.parent_path() : below).native());
}

}  // namespace

std::filesystem::path resolved_directory(const std::string& directory) {
  std::error_code error;
  auto path = std::filesystem::canonical(directory, error);
  if (directory.empty()) error = std::make_error_code(std::errc::no_such_file_or_directory);
  if (!error && !std::filesystem::is_directory(path, error) && !error) {
    error = std::make_error_code(std::errc::not_a_directory);
  }
  if (!error) return path;
  throw UsageError(printable(directory.empty() ? "''" : directory) + ": " + error.message());
}

bool has_git(const std::string& directory) {
  return ::access((directory + "/.git").c_str(), F_OK) == 0;
}

std::optional<std::filesystem::path> nearest_root(std::filesystem::path directory) {
  for (;; directory = directory.parent_path()) {
    if (has_git(directory.native())) return directory;
    if (directory == directory.parent_path()) return std::nullopt;
  }
}

std::optional<std::filesystem::path> first_link(const std::filesystem::path& root,
                                                std::string_view below) {
  std::error_code unexamined;
  for (std::size_t end = 0; end < below.size(); ++end) {
    end = std::min(below.find('/', end), below.size());
    auto way = root / below.substr(0, end);
    if (std::filesystem::is_symlink(way, unexamined)) return way;
    if (unexamined) break;
  }
  return std::nullopt;
}

bool is_git_store(std::string_view path) { return path == ".git" || path.ends_with("/.git"); }

Place find_place(const std::optional<std::string>& directory,
                 const std::optional<std::string>& root) {
  Place place;
  place.directory = directory.value_or(".");
  if (root) place.root = resolved_directory(*root);
  // An empty name would be the root's own.
  const bool is_below_root = root && !place.directory.empty();
  const auto asked =
      resolved_directory(is_below_root ? (place.root / place.directory).native() : place.directory);
  if (!root) place.root = nearest_root(asked).value_or(asked);
  if (const auto link =
          link_on_way(place.directory, root ? std::optional(place.root) : std::nullopt)) {
    throw LeftOut(printable(place.directory),
                  "by way of the symbolic link " + printable(link->native()));
  }
  if (auto below = IndexScope(place.root).relative(asked)) {
    place.below = std::move(*below);
  } else if (asked != place.root) {
    throw UsageError(printable(place.directory) + ": outside the root " + printable(*root));
  }
  if (directory) place.prefix = *directory + (directory->ends_with('/') ? "" : "/");
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
                        root, [](std::string_view problem) { warn(problem); }, git_timeout());
                    if (file && file->is_relative()) {
                      const std::lock_guard lock(_mutex);
                      _relative_excludes_file = file->native();
                      file = root / *file;
                    }
                    return file;
                  }}) {}

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
