// What a test makes or asks of the system that the C++ library has not.

#ifndef TESTS_SYSTEM_H_
#define TESTS_SYSTEM_H_

#include <cstddef>
#include <filesystem>

namespace test_system {

/// Whether a name may hold any byte but "/" and NUL, as on POSIX.
inline constexpr bool NAMES_ARE_BYTES = std::filesystem::path::preferred_separator == '/';

/// Makes a link at `at`, relative to which `target` may be.
void make_link(const std::filesystem::path& target, const std::filesystem::path& at);

/// Makes a FIFO; false where a directory holds none.
bool make_fifo(const std::filesystem::path& at);

/// How many files this process has open.
std::size_t open_files();

}  // namespace test_system

#endif  // TESTS_SYSTEM_H_
