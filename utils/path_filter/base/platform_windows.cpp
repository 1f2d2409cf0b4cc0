// Windows, from 8.1 on. Files are opened by the system's own call below Win32's: it opens relative
// to an open directory, takes every name that a file system holds ("aux", "a."), and has no limit
// of 260 characters.

#define NOMINMAX
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#include <winternl.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <vector>

#include "utils/path_filter/base/blocking.h"
#include "utils/path_filter/base/file_system.h"
#include "utils/path_filter/base/paths.h"
#include "utils/path_filter/base/platform.h"

namespace path_filter::internal {
namespace {

HANDLE handle(const FileHandle& file) {
  return reinterpret_cast<HANDLE>(file.value());  // NOLINT: as the system has it
}

std::error_code error_of(DWORD code) {
  switch (code) {
    case ERROR_SUCCESS:
      return {};
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:  // no file has that name
    case ERROR_BAD_PATHNAME:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
    case ERROR_INVALID_DRIVE:
    case ERROR_NOT_READY:
    case ERROR_DELETE_PENDING:
      return make_error_code(std::errc::no_such_file_or_directory);
    case ERROR_DIRECTORY:
      return make_error_code(std::errc::not_a_directory);
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_PRIVILEGE_NOT_HELD:
      return make_error_code(std::errc::permission_denied);
    case ERROR_TOO_MANY_OPEN_FILES:
    case ERROR_NO_SYSTEM_RESOURCES:
      return make_error_code(std::errc::too_many_files_open);
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY:
      return make_error_code(std::errc::not_enough_memory);
    case ERROR_FILENAME_EXCED_RANGE:
      return make_error_code(std::errc::filename_too_long);
    case ERROR_CANT_RESOLVE_FILENAME:
    case ERROR_STOPPED_ON_SYMLINK:
      return make_error_code(std::errc::too_many_symbolic_link_levels);
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
      return make_error_code(std::errc::file_exists);
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
      return make_error_code(std::errc::no_space_on_device);
    case ERROR_BROKEN_PIPE:
    case ERROR_NO_DATA:
      return make_error_code(std::errc::broken_pipe);
    case ERROR_INVALID_FUNCTION:
    case ERROR_NOT_SUPPORTED:
      return make_error_code(std::errc::function_not_supported);
    default:
      return make_error_code(std::errc::io_error);
  }
}

// --- Texts -----------------------------------------------------------------------------

constexpr bool is_high_surrogate(char32_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
constexpr bool is_low_surrogate(char32_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

/// Adds `text` as WTF-8, with "/" for "\".
void append_text(std::wstring_view text, std::string& bytes) {
  const auto add = [&](char32_t byte) { bytes += static_cast<char>(byte); };
  for (std::size_t at = 0; at < text.size(); ++at) {
    char32_t point = text[at];
    if (is_high_surrogate(point) && at + 1 < text.size() && is_low_surrogate(text[at + 1])) {
      point = 0x10000 + ((point - 0xD800) << 10) + (text[++at] - 0xDC00U);
    }
    if (point < 0x80) {
      bytes += point == '\\' ? '/' : static_cast<char>(point);
    } else if (point < 0x800) {
      add(0xC0 | point >> 6), add(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
      add(0xE0 | point >> 12), add(0x80 | (point >> 6 & 0x3F)), add(0x80 | (point & 0x3F));
    } else {
      add(0xF0 | point >> 18), add(0x80 | (point >> 12 & 0x3F));
      add(0x80 | (point >> 6 & 0x3F)), add(0x80 | (point & 0x3F));
    }
  }
}

/// WTF-8 as UTF-16, with "\" for "/"; a byte that belongs to nothing is U+FFFD.
std::wstring wide(std::string_view bytes) {
  std::wstring text;
  text.reserve(bytes.size());
  for (std::size_t at = 0; at < bytes.size();) {
    const auto first = static_cast<unsigned char>(bytes[at++]);
    if (first < 0x80) {
      text += first == '/' ? L'\\' : static_cast<wchar_t>(first);
      continue;
    }
    const std::size_t more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
    char32_t point = first & (0x3FU >> more);
    std::size_t read = 0;
    while (read < more && at + read < bytes.size() && (bytes[at + read] & 0xC0) == 0x80) {
      point = point << 6 | (static_cast<unsigned char>(bytes[at + read++]) & 0x3FU);
    }
    constexpr std::array<char32_t, 4> LEAST{0, 0x80, 0x800, 0x10000};
    if (first < 0xC0 || read < more || point < LEAST[more] || point > 0x10FFFF) {
      text += L'\uFFFD';
      continue;
    }
    at += more;
    if (point < 0x10000) {
      text += static_cast<wchar_t>(point);
    } else {
      text += static_cast<wchar_t>(0xD800 + ((point - 0x10000) >> 10));
      text += static_cast<wchar_t>(0xDC00 + (point & 0x3FF));
    }
  }
  return text;
}

bool has_drive(std::string_view path) {
  return path.size() >= 2 && path[1] == ':' &&
         ((path[0] >= 'A' && path[0] <= 'Z') || (path[0] >= 'a' && path[0] <= 'z'));
}

/// What `path` means now: with the current directory, the one of its drive, or the current drive.
std::string absolute(std::string_view path) {
  std::string storage;
  path = native_path(path, storage);
  if (path.starts_with("//") || (has_drive(path) && path.substr(2).starts_with('/'))) {
    return std::string(path);
  }
  std::wstring start = L".";
  if (has_drive(path)) {
    start = wide(path.substr(0, 2)) + L".";
    path.remove_prefix(2);
  } else if (path.starts_with('/')) {
    start = L"\\";
  }
  std::wstring full(::GetFullPathNameW(start.c_str(), 0, nullptr, nullptr), L'\0');
  const DWORD size =
      ::GetFullPathNameW(start.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
  full.resize(std::min<std::size_t>(size, full.size()));
  std::string text;
  append_text(full, text);
  std::string full_storage;
  return joined({native_path(text, full_storage), path});
}

// Of a path for the system's own call, in UTF-16 units.
constexpr std::size_t LONGEST = 0x7FFF;

/// `path` as the system's own call takes it; "" for one that is too long to name a file. ".." is
/// taken with what is before it, as Windows does.
std::wstring system_path(std::string_view path) {
  if (path.size() / 3 > LONGEST) return {};  // at least, as WTF-8
  std::string whole = absolute(path);
  const bool is_share = whole.starts_with("//");
  std::string_view below = is_share ? std::string_view(whole).substr(2) : whole;
  std::string plain;
  const auto has = [&](std::string_view part) { return below.find(part) != below.npos; };
  if (has("//") || has("/./") || has("/../") || below.ends_with("/.") || below.ends_with("/..")) {
    std::vector<std::string_view> names;
    const std::size_t fixed = is_share ? 2 : 1;  // host and share, or the drive
    PathComponents components(below);
    while (const auto name = components.next()) {
      if (*name != "..") {
        names.push_back(*name);
      } else if (names.size() > fixed) {
        names.pop_back();
      }
    }
    for (const std::string_view name : names) {
      if (!plain.empty()) plain += '/';
      plain += name;
    }
    below = plain;
  }
  if (below.size() == 2 && !is_share) below = whole = std::string(below) + '/';  // the drive's top
  return (is_share ? L"\\??\\UNC\\" : L"\\??\\") + wide(below);
}

// --- Opening ---------------------------------------------------------------------------

constexpr ACCESS_MASK LOOKING = FILE_READ_ATTRIBUTES | SYNCHRONIZE;
constexpr ACCESS_MASK READING = LOOKING | FILE_READ_DATA;
constexpr ACCESS_MASK LISTING = LOOKING | FILE_LIST_DIRECTORY | FILE_TRAVERSE;
constexpr ACCESS_MASK PASSING = LOOKING | FILE_TRAVERSE;

std::optional<FILE_ATTRIBUTE_TAG_INFO> attributes(const FileHandle& file) {
  FILE_ATTRIBUTE_TAG_INFO info;
  if (!::GetFileInformationByHandleEx(handle(file), FileAttributeTagInfo, &info, sizeof info)) {
    return std::nullopt;
  }
  return info;
}

/// Opens `name` in the directory `from`, or by the system's own path when that is not open. When
/// `last_link` is refused, a reparse point of any kind fails, or is opened itself by who only
/// looks.
std::error_code open(const FileHandle& from, std::wstring_view name, ACCESS_MASK access,
                     bool is_directory, Links last_link, FileHandle& opened) {
  if (name.empty() || name.size() > LONGEST || name.find(L'\0') != name.npos) {
    return error_of(ERROR_INVALID_NAME);  // no file has it
  }
  UNICODE_STRING text{static_cast<USHORT>(name.size() * sizeof(wchar_t)),
                      static_cast<USHORT>(name.size() * sizeof(wchar_t)),
                      const_cast<wchar_t*>(name.data())};
  OBJECT_ATTRIBUTES object{};
  object.Length = sizeof object;
  object.RootDirectory = from.is_open() ? handle(from) : nullptr;
  object.ObjectName = &text;
  object.Attributes = OBJ_CASE_INSENSITIVE;
  // Without the second, the right to read backups would not open a directory.
  ULONG options = FILE_SYNCHRONOUS_IO_NONALERT | FILE_OPEN_FOR_BACKUP_INTENT;
  if (is_directory) options |= FILE_DIRECTORY_FILE;
  if (last_link == Links::refuse) options |= FILE_OPEN_REPARSE_POINT;
  HANDLE made = nullptr;
  IO_STATUS_BLOCK status{};
  const NTSTATUS failed = ::NtCreateFile(&made, access, &object, &status, nullptr, 0,
                                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                         FILE_OPEN, options, nullptr, 0);
  if (failed != 0) return error_of(::RtlNtStatusToDosError(failed));
  FileHandle file(reinterpret_cast<std::intptr_t>(made));
  if (last_link == Links::refuse && access != LOOKING) {
    const auto info = attributes(file);
    if (!info) return last_error();
    if ((info->FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
      return make_error_code(std::errc::too_many_symbolic_link_levels);
    }
  }
  opened = std::move(file);
  return {};
}

FileContent read_regular(const FileHandle& file, std::size_t limit) {
  const auto info = attributes(file);
  if (info && (info->FileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    return make_error_code(std::errc::is_a_directory);
  }
  if (::GetFileType(handle(file)) != FILE_TYPE_DISK) return make_error_code(NOT_A_FILE);
  LARGE_INTEGER length;
  if (!::GetFileSizeEx(handle(file), &length)) return last_error();
  if (static_cast<std::uint64_t>(length.QuadPart) > limit) {
    return make_error_code(std::errc::file_too_large);
  }
  // One byte more than the file has: the read that fills less has met its end.
  std::string content(static_cast<std::size_t>(length.QuadPart) + 1, '\0');
  std::size_t size = 0;
  for (;;) {
    const auto room = std::min<std::size_t>(content.size() - size, 1U << 30);
    DWORD count = 0;
    if (!::ReadFile(handle(file), content.data() + size, static_cast<DWORD>(room), &count,
                    nullptr)) {
      if (::GetLastError() == ERROR_HANDLE_EOF) break;
      return last_error();
    }
    size += count;
    if (count == 0) break;
    if (size > limit) return make_error_code(std::errc::file_too_large);
    if (size == content.size()) content.resize(content.size() * 2);  // it is growing
  }
  content.resize(size);
  return content;
}

std::optional<FileStatus> status_of(const FileHandle& file, std::error_code& error) {
  const auto info = attributes(file);
  FILE_STANDARD_INFO standard;
  if (!info ||
      !::GetFileInformationByHandleEx(handle(file), FileStandardInfo, &standard, sizeof standard)) {
    error = last_error();
    return std::nullopt;
  }
  const DWORD has = info->FileAttributes;
  const FileType type = (has & FILE_ATTRIBUTE_REPARSE_POINT) != 0 ? FileType::link
                        : (has & FILE_ATTRIBUTE_DIRECTORY) != 0   ? FileType::directory
                        : (has & FILE_ATTRIBUTE_DEVICE) != 0      ? FileType::other
                                                                  : FileType::regular;
  return FileStatus{type, standard.EndOfFile.QuadPart};
}

/// The path of what is open, as Win32 takes it; "" when it cannot be told.
std::wstring final_path(const FileHandle& file) {
  std::wstring path(::GetFinalPathNameByHandleW(handle(file), nullptr, 0, 0), L'\0');
  const DWORD size =
      ::GetFinalPathNameByHandleW(handle(file), path.data(), static_cast<DWORD>(path.size()), 0);
  if (size >= path.size()) return {};
  path.resize(size);
  return path;
}

}  // namespace

std::error_code last_error() { return error_of(::GetLastError()); }

FileHandle::~FileHandle() {
  if (is_open()) ::CloseHandle(handle(*this));
}

FileContent read_file(std::string_view path, Links last_link, std::size_t limit) {
  const Blocking waits;
  FileHandle file;
  const auto error = open({}, system_path(path), READING, false, last_link, file);
  if (error) return error;
  return read_regular(file, limit);
}

FileContent read_file_in(const FileHandle& directory, const std::string& name, std::size_t limit) {
  const Blocking waits;
  FileHandle file;
  const auto error = open(directory, wide(name), READING, false, Links::refuse, file);
  if (error) return error;
  return read_regular(file, limit);
}

std::optional<FileStatus> status_in(const FileHandle& directory, const std::string& name,
                                    std::error_code& error) {
  const Blocking waits;
  FileHandle file;
  error = open(directory, wide(name), LOOKING, false, Links::refuse, file);
  return error ? std::nullopt : status_of(file, error);
}

std::optional<FileStatus> status(const std::string& path, Links last_link, std::error_code& error) {
  const Blocking waits;
  FileHandle file;
  error = open({}, system_path(path), LOOKING, false, last_link, file);
  return error ? std::nullopt : status_of(file, error);
}

std::error_code open_directory_below(const std::string& root, std::string_view below,
                                     FileHandle& opened, Links) {
  const Blocking waits;
  FileHandle reached;
  auto error =
      open({}, system_path(root), below.empty() ? LISTING : PASSING, true, Links::follow, reached);
  while (!error && !below.empty()) {
    const std::size_t end = std::min(below.find('/'), below.size());
    const std::wstring name = wide(below.substr(0, end));
    below.remove_prefix(std::min(end + 1, below.size()));
    FileHandle next;
    error = open(reached, name, below.empty() ? LISTING : PASSING, true, Links::refuse, next);
    reached = std::move(next);
  }
  if (!error) opened = std::move(reached);
  return error;
}

std::error_code open_directory_in(const FileHandle& parent, const std::string& name,
                                  FileHandle& opened) {
  const Blocking waits;
  return open(parent, wide(name), LISTING, true, Links::refuse, opened);
}

std::error_code open_above(const FileHandle& directory, std::size_t levels, FileHandle& opened) {
  const Blocking waits;
  std::wstring path = final_path(directory);  // the system has no ".." on disk
  for (; levels > 0; --levels) {
    const std::size_t end = path.rfind(L'\\');
    if (end == path.npos || end == 0) return error_of(ERROR_PATH_NOT_FOUND);
    path.resize(end);
  }
  std::string text;
  append_text(path, text);
  return open({}, system_path(text), PASSING, true, Links::refuse, opened);
}

std::string real_path(std::string_view path, std::error_code& error) {
  const Blocking waits;
  FileHandle file;
  error = open({}, system_path(path), LOOKING, false, Links::follow, file);
  if (error) return {};
  std::string text;
  append_text(final_path(file), text);
  if (text.empty()) error = last_error();
  std::string storage;
  return std::string(native_path(text, storage));
}

std::optional<FileIdentity> identity(const FileHandle& file) {
  FILE_ID_INFO info;
  if (!::GetFileInformationByHandleEx(handle(file), FileIdInfo, &info, sizeof info)) {
    return std::nullopt;
  }
  std::array<std::uint64_t, 2> number;
  static_assert(sizeof number == sizeof info.FileId);
  std::memcpy(number.data(), &info.FileId, sizeof number);
  if (number[1] != 0) return std::nullopt;  // of a file system with longer ones
  return FileIdentity{info.VolumeSerialNumber, number[0]};
}

std::error_code Listing::read(const FileHandle& directory) {
  std::optional<Blocking> waits;
  clear();
  alignas(FILE_ID_BOTH_DIR_INFO) std::array<char, 64 * 1024> buffer;
  std::string name;
  for (std::size_t calls = 0;; ++calls) {
    if (calls % 16 == 0) waits.emplace();  // anew in a large directory, which takes long
    if (!::GetFileInformationByHandleEx(handle(directory), FileIdBothDirectoryInfo, buffer.data(),
                                        buffer.size())) {
      if (::GetLastError() == ERROR_NO_MORE_FILES) return {};
      const auto error = last_error();
      clear();
      return error;
    }
    for (const char* at = buffer.data();;) {
      const auto* entry = reinterpret_cast<const FILE_ID_BOTH_DIR_INFO*>(at);
      const std::wstring_view text(entry->FileName, entry->FileNameLength / sizeof(wchar_t));
      if (text != L"." && text != L"..") {
        name.clear();
        append_text(text, name);
        const DWORD has = entry->FileAttributes;
        const bool is_link = (has & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
        const FileType type = is_link                                 ? FileType::link
                              : (has & FILE_ATTRIBUTE_DIRECTORY) != 0 ? FileType::directory
                              : (has & FILE_ATTRIBUTE_DEVICE) != 0    ? FileType::other
                                                                      : FileType::regular;
        FileHandle target;
        add(name, type, is_link && !open(directory, text, LOOKING, true, Links::follow, target));
      }
      if (entry->NextEntryOffset == 0) break;
      at += entry->NextEntryOffset;
    }
  }
}

// --- Paths -----------------------------------------------------------------------------

std::string_view native_path(std::string_view path, std::string& storage) {
  path = with_slashes(path, storage);
  constexpr std::string_view PLAIN = "//?/";
  constexpr std::string_view SHARE = "//?/UNC/";
  if (path.starts_with(SHARE)) return storage = "/" + std::string(path.substr(SHARE.size() - 1));
  if (path.starts_with(PLAIN)) path.remove_prefix(PLAIN.size());
  return path;
}

bool is_absolute(std::string_view path) { return path.starts_with('/') || has_drive(path); }

bool is_same_name(std::string_view one, std::string_view other) {
  if (one == other) return true;
  const std::wstring first = wide(one);
  const std::wstring second = wide(other);
  return ::CompareStringOrdinal(first.data(), static_cast<int>(first.size()), second.data(),
                                static_cast<int>(second.size()), TRUE) == CSTR_EQUAL;
}

std::uint64_t random_seed() {
  std::random_device random;
  return std::uniform_int_distribution<std::uint64_t>()(random);
}

void write_error(std::string_view text) {
  const HANDLE stream = ::GetStdHandle(STD_ERROR_HANDLE);
  DWORD mode = 0;
  DWORD written = 0;
  if (::GetConsoleMode(stream, &mode)) {
    std::wstring shown;
    shown.resize(text.size());
    const int size = ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                           shown.data(), static_cast<int>(shown.size()));
    ::WriteConsoleW(stream, shown.data(), static_cast<DWORD>(size), &written, nullptr);
  } else {
    ::WriteFile(stream, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
  }
}

}  // namespace path_filter::internal

namespace path_filter {

std::string path_text(const std::filesystem::path& path) {
  std::string text;
  internal::append_text(path.native(), text);
  return text;
}

std::filesystem::path path_of(std::string_view text) { return internal::wide(text); }

}  // namespace path_filter
