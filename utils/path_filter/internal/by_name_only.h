// How a plain struct says which of its members a caller must give, and how.

#ifndef UTILS_PATH_FILTER_INTERNAL_BY_NAME_ONLY_H_
#define UTILS_PATH_FILTER_INTERNAL_BY_NAME_ONLY_H_

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

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_INTERNAL_BY_NAME_ONLY_H_
