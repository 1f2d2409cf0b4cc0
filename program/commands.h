// The program's commands. Each prints its answer and returns the exit status.

#ifndef PROGRAM_COMMANDS_H_
#define PROGRAM_COMMANDS_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "program/output.h"
#include "program/settings.h"
#include "utils/path_filter/index_scope/decision.h"

namespace program {

/// Which of the indexable files are listed.
enum class Surface { all, production, tests };

struct ListOptions {
  Settings settings;                    // but for the directory
  std::vector<std::string> paths = {};  // of files and directories; none: the root or the current
  bool null = false;
  bool json = false;
  bool excluded = false;
  bool verbose = false;
  bool sorted = false;
  std::size_t threads = 1;
  /// Which kinds of what is left out; empty: all.
  std::vector<path_filter::Exclusion> kinds = {};
  Surface surface = Surface::all;
  Color color = Color::automatic;
};

/// Lists one path after the other, of any repositories. The same lines with any number of threads.
/// Exit status 1 when what was named is left out, a directory could not be read or a name not be
/// asked about, 2 when a path that was named is not there.
int list(const ListOptions& options);

struct CheckOptions {
  Settings settings;
  std::vector<std::string> paths = {};
  bool read_stdin = false;
  bool null = false;
  bool json = false;
  bool verbose = false;
  bool quiet = false;
  std::size_t threads = 1;
  Color color = Color::automatic;
};

/// The same answers in the same order with any number of threads. Exit status 0: every path is
/// indexed; 1: some are left out; 2: an error.
int check(const CheckOptions& options);

struct SummaryOptions {
  Settings settings;
  bool json = false;
  Color color = Color::automatic;
};

/// Exit status as for `list`.
int summarize(const SummaryOptions& options);

struct ReportOptions {
  Settings settings;
  std::optional<std::string> file;  // absent or "-": standard output
};

/// Writes a page that shows all that is in and out, at the end. Exit status as for `list`. Throws
/// UsageError when the program was built without it or the page would go to a terminal, and
/// std::system_error, before anything is read, when the file cannot be written.
int write_report(const ReportOptions& options);

struct RegistryOptions {
  /// Languages, which are all when none is named.
  std::vector<std::string> names = {};
  bool json = false;
  Color color = Color::automatic;
};

/// Prints languages of the registry. Throws UsageError for a name that it does not have.
int print_languages(const RegistryOptions& options);

/// Prints the fixed rules, in the order in which they are asked.
int print_rules(const RegistryOptions& options);

}  // namespace program

#endif  // PROGRAM_COMMANDS_H_
