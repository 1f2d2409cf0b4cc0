// The files of POSIX systems; what differs between these is in platform_linux.cpp and
// platform_posix.cpp.

#include <dirent.h>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <initializer_list>

#include "utils/path_filter/base/blocking.h"
#include "utils/path_filter/base/file_system.h"
#include "utils/path_filter/base/paths.h"
#include "utils/path_filter/base/posix.h"

namespace path_filter::internal {
namespace {

constexpr std::errc NO_FILE = std::errc::no_such_file_or_directory;

FileStatus status_of(const struct stat& status) {
  const FileType type = S_ISREG(status.st_mode)   ? FileType::regular
                        : S_ISDIR(status.st_mode) ? FileType::directory
                        : S_ISLNK(status.st_mode) ? FileType::link
                                                  : FileType::other;
  return {type, std::int64_t{status.st_size}};
}

/// Opens `path` from the directory `from`.
std::error_code open_retrying(int from, const char* path, int flags, FileHandle& opened) {
  int number = -1;
  do {
    number = ::openat(from, path, flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  } while (number < 0 && errno == EINTR);
  if (number < 0 && errno == EMLINK) errno = ELOOP;  // FreeBSD's word for a link refused
  if (number < 0) return last_error();
  opened = FileHandle(number);
  return {};
}

bool is_missing_call(std::error_code error) {
  return error == std::errc::function_not_supported || error == std::errc::operation_not_permitted;
}

/// Goes from the directory `from` down `path` in pieces that the operating system takes; what
/// is left behind is closed at once. `Open` opens one piece. When `longest_piece` is 0 each
/// component is a piece. Without an error `from` is what `path` named, opened with `flags`;
/// otherwise `from` and `path` are how far it came and what is left.
template <typename Open>
std::error_code open_in_pieces(FileHandle& from, std::string_view& path, int flags,
                               std::size_t longest_piece, Open open) {
  if (path.find('\0') != std::string_view::npos)
    return make_error_code(NO_FILE);  // no file has that name
  std::array<char, PATH_MAX> piece;
  for (;;) {
    std::size_t size = path.size();
    if (longest_piece == 0) {
      size = std::min(path.find('/'), size);
    } else if (size > longest_piece) {
      const std::size_t slash = path.rfind('/', longest_piece);
      // A component longer than a piece is left whole: the system refuses it.
      size =
          slash == std::string_view::npos || slash == 0 ? std::min(path.find('/', 1), size) : slash;
    }
    if (size >= piece.size()) return make_error_code(std::errc::filename_too_long);
    const bool last = size == path.size();
    path.copy(piece.data(), size);
    piece[size] = '\0';
    FileHandle next;
    const auto error = open(number(from), piece.data(), last ? flags : PASSING, next);
    if (error) return error;
    from = std::move(next);
    if (last) return {};
    path.remove_prefix(std::min(path.find_first_not_of('/', size), path.size()));
    if (path.empty()) path = ".";
  }
}

constexpr std::size_t LONGEST_PIECE = PATH_MAX - 2;

bool is_null_device(const struct stat& file) {
  struct stat null {};
  return S_ISCHR(file.st_mode) && ::stat("/dev/null", &null) == 0 && S_ISCHR(null.st_mode) &&
         file.st_rdev == null.st_rdev;
}

FileContent read_regular(const FileHandle& file, std::size_t limit) {
  struct stat status {};
  if (::fstat(number(file), &status) != 0) return last_error();
  if (S_ISDIR(status.st_mode)) return make_error_code(std::errc::is_a_directory);
  if (is_null_device(status)) return std::string();
  if (!S_ISREG(status.st_mode)) return make_error_code(NOT_A_FILE);
  if (static_cast<std::size_t>(status.st_size) > limit)
    return make_error_code(std::errc::file_too_large);

  // One byte more than the file has: the read that fills less has met its end.
  std::string content(static_cast<std::size_t>(status.st_size) + 1, '\0');
  std::size_t size = 0;
  for (;;) {
    const ssize_t count = ::read(number(file), content.data() + size, content.size() - size);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return last_error();
    size += static_cast<std::size_t>(count);
    if (count == 0) break;
    if (size > limit) return make_error_code(std::errc::file_too_large);
    if (size == content.size()) content.resize(content.size() * 2);  // it is growing
  }
  content.resize(size);
  return content;
}

}  // namespace

std::error_code last_error() { return {errno, std::generic_category()}; }

FileHandle::~FileHandle() {
  if (_value >= 0) ::close(number(*this));  // not AT_FDCWD, where a way begins
}

FileContent read_file(std::string_view path, Links last_link, std::size_t limit) {
  const Blocking waits;
  FileHandle file(AT_FDCWD);
  const int flags = O_RDONLY | (last_link == Links::refuse ? O_NOFOLLOW : 0);
  const auto error = open_in_pieces(file, path, flags, LONGEST_PIECE, open_retrying);
  if (error) return error;
  return read_regular(file, limit);
}

FileContent read_file_in(const FileHandle& directory, const std::string& name, std::size_t limit) {
  const Blocking waits;
  FileHandle file;
  const auto error = open_retrying(number(directory), name.c_str(), O_RDONLY | O_NOFOLLOW, file);
  if (error) return error;
  return read_regular(file, limit);
}

std::optional<FileStatus> status_in(const FileHandle& directory, const std::string& name,
                                    std::error_code& error) {
  const Blocking waits;
  struct stat status {};
  error = {};
  if (::fstatat(number(directory), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    error = last_error();
    return std::nullopt;
  }
  return status_of(status);
}

std::optional<FileStatus> status(const std::string& path, Links last_link, std::error_code& error) {
  const Blocking waits;
  struct stat status {};
  error = {};
  if (::fstatat(AT_FDCWD, path.c_str(), &status,
                last_link == Links::refuse ? AT_SYMLINK_NOFOLLOW : 0) != 0) {
    error = last_error();
    return std::nullopt;
  }
  return status_of(status);
}

std::error_code open_directory_below(const std::string& root, std::string_view below,
                                     FileHandle& opened, Links to_root) {
  const Blocking waits;
  constexpr int LISTING = O_RDONLY | O_DIRECTORY;
  if (to_root == Links::refuse && !below.empty()) {
    FileHandle reached(AT_FDCWD);
    const std::string whole = joined({root, below});
    std::string_view left = whole;
    const auto error = open_in_pieces(reached, left, LISTING, LONGEST_PIECE, open_without_links);
    if (!error) opened = std::move(reached);
    if (!is_missing_call(error)) return error;
  }
  FileHandle reached;
  auto error = open_retrying(AT_FDCWD, root.empty() ? "." : root.c_str(),
                             below.empty() ? LISTING : PASSING, reached);
  if (!error && !below.empty()) {
    error = open_in_pieces(reached, below, LISTING, LONGEST_PIECE, open_without_links);
    if (is_missing_call(error)) {
      // A system without the call (Linux before 5.6), or a sandbox that does not know it: the
      // rest one component at a time.
      error = open_in_pieces(reached, below, LISTING, 0,
                             [](int from, const char* path, int flags, FileHandle& next) {
                               return open_retrying(from, path, flags | O_NOFOLLOW, next);
                             });
    }
  }
  if (!error) opened = std::move(reached);
  return error;
}

std::error_code open_directory_in(const FileHandle& parent, const std::string& name,
                                  FileHandle& opened) {
  const Blocking waits;
  return open_retrying(number(parent), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW, opened);
}

std::error_code open_above(const FileHandle& directory, std::size_t levels, FileHandle& opened) {
  const Blocking waits;
  std::string path;
  for (; levels > 0; --levels) path += "../";
  return open_retrying(number(directory), path.c_str(), PASSING, opened);
}

std::string real_path(std::string_view path, std::error_code& error) {
  const Blocking waits;
  const auto real = std::filesystem::canonical(path_of(path), error);
  return error ? std::string() : path_text(real);
}

std::optional<FileIdentity> identity(const FileHandle& file) {
  struct stat status {};
  if (::fstat(number(file), &status) != 0) return std::nullopt;
  return FileIdentity{static_cast<std::uint64_t>(status.st_dev),
                      static_cast<std::uint64_t>(status.st_ino)};
}

void add_entry(Listing& listing, const FileHandle& directory, const dirent& entry) {
  const std::string_view name = entry.d_name;
  if (name == "." || name == "..") return;
  FileType type = entry.d_type == DT_REG   ? FileType::regular
                  : entry.d_type == DT_DIR ? FileType::directory
                  : entry.d_type == DT_LNK ? FileType::link
                                           : FileType::other;
  if (entry.d_type == DT_UNKNOWN) {
    std::error_code error;
    if (const auto status = status_in(directory, entry.d_name, error)) type = status->type;
  }
  struct stat target {};
  const bool leads_to_directory = type == FileType::link &&
                                  ::fstatat(number(directory), entry.d_name, &target, 0) == 0 &&
                                  S_ISDIR(target.st_mode);
  listing.add(name, type, leads_to_directory);
}

// --- Paths ---------------------------------------------------------------------------

std::string_view native_path(std::string_view path, std::string&) { return path; }

// Not by std::random_device, which may need /dev/urandom.
std::uint64_t random_seed() {
  std::uint64_t seed = 0;
  if (::getentropy(&seed, sizeof seed) != 0)
    throw std::system_error(last_error(), "no random bytes");
  return seed;
}

void write_error(std::string_view text) {
  [[maybe_unused]] const auto written = ::write(STDERR_FILENO, text.data(), text.size());
}

bool is_absolute(std::string_view path) { return path.starts_with('/'); }

bool is_same_name(std::string_view one, std::string_view other) { return one == other; }

}  // namespace path_filter::internal

namespace path_filter {

std::string path_text(const std::filesystem::path& path) { return path.native(); }

std::filesystem::path path_of(std::string_view text) { return text; }

}  // namespace path_filter
