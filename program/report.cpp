#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <system_error>

#include "program/commands.h"
#include "program/decider.h"
#include "program/output.h"
#include "program/report/page.h"
#include "program/report/tree.h"
#include "program/repository.h"
#include "program/survey.h"
#include "utils/path_filter/base/file_system.h"

namespace program {

using path_filter::Exclusion;
using path_filter::Explanation;
using path_filter::internal::FileDescriptor;

namespace {

report::Verdict verdict_of(Exclusion kind) {
  return static_cast<report::Verdict>(2 + static_cast<unsigned>(kind));
}

/// `plain` with other texts for some characters.
std::string escaped(std::string_view plain, const std::map<char, std::string_view>& escapes) {
  std::string text;
  text.reserve(plain.size());
  for (const char character : plain) {
    const auto escape = escapes.find(character);
    escape == escapes.end() ? text += character : text += escape->second;
  }
  return text;
}

/// What only the page itself can know, so that nothing else that gets into it can run.
std::string nonce() {
  std::random_device random;
  std::array<char, 33> digits{};
  std::snprintf(digits.data(), digits.size(), "%08x%08x%08x%08x", random(), random(), random(),
                random());
  return digits.data();
}

/// `pattern` with the parts in place of their names in double braces.
std::string filled(std::string_view pattern,
                   const std::map<std::string_view, std::string_view>& parts) {
  std::string text;
  for (std::size_t begin; (begin = pattern.find("{{")) != pattern.npos;) {
    const std::size_t end = pattern.find("}}", begin);
    text += pattern.substr(0, begin);
    text += parts.at(pattern.substr(begin + 2, end - begin - 2));
    pattern.remove_prefix(end + 2);
  }
  return text += pattern;
}

std::string now() {
  const std::time_t time = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm parts{};
  ::gmtime_r(&time, &parts);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M UTC", &parts);
  return text.data();
}

/// The file that a page goes to. One that is there keeps its mode, its owner and all links to it.
class PageFile {
 public:
  /// Throws std::system_error at once when the page could not be written later.
  explicit PageFile(const std::string& file)
      : _file(file), _target(file), _opened(::open(file.c_str(), O_WRONLY | O_CLOEXEC)) {
    if (is_open()) return;
    if (errno != ENOENT) throw failure();
    while (is_symlink(_target)) _target = _target.parent_path() / read_symlink(_target);
    _directory = _target.has_parent_path() ? _target.parent_path() : ".";
    if (::access(_directory.c_str(), W_OK | X_OK) != 0) throw failure();
  }

  int number() const { return _opened.number(); }

  /// Writes the page. When there is no room for it all is as it was. Throws std::system_error.
  void write(std::string_view page) const { is_open() ? overwrite(page) : create(page); }

 private:
  bool is_open() const { return _opened.is_open(); }

  std::system_error failure() const {
    return {errno, std::generic_category(), "cannot write " + printable(_file)};
  }

  void overwrite(std::string_view page) const {
    struct stat status {};
    const bool is_regular = ::fstat(number(), &status) == 0 && S_ISREG(status.st_mode);
    const auto size = static_cast<off_t>(page.size());
    int code = is_regular ? ::posix_fallocate(number(), 0, size) : 0;
    if (code < 0) code = errno;  // of zig's C library
    if (code != 0 && code != EINVAL && code != EOPNOTSUPP) {  // not every file system can tell
      if (::ftruncate(number(), status.st_size) == 0) errno = code;
      throw failure();
    }
    if (!write_all(number(), page)) throw failure();
    if (is_regular && ::ftruncate(number(), size) != 0) throw failure();
  }

  void create(std::string_view page) const {
#if defined(O_TMPFILE) && !defined(PATH_FILTER_POSIX_ONLY)
    // It has no name until it is whole: nothing is left of it when the program is killed.
    const FileDescriptor nameless(
        ::open(_directory.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666));
    if (nameless.is_open()) {
      if (!write_all(nameless.number(), page)) throw failure();
      const std::string link = "/proc/self/fd/" + std::to_string(nameless.number());
      if (::linkat(AT_FDCWD, link.c_str(), AT_FDCWD, _target.c_str(), AT_SYMLINK_FOLLOW) == 0) {
        return;
      }
    }
#endif
    const FileDescriptor named(
        ::open(_target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!named.is_open()) throw failure();
    if (write_all(named.number(), page)) return;
    const std::system_error problem = failure();
    ::unlink(_target.c_str());
    throw problem;
  }

  std::string _file;
  std::filesystem::path _target;  // where links at the end of it lead
  std::filesystem::path _directory;
  FileDescriptor _opened;  // not of one that is to be made
};

/// What decided about a file that is left out, where that is more than its name and kind.
std::string decider_of(const SurveyedFile& file, const Repository& repository) {
  if (file.decision || file.decision.kind() == Exclusion::unknown_language) return "";
  const Explanation asked = repository.explain(file.path, {.size = file.size});
  // A walk does not take a "\\" in a name for a way through a link: there it may differ.
  if (asked.decision != file.decision || asked.directory) return "";
  return decider(asked, file.path, repository.scope);
}

std::string decider_of(const PrunedDirectory& directory, const Repository& repository) {
  if (directory.kind != Exclusion::gitignore) return "";
  const auto excluded = repository.exclusion_of_directory(directory.path);
  return excluded && excluded->rule ? decider(*excluded, directory.path, repository.scope) : "";
}

}  // namespace

int write_report(const ReportOptions& options) {
  if (report::LIBRARY.empty()) {
    throw UsageError("this path-filter was built without 'report': d3-hierarchy was missing");
  }
  if (options.file && options.file->empty()) {
    throw UsageError("report: --output: '' is no name of a file");
  }
  std::optional<PageFile> target;
  if (options.file && *options.file != "-") target.emplace(*options.file);
  if (::isatty(target ? target->number() : STDOUT_FILENO) == 1) {
    throw UsageError(
        "report: a page is no text for a terminal\nTry 'path-filter report -o report.html'.");
  }
  const Place place = find_place(options.settings.directory, options.settings.root);
  const Repository repository(place.root, read_limits(options.settings));
  report::Tree tree(place.below);
  const int status = survey(
      repository, place,
      {.on_file =
           [&](const SurveyedFile& file) {
             const report::Verdict verdict =
                 file.decision ? report::Verdict{file.is_test} : verdict_of(*file.decision.kind());
             tree.add(file.path, report::Form::file, verdict,
                      file.decision.language() ? std::string_view(*file.decision.language()) : "",
                      decider_of(file, repository), {1, file.bytes()});
           },
       .on_pruned =
           [&](const PrunedDirectory& directory) {
             tree.add(directory.path, report::Form::pruned_directory, verdict_of(directory.kind),
                      "", decider_of(directory, repository), directory.count);
           }});
  tree.fit();
  Json data = tree.json();
  data["verdicts"][0]["reason"] = data["verdicts"][1]["reason"] = "indexed";
  for (const auto& [kind, reason] : path_filter::internal::REASONS) {
    data["verdicts"][verdict_of(kind)]["reason"] = reason;
  }
  data["verdicts"][verdict_of(Exclusion::size)]["reason"] = "larger than the limit";
  data["verdicts"][verdict_of(Exclusion::language)]["reason"] =
      "of a language that is not asked for";
  data["root"] = column(place.root.filename().native());
  data["below"] = column(place.below);
  data["made"] = now();
  data["version"] = PATH_FILTER_VERSION;
  data["complete"] = status == 0;

  const std::string secret = nonce();
  // Nothing in it ends the element of the page that it stands in.
  const std::string json =
      escaped(data.dump(-1, ' ', false, Json::error_handler_t::replace), {{'<', "\\u003c"}});
  const std::string notice = escaped(report::LIBRARY_NOTICE, {{'<', "&lt;"}, {'&', "&amp;"}});
  const std::string page = filled(report::PAGE, {{"nonce", secret},
                                                 {"style", report::STYLE},
                                                 {"data", json},
                                                 {"library", report::LIBRARY},
                                                 {"notice", notice},
                                                 {"script", report::SCRIPT}});
  if (target) {
    target->write(page);
  } else {
    Output output;
    output << page;
    output.flush();
  }
  return status;
}

}  // namespace program
