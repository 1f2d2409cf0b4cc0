#include "program/output.h"

#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "utils/path_filter/test_code.h"

namespace program {

void Output::flush() {
  std::string_view rest = _buffer;
  while (!rest.empty() && !_closed) {
    const ssize_t written = ::write(STDOUT_FILENO, rest.data(), rest.size());
    if (written >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EPIPE) {
      _closed = true;
    } else if (errno != EINTR) {
      const int code = errno;
      _buffer.clear();
      throw std::system_error(code, std::generic_category(), "cannot write the output");
    }
  }
  _buffer.clear();
}

std::string grouped(std::size_t number) {
  std::string digits = std::to_string(number);
  for (std::size_t at = digits.size(); at > 3;) digits.insert(at -= 3, 1, ',');
  return digits;
}

Json json_of_path(std::string_view path) {
  Json object;
  object["path"] = path;
  if (path_filter::internal::find_invalid_utf8(path)) {
    constexpr std::string_view DIGITS = "0123456789abcdef";
    std::string hex;
    for (const char character : path) {
      hex += DIGITS[static_cast<unsigned char>(character) >> 4];
      hex += DIGITS[static_cast<unsigned char>(character) & 15];
    }
    object["path_hex"] = hex;
  }
  return object;
}

void add_decision(Json& object, std::string_view path, const path_filter::Decision& decision) {
  object["indexable"] = decision.indexable();
  object["kind"] = decision.kind() ? Json(to_string(*decision.kind())) : Json(nullptr);
  object["reason"] = decision.reason();
  object["language"] = decision.language() ? Json(*decision.language()) : Json(nullptr);
  object["test"] = path_filter::is_test_path(path);
}

std::string json_line(const Json& object) {
  const std::string line = object.dump(-1, ' ', false, Json::error_handler_t::replace);
  return is_printable(line) ? line : object.dump(-1, ' ', true, Json::error_handler_t::replace);
}

}  // namespace program
