// Where the component waits for the operating system.
//
// This header is a seam, as the language registry is: the two functions do nothing, and who
// embeds the component in a program with a lock over all its threads links their own, which
// let go of the lock and take it again. No lock of the component is held in between.

#ifndef UTILS_PATH_FILTER_INTERNAL_BLOCKING_H_
#define UTILS_PATH_FILTER_INTERNAL_BLOCKING_H_

namespace path_filter::internal {

/// Called before a call that may wait; what it returns is given to blocking_ends, on the
/// same thread. Both keep errno.
void* blocking_begins() noexcept;
void blocking_ends(void* begun) noexcept;

/// The time in which this thread may wait.
class Blocking {
 public:
  Blocking() = default;
  ~Blocking() { blocking_ends(_begun); }
  Blocking(const Blocking&) = delete;
  Blocking& operator=(const Blocking&) = delete;

 private:
  void* _begun = blocking_begins();
};

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_INTERNAL_BLOCKING_H_
