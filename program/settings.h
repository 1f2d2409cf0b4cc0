// The limits that a command is given, and the directory it is asked about.

#ifndef PROGRAM_SETTINGS_H_
#define PROGRAM_SETTINGS_H_

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "utils/path_filter/index_scope/index_limits.h"

namespace program {

/// A mistake in what the user gave; its text says what to do.
class UsageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// That what the user named is left out itself, so that there is nothing to tell of it.
class LeftOut : public std::runtime_error {
 public:
  LeftOut(const std::string& name, std::string_view reason)
      : std::runtime_error(name + " is left out: " + std::string(reason)) {}
};

struct Settings {
  std::optional<std::string> directory;         // what is asked about, when it is named
  std::optional<std::string> root;              // the repository's, when it is not to be looked for
  std::optional<std::string> config;            // a file's name; "-" is standard input
  std::optional<std::string> max_file_size_mb;  // a number, in MiB unless a unit follows it
  std::optional<std::string> languages;         // names, separated by commas
};

/// The parts of an option that takes several values; empty ones are left out.
std::vector<std::string> split_at_commas(const std::string& text);

/// The limits that the configuration file and the options ask for; absent when neither
/// is given. Throws UsageError for a file that cannot be read, does not parse, or has
/// no usable section [index], and for an option that says nothing usable. What else looks like
/// a slip in the file is told on standard error.
std::optional<path_filter::IndexLimits> read_limits(const Settings& settings);

}  // namespace program

#endif  // PROGRAM_SETTINGS_H_
