// What the component reads from disk goes through here: whole files, and whole directory
// listings. Nothing blocks (a FIFO or a device is refused, not read) and
// no path is too long: one that the operating system would refuse for its length is
// opened in steps.
//
// Paths and names are bytes, with "/" between components: on POSIX the file system's own, on
// Windows its UTF-16 as WTF-8 (UTF-8 in which an unpaired surrogate has three bytes, too).
//
// file_system.cpp has what holds on all systems; file_system_posix.cpp with platform_linux.cpp or
// platform_posix.cpp, or platform_windows.cpp, is this system.

#ifndef UTILS_PATH_FILTER_BASE_FILE_SYSTEM_H_
#define UTILS_PATH_FILTER_BASE_FILE_SYSTEM_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

namespace path_filter::internal {

/// An open file or directory, closed when it goes out of scope: the file descriptor of a POSIX
/// system, the handle of another.
class FileHandle {
 public:
  FileHandle() = default;
  explicit FileHandle(std::intptr_t value) : _value(value) {}
  FileHandle(FileHandle&& other) noexcept : _value(std::exchange(other._value, NONE)) {}
  FileHandle& operator=(FileHandle&& other) noexcept {
    std::swap(_value, other._value);
    return *this;
  }
  FileHandle(const FileHandle&) = delete;
  FileHandle& operator=(const FileHandle&) = delete;
  ~FileHandle();

  std::intptr_t value() const { return _value; }
  bool is_open() const { return _value != NONE; }

  /// Leaves it open, for somebody else to close.
  void release() { _value = NONE; }

 private:
  static constexpr std::intptr_t NONE = -1;

  std::intptr_t _value = NONE;
};

/// What a read gives: the content, or why there is none.
using FileContent = std::variant<std::string, std::error_code>;

/// The operating system's last error, of the generic category, as are all errors here.
std::error_code last_error();

/// What the operating system says of an error; of one that a read has found itself, what it is.
std::string message(std::error_code error);

/// Whether symbolic links are followed where one may be.
enum class Links { follow, refuse };

/// Of what cannot be read as a file: a FIFO, a device, a socket.
constexpr std::errc NOT_A_FILE = std::errc::not_supported;

/// Reads the file at `path` whole. `last_link` says what becomes of a link at its end. A directory
/// fails with is_a_directory, a file of more than `limit` bytes with file_too_large, and what is
/// neither a regular file nor the null device with NOT_A_FILE, without being read.
FileContent read_file(std::string_view path, Links last_link, std::size_t limit);

/// The same for the file `name` in the directory `directory`; a link is refused.
FileContent read_file_in(const FileHandle& directory, const std::string& name, std::size_t limit);

/// The same for the file `name` in the directory `root`/`below` (the root itself when `below` is
/// ""). A link on the way from the root that is refused counts as what it is, not_a_directory.
FileContent read_file_below(const std::string& root, std::string_view below,
                            const std::string& name, std::size_t limit, Links on_the_way);

enum class FileType { regular, directory, link, other };

struct FileStatus {
  FileType type;
  std::int64_t size;  // in bytes
};

/// What the file `name` in the directory `directory` is; of a link, its own. Absent when it cannot
/// be told, and then `error` says why.
std::optional<FileStatus> status_in(const FileHandle& directory, const std::string& name,
                                    std::error_code& error);

/// What lies at `path`; of a link at its end, its own when `last_link` refuses it. Absent when it
/// cannot be told, and then `error` says why.
std::optional<FileStatus> status(const std::string& path, Links last_link, std::error_code& error);

/// Opens the directory `root`/`below` for listing; the root itself when `below` is "". The way
/// from the root may not lead through symbolic links: that fails with
/// too_many_symbolic_link_levels or not_a_directory. When the way to the root may not either, one
/// call does both where the system has one that does; elsewhere links on the way to the root are
/// followed.
std::error_code open_directory_below(const std::string& root, std::string_view below,
                                     FileHandle& opened, Links to_root = Links::follow);

/// Opens the directory `name` in `parent` for listing. A symbolic link is refused.
std::error_code open_directory_in(const FileHandle& parent, const std::string& name,
                                  FileHandle& opened);

/// Opens the directory so many `levels` above `directory`, for passing through.
std::error_code open_above(const FileHandle& directory, std::size_t levels, FileHandle& opened);

/// `path` absolute and without links; "" when it cannot be told, and then `error` says why.
std::string real_path(std::string_view path, std::error_code& error);

/// What tells a file from all others that are there at the same time.
struct FileIdentity {
  std::uint64_t device;
  std::uint64_t number;
  bool operator==(const FileIdentity&) const = default;
};

/// Absent when the system does not say.
std::optional<FileIdentity> identity(const FileHandle& file);

/// The entries of one directory, in the order in which the file system gives them.
class Listing {
 public:
  struct Entry {
    std::string_view name;
    bool is_directory;  // a symbolic link to a directory counts as one
    bool is_link;
    bool is_regular;
  };

  /// Adds an entry; `leads_to_directory` is asked of links.
  void add(std::string_view name, FileType type, bool leads_to_directory);

  /// Reads the listing of `directory` from where it stands to its end, in place of what was
  /// held before. On failure the listing is empty.
  std::error_code read(const FileHandle& directory);

  std::size_t size() const { return _records.size(); }
  Entry operator[](std::size_t index) const {
    const Record& record = _records[index];
    return {{_names.data() + record.begin, record.size},
            record.is_directory,
            record.is_link,
            record.is_regular};
  }
  bool contains(std::string_view name) const;
  void clear();

 private:
  struct Record {
    std::size_t begin;
    std::size_t size;
    bool is_directory;
    bool is_link;
    bool is_regular;
  };

  std::string _names;
  std::vector<Record> _records;
};

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_BASE_FILE_SYSTEM_H_
