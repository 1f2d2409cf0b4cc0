#include "utils/path_filter/git_ignore/ignore_files.h"

#include <string_view>
#include <utility>
#include <variant>

#include "utils/path_filter/base/logger.h"
#include "utils/path_filter/base/paths.h"
#include "utils/path_filter/base/utf8.h"

namespace path_filter {

DecodingError::DecodingError(const std::filesystem::path& path, std::string content,
                             std::size_t position)
    : std::system_error(std::make_error_code(std::errc::illegal_byte_sequence),
                        path_text(path) + ": not valid UTF-8 at byte " + std::to_string(position)),
      _content(std::make_shared<const std::string>(std::move(content))),
      _position(position) {}

namespace {

/// What a `.git` file begins with that points to a git directory.
constexpr std::string_view GITDIR_POINTER = "gitdir:";

/// Reads a pointer file of git's, trimmed; absent when it cannot be read.
std::optional<std::string> read_pointer(const std::string& path) {
  constexpr std::size_t MAX_POINTER_BYTES = std::size_t{1} << 20;  // as in git
  const auto content = internal::read_file(path, internal::Links::follow, MAX_POINTER_BYTES);
  const auto* text = std::get_if<std::string>(&content);
  if (text == nullptr) return std::nullopt;
  if (const auto invalid = internal::find_invalid_utf8(*text)) {
    throw DecodingError(path_of(path), *text, *invalid);
  }
  return std::string(internal::trim(*text));
}

/// Where a pointer in `base` leads: nowhere else when it is empty.
std::string pointed(std::string_view base, std::string_view target) {
  return target.empty() ? std::string(base) : internal::resolved(base, target);
}

}  // namespace

void warn_unreadable(std::error_code error, const std::function<std::string()>& path) {
  if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory) return;
  logger->warn("Cannot read the ignore rules in %s: %s", {path(), internal::message(error)});
}

std::optional<GitIgnoreSpec> _read_ignore_rules(PathArgument path, internal::Links last_link,
                                                bool ignore_case) {
  const auto content = internal::read_file(path, last_link, MAX_IGNORE_FILE_BYTES);
  if (const auto* error = std::get_if<std::error_code>(&content)) {
    warn_unreadable(*error, [&] { return std::string(path); });
    return std::nullopt;
  }
  return GitIgnoreSpec::from_content(std::get<std::string>(content), ignore_case);
}

std::optional<std::string> _git_dir(PathArgument root) {
  const std::string dot_git = internal::joined({root, ".git"});
  std::error_code unexamined;
  const auto status = internal::status(dot_git, internal::Links::follow, unexamined);
  if (status && status->type == internal::FileType::directory) return dot_git;
  const auto text = read_pointer(dot_git);
  if (!text || !text->starts_with(GITDIR_POINTER)) return std::nullopt;
  return pointed(root, internal::trim(std::string_view(*text).substr(GITDIR_POINTER.size())));
}

std::string _common_dir(PathArgument git_dir) {
  const auto text = read_pointer(internal::joined({git_dir, "commondir"}));
  return text ? pointed(git_dir, *text) : std::string(git_dir);
}

}  // namespace path_filter
