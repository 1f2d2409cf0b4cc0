// Constants that are made at their first use.

#ifndef UTILS_PATH_FILTER_BASE_LOADED_H_
#define UTILS_PATH_FILTER_BASE_LOADED_H_

#include "utils/path_filter/base/export.h"  // which tells what language is needed

namespace path_filter::internal {

/// A name for what `Get` returns, itself constant and ready before any code runs.
template <typename Value, Value& (*Get)()>
struct Loaded {
  Value& operator*() const { return Get(); }
  Value* operator->() const { return &Get(); }
  auto begin() const { return Get().begin(); }
  auto end() const { return Get().end(); }
  auto size() const { return Get().size(); }
  bool contains(const auto& value) const { return Get().contains(value); }
};

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_BASE_LOADED_H_
