#include "utils/path_filter/internal/file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <memory>
#include <system_error>

#include "utils/path_filter/internal/blocking.h"
#include "utils/path_filter/internal/paths.h"
#include "utils/path_filter/internal/platform.h"

namespace path_filter::internal {
namespace {

ReadError error_of(int code) { return {code, std::generic_category().message(code)}; }

/// Opens `path` from `directory`; -1 and errno on failure.
int open_retrying(int directory, const char* path, int flags) {
  int number = -1;
  do {
    number = ::openat(directory, path, flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  } while (number < 0 && errno == EINTR);
  if (number < 0 && errno == EMLINK) errno = ELOOP;  // FreeBSD's word for a link refused
  return number;
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

/// Goes from the directory `from` down `path` in pieces that the operating system takes; what
/// is left behind is closed at once. `Open` opens one piece. When `longest_piece` is 0 each
/// component is a piece. Returns 0 when `from` is what `path` named, opened with `flags`;
/// otherwise an errno value, and `from` and `path` are how far it came and what is left.
template <typename Open>
int open_in_pieces(FileDescriptor& from, std::string_view& path, int flags,
                   std::size_t longest_piece, Open open) {
  if (path.find('\0') != std::string_view::npos) return ENOENT;  // no file has that name
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
    if (size >= piece.size()) return ENAMETOOLONG;
    const bool last = size == path.size();
    path.copy(piece.data(), size);
    piece[size] = '\0';
    FileDescriptor next(open(from.number(), piece.data(), last ? flags : PASSING));
    if (!next.is_open()) return errno;
    from = std::move(next);
    if (last) return 0;
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
  if (::fstat(file.number(), &status) != 0) return error_of(errno);
  if (S_ISDIR(status.st_mode)) return error_of(EISDIR);
  if (is_null_device(status)) return std::string();
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
  const Blocking waits;
  FileDescriptor file(AT_FDCWD);
  const int flags = O_RDONLY | (last_link == LastLink::refuse ? O_NOFOLLOW : 0);
  if (const int code = open_in_pieces(file, path, flags, LONGEST_PIECE, open_retrying)) {
    return error_of(code);
  }
  return read_regular(file, limit);
}

FileContent read_file_in(const FileDescriptor& directory, const std::string& name,
                         std::size_t limit) {
  const Blocking waits;
  FileDescriptor file(open_retrying(directory.number(), name.c_str(), O_RDONLY | O_NOFOLLOW));
  if (!file.is_open()) return error_of(errno);
  return read_regular(file, limit);
}

FileContent read_file_below(const std::string& root, std::string_view below,
                            const std::string& name, std::size_t limit) {
  const Blocking waits;
  if (const JoinedPath path(root, below, name); path.fits()) {
    FileDescriptor file(open_retrying(AT_FDCWD, path.c_str(), O_RDONLY | O_NOFOLLOW));
    if (!file.is_open()) return error_of(errno);
    return read_regular(file, limit);
  }
  FileDescriptor directory(open_retrying(AT_FDCWD, root.empty() ? "." : root.c_str(), PASSING));
  if (!directory.is_open()) return error_of(errno);
  if (!below.empty()) {
    const int code = open_in_pieces(directory, below, PASSING, LONGEST_PIECE, open_retrying);
    if (code != 0) return error_of(code);
  }
  return read_file_in(directory, name, limit);
}

std::variant<std::int64_t, ReadError> file_size(std::string_view path) {
  const Blocking waits;
  if (path.find('\0') != std::string_view::npos) return error_of(ENOENT);
  struct stat status {};
  if (const JoinedPath whole(path, {}, {}); whole.fits()) {
    if (::stat(whole.c_str(), &status) != 0) return error_of(errno);
    return std::int64_t{status.st_size};
  }
  // Its directory is opened, not the file, which may be one that must not be read.
  SplitPath split(path);
  if (split.directory.empty()) return error_of(ENAMETOOLONG);
  FileDescriptor directory(AT_FDCWD);
  if (const int code =
          open_in_pieces(directory, split.directory, PASSING, LONGEST_PIECE, open_retrying)) {
    return error_of(code);
  }
  const std::string name(split.name.empty() ? "." : split.name);
  if (::fstatat(directory.number(), name.c_str(), &status, 0) != 0) return error_of(errno);
  return std::int64_t{status.st_size};
}

int open_directory_below(const std::string& root, std::string_view below, FileDescriptor& opened,
                         RootLinks root_links) {
  const Blocking waits;
  constexpr int LISTING = O_RDONLY | O_DIRECTORY;
  if (root_links == RootLinks::refuse && !below.empty()) {
    const JoinedPath path(root, below, {});
    if (path.fits()) {
      opened = FileDescriptor(open_without_links(AT_FDCWD, path.c_str(), LISTING));
      if (opened.is_open()) return 0;
      if (errno != ENOSYS && errno != EPERM) return errno;
    }
  }
  FileDescriptor reached(open_retrying(AT_FDCWD, root.empty() ? "." : root.c_str(),
                                       below.empty() ? LISTING : PASSING));
  if (!reached.is_open()) return errno;
  int code = 0;
  if (!below.empty()) {
    code = open_in_pieces(reached, below, LISTING, LONGEST_PIECE, open_without_links);
  }
  if (code == ENOSYS || code == EPERM) {
    // A system without the call (Linux before 5.6), or a sandbox that does not know it: the
    // rest one component at a time.
    code =
        open_in_pieces(reached, below, LISTING, 0, [](int directory, const char* path, int flags) {
          return open_retrying(directory, path, flags | O_NOFOLLOW);
        });
  }
  if (code == 0) opened = std::move(reached);
  return code;
}

FileContent read_file_below_without_links(const std::string& root, std::string_view below,
                                          const std::string& name, std::size_t limit) {
  const Blocking waits;
  FileDescriptor directory;
  const int code = open_directory_below(root, below, directory);
  if (code != 0) return error_of(code == ELOOP ? ENOTDIR : code);
  return read_file_in(directory, name, limit);
}

int open_directory_in(const FileDescriptor& parent, const std::string& name,
                      FileDescriptor& opened) {
  const Blocking waits;
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

void Listing::add(const FileDescriptor& directory, const char* name, unsigned char type) {
  const std::string_view text = name;
  if (text == "." || text == "..") return;
  bool is_directory = type == DT_DIR;
  bool is_link = type == DT_LNK;
  bool is_regular = type == DT_REG;
  struct stat status {};
  const auto look = [&](int flags) {
    const bool there = ::fstatat(directory.number(), name, &status, flags) == 0;
    is_directory = there && S_ISDIR(status.st_mode);
    is_regular = there && S_ISREG(status.st_mode);
    return there && S_ISLNK(status.st_mode);
  };
  if (type == DT_UNKNOWN) is_link = look(AT_SYMLINK_NOFOLLOW);
  if (is_link) look(0);
  _records.push_back({_names.size(), text.size(), is_directory, is_link, is_regular});
  _names += text;
}

}  // namespace path_filter::internal
