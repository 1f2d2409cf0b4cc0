#include "program/input.h"

#include <system_error>

#include "program/system.h"

namespace program {

std::vector<std::string_view> Input::read() {
  _buffer.erase(0, _begin);
  _begin = 0;
  std::vector<std::string_view> texts;
  std::size_t searched = _buffer.size();
  while (texts.empty() && fill()) {
    for (;;) {
      const std::size_t end = _buffer.find(_end, searched);
      if (end == std::string::npos) break;
      texts.push_back(std::string_view(_buffer).substr(_begin, end - _begin));
      _begin = searched = end + 1;
    }
    searched = _buffer.size();
  }
  if (texts.empty() && !_buffer.empty()) {
    texts.push_back(_buffer);
    _begin = _buffer.size();
  }
  return texts;
}

bool Input::fill() {
  constexpr std::size_t READ_BYTES = 256 * 1024;
  const std::size_t size = _buffer.size();
  _buffer.resize(size + READ_BYTES);
  std::error_code error;
  const std::size_t count = read_some(standard_input(), _buffer.data() + size, READ_BYTES, error);
  _buffer.resize(size + count);
  if (error) throw std::system_error(error, "cannot read the paths");
  return count > 0;
}

}  // namespace program
