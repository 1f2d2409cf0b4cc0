#include "program/input.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

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
  ssize_t count = -1;
  while ((count = ::read(STDIN_FILENO, _buffer.data() + size, READ_BYTES)) < 0 &&
         (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)) {
    pollfd readable{STDIN_FILENO, POLLIN, 0};
    ::poll(&readable, 1, -1);
  }
  const int code = errno;
  _buffer.resize(size + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  if (count < 0) throw std::system_error(code, std::generic_category(), "cannot read the paths");
  return count > 0;
}

}  // namespace program
