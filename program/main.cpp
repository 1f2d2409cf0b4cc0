// path-filter: which files of a repository belong in the index, and why the others do
// not.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <charconv>
#include <exception>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "program/commands.h"
#include "program/suggestion.h"
#include "program/system.h"
#include "utils/path_filter/base/logger.h"
#include "utils/path_filter/base/quoting.h"

namespace {

using path_filter::Exclusion;
using path_filter::internal::printable;
using program::Color;
using program::Settings;
using program::UsageError;

constexpr int LEFT_OUT_STATUS = 1;
constexpr int UNREAD_STATUS = 1;
constexpr int USAGE_STATUS = 2;

/// The help without what the parser knows of an option and the text says better, on lines that
/// fit a terminal.
class Formatter : public CLI::Formatter {
 public:
  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override {
    const std::size_t width = program::terminal_width().value_or(80);
    std::istringstream lines(CLI::Formatter::make_help(app, std::move(name), mode));
    std::string text;
    for (std::string line; std::getline(lines, line);) {
      // What describes an option goes on below where it begins.
      const std::size_t indent = line.starts_with("  ") ? get_column_width() : 0;
      while (line.size() > width) {
        const std::size_t end = line.rfind(' ', width);
        if (end == line.npos || end <= indent) break;
        text.append(line, 0, end) += '\n';
        line.replace(0, end + 1, indent, ' ');
      }
      (text += line) += '\n';
    }
    return text;
  }

  std::string make_option_opts(const CLI::Option* option) const override {
    return option->get_type_name().empty() ? "" : " " + option->get_type_name();
  }
};

void add_root(CLI::App& command, Settings& settings) {
  command
      .add_option("--root", settings.root,
                  "The repository's root, to which paths are then relative; else the nearest "
                  "directory above that has a .git")
      ->type_name("DIR");
}

void add_directory(CLI::App& command, Settings& settings) {
  command
      .add_option("DIR", settings.directory,
                  "A directory (that of --root, or else the current one)")
      ->type_name("");
  add_root(command, settings);
}

/// An option that takes names, separated by commas or one at each time that it is given; `take` is
/// given all of them with commas between.
CLI::Option* add_names(CLI::App& command, const std::string& option, const std::string& type,
                       const std::string& description,
                       const std::function<void(const std::string&)>& take) {
  return command
      .add_option_function<std::vector<std::string>>(
          option, [take](const std::vector<std::string>& given) { take(CLI::detail::join(given)); },
          description)
      ->allow_extra_args(false)
      ->type_name(type);
}

void add_limits(CLI::App& command, Settings& settings) {
  command
      .add_option(
          "--config", settings.config,
          "A TOML file whose section [index] has the limits: max_file_size_mb and languages; "
          "- is standard input")
      ->type_name("FILE");
  command
      .add_option("--max-file-size-mb", settings.max_file_size_mb,
                  "Leave out larger files; in MiB, or 10k, 2MB, 1GiB (10 when only other limits "
                  "are given)")
      ->type_name("SIZE");
  add_names(command, "--languages", "NAME,...",
            "Index only these code and documentation languages, separated by commas",
            [&settings](const std::string& names) { settings.languages = names; });
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
      ->type_name("WHEN");
}

std::vector<Exclusion> kinds_named(const std::string& names) {
  std::vector<std::string_view> known;
  std::string all;
  for (const Exclusion kind : path_filter::ALL_EXCLUSIONS) {
    known.push_back(to_string(kind));
    all += (all.empty() ? "" : ", ") + std::string(to_string(kind));
  }
  std::vector<Exclusion> kinds;
  for (const std::string& name : program::split_at_commas(names)) {
    const auto found = std::ranges::find(known, name);
    if (found == known.end()) {
      const auto meant = program::did_you_mean(program::nearest(name, known));
      throw UsageError("--kind: no kind '" + printable(name) + "'" +
                       (meant.empty() ? "; there are " + all : meant));
    }
    kinds.push_back(path_filter::ALL_EXCLUSIONS[static_cast<std::size_t>(found - known.begin())]);
  }
  if (kinds.empty()) {
    throw UsageError("--kind: '" + printable(names) + "' names no kind; there are " + all);
  }
  return kinds;
}

/// How many threads there are descriptors for, of `count`: without them files would be passed over.
std::size_t affordable(std::size_t count) {
  constexpr std::size_t EACH = 3;    // a directory, the next one, an ignore file
  constexpr std::size_t SHARED = 2;  // what git is asked with
  const std::size_t free = program::openable_files(SHARED + EACH * count);
  return std::clamp<std::size_t>((free - std::min(free, SHARED)) / EACH, 1, count);
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
  if (count == 0) {
    count = std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, MOST_BY_ITSELF);
  }
  return affordable(count);
}

void add_threads(CLI::App& command, std::size_t& count) {
  count = threads("0");
  command
      .add_option_function<std::string>(
          "-j,--threads", [&count](const std::string& number) { count = threads(number); },
          "How many threads to use; 0, the default, is one for each processor, and at most 8")
      ->type_name("NUMBER");
}

/// An option of any number of paths, which are taken as they are given: of one that takes extra
/// arguments the parser would split "[a,b]", and a bound vector would not hold "{}". This one
/// wants more paths than there can be.
void add_paths(CLI::App& command, const std::string& name, std::vector<std::string>& paths,
               const std::string& description) {
  constexpr int ALL = CLI::detail::expected_max_vector_size;
  command.add_option(name)
      ->description(description)
      ->type_name("")
      ->expected(ALL, ALL)
      ->take_all()
      ->each([&paths](const std::string& path) { paths.push_back(path); });
}

void add_list(CLI::App& app, program::ListOptions& list) {
  auto* command = app.add_subcommand("list", "Print the indexable files at or below each PATH");
  add_paths(*command, "PATH", list.paths, "Directories and files (the current directory)");
  add_root(*command, list.settings);
  auto* null =
      command->add_flag("-0,-z,--null", list.null, "End paths with NUL instead of a new line");
  command->add_flag("--json", list.json, "Print each decision as one line of JSON")->excludes(null);
  auto* excluded = command->add_flag("--excluded", list.excluded,
                                     "Print what is left out instead, with its kind and reason");
  add_names(*command, "--kind", "KIND,...",
            "Print what is left out for these reasons only, separated by commas",
            [&list](const std::string& names) {
              list.kinds = kinds_named(names);
              list.excluded = true;
            });
  command->add_flag("-v,--verbose", list.verbose,
                    "Name the language, or what decided: the ignore rule, the directory, the "
                    "pattern, the limit");
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
      ->type_name("path");
  add_threads(*command, list.threads);
  add_color(*command, list.color);
  add_limits(*command, list.settings);
  command->footer(
      "Exit status: 0, 1 when something could not be read or a PATH is left out, 2 on an error.");
}

void add_check(CLI::App& app, program::CheckOptions& check) {
  auto* command = app.add_subcommand("check", "Print the decision on each PATH");
  add_paths(*command, "PATH", check.paths, "Files and directories, there or not; - is --stdin");
  add_root(*command, check.settings);
  command->add_flag("--stdin", check.read_stdin,
                    "Read paths from standard input too, quoted ones as git writes them");
  command->add_flag("-0,-z,--null", check.null,
                    "Paths on standard input, and the fields of answers, end with NUL");
  command->add_flag("--json", check.json, "Print each decision as one line of JSON");
  command->add_flag("-v,--verbose", check.verbose,
                    "Name what decided: the ignore rule, the directory, the pattern, the limit");
  command->add_flag("-q,--quiet", check.quiet, "Print no decision; the exit status tells");
  command->footer(
      "Rules alone decide, as with git check-ignore --no-index: a file that git tracks is left out "
      "all the same when a rule matches it; -v says \"tracked\" then.\n\n"
      "Exit status: 0 when every path is indexed, 1 when some are left out, 2 on an error.");
  add_threads(*command, check.threads);
  add_color(*command, check.color);
  add_limits(*command, check.settings);
}

/// The command that does not exist, and what was probably meant.
UsageError no_command(const CLI::App& app, const std::string& name) {
  std::vector<std::string_view> names;
  for (const auto* command : app.get_subcommands(nullptr)) names.push_back(command->get_name());
  return UsageError("no command '" + printable(name) + "'" +
                    program::did_you_mean(program::nearest(name, names)) +
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

/// The arguments, with what the parser would misread set right: "--option=" becomes "--option" and
/// "", for which it would take the next argument; a flag with a value, and an option that is a
/// digit and that the command has not, which it would take for a path, are errors.
std::vector<std::string> readable_arguments(CLI::App& app, const std::vector<std::string>& given) {
  std::vector<std::string> arguments;
  const auto* command =
      !given.empty() && has_command(app, given[0]) ? app.get_subcommand(given[0]) : &app;
  for (auto at = given.begin(); at != given.end(); ++at) {
    const std::string& argument = *at;
    arguments.push_back(argument);
    if (argument == "--") {
      arguments.insert(arguments.end(), at + 1, given.end());
      break;
    }
    if (argument.size() < 2 || argument[0] != '-') continue;
    const std::string name = argument.substr(0, argument[1] == '-' ? argument.find('=') : 2);
    const auto* option = command->get_option_no_throw(name);
    const bool takes_value = option != nullptr && option->get_expected_max() > 0;
    if (option == nullptr && argument[1] >= '0' && argument[1] <= '9') {
      throw UsageError("no option '" + printable(name) + "'; a path that begins so is ./" +
                       printable(argument));
    }
    if (name.size() == argument.size()) {
      if (takes_value && at + 1 != given.end()) arguments.push_back(*++at);
    } else if (argument[name.size()] == '=') {
      if (option != nullptr && !takes_value) throw UsageError(name + " takes no value");
      if (takes_value && name.size() + 1 == argument.size()) {
        arguments.back().pop_back();
        arguments.emplace_back();
      }
    }
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

/// The exit status of a command that ends with `status`, when something could not be read.
int status_of(int status, const std::atomic<bool>& unread) {
  return unread ? std::max(status, UNREAD_STATUS) : status;
}

int run(const std::vector<std::string>& given, const std::atomic<bool>& unread) {
  CLI::App app(
      "Tells which files of a repository belong in the index, and why others do not.\n"
      "No size and no language is left out without one of the three limit options.");
  app.name("path-filter");
  app.formatter(std::make_shared<Formatter>());
  app.option_defaults()->take_last();
  app.set_version_flag("-V,--version", "path-filter " PATH_FILTER_VERSION);
  app.require_subcommand(0, 1);
  app.allow_windows_style_options(false);  // which are paths

  program::ListOptions list;
  add_list(app, list);
  program::CheckOptions check;
  add_check(app, check);

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
      ->type_name("FILE");
  add_limits(*report_command, report.settings);

  program::RegistryOptions languages;
  auto* languages_command =
      app.add_subcommand("languages", "Print the language registry, or languages of it");
  languages_command->add_option("NAME", languages.names, "A language")->type_name("");
  languages_command->add_flag("--json", languages.json, "Print it as JSON");
  add_color(*languages_command, languages.color);

  program::RegistryOptions rules;
  auto* rules_command = app.add_subcommand("rules", "Print the fixed rules, which nothing changes");
  rules_command->add_flag("--json", rules.json, "Print them as JSON");
  add_color(*rules_command, rules.color);

  std::string subject;
  auto* help_command = app.add_subcommand("help", "Print the help on a command");
  help_command->add_option("COMMAND", subject, "A command")->type_name("");

  if (!given.empty() && !given[0].starts_with('-') && !has_command(app, given[0])) {
    throw no_command(app, given[0]);
  }
  try {
    std::vector<std::string> arguments = readable_arguments(app, given);
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
                                 : no_argument(app, command, given[0]).what();
    throw UsageError(text + "\nTry 'path-filter " +
                     (commands.empty() ? "" : command.get_name() + " ") + "--help'.");
  }

  if (app.got_subcommand("list")) {
    return status_of(program::list(list), unread);
  }
  if (app.got_subcommand("check")) {
    if (std::erase(check.paths, "-") > 0) check.read_stdin = true;
    if (check.read_stdin && check.settings.config == "-") {
      throw UsageError("check: standard input has either the paths or the configuration");
    }
    if (check.paths.empty() && !check.read_stdin) {
      throw UsageError("check: no paths; name some, or give --stdin");
    }
    return program::check(check);
  }
  if (*summary_command) return status_of(program::summarize(summary), unread);
  if (*report_command) return status_of(program::write_report(report), unread);
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
  const std::vector<std::string> arguments = program::start(argc, argv);
  const auto unread = std::make_shared<std::atomic<bool>>(false);
  path_filter::logger->set_sink([unread](const path_filter::Warning& warning) {
    *unread = *unread || warning.format.starts_with("Cannot read");
    program::warn(warning.message());
  });
  try {
    return run(arguments, *unread);
  } catch (const program::LeftOut& error) {
    program::complain(error.what());
    return LEFT_OUT_STATUS;
  } catch (const UsageError& error) {
    program::complain(error.what());
    return USAGE_STATUS;
  } catch (const std::exception& error) {
    program::complain(printable(error.what()));
    return USAGE_STATUS;
  }
}
