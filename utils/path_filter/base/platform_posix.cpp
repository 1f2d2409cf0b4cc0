// Any POSIX system whose directory entries tell their type: Linux, macOS, the BSDs.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "utils/path_filter/base/blocking.h"
#include "utils/path_filter/base/posix.h"

namespace path_filter::internal {

#ifdef O_SEARCH
const int PASSING = O_SEARCH | O_DIRECTORY;
#else
const int PASSING = O_RDONLY | O_DIRECTORY;
#endif

std::error_code open_without_links(int, const char*, int, FileHandle&) {
  return std::make_error_code(std::errc::function_not_supported);
}

std::error_code Listing::read(const FileHandle& directory) {
  const Blocking waits;
  clear();
  // The stream closes its descriptor, and the caller goes on with the directory's.
  FileHandle copy(::fcntl(number(directory), F_DUPFD_CLOEXEC, 0));
  if (!copy.is_open()) return last_error();
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(number(copy)), ::closedir);
  if (!stream) return last_error();
  copy.release();
  for (;;) {
    errno = 0;
    if (const dirent* entry = ::readdir(stream.get())) {
      add_entry(*this, directory, *entry);
    } else if (errno != EINTR) {
      if (errno == 0) return {};
      const auto error = last_error();
      clear();
      return error;
    }
  }
}

}  // namespace path_filter::internal
