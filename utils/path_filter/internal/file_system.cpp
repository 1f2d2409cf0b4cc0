#include "utils/path_filter/internal/file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <memory>
#include <system_error>

namespace path_filter::internal {
namespace {

ReadError error_of(int code) { return {code, std::generic_category().message(code)}; }

/// Opens `path` from `directory`; -1 and errno on failure.
int open_retrying(int directory, const char* path, int flags) {
  int number = -1;
  do {
    number = ::openat(directory, path, flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  } while (number < 0 && errno == EINTR);
  return number;
}

/// The same, failing with ELOOP on a symbolic link anywhere in `path`.
int open_without_links(int directory, const char* path, int flags) {
  open_how how{};
  // With O_PATH the call takes no flag that would mean nothing.
  const int unblocking = (flags & O_PATH) != 0 ? 0 : O_NOCTTY | O_NONBLOCK;
  how.flags = static_cast<decltype(how.flags)>(flags | O_CLOEXEC | unblocking);
  how.resolve = RESOLVE_NO_SYMLINKS;
  long number = -1;
  do {
    number = ::syscall(SYS_openat2, directory, path, &how, sizeof how);
  } while (number < 0 && (errno == EINTR || errno == EAGAIN));
  return static_cast<int>(number);
}

/// Up to three parts of a path with a "/" between them, for one call and without an
/// allocation, when the operating system takes a path of that length.
class JoinedPath {
 public:
  JoinedPath(std::string_view root, std::string_view below, std::string_view name) {
    if (root.size() + below.size() + name.size() + 3 > _text.size()) return;
    if (below.find('\0') != std::string_view::npos) return;  // left to open_in_pieces
    _fits = true;
    char* end = _text.data();
    for (const std::string_view part : {root, below, name}) {
      if (part.empty()) continue;
      if (end != _text.data() && end[-1] != '/') *end++ = '/';
      end = std::copy(part.begin(), part.end(), end);
    }
    *end = '\0';
  }
  bool fits() const { return _fits; }
  const char* c_str() const { return _text.data(); }

 private:
  bool _fits = false;
  std::array<char, PATH_MAX> _text;
};

/// Opens `path` from `directory` in pieces that the operating system takes. `Open`
/// opens one piece. When `longest_piece` is 0 each component is a piece.
template <typename Open>
int open_in_pieces(int directory, std::string_view path, int flags, std::size_t longest_piece,
                   FileDescriptor& opened, Open open) {
  if (path.find('\0') != std::string_view::npos) return ENOENT;  // no file has that name
  std::array<char, PATH_MAX> piece;
  FileDescriptor from;
  int base = directory;
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
    if (size >= piece.size()) return ENAMETOOLONG;
    const bool last = size == path.size();
    path.copy(piece.data(), size);
    piece[size] = '\0';
    FileDescriptor next(open(base, piece.data(), last ? flags : O_PATH | O_DIRECTORY));
    if (!next.is_open()) return errno;
    if (last) {
      opened = std::move(next);
      return 0;
    }
    from = std::move(next);
    base = from.number();
    path.remove_prefix(std::min(path.find_first_not_of('/', size), path.size()));
    if (path.empty()) path = ".";
  }
}

constexpr std::size_t LONGEST_PIECE = PATH_MAX - 2;

FileContent read_regular(const FileDescriptor& file, std::size_t limit) {
  struct stat status {};
  if (::fstat(file.number(), &status) != 0) return error_of(errno);
  if (S_ISDIR(status.st_mode)) return error_of(EISDIR);
  if (S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3)) return std::string();
  if (!S_ISREG(status.st_mode)) return ReadError{ENOTSUP, "Not a regular file"};
  if (static_cast<std::size_t>(status.st_size) > limit) return error_of(EFBIG);

  // One byte more than the file has: the read that fills less has met its end.
  std::string content(static_cast<std::size_t>(status.st_size) + 1, '\0');
  std::size_t size = 0;
  for (;;) {
    const ssize_t count = ::read(file.number(), content.data() + size, content.size() - size);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return error_of(errno);
    size += static_cast<std::size_t>(count);
    if (count == 0) break;
    if (size > limit) return error_of(EFBIG);
    if (size == content.size()) content.resize(content.size() * 2);  // it is growing
  }
  content.resize(size);
  return content;
}

}  // namespace

FileDescriptor::~FileDescriptor() {
  if (is_open()) ::close(_number);
}

FileContent read_file(std::string_view path, LastLink last_link, std::size_t limit) {
  FileDescriptor file;
  const int flags = O_RDONLY | (last_link == LastLink::refuse ? O_NOFOLLOW : 0);
  if (const int code = open_in_pieces(AT_FDCWD, path, flags, LONGEST_PIECE, file, open_retrying)) {
    return error_of(code);
  }
  return read_regular(file, limit);
}

FileContent read_file_in(const FileDescriptor& directory, const std::string& name,
                         std::size_t limit) {
  FileDescriptor file(open_retrying(directory.number(), name.c_str(), O_RDONLY | O_NOFOLLOW));
  if (!file.is_open()) return error_of(errno);
  return read_regular(file, limit);
}

FileContent read_file_below(const std::string& root, std::string_view below,
                            const std::string& name, std::size_t limit) {
  if (const JoinedPath path(root, below, name); path.fits()) {
    FileDescriptor file(open_retrying(AT_FDCWD, path.c_str(), O_RDONLY | O_NOFOLLOW));
    if (!file.is_open()) return error_of(errno);
    return read_regular(file, limit);
  }
  FileDescriptor directory(
      open_retrying(AT_FDCWD, root.empty() ? "." : root.c_str(), O_PATH | O_DIRECTORY));
  if (!directory.is_open()) return error_of(errno);
  if (!below.empty()) {
    const int code = open_in_pieces(directory.number(), below, O_PATH | O_DIRECTORY, LONGEST_PIECE,
                                    directory, open_retrying);
    if (code != 0) return error_of(code);
  }
  return read_file_in(directory, name, limit);
}

std::variant<std::int64_t, ReadError> file_size(std::string_view path) {
  if (path.find('\0') != std::string_view::npos) return error_of(ENOENT);
  struct stat status {};
  if (const JoinedPath whole(path, {}, {}); whole.fits()) {
    if (::stat(whole.c_str(), &status) != 0) return error_of(errno);
    return std::int64_t{status.st_size};
  }
  FileDescriptor file;
  if (const int code = open_in_pieces(AT_FDCWD, path, O_PATH, LONGEST_PIECE, file, open_retrying)) {
    return error_of(code);
  }
  if (::fstat(file.number(), &status) != 0) return error_of(errno);
  return std::int64_t{status.st_size};
}

int open_directory_below(const std::string& root, std::string_view below, FileDescriptor& opened,
                         RootLinks root_links) {
  constexpr int LISTING = O_RDONLY | O_DIRECTORY;
  if (root_links == RootLinks::refuse && !below.empty()) {
    const JoinedPath path(root, below, {});
    if (path.fits()) {
      opened = FileDescriptor(open_without_links(AT_FDCWD, path.c_str(), LISTING));
      if (opened.is_open()) return 0;
      if (errno != ENOSYS && errno != EPERM) return errno;
    }
  }
  FileDescriptor top(open_retrying(AT_FDCWD, root.empty() ? "." : root.c_str(),
                                   below.empty() ? LISTING : O_PATH | O_DIRECTORY));
  if (!top.is_open()) return errno;
  if (below.empty()) {
    opened = std::move(top);
    return 0;
  }
  const int code =
      open_in_pieces(top.number(), below, LISTING, LONGEST_PIECE, opened, open_without_links);
  if (code != ENOSYS && code != EPERM) return code;
  // A kernel before 5.6, or a sandbox that does not know the call: the same, one
  // component at a time.
  return open_in_pieces(top.number(), below, LISTING, 0, opened,
                        [](int directory, const char* path, int flags) {
                          return open_retrying(directory, path, flags | O_NOFOLLOW);
                        });
}

FileContent read_file_below_without_links(const std::string& root, std::string_view below,
                                          const std::string& name, std::size_t limit) {
  FileDescriptor directory;
  const int code = open_directory_below(root, below, directory);
  if (code != 0) return error_of(code == ELOOP ? ENOTDIR : code);
  return read_file_in(directory, name, limit);
}

int open_directory_in(const FileDescriptor& parent, const std::string& name,
                      FileDescriptor& opened) {
  opened = FileDescriptor(
      open_retrying(parent.number(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
  return opened.is_open() ? 0 : errno;
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

int Listing::read(const FileDescriptor& directory) {
  // 64 KiB hold some 1,500 names: all but a few directories take one call, and one
  // more that finds the end.
  constexpr std::size_t BUFFER_BYTES = 64 * 1024;
  alignas(dirent64) std::array<char, BUFFER_BYTES> buffer;
  clear();
  for (;;) {
    const ssize_t count = ::getdents64(directory.number(), buffer.data(), buffer.size());
    if (count == 0) return 0;
    if (count < 0) {
      if (errno == EINTR) continue;
      const int code = errno;
      clear();
      return code;
    }
    for (ssize_t at = 0; at < count;) {
      const auto* entry = reinterpret_cast<const dirent64*>(buffer.data() + at);
      at += entry->d_reclen;
      const std::string_view name = entry->d_name;
      if (name == "." || name == "..") continue;
      bool is_directory = entry->d_type == DT_DIR;
      bool is_link = entry->d_type == DT_LNK;
      struct stat status {};
      if (entry->d_type == DT_UNKNOWN &&
          ::fstatat(directory.number(), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0) {
        is_directory = S_ISDIR(status.st_mode);
        is_link = S_ISLNK(status.st_mode);
      }
      if (is_link) {
        is_directory =
            ::fstatat(directory.number(), entry->d_name, &status, AT_NO_AUTOMOUNT) == 0 &&
            S_ISDIR(status.st_mode);
      }
      _records.push_back({_names.size(), name.size(), is_directory, is_link});
      _names += name;
    }
  }
}

}  // namespace path_filter::internal
