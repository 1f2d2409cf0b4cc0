#include "utils/path_filter/base/file_system.h"

#include <algorithm>

#include "utils/path_filter/base/paths.h"
#include "utils/path_filter/base/platform.h"

namespace path_filter::internal {

std::string message(std::error_code error) {
  if (error == NOT_A_FILE) return "Not a regular file";
  // Which each C library says in other words, or not at all.
  if (error == std::errc::too_many_symbolic_link_levels) return "Too many levels of symbolic links";
  return error.message();
}

FileContent read_file_below(const std::string& root, std::string_view below,
                            const std::string& name, std::size_t limit, Links on_the_way) {
  if (on_the_way == Links::follow) {
    return read_file(joined({root, below, name}), Links::refuse, limit);
  }
  FileHandle opened;
  std::error_code error = open_directory_below(root, below, opened);
  if (error == std::errc::too_many_symbolic_link_levels) {
    error = make_error_code(std::errc::not_a_directory);
  }
  if (error) return error;
  return read_file_in(opened, name, limit);
}

bool Listing::contains(std::string_view name) const {
  return std::ranges::any_of(_records, [&](const Record& record) {
    return record.size == name.size() &&
           is_same_name({_names.data() + record.begin, record.size}, name);
  });
}

void Listing::clear() {
  _names.clear();
  _records.clear();
}

void Listing::add(std::string_view name, FileType type, bool leads_to_directory) {
  const bool is_link = type == FileType::link;
  _records.push_back({_names.size(), name.size(),
                      type == FileType::directory || (is_link && leads_to_directory), is_link,
                      type == FileType::regular});
  _names += name;
}

}  // namespace path_filter::internal
