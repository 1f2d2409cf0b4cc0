// Linux, with whichever C library.

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>

#include "utils/path_filter/base/blocking.h"
#include "utils/path_filter/base/posix.h"

namespace path_filter::internal {

const int PASSING = O_PATH | O_DIRECTORY;

std::error_code open_without_links(int directory, const char* path, int flags, FileHandle& opened) {
  open_how how{};
  // With O_PATH the call takes no flag that would mean nothing.
  const int unblocking = (flags & O_PATH) != 0 ? 0 : O_NOCTTY | O_NONBLOCK;
  how.flags = static_cast<decltype(how.flags)>(flags | O_CLOEXEC | unblocking);
  how.resolve = RESOLVE_NO_SYMLINKS;
  long number = -1;
  do {
    number = ::syscall(SYS_openat2, directory, path, &how, sizeof how);
  } while (number < 0 && (errno == EINTR || errno == EAGAIN));
  if (number < 0) return last_error();
  opened = FileHandle(static_cast<int>(number));
  return {};
}

std::error_code Listing::read(const FileHandle& directory) {
  std::optional<Blocking> waits;
  // What the kernel writes is the C library's own record, except for 32-bit offsets.
  static_assert(sizeof(dirent::d_ino) == 8 && sizeof(dirent::d_off) == 8);
  // 64 KiB hold some 1,500 names: all but a few directories take one call, and one
  // more that finds the end.
  constexpr std::size_t BUFFER_BYTES = 64 * 1024;
  alignas(dirent) std::array<char, BUFFER_BYTES> buffer;
  clear();
  for (std::size_t calls = 0;; ++calls) {
    if (calls % 16 == 0) waits.emplace();  // anew in a large directory, which takes long
    const long count = ::syscall(SYS_getdents64, number(directory), buffer.data(), buffer.size());
    if (count == 0) return {};
    if (count < 0) {
      if (errno == EINTR) continue;
      const auto error = last_error();
      clear();
      return error;
    }
    for (long at = 0; at < count;) {
      const auto* entry = reinterpret_cast<const dirent*>(buffer.data() + at);
      at += entry->d_reclen;
      add_entry(*this, directory, *entry);
    }
  }
}

}  // namespace path_filter::internal
