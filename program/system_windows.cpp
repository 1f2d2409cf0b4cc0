#define NOMINMAX
#include <windows.h>
// After it.
#include <shellapi.h>

#include <algorithm>
#include <cwchar>
#include <filesystem>
#include <memory>

#include "program/output.h"
#include "program/system.h"
#include "utils/path_filter/base/path_argument.h"

namespace program {

using path_filter::path_of;
using path_filter::path_text;
using path_filter::internal::FileHandle;
using path_filter::internal::last_error;

namespace {

HANDLE handle(Stream stream) { return reinterpret_cast<HANDLE>(stream); }

Stream standard(DWORD which) { return reinterpret_cast<Stream>(::GetStdHandle(which)); }

/// The most of a file or a console that one call is given.
constexpr std::size_t MOST_BYTES = std::size_t{1} << 20;
constexpr std::size_t MOST_UNITS = std::size_t{1} << 13;

/// What is typed, one line at most.
std::size_t read_console(Stream stream, char* buffer, std::size_t size, std::error_code& error) {
  constexpr wchar_t END = 26;         // Ctrl-Z, at the beginning of a line
  constexpr std::size_t LONGEST = 3;  // bytes of a unit
  std::wstring typed(std::min(size / LONGEST, MOST_UNITS), L'\0');
  DWORD count = 0;
  if (!::ReadConsoleW(handle(stream), typed.data(), static_cast<DWORD>(typed.size() - 1), &count,
                      nullptr)) {
    error = last_error();
    return 0;
  }
  if (count > 0 && IS_HIGH_SURROGATE(typed[count - 1])) {
    DWORD rest = 0;
    ::ReadConsoleW(handle(stream), typed.data() + count, 1, &rest, nullptr);
    count += rest;
  }
  if (typed.front() == END) return 0;
  return static_cast<std::size_t>(std::max(
      0, ::WideCharToMultiByte(CP_UTF8, 0, typed.data(), static_cast<int>(count), buffer,
                               static_cast<int>(std::min(size, MOST_BYTES)), nullptr, nullptr)));
}

std::error_code write_console(Stream stream, std::string_view text) {
  std::wstring units(text.size(), L'\0');  // no character has more of them than bytes
  units.resize(static_cast<std::size_t>(
      ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), units.data(),
                            static_cast<int>(units.size()))));
  for (std::size_t at = 0; at < units.size();) {
    DWORD written = 0;
    const auto size = static_cast<DWORD>(std::min(units.size() - at, MOST_UNITS));
    if (!::WriteConsoleW(handle(stream), units.data() + at, size, &written, nullptr)) {
      return last_error();
    }
    at += written;
  }
  return {};
}

FileHandle opened_file(const std::filesystem::path& path, DWORD access, DWORD how,
                       DWORD flags = 0) {
  return FileHandle(reinterpret_cast<Stream>(
      ::CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, how, FILE_ATTRIBUTE_NORMAL | flags, nullptr)));
}

/// Gives the file, whose end is looked for from its beginning, so many bytes.
std::error_code resize(Stream stream, std::size_t size) {
  FILE_END_OF_FILE_INFO end{};
  end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
  return ::SetFileInformationByHandle(handle(stream), FileEndOfFileInfo, &end, sizeof end)
             ? std::error_code()
             : last_error();
}

/// The name under which a page is written until it is whole.
std::filesystem::path unfinished(const std::filesystem::path& file) {
  return file.native() + L"." + std::to_wstring(::GetCurrentProcessId()) + L".part";
}

}  // namespace

std::vector<std::string> start(int, char**) {  // whose text is of the system's code page
  int count = 0;
  const std::unique_ptr<wchar_t*, decltype(&::LocalFree)> arguments(
      ::CommandLineToArgvW(::GetCommandLineW(), &count), &::LocalFree);
  std::vector<std::string> texts;
  for (int index = 1; index < count; ++index) texts.push_back(path_text(arguments.get()[index]));
  return texts;
}

std::string variable(const char* name) {
  const wchar_t* const value = ::_wgetenv(path_of(name).c_str());
  return value == nullptr ? "" : path_text(value);
}

Stream standard_input() { return standard(STD_INPUT_HANDLE); }
Stream standard_output() { return standard(STD_OUTPUT_HANDLE); }
Stream standard_error() { return standard(STD_ERROR_HANDLE); }

std::size_t read_some(Stream stream, char* buffer, std::size_t size, std::error_code& error) {
  error = {};
  if (is_terminal(stream)) return read_console(stream, buffer, size, error);
  DWORD count = 0;
  if (::ReadFile(handle(stream), buffer, static_cast<DWORD>(std::min(size, MOST_BYTES)), &count,
                 nullptr)) {
    return count;
  }
  if (::GetLastError() != ERROR_BROKEN_PIPE && ::GetLastError() != ERROR_HANDLE_EOF) {
    error = last_error();
  }
  return 0;
}

std::error_code write_all(Stream stream, std::string_view text) {
  if (is_terminal(stream)) return write_console(stream, text);
  while (!text.empty()) {
    DWORD written = 0;
    const auto size = static_cast<DWORD>(std::min(text.size(), MOST_BYTES));
    if (!::WriteFile(handle(stream), text.data(), size, &written, nullptr)) {
      const DWORD code = ::GetLastError();
      return code == ERROR_NO_DATA || code == ERROR_BROKEN_PIPE || code == ERROR_PIPE_NOT_CONNECTED
                 ? std::make_error_code(std::errc::broken_pipe)
                 : last_error();
    }
    if (written == 0) ::Sleep(1);  // another process made it a pipe that does not wait
    text.remove_prefix(written);
  }
  return {};
}

FileHandle open_stream(const std::string& name, std::error_code& error) {
  FileHandle opened = opened_file(path_of(name), GENERIC_READ, OPEN_EXISTING);
  error = opened.is_open() ? std::error_code() : last_error();
  return opened;
}

bool is_terminal(Stream stream) {
  DWORD mode = 0;
  return ::GetConsoleMode(handle(stream), &mode);
}

bool obeys_escapes(Stream stream) {
  DWORD mode = 0;
  return ::GetConsoleMode(handle(stream), &mode) && variable("TERM") != "dumb" &&
         ::SetConsoleMode(handle(stream), mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

std::optional<std::size_t> terminal_width() {
  CONSOLE_SCREEN_BUFFER_INFO info;
  if (!::GetConsoleScreenBufferInfo(handle(standard_output()), &info)) return std::nullopt;
  return static_cast<std::size_t>(info.srWindow.Right - info.srWindow.Left + 1);
}

std::size_t openable_files(std::size_t most) { return most; }

PageFile::PageFile(const std::string& file)
    : _file(file),
      _target(file),
      _opened(opened_file(path_of(file), GENERIC_WRITE, OPEN_EXISTING)) {
  if (_opened.is_open()) return;
  auto error = last_error();
  std::error_code unexamined;
  if (std::filesystem::is_directory(path_of(file), unexamined)) {
    error = std::make_error_code(std::errc::is_a_directory);
  }
  if (error != std::errc::no_such_file_or_directory) throw failure(error);
  const FileHandle attempt = opened_file(unfinished(path_of(file)), GENERIC_WRITE | DELETE,
                                         CREATE_NEW, FILE_FLAG_DELETE_ON_CLOSE);
  if (attempt.is_open()) return;
  error = last_error();
  const auto directory = path_of(file).parent_path();
  if (std::filesystem::exists(directory, unexamined) &&
      !std::filesystem::is_directory(directory, unexamined)) {
    error = std::make_error_code(std::errc::not_a_directory);
  }
  throw failure(error);
}

std::system_error PageFile::failure(std::error_code error) const {
  return {error, "cannot write " + printable(_file)};
}

void PageFile::overwrite(std::string_view page) const {
  const bool is_regular = ::GetFileType(handle(stream())) == FILE_TYPE_DISK;
  LARGE_INTEGER size{};
  std::error_code error;
  if (is_regular) {  // its room is taken in advance
    if (!::GetFileSizeEx(handle(stream()), &size)) throw failure(last_error());
    const auto old_size = static_cast<std::size_t>(size.QuadPart);
    error = resize(stream(), std::max(page.size(), old_size));
    if (error) {
      resize(stream(), old_size);
      throw failure(error);
    }
  }
  error = write_all(stream(), page);
  if (!error && is_regular) error = resize(stream(), page.size());
  if (error) throw failure(error);
}

void PageFile::create(std::string_view page) const {
  const auto target = path_of(_target);
  const auto part = unfinished(target);
  std::error_code error;
  {  // it is closed before it is moved
    const FileHandle written = opened_file(part, GENERIC_WRITE, CREATE_NEW);
    if (!written.is_open()) throw failure(last_error());
    error = write_all(written.value(), page);
  }
  if (!error && !::MoveFileExW(part.c_str(), target.c_str(), 0)) error = last_error();
  if (error) {
    ::DeleteFileW(part.c_str());
    throw failure(error);
  }
}

}  // namespace program
