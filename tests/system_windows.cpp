#include <windows.h>

#include <string>

#include "tests/system.h"

namespace test_system {

/// Wine says that it has made the link, and makes none: then the system below it is asked, which
/// starts the program and does not wait.
void make_link(const std::filesystem::path& target, const std::filesystem::path& at) {
  std::error_code refused;
  std::filesystem::create_symlink(target, at, refused);
  std::wstring command =
      L"ln -s '" + target.generic_wstring() + L"' '" + at.filename().wstring() + L"'";
  command = L"sh -c \"" + command + L"\"";
  STARTUPINFOW start{};
  start.cb = sizeof start;
  PROCESS_INFORMATION started{};
  if (std::filesystem::is_symlink(at, refused) ||
      !::CreateProcessW(L"\\\\?\\unix\\bin\\sh", command.data(), nullptr, nullptr, FALSE, 0,
                        nullptr, at.parent_path().c_str(), &start, &started)) {
    return;
  }
  ::CloseHandle(started.hThread);
  ::CloseHandle(started.hProcess);
  WIN32_FIND_DATAW found;  // of a link that leads nowhere Wine shows nothing
  for (int wait = 0; wait < 50; ++wait) {
    const HANDLE search = ::FindFirstFileW(at.c_str(), &found);
    if (search != INVALID_HANDLE_VALUE) {
      ::FindClose(search);
      return;
    }
    ::Sleep(10);
  }
}

bool make_fifo(const std::filesystem::path&) { return false; }

std::size_t open_files() {
  DWORD count = 0;
  ::GetProcessHandleCount(::GetCurrentProcess(), &count);
  return count;
}

}  // namespace test_system
