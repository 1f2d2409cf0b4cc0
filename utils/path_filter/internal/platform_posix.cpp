// Any POSIX system whose directory entries tell their type: Linux, macOS, the BSDs.

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "utils/path_filter/internal/blocking.h"
#include "utils/path_filter/internal/file_system.h"
#include "utils/path_filter/internal/platform.h"

namespace path_filter::internal {

#ifdef O_SEARCH
const int PASSING = O_SEARCH | O_DIRECTORY;
#else
const int PASSING = O_RDONLY | O_DIRECTORY;
#endif

int open_without_links(int, const char*, int) {
  errno = ENOSYS;
  return -1;
}

int Listing::read(const FileDescriptor& directory) {
  const Blocking waits;
  clear();
  // The stream closes its descriptor, and the caller goes on with the directory's.
  FileDescriptor copy(::fcntl(directory.number(), F_DUPFD_CLOEXEC, 0));
  if (!copy.is_open()) return errno;
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(copy.number()), ::closedir);
  if (!stream) return errno;
  copy.release();
  for (;;) {
    errno = 0;
    if (const dirent* entry = ::readdir(stream.get())) {
      add(directory, entry->d_name, entry->d_type);
    } else if (errno != EINTR) {
      const int code = errno;
      if (code != 0) clear();
      return code;
    }
  }
}

}  // namespace path_filter::internal
