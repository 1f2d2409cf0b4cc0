// path-filter: which files of a repository belong in the index, and why the others do
// not.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <csignal>
#include <exception>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "program/commands.h"
#include "program/suggestion.h"
#include "utils/path_filter/base/logger.h"
#include "utils/path_filter/base/quoting.h"

namespace {

using path_filter::Exclusion;
using path_filter::internal::printable;
using program::Color;
using program::Settings;
using program::UsageError;

constexpr int USAGE_STATUS = 2;

/// The help without what the parser knows of an option and the text says better.
class Formatter : public CLI::Formatter {
 public:
  std::string make_option_opts(const CLI::Option* option) const override {
    return option->get_type_name().empty() ? "" : " " + option->get_type_name();
  }
};

void add_root(CLI::App& command, Settings& settings) {
  command
      .add_option("--root", settings.root,
                  "The repository's root; else the nearest directory above that has a .git")
      ->type_name("DIR")
      ->take_last();
}

void add_directory(CLI::App& command, Settings& settings) {
  command
      .add_option("DIR", settings.directory,
                  "A directory of the repository, or its root (the current directory)")
      ->type_name("");
  add_root(command, settings);
}

void add_limits(CLI::App& command, Settings& settings) {
  command
      .add_option(
          "--config", settings.config,
          "A TOML file whose section [index] has the limits: max_file_size_mb and languages")
      ->type_name("FILE")
      ->take_last();
  command
      .add_option("--max-file-size-mb", settings.max_file_size_mb,
                  "Leave out larger files; in MiB, or 10k, 2M, 1G (10 when only other limits are "
                  "given)")
      ->type_name("SIZE")
      ->take_last();
  command
      .add_option_function<std::string>(
          "--languages", [&settings](const std::string& names) { settings.languages = names; },
          "Index only these code and documentation languages, separated by commas")
      ->join(',')
      ->type_name("NAME,...");
}

void add_color(CLI::App& command, Color& color) {
  command
      .add_option_function<std::string>(
          "--color",
          [&color](const std::string& when) {
            if (when != "auto" && when != "always" && when != "never") {
              throw UsageError("--color: '" + printable(when) +
                               "' is none of auto, always and never");
            }
            color = when == "auto"     ? Color::automatic
                    : when == "always" ? Color::always
                                       : Color::never;
          },
          "Use colours: auto (on a terminal), always or never")
      ->type_name("WHEN")
      ->take_last();
}

Exclusion kind_named(const std::string& name) {
  std::string kinds;
  for (const Exclusion kind : path_filter::ALL_EXCLUSIONS) {
    if (name == to_string(kind)) return kind;
    kinds += (kinds.empty() ? "" : ", ") + std::string(to_string(kind));
  }
  throw UsageError("--kind: no kind '" + printable(name) + "'; there are " + kinds);
}

/// How many threads that asks for.
std::size_t threads(const std::string& number) {
  // More than these do not help, as most of the work is the kernel's.
  constexpr std::size_t MOST_BY_ITSELF = 8;
  constexpr std::size_t MOST = 256;
  std::size_t count = 0;
  const char* const end = number.data() + number.size();
  const auto parsed = std::from_chars(number.data(), end, count);
  if (parsed.ec != std::errc() || parsed.ptr != end || count > MOST) {
    throw UsageError("--threads: '" + printable(number) + "' is no number from 0 to 256");
  }
  if (count > 0) return count;
  return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, MOST_BY_ITSELF);
}

void add_threads(CLI::App& command, std::size_t& count) {
  count = threads("0");
  command
      .add_option_function<std::string>(
          "-j,--threads", [&count](const std::string& number) { count = threads(number); },
          "How many threads to use; 0, the default, is one for each processor, and at most 8")
      ->type_name("NUMBER")
      ->take_last();
}

/// An option of any number of paths, which are to be taken from it as they were given: of one
/// that takes extra arguments the parser would split "[a,b]", and a bound vector would not hold
/// "{}". This one wants more paths than there can be.
CLI::Option* add_paths(CLI::App& command, const std::string& name, const std::string& description) {
  constexpr int ALL = CLI::detail::expected_max_vector_size;
  return command.add_option(name)
      ->description(description)
      ->type_name("")
      ->expected(ALL, ALL)
      ->take_all();
}

/// Returns the option of the directories.
CLI::Option* add_list(CLI::App& app, program::ListOptions& list) {
  auto* command = app.add_subcommand("list", "Print the indexable files below each DIR");
  auto* directories = add_paths(*command, "DIR", "Directories to list (the current one)");
  add_root(*command, list.settings);
  auto* null =
      command->add_flag("-0,--null", list.null, "End paths with NUL instead of a new line");
  command->add_flag("--json", list.json, "Print each decision as one line of JSON")->excludes(null);
  auto* excluded = command->add_flag("--excluded", list.excluded,
                                     "Print what is left out instead, with its kind and reason");
  command
      ->add_option_function<std::string>(
          "--kind",
          [&list](const std::string& names) {
            for (const std::string& name : program::split_at_commas(names)) {
              list.kinds.push_back(kind_named(name));
            }
            list.excluded = true;
          },
          "Print what is left out for these reasons only, separated by commas")
      ->join(',')
      ->type_name("KIND,...");
  command->add_flag("-v,--verbose", list.verbose,
                    "Name what decided: the ignore rule, the directory, the pattern, the limit");
  auto* production = command->add_flag_callback(
      "--production", [&list] { list.surface = program::Surface::production; },
      "Print only what is not test code; everything when nothing else is there");
  auto* tests = command->add_flag_callback(
      "--tests", [&list] { list.surface = program::Surface::tests; }, "Print only test code");
  for (auto* flag : {production, tests}) flag->excludes(excluded)->excludes("--kind");
  production->excludes(tests);
  command
      ->add_option_function<std::string>(
          "--sort",
          [&list](const std::string& key) {
            if (key != "path") throw UsageError("--sort: only 'path' can be sorted by");
            list.sorted = true;
          },
          "Print when all is found, by the bytes of the paths; else as the walk finds them")
      ->type_name("path")
      ->take_last();
  add_threads(*command, list.threads);
  add_color(*command, list.color);
  add_limits(*command, list.settings);
  command->footer("Exit status: 0, 1 when something could not be read, 2 on an error.");
  return directories;
}

/// Returns the option of the paths.
CLI::Option* add_check(CLI::App& app, program::CheckOptions& check) {
  auto* command = app.add_subcommand("check", "Print the decision on each PATH");
  auto* paths =
      add_paths(*command, "PATH", "Paths as the shell has them; with --root, relative to that");
  add_root(*command, check.settings);
  command->add_flag("--stdin", check.read_stdin,
                    "Read paths from standard input too, quoted ones as git writes them");
  command->add_flag("-0,--null", check.null,
                    "Paths on standard input, and the fields of answers, end with NUL");
  command->add_flag("--json", check.json, "Print each decision as one line of JSON");
  command->add_flag("-v,--verbose", check.verbose,
                    "Name what decided: the ignore rule, the directory, the pattern, the limit");
  command->add_flag("-q,--quiet", check.quiet, "Print no decision; the exit status tells");
  command->footer(
      "Exit status: 0 when every path is indexed, 1 when some are left out, 2 on an error.");
  add_threads(*command, check.threads);
  add_color(*command, check.color);
  add_limits(*command, check.settings);
  return paths;
}

/// The command that does not exist, and what was probably meant.
UsageError no_command(const CLI::App& app, const std::string& name) {
  std::vector<std::string> names;
  for (const auto* command : app.get_subcommands(nullptr)) names.push_back(command->get_name());
  const std::vector<std::string_view> known(names.begin(), names.end());
  return UsageError("no command '" + printable(name) + "'" +
                    program::did_you_mean(program::nearest(name, known)) +
                    "\nTry 'path-filter --help'.");
}

bool has_command(const CLI::App& app, const std::string& name) {
  return std::ranges::any_of(app.get_subcommands(nullptr),
                             [&](const CLI::App* command) { return command->get_name() == name; });
}

/// The argument that nobody takes, and what was probably meant. There is one.
UsageError no_argument(const CLI::App& app, const CLI::App& command, std::string_view first) {
  const auto quote = [](const std::string& text) { return "'" + printable(text) + "'"; };
  auto arguments = app.remaining(true);
  if (&app != &command && first.starts_with('-')) {
    return UsageError("no option " + quote(arguments.front()) + " before a command");
  }
  // What the command has no place for behind a "--" becomes the program's.
  const bool is_option = arguments.front().starts_with('-') && arguments.front() != "--" &&
                         (&app == &command || app.remaining().empty());
  if (arguments.front() == "--" && arguments.size() > 1) arguments.erase(arguments.begin());
  const std::string& argument = arguments.front();
  if (!is_option) return UsageError("unexpected argument " + quote(argument));
  std::vector<std::string> names;
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  const std::vector<std::string_view> known(names.begin(), names.end());
  const std::string name = argument.substr(0, argument.find('='));
  return UsageError("no option " + quote(argument) +
                    program::did_you_mean(program::nearest(name, known)));
}

/// The arguments, "--option=" as "--option" and "": the parser would take the next argument for
/// its value.
std::vector<std::string> with_empty_values(CLI::App& app, int argc, char** argv) {
  std::vector<std::string> arguments;
  const auto* command = argc > 1 && has_command(app, argv[1]) ? app.get_subcommand(argv[1]) : &app;
  for (int index = 1; index < argc; ++index) {
    std::string argument = argv[index];
    const bool is_option = argument.starts_with("--") && argument.size() > 3 &&
                           std::ranges::find(arguments, "--") == arguments.end();
    if (is_option && argument.ends_with('=')) {
      const std::string name = argument.substr(0, argument.size() - 1);
      const auto* option = command->get_option_no_throw(name);
      if (option != nullptr && option->get_type_size() > 0) {
        arguments.push_back(name);
        arguments.emplace_back();
        continue;
      }
    }
    arguments.push_back(std::move(argument));
  }
  return arguments;
}

/// Prints a text that was asked for.
int print(std::string_view text) {
  program::Output output;
  output << text;
  output.flush();
  return 0;
}

int run(int argc, char** argv) {
  CLI::App app(
      "Tells which files of a repository belong in the index, and why the others do not.\n"
      "Nothing limits sizes or languages unless one of the three limit options is given.");
  app.name("path-filter");
  app.formatter(std::make_shared<Formatter>());
  app.set_version_flag("-V,--version", "path-filter " PATH_FILTER_VERSION);
  app.require_subcommand(0, 1);

  program::ListOptions list;
  CLI::Option* const directories = add_list(app, list);
  program::CheckOptions check;
  CLI::Option* const paths = add_check(app, check);

  program::SummaryOptions summary;
  auto* summary_command =
      app.add_subcommand("summary", "Count what is in and out, by language and kind");
  add_directory(*summary_command, summary.settings);
  summary_command->add_flag("--json", summary.json, "Print it as one line of JSON");
  add_color(*summary_command, summary.color);
  add_limits(*summary_command, summary.settings);

  program::ReportOptions report;
  auto* report_command =
      app.add_subcommand("report", "Write a web page that shows what is in and out");
  add_directory(*report_command, report.settings);
  report_command->add_option("-o,--output", report.file, "Write to FILE; -: standard output")
      ->type_name("FILE")
      ->take_last();
  add_limits(*report_command, report.settings);

  program::RegistryOptions languages;
  auto* languages_command =
      app.add_subcommand("languages", "Print the language registry, or some languages of it");
  languages_command->add_option("NAME", languages.names, "A language")->type_name("");
  languages_command->add_flag("--json", languages.json, "Print it as JSON");
  add_color(*languages_command, languages.color);

  program::RegistryOptions rules;
  auto* rules_command =
      app.add_subcommand("rules", "Print the fixed rules, which no file and no option changes");
  rules_command->add_flag("--json", rules.json, "Print them as JSON");
  add_color(*rules_command, rules.color);

  std::string subject;
  auto* help_command = app.add_subcommand("help", "Print the help on a command");
  help_command->add_option("COMMAND", subject, "A command")->type_name("");

  if (argc > 1 && argv[1][0] != '-' && !has_command(app, argv[1])) throw no_command(app, argv[1]);
  try {
    std::vector<std::string> arguments = with_empty_values(app, argc, argv);
    std::ranges::reverse(arguments);  // as the parser takes them
    app.parse(std::move(arguments));
  } catch (const CLI::ParseError& error) {
    std::ostringstream asked;
    std::ostringstream problem;
    if (app.exit(error, asked, problem) == 0) return print(asked.str());
    const auto commands = app.get_subcommands();
    const CLI::App& command = commands.empty() ? app : *commands.front();
    const std::string text = app.remaining(true).empty()
                                 ? printable(error.what())
                                 : no_argument(app, command, argv[1]).what();
    throw UsageError(text + "\nTry 'path-filter " +
                     (commands.empty() ? "" : command.get_name() + " ") + "--help'.");
  }

  if (app.got_subcommand("list")) {
    if (!directories->empty()) list.directories = directories->results();
    return program::list(list);
  }
  if (app.got_subcommand("check")) {
    check.paths = paths->results();
    if (check.paths.empty() && !check.read_stdin) {
      throw UsageError("check: no paths; name some, or give --stdin");
    }
    return program::check(check);
  }
  if (*summary_command) return program::summarize(summary);
  if (*report_command) return program::write_report(report);
  if (*languages_command) return program::print_languages(languages);
  if (*rules_command) return program::print_rules(rules);
  if (!*help_command) throw UsageError("no command given\nTry 'path-filter --help'.");
  if (subject.empty()) {
    return print(app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal));
  }
  if (!has_command(app, subject)) throw no_command(app, subject);
  return print(app.get_subcommand(subject)->help("path-filter"));
}

}  // namespace

int main(int argc, char** argv) {
  // A closed pipe is seen where the output is written.
  std::signal(SIGPIPE, SIG_IGN);
  path_filter::logger->set_sink(
      [](const path_filter::Warning& warning) { program::warn(warning.message()); });
  try {
    return run(argc, argv);
  } catch (const UsageError& error) {
    program::complain(error.what());
    return USAGE_STATUS;
  } catch (const std::exception& error) {
    program::complain(printable(error.what()));
    return USAGE_STATUS;
  }
}
