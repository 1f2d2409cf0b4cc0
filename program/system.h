// What the program takes of the operating system beside the component's files: arguments, the
// environment, the standard streams and the terminal, and the file that a page goes to.

#ifndef PROGRAM_SYSTEM_H_
#define PROGRAM_SYSTEM_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "utils/path_filter/base/file_system.h"

namespace program {

/// Called first: from now on a pipe that its reader has closed is an error where it is written to.
/// Returns the arguments behind the program's name.
std::vector<std::string> start(int argc, char** argv);

/// The value of a variable of the environment; "" when it is not set.
std::string variable(const char* name);

/// What bytes come from or go to: the value of a path_filter::internal::FileHandle.
using Stream = std::intptr_t;

Stream standard_input();
Stream standard_output();
Stream standard_error();

/// Reads what there is, at most `size` bytes; waits for the first. 0 at the end, or when `error`
/// says why it cannot be read.
std::size_t read_some(Stream stream, char* buffer, std::size_t size, std::error_code& error);

/// Writes all of `text`, which waits where the stream does not. Returns why that cannot be done:
/// std::errc::broken_pipe when nobody reads it any more.
std::error_code write_all(Stream stream, std::string_view text);

/// Opens what is no file, such as a named pipe, for reading.
path_filter::internal::FileHandle open_stream(const std::string& name, std::error_code& error);

bool is_terminal(Stream stream);

/// Whether the stream is a terminal that obeys escape sequences.
bool obeys_escapes(Stream stream);

/// The columns of the terminal that standard output is; absent when it is none.
std::optional<std::size_t> terminal_width();

/// How many more files this process may open; `most` when they are as many or more.
std::size_t openable_files(std::size_t most);

/// The file that a page goes to. One that is there keeps its mode, its owner and all links to it.
class PageFile {
 public:
  /// Throws std::system_error at once when the page could not be written later.
  explicit PageFile(const std::string& file);

  /// Of no use when the file is to be made.
  Stream stream() const { return _opened.value(); }

  /// Writes the page. When there is no room for it all is as it was. Throws std::system_error.
  void write(std::string_view page) const { _opened.is_open() ? overwrite(page) : create(page); }

 private:
  std::system_error failure(std::error_code error) const;
  void overwrite(std::string_view page) const;
  void create(std::string_view page) const;

  std::string _file;
  std::string _target;                        // where links at the end of it lead
  path_filter::internal::FileHandle _opened;  // not of one that is to be made
};

}  // namespace program

#endif  // PROGRAM_SYSTEM_H_
