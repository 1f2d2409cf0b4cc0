#ifndef UTILS_PATH_FILTER_INTERNAL_BY_NAME_ONLY_H_
#define UTILS_PATH_FILTER_INTERNAL_BY_NAME_ONLY_H_

namespace path_filter::internal {

/// As the first member of a struct of options: the others can only be given by name.
struct ByNameOnly {
  explicit ByNameOnly() = default;
};

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_INTERNAL_BY_NAME_ONLY_H_
