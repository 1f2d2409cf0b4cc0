// What decided about a path, in the words that a person or a program asks for.

#ifndef PROGRAM_DECIDER_H_
#define PROGRAM_DECIDER_H_

#include <string>
#include <string_view>

#include "program/output.h"
#include "utils/path_filter/index_scope/index_scope.h"

namespace program {

/// One column: the ignore rule as `git check-ignore -v` prints it, the skipped directory, the
/// pattern of the lock or bundle, that a name often holds secrets, the limit; "" when there is
/// nothing more to say than the reason. `raw` leaves out what makes names fit for a terminal.
std::string decider(const path_filter::Explanation& explanation, std::string_view path,
                    const path_filter::IndexScope& scope, bool raw = false);

/// The same as fields of an object: "rule" (null when no rule of git's decided), "directory",
/// "glob", "secret", "max_file_bytes", "languages".
void add_decider(JsonLine& object, const path_filter::Explanation& explanation,
                 std::string_view path, const path_filter::IndexScope& scope);

}  // namespace program

#endif  // PROGRAM_DECIDER_H_
