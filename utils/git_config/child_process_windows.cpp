#define NOMINMAX
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cwchar>
#include <memory>
#include <string_view>
#include <system_error>
#include <vector>

#include "utils/git_config/child_process.h"
#include "utils/path_filter/base/path_argument.h"

namespace git_config {
namespace {

class Handle {
 public:
  Handle() = default;
  explicit Handle(HANDLE value) : _value(value == INVALID_HANDLE_VALUE ? nullptr : value) {}
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle() {
    if (_value != nullptr) ::CloseHandle(_value);
  }
  HANDLE get() const { return _value; }
  HANDLE* put() { return &_value; }

 private:
  HANDLE _value = nullptr;
};

std::wstring wide(std::string_view text) { return path_filter::path_of(text).native(); }

std::wstring variable(const wchar_t* name) {
  std::wstring value;
  for (DWORD size = 256; size > value.size();) {
    value.resize(size);
    size = ::GetEnvironmentVariableW(name, value.data(), size);
  }
  value.resize(std::wcslen(value.c_str()));
  return value;
}

/// The file on PATH that is the program; "" when there is none. What the system itself looks for
/// may lie in the current directory, which is perhaps a stranger's, or be a batch file, whose
/// arguments a shell reads: absolute directories count, and programs proper.
std::filesystem::path found_program(std::string_view name) {
  const std::wstring directories = variable(L"PATH");
  std::error_code unexamined;
  for (std::size_t begin = 0; begin < directories.size();) {
    const std::size_t end = std::min(directories.find(L';', begin), directories.size());
    std::wstring directory = directories.substr(begin, end - begin);
    std::erase(directory, L'"');
    const auto file = std::filesystem::path(directory) / wide(std::string(name) + ".exe");
    if (file.is_absolute() && is_regular_file(file, unexamined)) return file;
    begin = end + 1;
  }
  return {};
}

/// The arguments as programs take them apart, by the rules of CommandLineToArgvW.
std::wstring command_line(std::initializer_list<const char*> arguments) {
  std::wstring line;
  for (const char* const argument : arguments) {
    line += line.empty() ? L"\"" : L" \"";
    std::size_t backslashes = 0;  // those before a quote are doubled
    for (const wchar_t unit : wide(argument)) {
      if (unit == L'"') line.append(backslashes + 1, L'\\');
      backslashes = unit == L'\\' ? backslashes + 1 : 0;
      line += unit;
    }
    line.append(backslashes, L'\\') += L'"';
  }
  return line;
}

/// The name of "NAME=value", where the first letter may be "=".
std::wstring_view name_of(std::wstring_view variable) {
  return variable.substr(0, variable.find(L'=', 1));
}

/// How names of variables compare, which have no case: CSTR_LESS_THAN and so on.
int compared(std::wstring_view one, std::wstring_view other) {
  return ::CompareStringOrdinal(one.data(), static_cast<int>(one.size()), other.data(),
                                static_cast<int>(other.size()), TRUE);
}

/// The variables as CreateProcess takes them: sorted, each with a NUL behind it, and one more.
std::wstring variables_of(const Environment& environment) {
  std::vector<std::wstring> variables{wide(environment.with)};
  std::vector<std::wstring> left_out{std::wstring(name_of(variables.front()))};
  for (const std::string_view name : environment.without) left_out.push_back(wide(name));
  const std::unique_ptr<wchar_t, decltype(&::FreeEnvironmentStringsW)> own(
      ::GetEnvironmentStringsW(), &::FreeEnvironmentStringsW);
  for (const wchar_t* at = own.get(); at != nullptr && *at != L'\0';) {
    const std::wstring_view each = at;
    at += each.size() + 1;
    const auto is_its_name = [&](std::wstring_view name) {
      return compared(name, name_of(each)) == CSTR_EQUAL;
    };
    if (std::ranges::none_of(left_out, is_its_name)) variables.emplace_back(each);
  }
  std::ranges::sort(variables, [](std::wstring_view one, std::wstring_view other) {
    return compared(name_of(one), name_of(other)) == CSTR_LESS_THAN;
  });
  std::wstring block;
  for (const std::wstring& each : variables) (block += each) += L'\0';
  return block += L'\0';
}

/// Adds what has been written into the pipe, without waiting for more; false when there is nothing.
bool read(const Handle& pipe, std::string& text) {
  DWORD size = 0;
  if (!::PeekNamedPipe(pipe.get(), nullptr, 0, nullptr, &size, nullptr) || size == 0) return false;
  const std::size_t begin = text.size();
  text.resize(begin + size);
  DWORD count = 0;
  ::ReadFile(pipe.get(), text.data() + begin, size, &count, nullptr);
  text.resize(begin + count);
  return count != 0;
}

/// Starts the program, with `output` as its standard output, as a member of `job`. It inherits
/// that handle and the null device's, whatever else the host has that can be inherited.
bool start(const std::filesystem::path& program, std::wstring line, const Environment& environment,
           const Handle& output, const Handle& job, Handle& child) {
  SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
  const Handle null(::CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, OPEN_EXISTING, 0,
                                  nullptr));
  std::array<HANDLE, 2> handles{output.get(), null.get()};
  SIZE_T size = 0;
  ::InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
  std::vector<std::byte> list(size);
  STARTUPINFOEXW info{};
  info.StartupInfo.cb = sizeof info;
  info.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
  info.StartupInfo.hStdInput = info.StartupInfo.hStdError = null.get();
  info.StartupInfo.hStdOutput = output.get();
  info.lpAttributeList = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(list.data());
  if (!::InitializeProcThreadAttributeList(info.lpAttributeList, 1, 0, &size)) return false;
  PROCESS_INFORMATION started{};
  std::wstring variables = variables_of(environment);
  const bool is_started =
      ::UpdateProcThreadAttribute(info.lpAttributeList, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST,
                                  handles.data(), sizeof handles, nullptr, nullptr) &&
      ::CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE,
                       CREATE_NO_WINDOW | CREATE_SUSPENDED | CREATE_UNICODE_ENVIRONMENT |
                           EXTENDED_STARTUPINFO_PRESENT,
                       variables.data(), nullptr, &info.StartupInfo, &started);
  ::DeleteProcThreadAttributeList(info.lpAttributeList);
  if (!is_started) return false;
  const Handle thread(started.hThread);
  *child.put() = started.hProcess;
  ::AssignProcessToJobObject(job.get(), child.get());
  ::ResumeThread(thread.get());
  return true;
}

}  // namespace

ChildAnswer run_program(std::initializer_list<const char*> arguments,
                        const Environment& environment, Clock::time_point deadline) {
  const std::filesystem::path program = found_program(*arguments.begin());
  if (program.empty()) return {NO_PROGRAM};
  // It ends with all that it has started, at the latest when this process does.
  const Handle job(::CreateJobObjectW(nullptr, nullptr));
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  ::SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);
  Handle pipe, input, child;
  if (!::CreatePipe(pipe.put(), input.put(), nullptr, 64 * 1024) ||
      !::SetHandleInformation(input.get(), HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT) ||
      !start(program, command_line(arguments), environment, input, job, child)) {
    return {FAILED};
  }

  ChildAnswer answer{0};
  DWORD patience = 0;  // in ms; a tick of the clock may be 16, so not while there is more to read
  while (::WaitForSingleObject(child.get(), patience) == WAIT_TIMEOUT) {
    patience = read(pipe, answer.output) ? 0 : 1;
    if (Clock::now() >= deadline) {
      ::TerminateJobObject(job.get(), 1);
      ::TerminateProcess(child.get(), 1);  // where jobs cannot be nested
      ::WaitForSingleObject(child.get(), INFINITE);
      return {FAILED};
    }
  }
  while (read(pipe, answer.output)) {
  }
  DWORD status = 0;
  constexpr DWORD MOST = 255;  // what ends a program by force gives more
  answer.status = ::GetExitCodeProcess(child.get(), &status) && status <= MOST
                      ? static_cast<int>(status)
                      : FAILED;
  return answer;
}

std::filesystem::path directory_variable(const char* name) { return variable(wide(name).c_str()); }

std::filesystem::path home_directory() {
  const std::wstring home = variable(L"HOME");
  if (!home.empty()) return home;
  const std::wstring on_drive = variable(L"HOMEDRIVE") + variable(L"HOMEPATH");
  std::error_code unexamined;
  return std::filesystem::is_directory(on_drive, unexamined) ? on_drive : variable(L"USERPROFILE");
}

}  // namespace git_config
