// The extension module path_filter._core: what of the package is C++. It holds conversions
// only, and the docstrings of what it makes; the Python manners (defaults, records) are in
// path_filter/__init__.py.
//
// Python calls the questions without a layer between (functions.h); nanobind makes the types
// and looks after lifetimes. A question holds the interpreter's lock, as letting go of it
// costs more than most questions; where the component waits for the disk, the lock is free
// (LOCK_HOOKS).

#include <nanobind/nanobind.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/string_view.h>

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "python/src/conversions.h"
#include "python/src/functions.h"
#include "python/src/registry_bridge.h"
#include "python/src/sql_registration.h"
#include "utils/git_config/git_config.h"
#include "utils/path_filter/base/blocking.h"
#include "utils/path_filter/base/logger.h"
#include "utils/path_filter/base/quoting.h"
#include "utils/path_filter/index_scope/index_scope.h"
#include "utils/path_filter/index_scope/tree_walk.h"
#include "utils/path_filter/path_rules/path_rules.h"
#include "utils/path_filter/test_code/test_code.h"
#include "utils/path_filter/test_code/test_code_sql.h"

namespace path_filter::python {
namespace {

/// Python raises `error` as soon as it runs again: where what we raise is lost on the way.
void raise_later(nb::python_error error) {
  Py_AddPendingCall(
      [](void* given) {
        const std::unique_ptr<nb::python_error> raised(static_cast<nb::python_error*>(given));
        raised->restore();
        return -1;
      },
      new nb::python_error(std::move(error)));
}

/// In an SQL query, which SQLite runs to its end: sqlite3 replaces what a function raises.
void interrupt_query() {
  try {
    hear_signals();
  } catch (nb::python_error& error) {
    raise_later(std::move(error));
    throw std::runtime_error("interrupted");
  }
}

/// Where the component waits for the disk, the interpreter's lock is free.
constexpr internal::BlockingHooks LOCK_HOOKS{
    .begins = []() -> void* {
      if (!holds_lock()) return nullptr;
      hear_signals();
      return PyEval_SaveThread();
    },
    .ends =
        [](void* begun) noexcept {
          if (begun == nullptr) return;
          run_python([&] { PyEval_RestoreThread(static_cast<PyThreadState*>(begun)); });
        },
    .interrupts =
        [] {
          // Where others use the interpreter, its lock is milliseconds away.
          using Clock = std::chrono::steady_clock;
          constexpr std::chrono::milliseconds BETWEEN{20};
          thread_local Clock::time_point last;
          const auto now = Clock::now();
          if (now - last < BETWEEN) return;
          last = now;
          run_python([] {
            const nb::gil_scoped_acquire hold;
            interrupt_query();
          });
        }};

// --- Decisions ---------------------------------------------------------------------

/// Python's decisions. Those whose reason is fixed are made once for a kind and language, and
/// shared: a question then allocates nothing. Never freed.
struct Decisions {
  nb::object decision_type;
  nb::object exclusions;  // the members of the enum, by the number of the kind

  using ByLanguage = std::unordered_map<std::string, nb::object, TextHash, std::equal_to<>>;
  std::array<ByLanguage, ALL_EXCLUSIONS.size() + 1> shared;  // the first: of indexed files
  // The last one that was asked for: most files are of the language of the file before.
  std::pair<const ByLanguage*, const ByLanguage::value_type*> last{};

  nb::object make(const Decision& decision) const {
    const auto kind = decision.kind();
    const nb::object made_kind =
        kind ? nb::object(exclusions[static_cast<std::size_t>(*kind)]) : nb::none();
    const nb::object language =
        decision.language() ? nb::object(from_utf8(*decision.language())) : nb::none();
    return run_python([&] {
      return decision_type(decision.indexable(), made_kind, from_utf8(decision.reason()), language);
    });
  }

  nb::object operator()(const Decision& decision) {
    const auto kind = decision.kind();
    if (kind == Exclusion::size || kind == Exclusion::language) return make(decision);
    ByLanguage& known = shared[kind ? static_cast<std::size_t>(*kind) + 1 : 0];
    const std::string_view language =
        decision.language() ? std::string_view(*decision.language()) : std::string_view();
    if (last.first == &known && last.second->first == language) return last.second->second;
    auto found = known.find(language);
    if (found == known.end()) found = known.emplace(language, make(decision)).first;
    last = {&known, &*found};
    return found->second;
  }
};

Decisions& decisions() {
  static Decisions& made = *new Decisions;
  return made;
}

/// For Python's search for cycles: the objects that a T holds. CALLBACK may well refer to what
/// owns the T, and is let go of.
template <typename T, nb::object T::*CALLBACK, nb::object T::*... OTHERS>
struct Cycles {
  static int traverse(PyObject* self, visitproc visit, void* arg) {
    Py_VISIT(Py_TYPE(self));
    if (!nb::inst_ready(self)) return 0;
    const T& made = *nb::inst_ptr<T>(self);
    for (PyObject* held : {(made.*CALLBACK).ptr(), (made.*OTHERS).ptr()...}) Py_VISIT(held);
    return 0;
  }
  static int clear(PyObject* self) {
    if (nb::inst_ready(self)) nb::inst_ptr<T>(self)->*CALLBACK = nb::none();
    return 0;
  }
  static inline PyType_Slot slots[] = {{Py_tp_traverse, reinterpret_cast<void*>(traverse)},
                                       {Py_tp_clear, reinterpret_cast<void*>(clear)},
                                       {0, nullptr}};
};

// --- The scope ---------------------------------------------------------------------

std::optional<IndexLimits> to_limits(nb::handle limits) {
  if (limits.is_none()) return std::nullopt;
  std::optional<LanguageSet> languages;
  if (const nb::object names = limits.attr("languages"); !names.is_none()) {
    languages.emplace();
    for (nb::handle name : nb::iter(names)) {
      languages->emplace(std::string_view(TextBytes(name.ptr(), "limits.languages")));
    }
  }
  const auto bytes = to_int64(nb::object(limits.attr("max_file_bytes")).ptr(), "max_file_bytes");
  if (!bytes) fail_type("limits.max_file_bytes", "int", Py_None);
  return IndexLimits(*bytes, std::move(languages));
}

struct Scope {
  nb::object root, limits, excludes_file, ignore_case;  // as they were given
  IndexScope scope;

  Scope(nb::object given_root, nb::object given_limits, nb::object lookup, nb::object case_lookup)
      : root(std::move(given_root)),
        limits(std::move(given_limits)),
        excludes_file(std::move(lookup)),
        ignore_case(std::move(case_lookup)),
        scope(to_path(root, "root"), {.limits = to_limits(limits),
                                      .excludes_file = excludes_file_lookup(),
                                      .ignore_case = to_ignore_case()}) {}

  ExcludesFileLookup excludes_file_lookup() const {
    if (excludes_file.is_none()) return nullptr;
    if (PyCallable_Check(excludes_file.ptr()) == 0) {
      fail_type("excludes_file", "a callable or None", excludes_file.ptr());
    }
    return [this](const std::filesystem::path&) -> std::optional<std::filesystem::path> {
      const nb::object file = run_python([&] { return excludes_file(root); });
      if (file.is_none()) return std::nullopt;
      return to_path(file, "excludes_file()");
    };
  }

  IgnoreCase to_ignore_case() const {
    if (PyBool_Check(ignore_case.ptr()) != 0) return ignore_case.ptr() == Py_True;
    if (PyCallable_Check(ignore_case.ptr()) == 0) {
      fail_type("ignore_case", "bool or a callable", ignore_case.ptr());
    }
    return [this](const std::filesystem::path&) {
      const nb::object ignores = run_python([&] { return ignore_case(root); });
      if (PyBool_Check(ignores.ptr()) == 0) fail_type("ignore_case()", "bool", ignores.ptr());
      return ignores.ptr() == Py_True;
    };
  }

  static PyType_Slot* slots() {
    return Cycles<Scope, &Scope::excludes_file, &Scope::ignore_case, &Scope::root,
                  &Scope::limits>::slots;
  }
};

const Scope& made_scope(PyObject* self) {
  if (!nb::inst_ready(self)) {
    PyErr_SetString(PyExc_TypeError, "IndexScope.__init__ has not been called");
    nb::raise_python_error();
  }
  return *nb::inst_ptr<Scope>(self);
}

const IndexScope& scope_of(PyObject* self) { return made_scope(self).scope; }

/// The entry of a table of attributes that can be read.
template <nb::object Scope::*MEMBER>
constexpr PyGetSetDef attribute(const char* name, const char* documentation) {
  constexpr auto get = [](PyObject* self, void*) noexcept -> PyObject* {
    try {
      return nb::object(made_scope(self).*MEMBER).release().ptr();
    } catch (...) {
      return set_current_exception();
    }
  };
  return {name, get, nullptr, documentation, nullptr};
}

std::array scope_attributes{
    attribute<&Scope::root>("root", "The repository's root, as it was given."),
    attribute<&Scope::limits>("limits", "The configuration's limits, or None."),
};

nb::bool_ to_bool(bool value) { return nb::bool_(value); }

nb::object to_python(const std::optional<IgnoreRule>& rule) {
  if (!rule) return nb::none();
  return nb::make_tuple(to_str(rule->source), rule->line, to_str(rule->pattern));
}

nb::object to_python(const std::optional<std::string>& text) {
  return text ? nb::object(to_str(*text)) : nb::none();
}

constexpr Signature<2> IS_INDEXABLE{"is_indexable", {"rel_path", "size"}, 1, 1};
nb::object is_indexable(PyObject* self, const std::array<PyObject*, 2>& arguments) {
  const PathBytes path(arguments[0], "rel_path");
  const auto size = to_int64(arguments[1], "size");
  return decisions()(scope_of(self).is_indexable(std::string_view(path), {.size = size}));
}

/// A copy, unless it is a tuple: the caller's may change while another thread runs.
nb::tuple copied(PyObject* values, const char* argument) {
  const bool is_one_path = PyUnicode_Check(values) != 0 || PyBytes_Check(values) != 0;
  if (is_one_path || !nb::hasattr(nb::handle(values).type(), "__iter__")) {
    fail_type(argument, "an iterable", values);
  }
  PyObject* made = PySequence_Tuple(values);
  if (made == nullptr) nb::raise_python_error();
  return nb::steal<nb::tuple>(made);
}

constexpr Signature<3> ARE_INDEXABLE{"are_indexable", {"rel_paths", "sizes", "errors"}, 1, 1};
nb::object are_indexable(PyObject* self, const std::array<PyObject*, 3>& arguments) {
  const IndexScope& scope = scope_of(self);
  std::string errors = "raise";
  if (arguments[2] != Py_None) errors = TextBytes(arguments[2], "errors");
  const bool skips = errors == "skip";
  if (!skips && errors != "raise") {
    throw std::invalid_argument("errors: expected 'raise' or 'skip'");
  }
  const nb::tuple paths = copied(arguments[0], "rel_paths");
  const Py_ssize_t count = PyTuple_Size(paths.ptr());
  const bool sized = arguments[1] != Py_None;
  const nb::tuple sizes = sized ? copied(arguments[1], "sizes") : nb::tuple();
  if (sized && PyTuple_Size(sizes.ptr()) != count) {
    PyErr_SetString(PyExc_ValueError, "sizes: there must be as many as rel_paths");
    nb::raise_python_error();
  }
  nb::object made = nb::steal(PyList_New(count));
  if (!made.is_valid()) nb::raise_python_error();
  PyObject_GC_UnTrack(made.ptr());  // a list that others may see has no holes
  for (Py_ssize_t at = 0; at < count; ++at) {
    const auto place = [at] { return "rel_paths[" + std::to_string(at) + "]"; };
    try {
      const PathBytes path(PyTuple_GetItem(paths.ptr(), at), "rel_paths");
      const auto size = sized ? to_int64(PyTuple_GetItem(sizes.ptr(), at), "sizes") : std::nullopt;
      const Decision decision = scope.is_indexable(std::string_view(path), {.size = size});
      PyList_SetItem(made.ptr(), at, decisions()(decision).release().ptr());
    } catch (const std::invalid_argument& error) {  // named like an absolute path
      if (!skips) throw std::invalid_argument(place() + ": " + error.what());
      PyList_SetItem(made.ptr(), at, nb::none().release().ptr());
    } catch (const nb::python_error& error) {
      add_note(error, place());
      throw;
    }
    if (at % 1024 == 1023) {
      const internal::Blocking others_may_run;
    }
  }
  PyObject_GC_Track(made.ptr());
  return made;
}

constexpr Signature<1> IS_IGNORED{"is_ignored", {"rel_path"}};
nb::object is_ignored(PyObject* self, const std::array<PyObject*, 1>& arguments) {
  const PathBytes path(arguments[0], "rel_path");
  return to_bool(scope_of(self).is_ignored(std::string_view(path)));
}

constexpr Signature<1> ADMITS_DIRECTORY{"admits_directory", {"rel_dir"}};
nb::object admits_directory(PyObject* self, const std::array<PyObject*, 1>& arguments) {
  const PathBytes path(arguments[0], "rel_dir");
  return to_bool(scope_of(self).admits_directory(std::string_view(path)));
}

constexpr Signature<1> RELATIVE{"relative", {"path"}};
nb::object relative(PyObject* self, const std::array<PyObject*, 1>& arguments) {
  const PathBytes path(arguments[0], "path");
  return to_python(scope_of(self).relative(std::string_view(path)));
}

constexpr Signature<0> REFRESH{"refresh", {}};
nb::object refresh(PyObject* self, const std::array<PyObject*, 0>&) {
  const_cast<IndexScope&>(scope_of(self)).refresh();
  return nb::none();
}

/// (decision, directory, glob, rule)
constexpr Signature<2> EXPLAIN{"_explain", {"rel_path", "size"}};
nb::object explain(PyObject* self, const std::array<PyObject*, 2>& arguments) {
  const PathBytes path(arguments[0], "rel_path");
  const Explanation explained =
      scope_of(self).explain(std::string_view(path), {.size = to_int64(arguments[1], "size")});
  return nb::make_tuple(decisions()(explained.decision), to_python(explained.directory),
                        to_python(explained.glob), to_python(explained.rule));
}

/// (source, line, pattern)
constexpr Signature<1> DECIDING_IGNORE_RULE{"_deciding_ignore_rule", {"rel_path"}};
nb::object deciding_ignore_rule(PyObject* self, const std::array<PyObject*, 1>& arguments) {
  const PathBytes path(arguments[0], "rel_path");
  return to_python(scope_of(self).deciding_ignore_rule(std::string_view(path)));
}

// --- The walk ----------------------------------------------------------------------

class WalkIterator {
 public:
  WalkIterator(nb::object scope, nb::object on_error)
      : _scope(std::move(scope)),
        _on_error(std::move(on_error)),
        _walk(scope_of(_scope.ptr()).walk(handler())) {}

  nb::str next() {
    // The lock is free while a directory is read: another thread may come here.
    if (_runs) throw nb::value_error("walk already executing");
    if (_ended) throw nb::stop_iteration();
    const Running running(_runs);
    _ended = true;  // unless all goes well
    try {
      if (++_taken % 1024 == 0) hear_signals();
      if (!_at) {
        _at = _walk.begin();
      } else {
        ++*_at;
      }
    } catch (nb::python_error& error) {
      if (!error.matches(PyExc_StopIteration)) throw;
      // As from a generator: it is no end.
      nb::raise_from(error, PyExc_RuntimeError, "walk raised StopIteration");
    }
    if (*_at == _walk.end()) throw nb::stop_iteration();
    _ended = false;
    return to_str(**_at);
  }

  static PyType_Slot* slots() {
    return Cycles<WalkIterator, &WalkIterator::_on_error, &WalkIterator::_scope>::slots;
  }

 private:
  class Running {
   public:
    explicit Running(bool& runs) : _runs(runs) { _runs = true; }
    ~Running() { _runs = false; }
    Running(const Running&) = delete;

   private:
    bool& _runs;
  };

  WalkErrorHandler handler() const {
    if (_on_error.is_none()) return warn_of_unusable_name;
    return [this](const std::filesystem::filesystem_error& error) {
      const nb::object raised = os_error(error);
      run_python([&] { return _on_error(raised); });
    };
  }

  /// A directory that cannot be listed is left out silently; one that could be is not.
  static void warn_of_unusable_name(const std::filesystem::filesystem_error& error) {
    if (error.code() != std::errc::invalid_argument) return;
    const nb::str path = from_path(error.path1());
    const int raised = run_python([&] {
      return PyErr_WarnFormat(PyExc_RuntimeWarning, 1,
                              "%R is left out: it reads as an absolute path", path.ptr());
    });
    if (raised != 0) nb::raise_python_error();
  }

  nb::object _scope, _on_error;
  bool _runs = false;
  bool _ended = false;
  unsigned _taken = 0;
  Walk _walk;
  std::optional<Walk::Iterator> _at;
};

constexpr Signature<1> WALK{"walk", {"on_error"}, 1, 0};
nb::object walk(PyObject* self, const std::array<PyObject*, 1>& arguments) {
  if (arguments[0] != Py_None && PyCallable_Check(arguments[0]) == 0) {
    fail_type("on_error", "a callable or None", arguments[0]);
  }
  return nb::cast(new WalkIterator(nb::borrow(self), nb::borrow(arguments[0])),
                  nb::rv_policy::take_ownership);
}

std::array scope_methods{
    function<IS_INDEXABLE, is_indexable>(
        "is_indexable($self, /, rel_path, *, size=None)\n--\n\n"
        "The Decision on the file at rel_path, relative to the root; size is in bytes."),
    function<ARE_INDEXABLE, are_indexable>(
        "are_indexable($self, /, rel_paths, *, sizes=None, errors='raise')\n--\n\n"
        "What is_indexable answers about each of rel_paths, for less. Of a name that reads as an\n"
        "absolute path the ValueError says which it is; with errors='skip' None stands for it."),
    function<IS_IGNORED, is_ignored>(
        "is_ignored($self, /, rel_path)\n--\n\n"
        "Whether git's ignore rules alone leave out the file at rel_path."),
    function<ADMITS_DIRECTORY, admits_directory>(
        "admits_directory($self, /, rel_dir)\n--\n\n"
        "Whether a walk goes into the directory at rel_dir."),
    function<RELATIVE, relative>(
        "relative($self, /, path)\n--\n\n"
        "The path below the root that an absolute path names; None for the root itself and\n"
        "for what is not below it. Both are compared as text."),
    function<REFRESH, refresh>(
        "refresh($self, /)\n--\n\n"
        "Forgets git's ignore rules and verdicts: the next question reads them again. To be\n"
        "called when an indexing pass begins, and when a .gitignore, an exclude file or git's\n"
        "configuration has changed."),
    function<WALK, walk>(
        "walk($self, /, on_error=None)\n--\n\n"
        "The files below the root, outside the directories that are left out, one at a time\n"
        "as they are taken: nothing is open in between. on_error is told of each directory\n"
        "that cannot be listed, by an OSError. A file that is named like \\x or lies at c:/x.py\n"
        "reads as an absolute path: is_indexable raises ValueError for it. A directory below the\n"
        "root that is named so is left out, with a RuntimeWarning when there is no on_error.\n"
        "One thread at a time takes from a walk."),
    function<EXPLAIN, explain>(""),
    function<DECIDING_IGNORE_RULE, deciding_ignore_rule>(""),
};

// --- Functions of the module ---------------------------------------------------------

constexpr Signature<1> IS_TEST_PATH{"is_test_path", {"path"}};
nb::object is_test_path(PyObject*, const std::array<PyObject*, 1>& arguments) {
  const PathBytes path(arguments[0], "path");
  return to_bool(path_filter::is_test_path(std::string_view(path)));
}

constexpr Signature<2> SHOULD_SKIP_DIRECTORY{
    "should_skip_directory", {"dirname", "parent_path"}, 2, 1};
nb::object should_skip_directory(PyObject*, const std::array<PyObject*, 2>& arguments) {
  const PathBytes name(arguments[0], "dirname");
  if (arguments[1] == Py_None) return to_bool(path_filter::should_skip_directory(name));
  const PathBytes parent(arguments[1], "parent_path");
  return to_bool(path_filter::should_skip_directory(name, std::string_view(parent)));
}

constexpr Signature<1> SHOULD_SKIP_PATH{"should_skip_path", {"path"}};
nb::object should_skip_path(PyObject*, const std::array<PyObject*, 1>& arguments) {
  const PathBytes path(arguments[0], "path");
  return to_bool(path_filter::should_skip_path(std::string_view(path)));
}

constexpr Signature<1> IS_INDEXABLE_PATH{"is_indexable_path", {"path"}};
nb::object is_indexable_path(PyObject*, const std::array<PyObject*, 1>& arguments) {
  const PathBytes path(arguments[0], "path");
  return to_bool(path_filter::is_indexable_path(std::string_view(path)));
}

/// What sqlite3 calls: with a str, bytes, a number or None. sqlite3 says no more than that a
/// function failed, so what it was is put on record.
constexpr Signature<1> SQL_IS_TEST_PATH{"_sql_is_test_path", {"path"}};
nb::object sql_is_test_path(PyObject* module, const std::array<PyObject*, 1>& arguments) {
  PyObject* argument = arguments[0];
  static unsigned calls = 0;
  if (++calls % 1024 == 0) interrupt_query();
  try {
    if (argument == Py_None) return nb::int_(_sql_is_test_path(std::nullopt) ? 1 : 0);
    if (PyBytes_Check(argument) != 0) {
      return nb::int_(_sql_is_test_path(view_of_bytes(argument)) ? 1 : 0);
    }
    if (PyUnicode_Check(argument) == 0) fail_type("path", "text, a blob or NULL", argument);
    return nb::int_(_sql_is_test_path(TextBytes(argument, "path")) ? 1 : 0);
  } catch (...) {
    const nb::object function = nb::handle(module).attr("_sql_is_test_path");
    set_current_exception();
    PyObject *type = nullptr, *value = nullptr, *trace = nullptr;
    PyErr_Fetch(&type, &value, &trace);
    PyErr_Restore(nb::borrow(type).release().ptr(), nb::borrow(value).release().ptr(),
                  nb::borrow(trace).release().ptr());
    PyErr_WriteUnraisable(function.ptr());
    PyErr_Restore(type, value, trace);
    nb::raise_python_error();
  }
}

nb::object sql_condition(const nb::str& alias, bool exclude, const nb::str& via) {
  const TextBytes alias_text(alias.ptr(), "alias"), via_text(via.ptr(), "via");
  return from_utf8(sql_test_path_filter(alias_text, {.exclude = exclude, .via = via_text}).sql);
}

/// The size limit that a value of the configuration gives, whatever its type; absent for one
/// that is no text and no number, too.
std::optional<std::int64_t> configured_bytes(nb::handle size) {
  try {
    if (PyUnicode_Check(size.ptr()) != 0) {
      return internal::configured_bytes(
          {std::string(std::string_view(TextBytes(size.ptr(), "size")))});
    }
    const double number = run_python([&] { return PyFloat_AsDouble(size.ptr()); });
    if (PyErr_Occurred() != nullptr) nb::raise_python_error();
    return internal::configured_bytes({number});
  } catch (const nb::python_error& error) {
    if (!error.matches(PyExc_Exception)) throw;
    return std::nullopt;
  }
}

nb::object configured_languages(const nb::list& names) {
  std::vector<std::string> texts;
  for (nb::handle name : names) {
    texts.emplace_back(std::string_view(TextBytes(name.ptr(), "index.languages")));
  }
  const auto languages = internal::configured_languages(texts);
  return languages ? nb::object(nb::frozenset(listed(*languages))) : nb::none();
}

void set_records(nb::object decision, nb::object exclusions) {
  decisions().last = {};
  decisions().shared = {};
  decisions().decision_type = std::move(decision);
  decisions().exclusions = std::move(exclusions);
}

/// What git is told, as git_config says; git runs meanwhile.
nb::object git_settings(nb::handle root, nb::handle warn) {
  const auto lookups = git_config::lookups([&](std::string_view problem) {
    const nb::gil_scoped_acquire hold;
    if (!warn.is_none()) run_python([&] { return nb::object(warn(to_str(problem))); });
  });
  const std::filesystem::path directory = to_path(root, "root");
  bool ignores_case = false;
  const auto file = [&] {
    const internal::Blocking waits;
    ignores_case = lookups.ignore_case(directory);
    return lookups.excludes_file(directory);
  }();
  return nb::make_tuple(file ? nb::object(from_path(*file)) : nb::none(), ignores_case);
}

void set_sink(nb::object given) {
  if (given.is_none()) return logger->set_sink(nullptr);
  // Never freed: a warning may come until the very end.
  const nb::handle sink = given.release();
  logger->set_sink([sink](const Warning& warning) {
    const nb::gil_scoped_acquire hold;
    nb::list values;
    for (const Warning::Argument& argument : warning.arguments) {
      const auto* number = std::get_if<std::int64_t>(&argument);
      values.append(number != nullptr ? nb::object(nb::int_(*number))
                                      : to_str(std::get<std::string_view>(argument)));
    }
    run_python([&] { return sink(to_str(warning.format), nb::tuple(values)); });
  });
}

std::array functions{
    function<IS_TEST_PATH, is_test_path>(
        "is_test_path($module, /, path)\n--\n\n"
        "Whether path is test code: of a code language, and named like a test of that language\n"
        "or in a test directory. Only the text is looked at."),
    function<SHOULD_SKIP_DIRECTORY, should_skip_directory>(
        "should_skip_directory($module, /, dirname, parent_path=None)\n--\n\n"
        "Whether the indexer skips the directory dirname (one name) that lies in parent_path."),
    function<SHOULD_SKIP_PATH, should_skip_path>(
        "should_skip_path($module, /, path)\n--\n\n"
        "Whether any component of path is skipped, its last one included."),
    function<IS_INDEXABLE_PATH, is_indexable_path>("is_indexable_path($module, /, path)\n--\n\n"
                                                   "Whether no component of path is skipped."),
    function<SQL_IS_TEST_PATH, sql_is_test_path>(""),
};

}  // namespace

NB_MODULE(core, module) {
  module.inc_ref();  // never freed, nor what nanobind keeps for it: scopes may outlive it
  internal::blocking_hooks.store(&LOCK_HOOKS, std::memory_order_release);
  nb::set_leak_warnings(false);  // shared decisions live as long as the process
  nb::register_exception_translator([](const std::exception_ptr& thrown, void*) {
    try {
      std::rethrow_exception(thrown);
    } catch (const std::exception&) {
      set_current_exception();
    }
  });
  add_functions(module, functions);
  const auto optional = nb::arg().none();
  module.def("ask_languages", &ask_languages)
      .def("bind_registry", &bind_registry)
      .def("configured_bytes", &configured_bytes, optional)
      .def("configured_languages", &configured_languages)
      .def("git_settings", &git_settings, nb::arg("root"), nb::arg("warn").none())
      .def("printable",
           [](nb::handle path) {
             return to_str(internal::printable(PathBytes(path.ptr(), "path")));
           })
      .def("register_with_sqlite", &register_with_sqlite)
      .def("set_records", &set_records)
      .def("set_sink", &set_sink, optional)
      .def("sql_condition", &sql_condition)
      .def("tier_of", [](const nb::str& language) {
        return from_utf8(language_registry::tier_of(TextBytes(language.ptr(), "language")));
      });

  module.attr("VERSION") = PATH_FILTER_VERSION;
  module.attr("ALWAYS_SKIP_DIRS") = nb::frozenset(listed(ALWAYS_SKIP_DIRS));
  module.attr("ALLOWED_HIDDEN_DIRS") = nb::frozenset(listed(ALLOWED_HIDDEN_DIRS));
  module.attr("GITHUB_ALLOWED_SUBDIRS") = nb::frozenset(listed(GITHUB_ALLOWED_SUBDIRS));
  module.attr("MINIFIED_FILE_GLOBS") = nb::tuple(listed(MINIFIED_FILE_GLOBS));
  module.attr("SQL_TEST_PATH_FN") = SQL_TEST_PATH_FN;
  module.attr("DEFAULT_MAX_FILE_SIZE_MB") = DEFAULT_MAX_FILE_SIZE_MB;
  module.attr("INDEX_DATA_DIR") = INDEX_DATA_DIR;
  module.attr("IGNORE_FILE_NAME") = IGNORE_FILE_NAME;
  module.attr("UNUSABLE_SIZE_WARNING") = internal::UNUSABLE_SIZE_WARNING;

  // The module may be loaded anew, once it is removed from sys.modules: the types stay.
  if (nb::type<Scope>().is_valid()) {
    module.attr("Scope") = nb::type<Scope>();
    module.attr("Walk") = nb::type<WalkIterator>();
    return;
  }
  nb::class_<WalkIterator>(module, "Walk", nb::type_slots(WalkIterator::slots()), nb::is_final())
      .def("__iter__", [](nb::handle self) { return nb::borrow(self); })
      .def("__next__", &WalkIterator::next);

  auto scope = nb::class_<Scope>(module, "Scope", nb::type_slots(Scope::slots()),
                                 nb::is_weak_referenceable());
  scope.def(nb::init<nb::object, nb::object, nb::object, nb::object>(), nb::arg("root").none(),
            nb::arg("limits").none(), nb::arg("excludes_file").none(), nb::arg("ignore_case"));
  auto* const type = reinterpret_cast<PyTypeObject*>(scope.ptr());
  for (PyGetSetDef& entry : scope_attributes) {
    scope.attr(entry.name) = nb::steal(PyDescr_NewGetSet(type, &entry));
  }
  for (PyMethodDef& method : scope_methods) {
    scope.attr(method.ml_name) = nb::steal(PyDescr_NewMethod(type, &method));
  }
}

extern "C" NB_EXPORT PyObject* PyInit__core() { return main_interpreter_only(PyInit_core()); }

}  // namespace path_filter::python
