// What one operating system has and another has not, and the component makes use of beside its
// files (file_system.h).

#ifndef UTILS_PATH_FILTER_BASE_PLATFORM_H_
#define UTILS_PATH_FILTER_BASE_PLATFORM_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#ifdef PATH_FILTER_POSIX_ONLY
#include <functional>
#include <thread>
#else
#include <sched.h>

#include <algorithm>
#include <cstring>
#endif

namespace path_filter::internal {

/// A path of this system with "/" between its components: `path` itself, or a view into `storage`.
/// On Windows "\" separates them too, and "\\?\" in front counts as not there.
std::string_view native_path(std::string_view path, std::string& storage);

/// Whether a native path says where it begins: on Windows with a drive or "//", too.
bool is_absolute(std::string_view path);

/// Whether two components of absolute paths are one: on Windows, letter case aside.
bool is_same_name(std::string_view one, std::string_view other);

/// Writes to standard error, which may not take it.
void write_error(std::string_view text);

/// Random bytes of the system. Throws a std::runtime_error when there are none.
std::uint64_t random_seed();

/// A number that two threads seldom share while both run: that of the processor, or one
/// that goes with the thread.
std::size_t running_place();

/// Where `byte` stands last in `text`; null where it does not.
const char* find_last(std::string_view text, char byte);

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
