#include "utils/path_filter/base/file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <initializer_list>

#include "utils/path_filter/base/blocking.h"
#include "utils/path_filter/base/platform.h"

namespace path_filter::internal {
namespace {

constexpr std::errc NO_FILE = std::errc::no_such_file_or_directory;

/// Opens `path` from the directory `from`.
std::error_code open_retrying(int from, const char* path, int flags, FileDescriptor& opened) {
  int number = -1;
  do {
    number = ::openat(from, path, flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  } while (number < 0 && errno == EINTR);
  if (number < 0 && errno == EMLINK) errno = ELOOP;  // FreeBSD's word for a link refused
  if (number < 0) return last_error();
  opened = FileDescriptor(number);
  return {};
}

bool is_missing_call(std::error_code error) {
  return error == std::errc::function_not_supported || error == std::errc::operation_not_permitted;
}

/// Parts of a path with a "/" between them; empty ones are left out.
std::string joined(std::initializer_list<std::string_view> parts) {
  std::string path;
  for (const std::string_view part : parts) {
    if (!part.empty() && !path.empty() && path.back() != '/') path += '/';
    path += part;
  }
  return path;
}

/// Goes from the directory `from` down `path` in pieces that the operating system takes; what
/// is left behind is closed at once. `Open` opens one piece. When `longest_piece` is 0 each
/// component is a piece. Without an error `from` is what `path` named, opened with `flags`;
/// otherwise `from` and `path` are how far it came and what is left.
template <typename Open>
std::error_code open_in_pieces(FileDescriptor& from, std::string_view& path, int flags,
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
    FileDescriptor next;
    const auto error = open(from.number(), piece.data(), last ? flags : PASSING, next);
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

FileContent read_regular(const FileDescriptor& file, std::size_t limit) {
  struct stat status {};
  if (::fstat(file.number(), &status) != 0) return last_error();
  if (S_ISDIR(status.st_mode)) return make_error_code(std::errc::is_a_directory);
  if (is_null_device(status)) return std::string();
  if (!S_ISREG(status.st_mode)) return make_error_code(NOT_A_FILE);
  if (static_cast<std::size_t>(status.st_size) > limit)
    return make_error_code(std::errc::file_too_large);

  // One byte more than the file has: the read that fills less has met its end.
  std::string content(static_cast<std::size_t>(status.st_size) + 1, '\0');
  std::size_t size = 0;
  for (;;) {
    const ssize_t count = ::read(file.number(), content.data() + size, content.size() - size);
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

FileDescriptor::~FileDescriptor() {
  if (is_open()) ::close(_number);
}

std::string message(std::error_code error) {
  return error == NOT_A_FILE ? "Not a regular file" : error.message();
}

FileContent read_file(std::string_view path, Links last_link, std::size_t limit) {
  const Blocking waits;
  FileDescriptor file(AT_FDCWD);
  const int flags = O_RDONLY | (last_link == Links::refuse ? O_NOFOLLOW : 0);
  const auto error = open_in_pieces(file, path, flags, LONGEST_PIECE, open_retrying);
  if (error) return error;
  return read_regular(file, limit);
}

FileContent read_file_in(const FileDescriptor& directory, const std::string& name,
                         std::size_t limit) {
  const Blocking waits;
  FileDescriptor file;
  const auto error = open_retrying(directory.number(), name.c_str(), O_RDONLY | O_NOFOLLOW, file);
  if (error) return error;
  return read_regular(file, limit);
}

FileContent read_file_below(const std::string& root, std::string_view below,
                            const std::string& name, std::size_t limit, Links on_the_way) {
  if (on_the_way == Links::follow) {
    return read_file(joined({root, below, name}), Links::refuse, limit);
  }
  FileDescriptor opened;
  std::error_code error = open_directory_below(root, below, opened);
  if (error == std::errc::too_many_symbolic_link_levels) {
    error = make_error_code(std::errc::not_a_directory);
  }
  if (error) return error;
  return read_file_in(opened, name, limit);
}

std::optional<FileStatus> status_in(const FileDescriptor& directory, const std::string& name,
                                    std::error_code& error) {
  const Blocking waits;
  struct stat status {};
  error = {};
  if (::fstatat(directory.number(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    error = last_error();
    return std::nullopt;
  }
  const FileType type = S_ISREG(status.st_mode)   ? FileType::regular
                        : S_ISDIR(status.st_mode) ? FileType::directory
                        : S_ISLNK(status.st_mode) ? FileType::link
                                                  : FileType::other;
  return FileStatus{type, std::int64_t{status.st_size}};
}

std::error_code open_directory_below(const std::string& root, std::string_view below,
                                     FileDescriptor& opened, Links to_root) {
  const Blocking waits;
  constexpr int LISTING = O_RDONLY | O_DIRECTORY;
  if (to_root == Links::refuse && !below.empty()) {
    FileDescriptor reached(AT_FDCWD);
    const std::string whole = joined({root, below});
    std::string_view left = whole;
    const auto error = open_in_pieces(reached, left, LISTING, LONGEST_PIECE, open_without_links);
    if (!error) opened = std::move(reached);
    if (!is_missing_call(error)) return error;
  }
  FileDescriptor reached;
  auto error = open_retrying(AT_FDCWD, root.empty() ? "." : root.c_str(),
                             below.empty() ? LISTING : PASSING, reached);
  if (!error && !below.empty()) {
    error = open_in_pieces(reached, below, LISTING, LONGEST_PIECE, open_without_links);
    if (is_missing_call(error)) {
      // A system without the call (Linux before 5.6), or a sandbox that does not know it: the
      // rest one component at a time.
      error = open_in_pieces(reached, below, LISTING, 0,
                             [](int from, const char* path, int flags, FileDescriptor& next) {
                               return open_retrying(from, path, flags | O_NOFOLLOW, next);
                             });
    }
  }
  if (!error) opened = std::move(reached);
  return error;
}

std::error_code open_directory_in(const FileDescriptor& parent, const std::string& name,
                                  FileDescriptor& opened) {
  const Blocking waits;
  return open_retrying(parent.number(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW, opened);
}

std::error_code open_above(const FileDescriptor& directory, std::size_t levels,
                           FileDescriptor& opened) {
  const Blocking waits;
  std::string path;
  for (; levels > 0; --levels) path += "../";
  return open_retrying(directory.number(), path.c_str(), PASSING, opened);
}

std::optional<FileIdentity> identity(const FileDescriptor& file) {
  struct stat status {};
  if (::fstat(file.number(), &status) != 0) return std::nullopt;
  return FileIdentity{static_cast<std::uint64_t>(status.st_dev),
                      static_cast<std::uint64_t>(status.st_ino)};
}

bool Listing::contains(std::string_view name) const {
  return std::ranges::any_of(_records, [&](const Record& record) {
    return std::string_view(_names).substr(record.begin, record.size) == name;
  });
}

void Listing::clear() {
  _names.clear();
  _records.clear();
}

void Listing::add(const FileDescriptor& directory, const char* name, unsigned char type) {
  const std::string_view text = name;
  if (text == "." || text == "..") return;
  bool is_directory = type == DT_DIR;
  bool is_link = type == DT_LNK;
  bool is_regular = type == DT_REG;
  if (type == DT_UNKNOWN) {
    std::error_code error;
    const auto status = status_in(directory, name, error);
    is_directory = status && status->type == FileType::directory;
    is_link = status && status->type == FileType::link;
    is_regular = status && status->type == FileType::regular;
  }
  if (is_link) {
    struct stat target {};
    is_directory = ::fstatat(directory.number(), name, &target, 0) == 0 && S_ISDIR(target.st_mode);
  }
  _records.push_back({_names.size(), text.size(), is_directory, is_link, is_regular});
  _names += text;
}

}  // namespace path_filter::internal
