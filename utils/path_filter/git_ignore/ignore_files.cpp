#include "utils/path_filter/git_ignore/ignore_files.h"

#include <string_view>
#include <utility>
#include <variant>

#include "utils/path_filter/base/blocking.h"
#include "utils/path_filter/base/logger.h"
#include "utils/path_filter/base/utf8.h"

namespace path_filter {

DecodingError::DecodingError(const std::filesystem::path& path, std::string content,
                             std::size_t position)
    : std::system_error(std::make_error_code(std::errc::illegal_byte_sequence),
                        path.string() + ": not valid UTF-8 at byte " + std::to_string(position)),
      _content(std::make_shared<const std::string>(std::move(content))),
      _position(position) {}

namespace {

/// What a `.git` file begins with that points to a git directory.
constexpr std::string_view GITDIR_POINTER = "gitdir:";

/// Reads a pointer file of git's, trimmed; absent when it cannot be read.
std::optional<std::string> read_pointer(const std::filesystem::path& path) {
  constexpr std::size_t MAX_POINTER_BYTES = std::size_t{1} << 20;  // as in git
  const auto content =
      internal::read_file(path.native(), internal::Links::follow, MAX_POINTER_BYTES);
  const auto* text = std::get_if<std::string>(&content);
  if (text == nullptr) return std::nullopt;
  if (const auto invalid = internal::find_invalid_utf8(*text)) {
    throw DecodingError(path, *text, *invalid);
  }
  return std::string(internal::trim(*text));
}

/// `base` joined with `target`: the target alone when it is absolute, `base` alone
/// when there is none.
std::filesystem::path joined(const std::filesystem::path& base, std::string_view target) {
  return target.empty() ? base : base / target;
}

}  // namespace

void warn_unreadable(std::error_code error, const std::function<std::string()>& path) {
  if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory) return;
  logger->warn("Cannot read the ignore rules in %s: %s", {path(), internal::message(error)});
}

std::optional<GitIgnoreSpec> _read_ignore_rules(const std::filesystem::path& path,
                                                internal::Links last_link) {
  const auto content = internal::read_file(path.native(), last_link, MAX_IGNORE_FILE_BYTES);
  if (const auto* error = std::get_if<std::error_code>(&content)) {
    warn_unreadable(*error, [&] { return path.string(); });
    return std::nullopt;
  }
  return GitIgnoreSpec::from_content(std::get<std::string>(content));
}

std::optional<std::filesystem::path> _git_dir(const std::filesystem::path& root) {
  const std::filesystem::path dot_git = root / ".git";
  std::error_code unexamined;
  const bool is_directory = [&] {
    const internal::Blocking waits;
    return std::filesystem::is_directory(dot_git, unexamined);
  }();
  if (is_directory) return dot_git;
  const auto text = read_pointer(dot_git);
  if (!text || !text->starts_with(GITDIR_POINTER)) return std::nullopt;
  return joined(root, internal::trim(std::string_view(*text).substr(GITDIR_POINTER.size())));
}

std::filesystem::path _common_dir(const std::filesystem::path& git_dir) {
  const auto text = read_pointer(git_dir / "commondir");
  if (!text) return git_dir;
  return joined(git_dir, *text);
}

}  // namespace path_filter
