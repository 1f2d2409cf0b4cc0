// How a plain struct says which of its members a caller must give, and how.

#ifndef UTILS_PATH_FILTER_INTERNAL_BY_NAME_ONLY_H_
#define UTILS_PATH_FILTER_INTERNAL_BY_NAME_ONLY_H_

#include <concepts>
#include <optional>
#include <utility>

namespace path_filter::internal {

/// As the first member of a struct of options: the others can only be given by name.
struct ByNameOnly {
  explicit ByNameOnly() = default;
};

/// A member of a struct that has no default: the struct does not compile without it. It
/// is as large as a `T`, is used as one, and is made from what gives a `T` without
/// narrowing: a number or a text makes no bool.
template <typename T>
class Required {
 public:
  template <typename Value>
  requires requires(Value value) { T{value}; }
  constexpr Required(Value value) : _value{value} {}        // NOLINT: implicit by intent
  constexpr operator T() const noexcept { return _value; }  // NOLINT: implicit by intent

 private:
  T _value;
};

/// The same for a value that may be absent: that it is absent has to be said. It holds the
/// optional instead of being one, as std::optional would compare itself with a class
/// derived from it by its value, and two absent ones would differ.
template <typename T>
class Required<std::optional<T>> {
 public:
  template <std::convertible_to<std::optional<T>> Value>
  constexpr Required(Value&& value)  // NOLINT: implicit by intent
      : _value(std::forward<Value>(value)) {}
  constexpr operator const std::optional<T>&() const { return _value; }  // NOLINT: implicit

  constexpr explicit operator bool() const { return _value.has_value(); }
  constexpr bool has_value() const { return _value.has_value(); }
  constexpr const T& value() const { return _value.value(); }
  constexpr const T& operator*() const { return *_value; }
  constexpr const T* operator->() const { return &*_value; }

  // Exact for either side, so that nothing of std::optional's fits better.
  template <std::same_as<Required> Other>
  friend constexpr bool operator==(const Required& left, const Other& right) {
    return left._value == right._value;
  }
  friend constexpr bool operator==(const Required& left, const std::optional<T>& right) {
    return left._value == right;
  }

 private:
  std::optional<T> _value;
};

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_INTERNAL_BY_NAME_ONLY_H_
