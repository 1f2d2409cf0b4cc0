// What Linux has beyond POSIX and the component makes use of. Each of these is there twice:
// as Linux does it best, and in what POSIX and the C++ library give on any system
// (PATH_FILTER_POSIX_ONLY, an option of the build). The answers are the same. Beside
// file_system.cpp, which is POSIX, nothing else in the component depends on the system.
//
// Listing::read, of file_system.h, is the last of them: platform_linux.cpp and
// platform_posix.cpp define it too.

#ifndef UTILS_PATH_FILTER_BASE_PLATFORM_H_
#define UTILS_PATH_FILTER_BASE_PLATFORM_H_

#include <cstddef>
#include <string_view>
#include <system_error>

#ifdef PATH_FILTER_POSIX_ONLY
#include <functional>
#include <thread>
#else
#include <sched.h>

#include <algorithm>
#include <cstring>
#endif

namespace path_filter::internal {

class FileDescriptor;

/// A number that two threads seldom share while both run: that of the processor, or one
/// that goes with the thread.
std::size_t running_place();

/// Where `byte` stands last in `text`; null where it does not.
const char* find_last(std::string_view text, char byte);

/// The flags of open(2) for a directory that is only passed through. Where the system
/// has such a way to open one, the right to search it is enough; elsewhere (the GNU C
/// library without Linux's own O_PATH) it must be readable too.
extern const int PASSING;

/// Opens `path` from the directory `directory` with the flags of open(2); fails with
/// too_many_symbolic_link_levels on a
/// symbolic link anywhere in `path`. function_not_supported and operation_not_permitted say that
/// the system has no one call for this: the caller then goes component by component.
std::error_code open_without_links(int directory, const char* path, int flags,
                                   FileDescriptor& opened);

#ifdef PATH_FILTER_POSIX_ONLY

inline std::size_t running_place() {
  return std::hash<std::thread::id>()(std::this_thread::get_id());
}

inline const char* find_last(std::string_view text, char byte) {
  const std::size_t at = text.rfind(byte);
  return at == text.npos ? nullptr : text.data() + at;
}

#else

inline std::size_t running_place() {
  return static_cast<std::size_t>(std::max(::sched_getcpu(), 0));
}

// The C++ library goes byte by byte, this does not.
inline const char* find_last(std::string_view text, char byte) {
  if (text.empty()) return nullptr;
  return static_cast<const char*>(::memrchr(text.data(), byte, text.size()));
}

#endif

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_BASE_PLATFORM_H_
