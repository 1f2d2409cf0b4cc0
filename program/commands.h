// The program's commands. Each prints its answer and returns the exit status.

#ifndef PROGRAM_COMMANDS_H_
#define PROGRAM_COMMANDS_H_

#include <string>
#include <vector>

#include "program/settings.h"

namespace program {

/// Which of the indexable files are listed.
enum class Surface { all, production, tests };

struct ListOptions {
  Settings settings;
  bool null = false;
  bool json = false;
  bool excluded = false;
  Surface surface = Surface::all;
};

/// Exit status 1 when a directory could not be read or a name not be asked about.
int list(const ListOptions& options);

struct CheckOptions {
  Settings settings;
  std::vector<std::string> paths;
  bool read_stdin = false;
  bool null = false;
  bool json = false;
  bool verbose = false;
};

/// Exit status 0: every path is indexed; 1: some are left out; 2: an error.
int check(const CheckOptions& options);

struct SummaryOptions {
  Settings settings;
};

/// Exit status as for `list`.
int summarize(const SummaryOptions& options);

int print_languages(bool json);

}  // namespace program

#endif  // PROGRAM_COMMANDS_H_
