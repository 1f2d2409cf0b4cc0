#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "program/output.h"
#include "program/system.h"

namespace program {

using path_filter::internal::FileHandle;
using path_filter::internal::last_error;

namespace {

int number(Stream stream) { return static_cast<int>(stream); }

/// Whether the call that failed is to be made again: a signal came, or another process made the
/// stream one that does not wait, and this has waited for the `event`.
bool is_to_be_repeated(Stream stream, short event) {
  if (errno == EINTR) return true;
  if (errno != EAGAIN && errno != EWOULDBLOCK) return false;
  pollfd ready{number(stream), event, 0};
  ::poll(&ready, 1, -1);
  return true;
}

/// Takes the room for so many bytes of the file, which has `status`, in advance. Leaves it as it
/// is when there is none.
std::error_code take_room(int file, const struct stat& status, off_t size) {
#ifdef __APPLE__
  fstore_t room{F_ALLOCATEALL, F_PEOFPOSMODE, 0, size - status.st_size, 0};
  if (room.fst_length <= 0 || ::fcntl(file, F_PREALLOCATE, &room) == 0) return {};
  return errno == ENOTSUP ? std::error_code() : last_error();
#else
  int code = ::posix_fallocate(file, 0, size);
  if (code < 0) code = errno;  // of zig's C library
  if (code == 0 || code == EINVAL || code == EOPNOTSUPP)
    return {};  // not all file systems can tell
  return {::ftruncate(file, status.st_size) == 0 ? code : errno, std::generic_category()};
#endif
}

}  // namespace

std::vector<std::string> start(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  return {argv + std::min(argc, 1), argv + argc};
}

std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

Stream standard_input() { return STDIN_FILENO; }
Stream standard_output() { return STDOUT_FILENO; }
Stream standard_error() { return STDERR_FILENO; }

std::size_t read_some(Stream stream, char* buffer, std::size_t size, std::error_code& error) {
  error = {};
  ssize_t count = -1;
  while ((count = ::read(number(stream), buffer, size)) < 0 && is_to_be_repeated(stream, POLLIN)) {
  }
  if (count >= 0) return static_cast<std::size_t>(count);
  error = last_error();
  return 0;
}

std::error_code write_all(Stream stream, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(number(stream), text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (!is_to_be_repeated(stream, POLLOUT)) {
      return last_error();
    }
  }
  return {};
}

FileHandle open_stream(const std::string& name, std::error_code& error) {
  FileHandle opened(::open(name.c_str(), O_RDONLY | O_CLOEXEC));
  error = opened.is_open() ? std::error_code() : last_error();
  return opened;
}

bool is_terminal(Stream stream) { return ::isatty(number(stream)) == 1; }

bool obeys_escapes(Stream stream) { return is_terminal(stream) && variable("TERM") != "dumb"; }

std::optional<std::size_t> terminal_width() {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return std::nullopt;
  return size.ws_col;
}

std::size_t openable_files(std::size_t most) {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return most;
  std::size_t free = 0;
  for (int number = 0; free < most; ++number) {
    if (static_cast<rlim_t>(number) >= limit.rlim_cur) break;
    if (::fcntl(number, F_GETFD) < 0) ++free;
  }
  return free;
}

PageFile::PageFile(const std::string& file)
    : _file(file), _opened(::open(file.c_str(), O_WRONLY | O_CLOEXEC)) {
  if (_opened.is_open()) return;
  const auto error = last_error();
  if (error != std::errc::no_such_file_or_directory) throw failure(error);
  std::filesystem::path target = file;
  while (is_symlink(target)) target = target.parent_path() / read_symlink(target);
  const auto directory = target.has_parent_path() ? target.parent_path() : ".";
  if (::access(directory.c_str(), W_OK | X_OK) != 0) throw failure(last_error());
  _target = target.native();
}

std::system_error PageFile::failure(std::error_code error) const {
  return {error, "cannot write " + printable(_file)};
}

void PageFile::overwrite(std::string_view page) const {
  const int file = number(stream());
  struct stat status {};
  const bool is_regular = ::fstat(file, &status) == 0 && S_ISREG(status.st_mode);
  const auto size = static_cast<off_t>(page.size());
  std::error_code error;
  if (is_regular) error = take_room(file, status, size);
  if (!error) error = write_all(file, page);
  if (!error && is_regular && ::ftruncate(file, size) != 0) error = last_error();
  if (error) throw failure(error);
}

void PageFile::create(std::string_view page) const {
#if defined(O_TMPFILE) && !defined(PATH_FILTER_POSIX_ONLY)
  // It has no name until it is whole: nothing is left of it when the program is killed.
  const auto directory = std::filesystem::path(_target).parent_path() / ".";
  const FileHandle nameless(::open(directory.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666));
  if (nameless.is_open()) {
    if (const auto error = write_all(nameless.value(), page)) throw failure(error);
    const std::string link = "/proc/self/fd/" + std::to_string(nameless.value());
    if (::linkat(AT_FDCWD, link.c_str(), AT_FDCWD, _target.c_str(), AT_SYMLINK_FOLLOW) == 0) {
      return;
    }
  }
#endif
  const FileHandle named(::open(_target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (!named.is_open()) throw failure(last_error());
  if (const auto error = write_all(named.value(), page)) {
    ::unlink(_target.c_str());
    throw failure(error);
  }
}

}  // namespace program
