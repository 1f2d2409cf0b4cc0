// path-filter: which files of a repository belong in the index, and why the others do
// not.

#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <iostream>
#include <string>

#include "program/commands.h"
#include "utils/path_filter/internal/text.h"
#include "utils/path_filter/logger.h"

namespace {

using path_filter::internal::printable;

constexpr int USAGE_STATUS = 2;

void add_root(CLI::App& command, program::Settings& settings) {
  command
      .add_option("--root", settings.root,
                  "The repository's root; else the nearest directory above that has a .git")
      ->type_name("DIR");
}

void add_directory(CLI::App& command, program::Settings& settings) {
  command.add_option("DIR", settings.directory, "A directory of the repository, or its root")
      ->capture_default_str();
  add_root(command, settings);
}

void add_limits(CLI::App& command, program::Settings& settings) {
  command
      .add_option(
          "--config", settings.config,
          "A TOML file whose section [index] has the limits: max_file_size_mb and languages")
      ->type_name("FILE");
  command
      .add_option("--max-file-size-mb", settings.max_file_size_mb,
                  "Leave out larger files (in MiB; 10 when only other limits are given)")
      ->type_name("SIZE");
  command
      .add_option_function<std::string>(
          "--languages", [&settings](const std::string& names) { settings.languages = names; },
          "Index only these code and documentation languages, separated by commas")
      ->join(',')
      ->type_name("NAME,...");
}

int run(int argc, char** argv) {
  CLI::App app(
      "Tells which files of a repository belong in the index, and why the others do not.\n"
      "Nothing limits sizes or languages unless one of the three limit options is given.");
  app.name("path-filter");
  app.set_version_flag("--version", "path-filter " PATH_FILTER_VERSION);
  app.require_subcommand(1);
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return "path-filter: " + printable(error.what()) + "\nTry 'path-filter --help'.\n";
  });

  program::ListOptions list;
  auto* list_command = app.add_subcommand("list", "Print the indexable files below DIR");
  add_directory(*list_command, list.settings);
  list_command->add_flag("-0,--null", list.null, "End paths with NUL instead of a new line");
  list_command->add_flag("--json", list.json, "Print each decision as one line of JSON");
  auto* excluded = list_command->add_flag(
      "--excluded", list.excluded, "Print what is left out instead, with its kind and reason");
  bool production = false;
  bool tests = false;
  auto* production_flag = list_command->add_flag(
      "--production", production,
      "Print only what is not test code; everything when nothing else is there");
  auto* tests_flag = list_command->add_flag("--tests", tests, "Print only test code");
  production_flag->excludes(tests_flag)->excludes(excluded);
  tests_flag->excludes(excluded);
  add_limits(*list_command, list.settings);

  program::CheckOptions check;
  auto* check_command = app.add_subcommand("check", "Print the decision on each PATH");
  // Of an option that takes extra arguments the parser would split "[a,b]", and a bound
  // vector would not hold "{}": this one wants more paths than there can be, and is read
  // as it was given.
  constexpr int ALL = CLI::detail::expected_max_vector_size;
  auto* paths = check_command->add_option("PATH")
                    ->description("Paths as the shell has them; with --root, relative to that")
                    ->expected(ALL, ALL)
                    ->take_all();
  add_root(*check_command, check.settings);
  check_command->add_flag("--stdin", check.read_stdin, "Read paths from standard input too");
  check_command->add_flag("-0,--null", check.null, "Paths on standard input end with NUL");
  check_command->add_flag("--json", check.json, "Print each decision as one line of JSON");
  check_command->add_flag("-v,--verbose", check.verbose,
                          "Name what decided: the ignore rule, the directory, the limit");
  check_command->footer(
      "Exit status: 0 when every path is indexed, 1 when some are left out, 2 on an error.");
  add_limits(*check_command, check.settings);

  program::SummaryOptions summary;
  auto* summary_command =
      app.add_subcommand("summary", "Count what is in and out, by language and kind");
  add_directory(*summary_command, summary.settings);
  add_limits(*summary_command, summary.settings);

  bool languages_json = false;
  auto* languages_command = app.add_subcommand("languages", "Print the language registry");
  languages_command->add_flag("--json", languages_json, "Print it as JSON");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : USAGE_STATUS;
  }

  if (*list_command) {
    if (production) list.surface = program::Surface::production;
    if (tests) list.surface = program::Surface::tests;
    return program::list(list);
  }
  if (*check_command) {
    check.paths = paths->results();
    if (check.paths.empty() && !check.read_stdin) {
      throw program::UsageError("check: no paths; name some, or give --stdin");
    }
    return program::check(check);
  }
  if (*summary_command) return program::summarize(summary);
  return program::print_languages(languages_json);
}

}  // namespace

int main(int argc, char** argv) {
  // A closed pipe is seen where the output is written.
  std::signal(SIGPIPE, SIG_IGN);
  path_filter::logger->set_sink([](const path_filter::Warning& warning) {
    std::cerr << "path-filter: warning: " + warning.message() + "\n";
  });
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "path-filter: " << printable(error.what()) << '\n';
    return USAGE_STATUS;
  }
}
