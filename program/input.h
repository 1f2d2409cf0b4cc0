// Standard input as the program's commands read it.

#ifndef PROGRAM_INPUT_H_
#define PROGRAM_INPUT_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace program {

/// Standard input, split at a character.
class Input {
 public:
  explicit Input(char end) : _end(end) {}

  /// The texts that can be had at once, without their ends; waits for the first of them. Valid
  /// until the next call. None at the end of the input. Throws std::system_error when it cannot
  /// be read.
  std::vector<std::string_view> read();

 private:
  /// Adds what there is to the buffer; false at the end of the input.
  bool fill();

  char _end;
  std::string _buffer;
  std::size_t _begin = 0;  // of what is not given yet, in which there is no end
};

}  // namespace program

#endif  // PROGRAM_INPUT_H_
