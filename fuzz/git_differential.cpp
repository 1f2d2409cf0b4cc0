// Asks git and an IndexScope the same about random work trees: which rule, of which
// ignore file, decides about each file and directory. Names and rules are drawn from
// small alphabets, so that rules hit often; the rules use all that the format has.
//
//   git_differential [--questions N] [--seconds N] [--seed S]
//
// Ends with status 1 at the first disagreement, after shrinking it to the fewest rules
// and characters. Where the component differs from git on purpose (the table in
// docs/git-differences.md), git is given the rule as the component means it: the
// verdicts must agree then too.

#include <spdlog/logger.h>
#include <spdlog/sinks/null_sink.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <iterator>
#include <memory>
#include <random>
#include <ranges>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fuzz/git_oracle.h"
#include "utils/path_filter/index_scope.h"
#include "utils/path_filter/path_rules.h"

namespace {

using git_oracle::Git;
using path_filter::IgnoreRule;
using path_filter::IndexScope;
using Verdict = std::optional<IgnoreRule>;

constexpr std::string_view INFO_EXCLUDE = "info/exclude";
constexpr std::string_view EXCLUDES_FILE = "core.excludesFile";
constexpr std::string_view INVALID_BYTE = "\xFF";  // the only invalid UTF-8 in rules
constexpr std::string_view REPLACEMENT = "\xEF\xBF\xBD";
constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";

// --- A case, and how it is written for each side ----------------------------------

struct Line {
  std::string text;
  std::string end;
};

struct IgnoreFile {
  std::string path;  // "src/.gitignore", INFO_EXCLUDE or EXCLUDES_FILE
  std::vector<Line> lines;
};

struct Case {
  Git::Tree tree;
  std::vector<IgnoreFile> files;
  std::vector<std::string> questions;  // a directory's ends in "/"
};

std::string directory_of(const std::string& path) {
  const std::size_t slash = path.find_last_of('/', path.size() - 2);
  return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

/// The length of the character at `at`: of what looks like a UTF-8 sequence, or one byte.
std::size_t character_size(std::string_view text, std::size_t at) {
  const auto lead = static_cast<unsigned char>(text[at]);
  const std::size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
  for (std::size_t next = 1; next < size; ++next) {
    if (at + next >= text.size() || (text[at + next] & '\xC0') != '\x80') return 1;
  }
  return size;
}

void replace_all(std::string& text, std::string_view from, std::string_view to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
}

/// `line` such that git takes it for what the manual says: git gives "**" its special
/// meaning also right behind a literal beginning ("foo**/bar"), where it is "*".
std::string as_documented(std::string line) {
  const std::size_t begin = line.starts_with('!') ? 1 : 0;
  const std::size_t special = std::min(line.find_first_of("*?[\\", begin), line.size());
  const std::size_t end = std::min(line.find_first_not_of('*', special), line.size());
  if (end - special >= 2 && special > begin && line[special - 1] != '/') {
    line.erase(special, end - special - 1);
  }
  return line;
}

std::string for_component(const IgnoreFile& file) {
  std::string text;
  for (const Line& line : file.lines) text += line.text + line.end;
  return text;
}

std::string for_git(const IgnoreFile& file) {
  std::string text;
  for (const Line& line : file.lines) text += as_documented(line.text) + '\n';
  replace_all(text, INVALID_BYTE, REPLACEMENT);
  // git drops one mark.
  return text.starts_with(BYTE_ORDER_MARK) ? std::string(BYTE_ORDER_MARK) + text : text;
}

// --- Making cases -----------------------------------------------------------------

class Generator {
  static constexpr std::string_view COMMON[] = {"a", "b", "c"};
  static constexpr std::string_view OTHER[] = {
      "A", "z", "1", ".", "-", "_", "!",  "#", " ", "[",  "]",         "^",
      "*", "?", ":", "~", "{", "$", "\t", "é", "ä", "日", REPLACEMENT, INVALID_BYTE};

 public:
  explicit Generator(std::uint64_t seed) : _random(seed) {}

  Case make() {
    Case made{static_cast<Git::Tree>(below(Git::TREES)), {}, {}};
    std::set<std::string> names;
    while (names.size() < 24) names.insert(name());
    _names.assign(names.begin(), names.end());

    std::set<std::string> directories{""};
    for (std::size_t count = 2 + below(12); count > 0; --count) {
      const auto above =
          std::next(directories.begin(), static_cast<std::ptrdiff_t>(below(directories.size())));
      if (std::ranges::count(*above, '/') < 5) directories.insert(*above + one_of(_names) + '/');
    }
    std::vector<std::string> paths;
    for (const std::string& directory : directories) {
      for (const std::string& child : _names) {
        const std::string path = directory + child;
        paths.push_back(directories.contains(path + '/') ? path + '/' : path);
      }
    }

    for (const std::string& directory : directories) {
      if (directory.empty() || chance(3)) {
        // Paths are relative to the directory of the rules.
        std::vector<std::string> inside;
        for (const std::string& path : paths) {
          if (path.starts_with(directory) && path != directory) {
            inside.push_back(path.substr(directory.size()));
          }
        }
        made.files.push_back({directory + ".gitignore", lines(inside)});
      }
    }
    if (chance(2)) made.files.push_back({std::string(INFO_EXCLUDE), lines(paths)});
    if (chance(2)) made.files.push_back({std::string(EXCLUDES_FILE), lines(paths)});
    for (const std::string& directory : directories) paths.push_back(directory + ".gitignore");
    made.questions = std::move(paths);
    return made;
  }

 private:
  std::size_t below(std::size_t end) { return _random() % end; }
  bool chance(std::size_t one_in) { return below(one_in) == 0; }
  template <typename Choices>
  const std::ranges::range_value_t<Choices>& one_of(const Choices& choices) {
    return choices[below(std::size(choices))];
  }

  std::string character() { return std::string(chance(4) ? one_of(OTHER) : one_of(COMMON)); }

  std::string name() {
    std::string made;
    if (chance(40)) made.assign(58 + below(10), 'a');  // about the longest that is indexed
    for (std::size_t count = 1 + below(3); count > 0; --count) {
      if (chance(60)) {
        // Any byte; but "\" separates directories for the component.
        const char byte = static_cast<char>(1 + below(255));
        if (byte != '/' && byte != '\\') made += byte;
      } else {
        made += character();
      }
    }
    // A drive letter would be an absolute path to the component.
    const bool fits = !made.empty() && made != "." && made != ".." && !made.ends_with(':');
    return fits ? made : name();
  }

  /// `character` as a pattern can hold it: a line end or a stray byte only as a wildcard.
  static std::string in_pattern(const std::string& character) {
    const bool ascii = character.size() == 1 && character[0] >= ' ' && character[0] <= '~';
    return ascii || std::ranges::find(OTHER, character) != std::end(OTHER) ? character : "?";
  }

  /// A bracket expression, perhaps a broken one, that often holds `member`.
  std::string set(const std::string& member) {
    static constexpr std::string_view ITEMS[] = {
        "]",         "-",          "--",        "[",         "[:",        ":]",        "/",
        "a-c",       "c-a",        ".-0",       "!-~",       "\\]",       "\\-",       "\\\\",
        "a-\\c",     "[-a",        "[:alnum:]", "[:alpha:]", "[:blank:]", "[:cntrl:]", "[:digit:]",
        "[:graph:]", "[:lower:]",  "[:print:]", "[:punct:]", "[:space:]", "[:upper:]", "[:xdigit:]",
        "[:other:]", "[:ALPHA:]",  "[::]",      "[=a=]",     "é-z",       "\t- ",      "*",
        "?",         "a-[:digit:]"};
    std::string made = "[";
    if (chance(3)) made += chance(2) ? '!' : '^';
    for (std::size_t count = 1 + below(3); count > 0; --count) {
      made += chance(2) ? member : chance(3) ? character() : std::string(one_of(ITEMS));
    }
    return chance(15) ? made : made + ']';
  }

  /// What stands in a pattern for one character: often itself.
  std::string piece(const std::string& character) {
    switch (below(16)) {
      case 0:
        return "*";
      case 1:
        return "?";
      case 2:
        return set(character);
      case 3:
        return '\\' + character;
      case 4:
        return chance(2) ? "**" : chance(2) ? "***" : "*" + character;
      default:
        return character;
    }
  }

  /// A pattern made from a path, so that it is likely to match it.
  std::string pattern_of(std::string_view path) {
    while (chance(2) && path.find('/') < path.size() - 1) {
      path.remove_prefix(path.find('/') + 1);
    }
    std::string made;
    for (std::size_t at = 0; at < path.size();) {
      const bool begins = at == 0 || path[at - 1] == '/';
      if (begins && chance(6)) {
        // "**" for some of the components, or for none.
        made += chance(4) ? "***" : "**";
        if (chance(2)) at = std::min(path.find('/', at), path.size());
        if (chance(3)) at = std::min(path.find('/', at + 1), path.size());
        if (at < path.size() && path[at] != '/') made += chance(12) ? "\\/" : "/";
        continue;
      }
      if (path[at] == '/') {
        made += chance(20) ? "\\/" : chance(40) ? "//" : "/";
        ++at;
        continue;
      }
      const std::size_t size = character_size(path, at);
      made += piece(in_pattern(std::string(path.substr(at, size))));
      at += size;
      if (chance(10)) {
        made += '*';
        at = std::min(path.find('/', at), path.size());
      }
    }
    return made;
  }

  std::string invented() {
    std::string made;
    for (std::size_t components = 1 + below(4); components > 0; --components) {
      if (chance(4)) {
        made += "**";
      } else {
        for (std::size_t count = 1 + below(3); count > 0; --count) made += piece(character());
      }
      if (components > 1) made += chance(20) ? "\\/" : "/";
    }
    return made;
  }

  std::string line(const std::vector<std::string>& paths) {
    static constexpr std::string_view ODD[] = {
        "",    "#",    " ",    "!",    "/",   "//",   "!/",      "\\",    "!!a", "**",
        "/**", "**/",  "\\!a", "\\#a", "# a", " #a",  "\\ ",     "a\\",   "[",   "!#",
        "*/",  "*/**", "/*",   "**/*", "!*",  "!**/", "**/**/a", "a/**/", "[]",  "[!]"};
    static constexpr std::string_view TAILS[] = {" ",   "  ", "\\ ",   "\\  ", "\t",  " \t",
                                                 "\t ", "\\", "\\\\ ", "/ ",   "// ", "\\\t"};
    if (chance(40)) return std::string(one_of(ODD));
    std::string made = chance(3) ? invented() : pattern_of(one_of(paths));
    // A rule that matches everything decides for all others: few of them are enough.
    if (made.find_first_not_of("*?/") == std::string::npos && !chance(30)) return line(paths);
    if (takes_git_long(made)) return line(paths);
    if (chance(4)) made.insert(0, 1, '/');
    if (chance(3)) made.insert(0, 1, '!');
    if (chance(10)) made += '/';
    if (chance(10)) made += one_of(TAILS);
    if (chance(200)) made += std::string(1, '\0') + character();
    return made;
  }

  /// git tries wildcards in every way: some of them and a long name take it minutes.
  bool takes_git_long(std::string_view pattern) const {
    std::size_t wildcards = 0;
    for (std::size_t at = 0; at < pattern.size(); ++at) {
      if (pattern[at] == '*' && (at == 0 || pattern[at - 1] != '*')) ++wildcards;
    }
    const bool long_names =
        std::ranges::any_of(_names, [](const std::string& name) { return name.size() > 50; });
    return wildcards > (long_names ? 3 : 8);
  }

  std::vector<Line> lines(const std::vector<std::string>& paths) {
    // The component's own line ends; to git each is given as "\n".
    static constexpr std::string_view ENDS[] = {"\r",   "\v",     "\f",     "\x1C",  "\x1D",
                                                "\x1E", "\u0085", "\u2028", "\u2029"};
    std::vector<Line> made;
    const bool many = chance(30);
    for (std::size_t count = many ? 300 : 1 + below(14); count > 0; --count) {
      std::string text = line(paths);
      std::string end = chance(12) ? "\r\n" : chance(25) ? std::string(one_of(ENDS)) : "\n";
      // "\r" before an empty line would be the beginning of a "\r\n".
      if (text.empty() && !made.empty() && made.back().end == "\r") made.back().end = "\n";
      made.push_back({std::move(text), std::move(end)});
    }
    if (chance(10)) made.front().text.insert(0, BYTE_ORDER_MARK);
    if (chance(4) && !made.back().text.empty()) made.back().end.clear();
    return made;
  }

  std::mt19937_64 _random;
  std::vector<std::string> _names;
};

// --- Asking both ------------------------------------------------------------------

struct Disagreement {
  std::string question;
  Verdict git;
  Verdict component;
  std::string note;
};

class Differential {
 public:
  struct Figures {
    std::size_t questions = 0;
    std::size_t ignored = 0;
    std::size_t included_again = 0;
  };

  /// The first question of `asked` that the two answer differently.
  std::optional<Disagreement> run(const Case& asked) {
    lay_out(asked);
    const auto expected = _git.deciding_rules(asked.tree, asked.questions);
    for (const IgnoreFile& file : asked.files) {
      const std::string content = for_component(file);
      if (content != for_git(file)) write(path_of(asked, file), content);
    }

    const IndexScope scope(_git.work_tree(asked.tree),
                           {.excludes_file = [&](const auto&) { return _git.excludes_file(); }});
    for (std::size_t index = 0; index < asked.questions.size(); ++index) {
      const std::string& question = asked.questions[index];
      const Verdict answer = scope.deciding_ignore_rule(question);
      ++figures.questions;
      if (!same(expected[index], answer))
        return Disagreement{question, expected[index], answer, ""};
      if (!answer) continue;
      const bool ignored = !answer->pattern.starts_with('!');
      ++(ignored ? figures.ignored : figures.included_again);
      const bool verdict = question.ends_with('/')
                               ? !scope.admits_directory(question.substr(0, question.size() - 1)) &&
                                     !path_filter::should_skip_path(question)
                               : scope.is_ignored(question);
      if (verdict != ignored && !path_filter::should_skip_path(question)) {
        return Disagreement{question, expected[index], answer, "the verdict is not the rule's"};
      }
    }
    return std::nullopt;
  }

  Figures figures;

 private:
  /// Whether the same rule is named. git saw it as for_git wrote it.
  static bool same(const Verdict& git, const Verdict& component) {
    if (!git || !component) return !git && !component;
    return git->source == component->source && git->line == component->line &&
           git->pattern == as_documented(component->pattern);
  }

  std::filesystem::path path_of(const Case& asked, const IgnoreFile& file) const {
    if (file.path == INFO_EXCLUDE) return _git.info_exclude(asked.tree);
    if (file.path == EXCLUDES_FILE) return _git.excludes_file();
    return _git.work_tree(asked.tree) / file.path;
  }

  static void write(const std::filesystem::path& path, std::string_view content) {
    std::ofstream(path, std::ios::binary) << content;
  }

  void lay_out(const Case& asked) const {
    const auto top = _git.work_tree(asked.tree);
    for (const auto& entry : std::filesystem::directory_iterator(top)) {
      if (entry.path().filename() != ".git") std::filesystem::remove_all(entry.path());
    }
    std::filesystem::remove(_git.info_exclude(asked.tree));
    std::filesystem::remove(_git.excludes_file());
    for (std::size_t index = 0; index < asked.questions.size(); ++index) {
      const std::string& question = asked.questions[index];
      std::filesystem::create_directories(top / directory_of(question));
      if (question.ends_with('/')) {
        std::filesystem::create_directory(top / question.substr(0, question.size() - 1));
      } else if (index % 8 == 0) {
        write(top / question, "");  // a name that does not exist counts as a file's, too
      }
    }
    for (const IgnoreFile& file : asked.files) {
      std::filesystem::create_directories(path_of(asked, file).parent_path());
      write(path_of(asked, file), for_git(file));
    }
  }

  Git _git;
};

// --- Shrinking and printing -------------------------------------------------------

class Shrinker {
 public:
  Shrinker(Differential& differential, Case failing, std::string question)
      : _differential(differential), _case(std::move(failing)) {
    keep_if_failing([&](Case& smaller) { smaller.questions = {std::move(question)}; });
    for (bool smaller = true; smaller;) {
      smaller = shrink_each([](Case & in) -> auto& { return in.files; });
      for (std::size_t file = 0; file < _case.files.size(); ++file) {
        smaller |= shrink_each([file](Case & in) -> auto& { return in.files[file].lines; });
        for (std::size_t line = 0; line < _case.files[file].lines.size(); ++line) {
          smaller |=
              shrink_text([=](Case & in) -> auto& { return in.files[file].lines[line].text; });
        }
      }
      if (_case.questions.size() == 1) {
        smaller |= shrink_text([](Case & in) -> auto& { return in.questions.front(); });
      }
    }
  }

  const Case& smallest() const { return _case; }

 private:
  template <typename Change>
  bool keep_if_failing(Change change) {
    Case smaller = _case;
    change(smaller);
    if (!is_sound(smaller) || !_differential.run(smaller)) return false;
    _case = std::move(smaller);
    return true;
  }

  /// A question that has parts, and no ignore file in what it calls a file.
  static bool is_sound(const Case& made) {
    return std::ranges::all_of(made.questions, [&](const std::string& question) {
      const std::string framed = '/' + question;
      const bool has_file_below = std::ranges::any_of(made.files, [&](const IgnoreFile& file) {
        return file.path.starts_with(question + '/');
      });
      return question.size() > (question.ends_with('/') ? 1 : 0) && !has_file_below &&
             framed.find("//") == std::string::npos && framed.find("/./") == std::string::npos &&
             framed.find("/../") == std::string::npos && !framed.ends_with("/.") &&
             !framed.ends_with("/..");
    });
  }

  /// Tries without each element of the list that `of` names in a case.
  template <typename Of>
  bool shrink_each(Of of) {
    bool smaller = false;
    for (std::size_t at = of(_case).size(); at-- > 0;) {
      smaller |= keep_if_failing(
          [&](Case& in) { of(in).erase(of(in).begin() + static_cast<std::ptrdiff_t>(at)); });
    }
    return smaller;
  }

  /// Tries without each character of the text that `of` names in a case.
  template <typename Of>
  bool shrink_text(Of of) {
    bool smaller = false;
    for (std::size_t at = 0; at < of(_case).size();) {
      const std::size_t size = character_size(of(_case), at);
      if (keep_if_failing([&](Case& in) { of(in).erase(at, size); })) {
        smaller = true;
      } else {
        at += size;
      }
    }
    return smaller;
  }

  Differential& _differential;
  Case _case;
};

/// `text` in quotes, with all that is not plain ASCII escaped.
std::string printable(std::string_view text) {
  std::string made = "\"";
  for (const char byte : text) {
    char escaped[8];
    if (byte == '"' || byte == '\\') made += '\\';
    if (byte >= ' ' && byte <= '~') {
      made += byte;
    } else {
      std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned char>(byte));
      made += escaped;
    }
  }
  return made + '"';
}

std::string printable(const Verdict& verdict) {
  if (!verdict) return "no rule";
  return verdict->source + ':' + std::to_string(verdict->line) + ": " + printable(verdict->pattern);
}

void print(const Case& made, const Disagreement& found) {
  constexpr std::string_view TREES[] = {"a plain work tree", "a linked work tree",
                                        "a work tree with a pointer file"};
  std::cout << "They disagree, in " << TREES[static_cast<std::size_t>(made.tree)] << ":\n";
  for (const IgnoreFile& file : made.files) {
    for (const Line& line : file.lines) {
      std::cout << "  " << file.path << ": " << printable(line.text) << ", then "
                << printable(line.end) << '\n';
    }
  }
  std::cout << "  asked about " << printable(found.question)
            << "\n  git:       " << printable(found.git)
            << "\n  component: " << printable(found.component) << ' ' << found.note << '\n';
}

// --- The program ------------------------------------------------------------------

struct Options {
  std::uint64_t questions = UINT64_MAX;
  std::uint64_t seconds = UINT64_MAX;
  std::uint64_t seed = std::random_device{}();
};

std::optional<Options> parse(int count, char** arguments) {
  Options options;
  for (int at = 1; at < count; at += 2) {
    const std::string_view name = arguments[at];
    std::uint64_t* value = name == "--questions" ? &options.questions
                           : name == "--seconds" ? &options.seconds
                           : name == "--seed"    ? &options.seed
                                                 : nullptr;
    if (value == nullptr || at + 1 == count) return std::nullopt;
    *value = std::strtoull(arguments[at + 1], nullptr, 10);
  }
  if (options.questions == UINT64_MAX && options.seconds == UINT64_MAX) options.questions = 5000;
  return options;
}

int compare(const Options& options) {
  using Clock = std::chrono::steady_clock;
  std::cout << "seed " << options.seed << std::endl;
  path_filter::logger->sinks() = {std::make_shared<spdlog::sinks::null_sink_mt>()};
  Generator generator(options.seed);
  Differential differential;
  const auto begin = Clock::now();
  const auto seconds = [&] { return std::chrono::duration<double>(Clock::now() - begin).count(); };
  std::size_t trees = 0;
  while (differential.figures.questions < options.questions &&
         seconds() < static_cast<double>(options.seconds)) {
    ++trees;
    const Case made = generator.make();
    if (const auto found = differential.run(made)) {
      const Shrinker shrinker(differential, made, found->question);
      print(shrinker.smallest(), differential.run(shrinker.smallest()).value());
      std::cout << "It was tree " << trees << " of seed " << options.seed << ".\n";
      return EXIT_FAILURE;
    }
  }
  const auto& figures = differential.figures;
  std::cout << figures.questions << " questions about " << trees << " trees in " << seconds()
            << " s: " << figures.ignored << " ignored by a rule, " << figures.included_again
            << " included again, no disagreement\n";
  return EXIT_SUCCESS;
}

}  // namespace

int main(int count, char** arguments) {
  const auto options = parse(count, arguments);
  if (!options) {
    std::cerr << "usage: git_differential [--questions N] [--seconds N] [--seed S]\n";
    return 2;
  }
  try {
    return compare(*options);
  } catch (const std::exception& error) {
    std::cerr << "git_differential: " << error.what() << '\n';
    return 2;
  }
}
