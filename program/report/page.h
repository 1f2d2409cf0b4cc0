// The parts of the page, which the build takes from the files beside this one and from
// d3-hierarchy.

#ifndef PROGRAM_REPORT_PAGE_H_
#define PROGRAM_REPORT_PAGE_H_

#include <string_view>

namespace program::report {

/// What stands in double braces in it is put in when it is written.
extern const std::string_view PAGE;
extern const std::string_view STYLE;
extern const std::string_view SCRIPT;

/// d3-hierarchy, and under which license; both "" when it was not there to build with.
extern const std::string_view LIBRARY;
extern const std::string_view LIBRARY_NOTICE;

}  // namespace program::report

#endif  // PROGRAM_REPORT_PAGE_H_
