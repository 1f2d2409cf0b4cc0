// Asks git and an IndexScope the same: which rule, of which ignore file, decides about a
// file or directory. First a table of corner stones and of the differences that are on
// purpose, then all short patterns, then random work trees over small alphabets, with all
// that the format has; half of the trees with core.ignorecase.
//
//   git_differential [--questions N] [--seconds N] [--seed S] [--record FILE]
//   git_differential --replay FILE
//
// Without a bound it goes on until it is stopped. Ends with status 1 at a disagreement. A record
// has the patterns and trees with git's answers, as far as their names are Windows' too, for a
// system without git.

#include <algorithm>
#include <chrono>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <regex>
#include <set>
#include <tuple>

#include "tests/temp_tree.h"
#include "utils/path_filter/base/logger.h"
#include "utils/path_filter/base/quoting.h"
#include "utils/path_filter/base/utf8.h"
#include "utils/path_filter/git_ignore/git_ignore.h"
#include "utils/path_filter/index_scope/index_scope.h"
#include "utils/path_filter/path_rules/path_rules.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using path_filter::IndexScope;
using Texts = std::vector<std::string>;
constexpr auto* printed = path_filter::internal::quoted;

/// The texts between the "|" of a list.
Texts split(const std::string& list) {
  Texts made(1);
  for (const char byte : list) byte == '|' ? made.emplace_back() : made.back() += byte;
  return made;
}

/// What ends a line for the component; git is given "\n" for each.
const Texts ENDS = split("\r|\v|\f|\x1C|\x1D|\x1E|\u0085|\u2028|\u2029");

/// A line of an ignore file with its end. A random one is to git what the component means.
struct Line {
  std::string component, git;
};

struct Case {
  std::string tree;
  std::map<std::string, std::vector<Line>> files;  // by path, relative to the top
  Texts questions;  // relative to the tree; a directory's ends in "/"
  bool ignore_case = false;
};

constexpr auto* IGNORE_CASE = "-c core.ignorecase=true";

struct Answer {
  bool agree() const { return git == ours; }
  std::string git, ours;  // the deciding pattern, its line and its file; "" without one
};

/// `line` such that git takes it for what the manual says: git gives "**" its special
/// meaning also right behind a literal beginning ("foo**/bar"), where it is "*".
std::string as_documented(const std::string& line) {
  static const std::regex behind_literal(R"(^((?:!|(?!!))[^*?[\\]*[^*?[\\/])\*\*+)");
  return std::regex_replace(line, behind_literal, "$1*");
}

/// "i": ignored, "n": included again, "-": no rule.
std::string letter(const std::string& answer) {
  return answer.empty() ? "-" : answer.starts_with('!') ? "n" : "i";
}

/// What the scope says of a path, which ends in "/" when it is a directory's.
std::string our_answer(const IndexScope& scope, const std::string& path) {
  std::string answer;
  if (const auto rule = scope.deciding_ignore_rule(path)) {
    answer = as_documented(rule->pattern) + "|" + std::to_string(rule->line) + "|" + rule->source;
  }
  const bool included = path.back() == '/' ? scope.admits_directory(path.substr(0, path.size() - 1))
                                           : !scope.is_ignored(path);
  if (included == (letter(answer) == "i") && !path_filter::should_skip_path(path)) {
    answer += ", but the scope's verdict is another";
  }
  return answer;
}

/// Removes all from a work tree but what is git's.
void empty(const fs::path& tree) {
  for (const auto& entry : fs::directory_iterator(tree)) {
    if (entry.path().filename() != ".git" && !entry.is_symlink()) fs::remove_all(entry);
  }
}

// --- Cases and git's answers in a file -----------------------------------------------

void write_text(std::ostream& file, const std::string& text) {
  file << text.size() << '\n' << text;
}

std::string read_text(std::istream& file) {
  std::size_t size = 0;
  file >> size;
  file.get();
  std::string text(size, '\0');
  if (!file.read(text.data(), static_cast<std::streamsize>(size)))
    throw std::runtime_error("the record ends too early");
  return text;
}

/// `text` without the top's own path.
std::string anywhere(std::string text, const TempTree& top) {
  const std::string own = path_filter::path_text(top.root());
  if (const auto at = text.find(own); at != text.npos) text.replace(at, own.size(), "$");
  return text;
}

/// The paths that Windows can have beside each other.
class WindowsNames {
 public:
  bool take(const std::string& path) {
    for (std::size_t end = 0; end < path.size();) {
      const std::size_t begin = end == 0 ? 0 : end + 1;
      end = std::min(path.find('/', begin), path.size());
      const std::string name = path.substr(begin, end - begin);
      const bool fits =
          !path_filter::internal::find_invalid_utf8(name) && !name.ends_with(' ') &&
          name.find_first_of("<>:\"\\|?*\x7F") == name.npos &&
          std::ranges::none_of(name, [](char byte) { return byte >= 0 && byte < ' '; });
      std::string folded = path.substr(0, end);
      for (char& byte : folded) byte = byte >= 'A' && byte <= 'Z' ? byte ^ ' ' : byte;
      if (!fits || (name.ends_with('.') && name != ".") ||
          _spelt.emplace(folded, path.substr(0, end)).first->second != path.substr(0, end)) {
        return false;
      }
    }
    return true;
  }

 private:
  std::map<std::string, std::string> _spelt;
};

struct Record {
  std::ofstream file;

  void add(const Case& asked, const std::vector<Answer>& answers, const TempTree& top) {
    WindowsNames names;
    std::vector<std::size_t> kept;
    for (std::size_t at = 0; at < answers.size(); ++at) {
      if (names.take(asked.tree + '/' + asked.questions[at])) kept.push_back(at);
    }
    std::vector<std::pair<std::string, std::string>> files;
    for (const auto& [path, lines] : asked.files) {
      if (!names.take(path)) continue;
      std::string& content = files.emplace_back(path, "").second;
      for (const Line& line : lines) content += line.component;
    }
    for (const std::string& text : {asked.tree, std::string(asked.ignore_case ? "i" : ""),
                                    std::to_string(files.size()), std::to_string(kept.size())}) {
      write_text(file, text);
    }
    for (const auto& [path, content] : files) write_text(file, path), write_text(file, content);
    for (const std::size_t at : kept) {
      write_text(file, asked.questions[at]);
      write_text(file, anywhere(answers[at].git, top));
    }
  }
};

/// Asks a scope what is recorded, with git directories as git makes them.
void replay(std::istream& file) {
  const TempTree top;
  top.make_directory("plain/.git");
  top.write("linked/.git", "gitdir: ../plain/.git/worktrees/linked\n");
  top.write("plain/.git/worktrees/linked/commondir", "../..\n");
  top.write("pointer/.git", "gitdir: ../modules/pointer\n");
  top.make_directory("modules/pointer");
  std::size_t questions = 0;
  while (file.peek() != EOF) {
    const std::string tree = read_text(file);
    const bool ignore_case = !read_text(file).empty();
    std::size_t files = std::stoull(read_text(file));
    std::size_t left = std::stoull(read_text(file));
    questions += left;
    empty(top / tree);
    for (; files > 0; --files) {
      const std::string path = read_text(file);
      top.write(path_filter::path_of(path), read_text(file));
    }
    const auto excludes_file = [&](const fs::path&) { return top / "excludes"; };
    const IndexScope scope(top / tree,
                           {.excludes_file = excludes_file, .ignore_case = ignore_case});
    for (; left > 0; --left) {
      const std::string question = read_text(file);
      const std::string git = read_text(file);
      const std::string ours = anywhere(our_answer(scope, question), top);
      if (git != ours) {
        throw std::runtime_error("about " + printed(question) + "\ngit: " + git +
                                 "\nours: " + ours);
      }
    }
  }
  std::cout << questions << " recorded questions, no disagreement\n";
}

struct Asker {
  Asker() {
    top.write(".gitconfig", "[user]\nname=n\nemail=e\n[core]\nexcludesFile=~/excludes\n");
    git(".", "init -q plain");
    git("plain", "commit -q --allow-empty -m first");
    git("plain", "worktree add -q ../linked");
    top.make_directory("modules");
    git(".", "init -q --separate-git-dir=modules/pointer pointer");
    top.write("pointer/.git", "gitdir: ../modules/pointer\n");
  }

  /// Runs git in the directory `where`; the machine's configuration has no say.
  void git(const std::string& where, const std::string& arguments) const {
    const std::string home = top.root().string();
    const auto command = "cd " + home + '/' + where + " && env -i PATH=\"$PATH\" HOME=" + home +
                         " GIT_CONFIG_NOSYSTEM=1 git " + arguments;
    if (std::system(command.c_str()) != 0) throw std::runtime_error("failed: " + command);
  }

  std::vector<Answer> ask(const Case& asked, const std::string& git_options = "") const {
    empty(top / asked.tree);
    std::string questions;
    for (const std::string& question : asked.questions) {
      fs::create_directories((top / asked.tree / question).parent_path());
      // "./": a name may begin with ":", which is magic to git.
      questions += "./" + question.substr(0, question.find_last_not_of('/') + 1) + '\0';
    }
    top.write("questions", questions);
    write(asked, &Line::git);
    const std::string options = asked.ignore_case ? IGNORE_CASE : git_options;
    git(asked.tree, options + " check-ignore --no-index -v -n -z --stdin <../questions" +
                        " >../answers; test $? -le 1");
    write(asked, &Line::component);
    const auto excludes_file = [this](const fs::path&) { return top / "excludes"; };
    const IndexScope scope(top / asked.tree,
                           {.excludes_file = excludes_file, .ignore_case = asked.ignore_case});
    std::vector<Answer> answers;
    std::ifstream file(top / "answers", std::ios::binary);
    for (const std::string& path : asked.questions) {
      std::string source, line, pattern, same_path;
      for (auto* field : {&source, &line, &pattern, &same_path}) std::getline(file, *field, '\0');
      if (!file) throw std::runtime_error("git gave too few answers");
      Answer& answer = answers.emplace_back();
      if (!source.empty()) answer.git = pattern + "|" + line + "|" + source;
      answer.ours = our_answer(scope, path);
    }
    return answers;
  }

  const TempTree top;
  std::unique_ptr<Record> record;

  void write(const Case& asked, std::string Line::*side) const {
    for (const auto& [file, lines] : asked.files) {
      std::string content;
      for (const Line& line : lines) content += line.*side;
      top.write(file, content);
    }
  }
};

/// Rows: rules, and what is asked of them, which is the verdict of both sides (or git's and
/// the component's), a blank, and the path. Without a verdict they only have to agree.
const Texts ROWS{
    "*.log|i a/b.log", "*.log\n!b.log|n a/b.log", "*|i any/at/all", "build/|i a/build/|- build",
    "build\n!build/|n build/", "build/\n!build/a|i build/a", "/a.txt|i a.txt|- b/a.txt",
    "b/a.txt|- c/b/a.txt|i b/a.txt", "**/a.txt|i c/b/a.txt|i a.txt", "a/**|i a/b/c|- a/",
    "a/**/b|i a/b|i a/x/y/b|- a/xb", "a/**\\/b|- a/b|i a/x/y/b", "a/*/c|i a/b/c|- a/b/d/c",
    "a[/]c|- a/c", "a[x/]c/d|i axc/d", "# comment|- # comment", "\\# name|i # name",
    "\\!name|i !name", "name  |i name", "name\\ |i name ", "name\t|- name",
    "name\\|- name|- name\\", "[]-]x|i -x", "[[:digit:]]x|i 7x", "[[:bogus:]]x|- 7x", "[a|- [a",
    "[Dd]ebug/|i x/debug/|- x/DEBUG/", "!|- !", "/|- a", "**//a|- x/a", "a\0b|i a"s,
    "na?me|- na\u00E9me",
    // The differences, in the order of docs/git-differences.md.
    "foo**/bar|i- foo/x/bar", "/foo**/bar|i- foobar", "a/b**\n!a/b*|i- a/b/c",
    "*\n!a/\n!a/foo**|ni a/foo/b", "\uFEFFa|i- a|-i \uFEFFa", "\xFF|i- \xFF|-i \uFFFD",
    "a\\\\b|i- a\\b", "/b\n!a/b\n/a/b|-i a\\b", "link/|-i link/"};

std::vector<Texts> table() {
  std::vector<Texts> rows;
  for (const std::string& row : ROWS) rows.push_back(split(row));
  for (const std::string& end : ENDS) {
    rows.push_back({"a" + end + "b", "i- a" + end + "b", "-i a", "-i b"});
  }
  rows.push_back({"a\n" + std::string(path_filter::MAX_IGNORE_FILE_BYTES, '\n'), "i- a"});
  // Too many bytes and classes for random names to meet them all.
  for (const auto& name : split("alnum|alpha|blank|cntrl|digit|graph|lower|print|punct|space|"
                                "upper|xdigit|ascii|word|Alpha|")) {
    rows.push_back({"x[[:" + name + ":]]"});
    for (int byte = 1; byte < 256; ++byte) {
      if (byte != '/' && byte != '\\') rows.back().push_back(" x"s + static_cast<char>(byte));
    }
  }
  return rows;
}

void check_row(const Asker& asker, const Texts& row, bool ignore_case = false,
               const std::string& git_options = "") {
  Case asked{"plain", {{"plain/.gitignore", {{row[0], row[0]}}}}, {}, ignore_case};
  for (std::size_t at = 1; at < row.size(); ++at) {
    asked.questions.push_back(row[at].substr(row[at].find(' ') + 1));
  }
  const auto answers = asker.ask(asked, git_options);
  for (std::size_t at = 1; at < row.size(); ++at) {
    const Answer& answer = answers[at - 1];
    const std::string found = letter(answer.git) + letter(answer.ours);
    const std::string verdict = row[at].substr(0, row[at].find(' '));
    const bool holds =
        verdict.size() > 1 ? found == verdict : answer.agree() && found.starts_with(verdict);
    if (!holds) throw std::runtime_error(printed(row[0]) + ' ' + printed(row[at]) + ' ' + found);
  }
}

/// git calls these work trees broken; the component reads what they point to.
void check_pointer(const Asker& asker, const std::string& pointer) {
  fs::remove_all(asker.top / "work");
  asker.top.write(pointer.empty() ? "work/.git/info/exclude" : "work/git/info/exclude", "a\n");
  if (!pointer.empty()) asker.top.write("work/.git", pointer);
  asker.git("work", "rev-parse --git-dir >../answers 2>&1; test $? = 128");
  if (!IndexScope(asker.top / "work").is_ignored("a")) throw std::runtime_error(printed(pointer));
}

const Texts CHARACTERS = split(
    "a|b|c|a|b|c|a|b|c|A|z|1|.|-|_|!|#| |[|]|^|*|?|:|~|{|$|\t|\u00E9|\u00E4|\u65E5|\uFFFD|\xFF");
const Texts SET_ITEMS = split(
    "]|-|--|[|[:|:]|/|a-c|c-a|.-0|!-~|\\]|\\-|\\\\|a-\\c|[-a|[:alnum:]|[:alpha:]|[:blank:]|"
    "A-C|Z-a|A-z|@-\\B|[:upper:]|[:xdigit:]|[:lower:]|[:punct:]|[:other:]|[:ALPHA:]|[::]|[=a=]|"
    "\u00E9-z|\t- |*|?|a-[:digit:]");
const Texts WILDCARDS = split("*|*|*|*|?|?|?|\\|**|**|**|**|***|/|//|\\/|**/|/**|/**/|*/|/*");
const Texts ODD_LINES = split(
    "|#| |!|/|//|!/|\\|!!a|**|/**|**/|\\!a|\\#a| #a|\\ |[|!#|*/|*/**|/*|!*|!**/|**/**/a|a/**/|[!]");
const Texts TAILS = split(" |  |\\ |\\  |\t| \t|\t |\\|\\\\ |/|/|/|/|/ |// |\\\t|\0a"s);

class Generator {
 public:
  explicit Generator(std::uint64_t seed) : _random(seed) {}

  Case make() {
    Case made{one_of({"plain", "linked", "pointer"}), {}, {}};  // each kind that git knows
    made.ignore_case = chance(2);
    Texts names;
    while (names.size() < 24) {
      names.push_back(name());
      if (chance(4)) names.push_back(in_other_case(names.back()));
    }
    std::set<std::string> directories{""};
    for (std::size_t count = 2 + below(12); count > 0; --count) {
      const std::string above = one_of(Texts(directories.begin(), directories.end()));
      if (std::ranges::count(above, '/') < 5) directories.insert(above + one_of(names) + '/');
    }
    for (const std::string& directory : directories) {
      for (const std::string& child : names) {
        const bool is_directory = directories.contains(directory + child + '/');
        made.questions.push_back(directory + child + (is_directory ? "/" : ""));
      }
    }
    for (const std::string& directory : directories) {
      if (!directory.empty() && !chance(3)) continue;
      Texts inside;  // relative to the directory of the rules
      for (const std::string& path : made.questions) {
        if (path.starts_with(directory)) inside.push_back(path.substr(directory.size()));
      }
      made.files[made.tree + '/' + directory + ".gitignore"] = lines(inside);
    }
    for (const auto* file :
         {"plain/.git/info/exclude", "modules/pointer/info/exclude", "excludes"}) {
      made.files[file] = chance(2) ? lines(made.questions) : std::vector<Line>();
    }
    for (const auto& directory : directories) made.questions.push_back(directory + ".gitignore");
    // In any order: a question may be the first about one directory or about several levels.
    std::ranges::shuffle(made.questions, _random);
    return made;
  }

 private:
  std::size_t below(std::size_t end) { return _random() % end; }
  bool chance(std::size_t one_in) { return below(one_in) == 0; }
  std::string one_of(const Texts& choices) { return choices[below(choices.size())]; }

  std::string in_other_case(std::string text) {
    for (char& byte : text) {
      if (std::isalpha(static_cast<unsigned char>(byte)) != 0 && chance(2)) byte ^= 0x20;
    }
    return text;
  }

  std::string name() {
    std::string made(chance(40) ? 26 + below(10) : 0, 'a');  // about the longest indexed whole
    for (std::size_t count = 1 + below(3); count > 0; --count) {
      made += chance(60) ? std::string(1, static_cast<char>(1 + below(255))) : one_of(CHARACTERS);
    }
    // For the component "\" separates directories and a drive letter begins a whole path.
    const bool fits = made.find_first_of("/\\") == std::string::npos && !made.ends_with(':');
    return fits && made != "." && made != ".." ? made : name();
  }

  /// A bracket expression, perhaps a broken one, that often holds `member`.
  std::string set(const std::string& member) {
    std::string made = chance(3) ? one_of({"[!", "[^"}) : "[";
    for (std::size_t count = 1 + below(3); count > 0; --count) {
      made += chance(2) ? member : one_of(chance(3) ? CHARACTERS : SET_ITEMS);
    }
    return chance(15) ? made : made + ']';
  }

  /// A pattern made from a path, so that it is likely to match it.
  std::string pattern(const Texts& paths) {
    std::string made = chance(3) ? one_of({"", name() + '/'}) + name() : one_of(paths);
    while (chance(2) && made.find('/') < made.size() - 1) made.erase(0, made.find('/') + 1);
    for (std::size_t edits = below(5); edits > 0; --edits) {
      std::size_t at = below(made.size() + 1);
      if (chance(3)) at = made.rfind('/', at) + 1;  // npos + 1 is 0
      // In place of a byte, of what is left of the component, or also of the next.
      std::size_t end = chance(2) ? at + 1 : made.find('/', at);
      if (chance(6) && end < made.size()) end = made.find('/', end + 1);
      const std::string byte = made.substr(at, 1);
      made.replace(at, end - at,
                   one_of({set(byte), set(byte), '\\' + byte, one_of(CHARACTERS), one_of(WILDCARDS),
                           one_of(WILDCARDS), one_of(WILDCARDS)}));
    }
    return made;
  }

  std::string line(const Texts& paths) {
    if (chance(40)) return one_of(ODD_LINES);
    std::string made = pattern(paths);
    // A rule that matches everything decides for all others: few of them are enough.
    if (made.find_first_not_of("*?/") == std::string::npos && !chance(30)) return line(paths);
    // What ends a line cannot be in it.
    const auto ends = [](char byte) { return "\n\r\v\f\x1C\x1D\x1E\xC2\xE2"s.find(byte) < 9; };
    std::ranges::replace_if(made, ends, '?');
    if (chance(4)) made.insert(0, 1, '/');
    if (chance(3)) made.insert(0, 1, '!');
    if (chance(7)) made += one_of(TAILS);
    return made;
  }

  std::vector<Line> lines(const Texts& paths) {
    std::vector<Line> made;
    const std::string mark = chance(10) ? "\uFEFF" : "";
    const bool other_case = chance(2);
    for (std::size_t count = chance(30) ? 300 : 1 + below(14); count > 0; --count) {
      const std::string rule = line(paths);
      const std::string text =
          (made.empty() ? mark : "") + (other_case && chance(2) ? in_other_case(rule) : rule);
      const std::string as_text = path_filter::internal::replace_invalid_utf8(text);
      // No "\n" alone behind an empty line: behind a "\r" it would be the half of an end.
      const auto end = text.empty() || chance(12) ? "\r\n" : chance(25) ? one_of(ENDS) : "\n";
      // git drops one mark.
      made.push_back({text + end, (made.empty() ? mark : "") + as_documented(as_text) + '\n'});
    }
    return made;
  }

  std::mt19937_64 _random;
};

/// Asks about all of the case; returns how often each verdict was given.
std::map<std::string, std::size_t> check(const Asker& asker, const Case& asked) {
  std::map<std::string, std::size_t> verdicts;
  const auto answers = asker.ask(asked);
  if (asker.record) asker.record->add(asked, answers, asker.top);
  for (std::size_t at = 0; at < answers.size(); ++at) {
    ++verdicts[letter(answers[at].ours)];
    if (answers[at].agree()) continue;
    std::string tree = "about " + printed(asked.questions[at]) + " in " + asked.tree;
    tree += asked.ignore_case ? ", ignoring case\n" : "\n";
    for (const auto& [file, lines] : asked.files) {
      const std::string in = file.substr(0, file.rfind('/') + 1);  // the rules that can matter
      const bool above = (asked.tree + '/' + asked.questions[at]).starts_with(in);
      if (!above && file.ends_with("/.gitignore")) continue;
      for (const Line& line : lines) tree += file + ": " + printed(line.component) + '\n';
    }
    throw std::runtime_error(tree + "git: " + answers[at].git + "\nours: " + answers[at].ours);
  }
  return verdicts;
}

Texts all_texts(const std::string& characters, std::size_t longest) {
  Texts all{""};
  for (std::size_t at = 0; all[at].size() < longest; ++at) {
    for (const char character : characters) all.push_back(all[at] + character);
  }
  return {all.begin() + 1, all.end()};
}

/// All patterns of up to so many characters, each in a directory of its own.
void check_short_patterns(const Asker& asker) {
  using Row = std::tuple<const char*, std::size_t, const char*, std::size_t, bool>;
  for (const auto& [characters, longest, path_characters, longest_path, ignore_case] :
       {Row{"ab/*?[]!\\-", 3, "ab/", 4, false},   // everything, in short
        Row{"a/*", 7, "a/", 6, false},            // "**" in every position
        Row{"a/*\\", 5, "ab/", 4, false},         // and next to escapes
        Row{"ac[]-!\\", 5, "abc]-!", 1, false},   // bracket expressions
        Row{"aC[]-!\\", 5, "aAbBC]-!", 1, true},  // ignoring case
        Row{"aB/*?\\", 4, "aAbB/", 3, true},      // the same of literals and escapes
        Row{"[:a]", 6, "a:", 1, false},           // and what looks like a class
        Row{"a!# \\/", 4, "a!# ", 2, false}}) {   // marks, blanks and escapes
    Texts paths = all_texts(path_characters, longest_path);
    const bool nested = std::string_view(path_characters).ends_with('/');
    const std::size_t size = longest_path;
    std::erase_if(paths, [&](const std::string& path) {
      const bool holds_others = nested && path.back() != '/' && path.size() < size;
      return path[0] == '/' || path.find("//") != path.npos || holds_others;
    });
    Case asked{"plain", {}, {}, ignore_case};
    for (const std::string& pattern : all_texts(characters, longest)) {
      const std::string in = std::to_string(asked.files.size()) + '/';
      asked.files["plain/" + in + ".gitignore"] = {{pattern, as_documented(pattern)}};
      const std::vector<std::string_view> lines{".", ".", ".", ".", ".", ".", ".", ".", pattern};
      using path_filter::GitIgnoreSpec;
      const auto alone = GitIgnoreSpec::from_lines(std::span(lines).last(1), ignore_case);
      const auto indexed = GitIgnoreSpec::from_lines(lines, ignore_case);
      for (const std::string& path : paths) {
        asked.questions.push_back(in + path);
        if (indexed.check_file(path).include != alone.check_file(path).include) {
          throw std::runtime_error(pattern + " is another in an index, asked about " + path);
        }
      }
    }
    check(asker, asked);
  }
}

}  // namespace

int main(int count, char** arguments) try {
  std::map<std::string, std::uint64_t> options{
      {"--questions", UINT64_MAX}, {"--seconds", 1'000'000}, {"--seed", std::random_device{}()}};
  std::unique_ptr<Record> record;
  path_filter::logger->set_sink([](const path_filter::Warning&) {});
  for (int at = 1; at < count; at += 2) {
    const std::string_view option = arguments[at];
    if (at + 1 < count && option == "--replay") {
      std::ifstream file(arguments[at + 1], std::ios::binary);
      if (!file) throw std::runtime_error("cannot read the record");
      replay(file);
      return 0;
    }
    if (at + 1 < count && option == "--record") {
      record = std::make_unique<Record>();
      record->file.open(arguments[at + 1], std::ios::binary);
      continue;
    }
    if (!options.contains(arguments[at]) || at + 1 == count) {
      std::cerr << "usage: git_differential [--questions N] [--seconds N] [--seed S]"
                   " [--record FILE]\n       git_differential --replay FILE\n";
      return 2;
    }
    options[arguments[at]] = std::stoull(arguments[at + 1]);
  }
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::seconds(options["--seconds"]);
  Asker asker;
  asker.record = std::move(record);
  fs::create_directory_symlink(".git", asker.top / "plain/link");
  check_row(asker, {"ABC", "i- abc"}, false, IGNORE_CASE);
  std::string many = "\u00C4/*B\n\\C\n*Mid*\n";  // enough for an index
  for (int rule = 0; rule < 9; ++rule) many += "no-such-file-as-this-rule-is-about\n";
  check_row(asker, {many, "- \u00E4/b", "i \u00C4/b", "- c", "- C", "i xmIDx", "i xMidx"}, true);
  for (const Texts& row : table()) {
    check_row(asker, row);
    if (row[1].starts_with(' ')) check_row(asker, row, true);
  }
  for (const auto* pointer : {"gitdir:../work/git", "\n gitdir: \tgit \r\n", ""}) {
    check_pointer(asker, pointer);
  }

  check_short_patterns(asker);

  std::cout << "seed " << options["--seed"] << std::endl;
  Generator generator(options["--seed"]);
  std::map<std::string, std::size_t> verdicts;
  std::size_t trees = 0, questions = 0, ignoring_case = 0;
  for (; questions < options["--questions"] && Clock::now() < end; ++trees) {
    const Case made = generator.make();
    for (const auto& [verdict, given] : check(asker, made)) {
      verdicts[verdict] += given;
      questions += given;
      if (made.ignore_case) ignoring_case += given;
    }
  }
  std::cout << questions << " questions about " << trees << " trees, " << ignoring_case
            << " of them ignoring case: " << verdicts["i"] << " ignored by a rule, "
            << verdicts["n"] << " included again, no disagreement\n";
  return 0;
} catch (const std::exception& error) {
  std::cerr << "git_differential: " << error.what() << '\n';
  return 1;
}
