// The extension module path_filter._core: what of the package is C++. It holds conversions
// only; the Python manners (defaults, records, docstrings of the package) are in
// path_filter/__init__.py.
//
// The questions that are asked of every file are called by Python without a layer between
// (METH_FASTCALL); all else goes through nanobind. A question holds the interpreter's lock,
// as letting go of it costs more than most questions; where the component waits for the
// disk, the lock is free (blocking_begins).

#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/string_view.h>

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "python/src/conversions.h"
#include "python/src/registry_bridge.h"
#include "utils/path_filter/index_scope.h"
#include "utils/path_filter/internal/blocking.h"
#include "utils/path_filter/logger.h"
#include "utils/path_filter/path_rules.h"
#include "utils/path_filter/test_code.h"
#include "utils/path_filter/test_code_sql.h"
#include "utils/path_filter/tree_walk.h"

namespace path_filter::internal {

void* blocking_begins() noexcept { return PyGILState_Check() != 0 ? PyEval_SaveThread() : nullptr; }

void blocking_ends(void* begun) noexcept {
  if (begun != nullptr) PyEval_RestoreThread(static_cast<PyThreadState*>(begun));
}

}  // namespace path_filter::internal

namespace path_filter::python {
namespace {

// --- Arguments of the functions that Python calls directly -------------------------

/// The arguments of one call, by the names of `Names`: the first `positional` may be given by
/// position, the first is required.
template <std::size_t Count>
struct Arguments {
  std::array<PyObject*, Count> values{};

  /// Throws TypeError, as a function of Python's would raise it.
  Arguments(const char* function, const std::array<const char*, Count>& names,
            std::size_t positional, PyObject* const* given, Py_ssize_t given_count,
            PyObject* keywords) {
    const auto count = static_cast<std::size_t>(given_count);
    if (count > positional) {
      PyErr_Format(PyExc_TypeError, "%s() takes %zu positional argument%s but %zu were given",
                   function, positional, positional == 1 ? "" : "s", count);
      nb::raise_python_error();
    }
    for (std::size_t at = 0; at < count; ++at) values[at] = given[at];
    const Py_ssize_t by_name = keywords == nullptr ? 0 : PyTuple_GET_SIZE(keywords);
    for (Py_ssize_t at = 0; at < by_name; ++at) {
      PyObject* keyword = PyTuple_GET_ITEM(keywords, at);
      std::size_t place = 0;
      while (place < Count && PyUnicode_CompareWithASCIIString(keyword, names[place]) != 0) ++place;
      if (place == Count || values[place] != nullptr) {
        PyErr_Format(PyExc_TypeError,
                     place == Count ? "%s() got an unexpected keyword argument '%U'"
                                    : "%s() got multiple values for argument '%U'",
                     function, keyword);
        nb::raise_python_error();
      }
      values[place] = given[given_count + at];
    }
    if (values[0] == nullptr) {
      PyErr_Format(PyExc_TypeError, "%s() missing 1 required positional argument: '%s'", function,
                   names[0]);
      nb::raise_python_error();
    }
  }
};

// --- Decisions ---------------------------------------------------------------------

struct Hash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const noexcept {
    return std::hash<std::string_view>{}(text);
  }
};

/// Python's decisions. Those whose reason is fixed are made once for a kind and language, and
/// shared: a question then allocates nothing. Never freed.
struct Decisions {
  nb::object decision_type;
  nb::object exclusions;  // the members of the enum, by the number of the kind

  using ByLanguage = std::unordered_map<std::string, nb::object, Hash, std::equal_to<>>;
  std::array<ByLanguage, ALL_EXCLUSIONS.size() + 1> shared;  // the first: of indexed files

  nb::object make(const Decision& decision) const {
    const auto kind = decision.kind();
    return decision_type(
        decision.indexable(), kind ? exclusions[static_cast<std::size_t>(*kind)] : nb::none(),
        to_str(decision.reason()),
        decision.language() ? nb::object(to_str(*decision.language())) : nb::none());
  }

  nb::object operator()(const Decision& decision) {
    const auto kind = decision.kind();
    if (kind == Exclusion::size || kind == Exclusion::language) return make(decision);
    ByLanguage& known = shared[kind ? static_cast<std::size_t>(*kind) + 1 : 0];
    const std::string_view language =
        decision.language() ? std::string_view(*decision.language()) : std::string_view();
    const auto found = known.find(language);
    if (found != known.end()) return found->second;
    return known.emplace(language, make(decision)).first->second;
  }
};

Decisions& decisions() {
  static Decisions& made = *new Decisions;
  return made;
}

// --- The scope ---------------------------------------------------------------------

std::filesystem::path to_path(nb::handle object, const char* argument) {
  return std::string(PathBytes(object.ptr(), argument));
}

std::optional<IndexLimits> to_limits(nb::handle limits) {
  if (limits.is_none()) return std::nullopt;
  std::optional<LanguageSet> languages;
  if (const nb::object names = limits.attr("languages"); !names.is_none()) {
    languages.emplace();
    for (nb::handle name : nb::iter(names)) {
      languages->emplace(std::string_view(PathBytes(name.ptr(), "limits.languages")));
    }
  }
  const auto bytes = to_int64(nb::object(limits.attr("max_file_bytes")).ptr(), "max_file_bytes");
  if (!bytes) fail_type("limits.max_file_bytes", "int", Py_None);
  return IndexLimits(*bytes, std::move(languages));
}

struct Scope {
  nb::object root, limits, excludes_file;  // as they were given
  IndexScope scope;

  Scope(nb::object given_root, nb::object given_limits, nb::object lookup)
      : root(std::move(given_root)),
        limits(std::move(given_limits)),
        excludes_file(std::move(lookup)),
        scope(to_path(root, "root"),
              {.limits = to_limits(limits), .excludes_file = excludes_file_lookup()}) {}

  ExcludesFileLookup excludes_file_lookup() const {
    if (excludes_file.is_none()) return nullptr;
    if (PyCallable_Check(excludes_file.ptr()) == 0) {
      fail_type("excludes_file", "a callable or None", excludes_file.ptr());
    }
    return [this](const std::filesystem::path&) -> std::optional<std::filesystem::path> {
      const nb::object file = excludes_file(root);
      if (file.is_none()) return std::nullopt;
      return to_path(file, "excludes_file()");
    };
  }

  // For Python's search for cycles: a lookup may well refer to what owns the scope.
  static int traverse(PyObject* self, visitproc visit, void* arg) {
    Py_VISIT(Py_TYPE(self));
    if (!nb::inst_ready(self)) return 0;
    const Scope& made = *nb::inst_ptr<Scope>(self);
    Py_VISIT(made.root.ptr());
    Py_VISIT(made.limits.ptr());
    Py_VISIT(made.excludes_file.ptr());
    return 0;
  }
  static int clear(PyObject* self) {
    if (nb::inst_ready(self)) nb::inst_ptr<Scope>(self)->excludes_file = nb::none();
    return 0;
  }
};

const IndexScope& scope_of(PyObject* self) {
  if (!nb::inst_ready(self)) {
    PyErr_SetString(PyExc_TypeError, "IndexScope.__init__ has not been called");
    nb::raise_python_error();
  }
  return nb::inst_ptr<Scope>(self)->scope;
}

PyObject* is_indexable(PyObject* self, PyObject* const* given, Py_ssize_t count,
                       PyObject* keywords) noexcept {
  try {
    const Arguments<2> arguments("is_indexable", {"rel_path", "size"}, 1, given, count, keywords);
    const PathBytes path(arguments.values[0], "rel_path");
    const auto size = to_int64(arguments.values[1], "size");
    return decisions()(scope_of(self).is_indexable(std::string_view(path), {.size = size}))
        .release()
        .ptr();
  } catch (...) {
    return set_current_exception();
  }
}

PyObject* is_ignored(PyObject* self, PyObject* const* given, Py_ssize_t count,
                     PyObject* keywords) noexcept {
  try {
    const Arguments<1> arguments("is_ignored", {"rel_path"}, 1, given, count, keywords);
    const PathBytes path(arguments.values[0], "rel_path");
    return PyBool_FromLong(scope_of(self).is_ignored(std::string_view(path)));
  } catch (...) {
    return set_current_exception();
  }
}

PyObject* admits_directory(PyObject* self, PyObject* const* given, Py_ssize_t count,
                           PyObject* keywords) noexcept {
  try {
    const Arguments<1> arguments("admits_directory", {"rel_dir"}, 1, given, count, keywords);
    const PathBytes path(arguments.values[0], "rel_dir");
    return PyBool_FromLong(scope_of(self).admits_directory(std::string_view(path)));
  } catch (...) {
    return set_current_exception();
  }
}

/// The decisions on many paths, for one call.
nb::list are_indexable(const Scope& scope, nb::object rel_paths, nb::object sizes) {
  // Copies: the caller's may change while another thread runs.
  const auto copied = [](const nb::object& values, const char* argument) {
    if (PyUnicode_Check(values.ptr()) != 0 || !nb::hasattr(values.type(), "__iter__")) {
      fail_type(argument, "an iterable", values.ptr());
    }
    return nb::tuple(values);
  };
  const nb::tuple paths = copied(rel_paths, "rel_paths");
  const nb::tuple numbers = sizes.is_none() ? nb::tuple() : copied(sizes, "sizes");
  if (!sizes.is_none() && nb::len(numbers) != nb::len(paths)) {
    throw nb::value_error("sizes: there must be as many as rel_paths");
  }
  nb::list made = nb::steal<nb::list>(PyList_New(static_cast<Py_ssize_t>(nb::len(paths))));
  if (!made.is_valid()) nb::raise_python_error();
  for (std::size_t at = 0; at < nb::len(paths); ++at) {
    const auto place = static_cast<Py_ssize_t>(at);
    const PathBytes path(PyTuple_GET_ITEM(paths.ptr(), place), "rel_paths");
    const auto size =
        sizes.is_none() ? std::nullopt : to_int64(PyTuple_GET_ITEM(numbers.ptr(), place), "sizes");
    nb::object decision =
        decisions()(scope.scope.is_indexable(std::string_view(path), {.size = size}));
    PyList_SET_ITEM(made.ptr(), place, decision.release().ptr());
  }
  return made;
}

nb::object to_python(const std::optional<IgnoreRule>& rule) {
  if (!rule) return nb::none();
  return nb::make_tuple(to_str(rule->source), rule->line, to_str(rule->pattern));
}

nb::object to_python(const std::optional<std::string>& text) {
  return text ? nb::object(to_str(*text)) : nb::none();
}

/// (decision, directory, glob, rule)
nb::tuple explain(const Scope& scope, nb::handle rel_path, nb::handle size) {
  const PathBytes path(rel_path.ptr(), "rel_path");
  const Explanation explained =
      scope.scope.explain(std::string_view(path), {.size = to_int64(size.ptr(), "size")});
  return nb::make_tuple(decisions()(explained.decision), to_python(explained.directory),
                        to_python(explained.glob), to_python(explained.rule));
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
    if (!_at) {
      _at = _walk.begin();
    } else {
      ++*_at;
    }
    if (*_at == _walk.end()) throw nb::stop_iteration();
    _ended = false;
    return to_str(**_at);
  }

  static int traverse(PyObject* self, visitproc visit, void* arg) {
    Py_VISIT(Py_TYPE(self));
    if (!nb::inst_ready(self)) return 0;
    const auto& made = *nb::inst_ptr<WalkIterator>(self);
    Py_VISIT(made._scope.ptr());
    Py_VISIT(made._on_error.ptr());
    return 0;
  }

  static int clear(PyObject* self) {
    if (nb::inst_ready(self)) nb::inst_ptr<WalkIterator>(self)->_on_error = nb::none();
    return 0;
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
    if (_on_error.is_none()) return nullptr;
    if (PyCallable_Check(_on_error.ptr()) == 0) {
      fail_type("on_error", "a callable or None", _on_error.ptr());
    }
    return [this](const std::filesystem::filesystem_error& error) {
      const nb::gil_scoped_acquire hold;
      _on_error(os_error(error.code().value(), error.code().message(), error.path1().native()));
    };
  }

  nb::object _scope, _on_error;
  bool _runs = false;
  bool _ended = false;
  Walk _walk;
  std::optional<Walk::Iterator> _at;
};

// --- Test code ---------------------------------------------------------------------

PyObject* is_test_path_(PyObject*, PyObject* const* given, Py_ssize_t count,
                        PyObject* keywords) noexcept {
  try {
    const Arguments<1> arguments("is_test_path", {"path"}, 1, given, count, keywords);
    return PyBool_FromLong(is_test_path(std::string_view(PathBytes(arguments.values[0], "path"))));
  } catch (...) {
    return set_current_exception();
  }
}

/// What sqlite3 calls: with a str, bytes, a number or None. sqlite3 says no more than that a
/// function failed, so what it was is put on record.
PyObject* sql_is_test_path(PyObject* self, PyObject* argument) noexcept {
  try {
    if (argument == Py_None) return PyLong_FromLong(_sql_is_test_path(std::nullopt));
    if (PyBytes_Check(argument) != 0) {
      const std::string_view bytes(PyBytes_AS_STRING(argument),
                                   static_cast<std::size_t>(PyBytes_GET_SIZE(argument)));
      return PyLong_FromLong(_sql_is_test_path(bytes));
    }
    if (PyUnicode_Check(argument) == 0) fail_type("path", "text, a blob or NULL", argument);
    return PyLong_FromLong(_sql_is_test_path(PathBytes(argument, "path")));
  } catch (...) {
    set_current_exception();
    PyObject *type = nullptr, *value = nullptr, *trace = nullptr;
    PyErr_Fetch(&type, &value, &trace);
    Py_XINCREF(type);
    Py_XINCREF(value);
    Py_XINCREF(trace);
    PyErr_Restore(type, value, trace);
    PyErr_WriteUnraisable(self);
    PyErr_Restore(type, value, trace);
    return nullptr;
  }
}

template <typename Function>
PyCFunction direct(Function function) {
  return reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(function));
}

constexpr int BY_NAME_TOO = METH_FASTCALL | METH_KEYWORDS;

PyMethodDef scope_methods[] = {
    {"is_indexable", direct(is_indexable), BY_NAME_TOO,
     "is_indexable($self, rel_path, *, size=None)\n--\n\n"
     "The Decision on the file at rel_path, relative to the root; size is in bytes."},
    {"is_ignored", direct(is_ignored), BY_NAME_TOO,
     "is_ignored($self, rel_path)\n--\n\n"
     "Whether git's ignore rules alone leave out the file at rel_path."},
    {"admits_directory", direct(admits_directory), BY_NAME_TOO,
     "admits_directory($self, rel_dir)\n--\n\n"
     "Whether a walk goes into the directory at rel_dir."},
};

PyMethodDef functions[] = {
    {"is_test_path", direct(is_test_path_), BY_NAME_TOO,
     "is_test_path(path)\n--\n\n"
     "Whether path is test code: of a code language, and named like a test of that language\n"
     "or in a test directory. Only the text is looked at."},
    {"_sql_is_test_path", sql_is_test_path, METH_O,
     "What the SQL function answers, from the memo of the process."},
    {nullptr, nullptr, 0, nullptr},
};

}  // namespace

NB_MODULE(_core, module) {
#if PY_VERSION_HEX < 0x030C0000
  // From 3.12 on Python asks the module itself and refuses in our place.
  if (PyInterpreterState_Get() != PyInterpreterState_Main()) {
    throw nb::import_error("path_filter works in the main interpreter only");
  }
#endif
  nb::set_leak_warnings(false);  // shared decisions live as long as the process
  nb::register_exception_translator([](const std::exception_ptr& thrown, void*) {
    try {
      std::rethrow_exception(thrown);
    } catch (const std::system_error&) {
      set_current_exception();
    }
  });

  module.def("bind_registry", &bind_registry, nb::arg().none());
  module.def("set_records", [](nb::object decision, nb::object exclusions) {
    decisions().decision_type = std::move(decision);
    decisions().exclusions = std::move(exclusions);
  });
  module.def(
      "set_sink",
      [](nb::object sink) {
        if (sink.is_none()) {
          logger->set_sink(nullptr);
          return;
        }
        // Never freed: a warning may come until the very end.
        const nb::handle kept = sink.release();
        logger->set_sink([kept](const Warning& warning) {
          const nb::gil_scoped_acquire hold;
          nb::list arguments;
          for (const Warning::Argument& argument : warning.arguments) {
            if (const auto* number = std::get_if<std::int64_t>(&argument)) {
              arguments.append(*number);
            } else {
              arguments.append(to_str(std::get<std::string_view>(argument)));
            }
          }
          kept(to_str(warning.format), nb::tuple(arguments));
        });
      },
      nb::arg().none());

  module.def(
      "should_skip_directory",
      [](nb::handle dirname, nb::handle parent_path) {
        const PathBytes name(dirname.ptr(), "dirname");
        if (parent_path.is_none()) return should_skip_directory(name);
        const PathBytes parent(parent_path.ptr(), "parent_path");
        return should_skip_directory(name, PathArgument(std::string_view(parent)));
      },
      nb::arg("dirname"), nb::arg("parent_path").none() = nb::none());
  module.def(
      "should_skip_path",
      [](nb::handle path) {
        return should_skip_path(std::string_view(PathBytes(path.ptr(), "path")));
      },
      nb::arg("path").none());
  module.def(
      "is_indexable_path",
      [](nb::handle path) {
        return is_indexable_path(std::string_view(PathBytes(path.ptr(), "path")));
      },
      nb::arg("path").none());
  module.def("sql_condition", [](const std::string& alias, bool exclude, const std::string& via) {
    return sql_test_path_filter(alias, {.exclude = exclude, .via = via}).sql;
  });
  module.def("tier_of", [](nb::handle language) {
    return to_str(language_registry::tier_of(PathBytes(language.ptr(), "language")));
  });
  for (PyMethodDef* function = functions; function->ml_name != nullptr; ++function) {
    module.attr(function->ml_name) =
        nb::steal(PyCFunction_NewEx(function, nullptr, nb::object(module.attr("__name__")).ptr()));
  }

  const auto texts = [](const auto& values) {
    nb::list made;
    for (const std::string_view text : values) made.append(to_str(text));
    return made;
  };
  module.attr("VERSION") = PATH_FILTER_VERSION;
  module.attr("ALWAYS_SKIP_DIRS") = nb::frozenset(texts(ALWAYS_SKIP_DIRS));
  module.attr("ALLOWED_HIDDEN_DIRS") = nb::frozenset(texts(ALLOWED_HIDDEN_DIRS));
  module.attr("GITHUB_ALLOWED_SUBDIRS") = nb::frozenset(texts(GITHUB_ALLOWED_SUBDIRS));
  module.attr("MINIFIED_FILE_GLOBS") = nb::tuple(texts(MINIFIED_FILE_GLOBS));
  module.attr("SQL_TEST_PATH_FN") = SQL_TEST_PATH_FN;
  module.attr("DEFAULT_MAX_FILE_SIZE_MB") = DEFAULT_MAX_FILE_SIZE_MB;
  module.attr("INDEX_DATA_DIR") = INDEX_DATA_DIR;
  module.attr("IGNORE_FILE_NAME") = IGNORE_FILE_NAME;

  PyType_Slot walk_slots[] = {{Py_tp_traverse, reinterpret_cast<void*>(WalkIterator::traverse)},
                              {Py_tp_clear, reinterpret_cast<void*>(WalkIterator::clear)},
                              {0, nullptr}};
  nb::class_<WalkIterator>(module, "Walk", nb::type_slots(walk_slots), nb::is_final())
      .def("__iter__", [](nb::handle self) { return nb::borrow(self); })
      .def("__next__", &WalkIterator::next);

  PyType_Slot scope_slots[] = {{Py_tp_traverse, reinterpret_cast<void*>(Scope::traverse)},
                               {Py_tp_clear, reinterpret_cast<void*>(Scope::clear)},
                               {0, nullptr}};
  auto scope =
      nb::class_<Scope>(module, "Scope", nb::type_slots(scope_slots), nb::is_weak_referenceable());
  scope
      .def(nb::init<nb::object, nb::object, nb::object>(), nb::arg("root").none(),
           nb::arg("limits").none(), nb::arg("excludes_file").none())
      .def_ro("root", &Scope::root)
      .def_ro("limits", &Scope::limits)
      .def("refresh", [](Scope& self) { self.scope.refresh(); })
      .def(
          "relative",
          [](const Scope& self, nb::handle path) {
            return to_python(self.scope.relative(std::string_view(PathBytes(path.ptr(), "path"))));
          },
          nb::arg("path").none())
      .def("are_indexable", &are_indexable, nb::arg("rel_paths").none(), nb::kw_only(),
           nb::arg("sizes").none() = nb::none())
      .def("_explain", &explain, nb::arg().none(), nb::arg().none())
      .def(
          "_deciding_ignore_rule",
          [](const Scope& self, nb::handle path) {
            return to_python(self.scope.deciding_ignore_rule(
                std::string_view(PathBytes(path.ptr(), "rel_path"))));
          },
          nb::arg().none())
      .def(
          "walk",
          [](nb::object self, nb::object on_error) {
            return new WalkIterator(std::move(self), std::move(on_error));
          },
          nb::arg("on_error").none() = nb::none());
  for (PyMethodDef& method : scope_methods) {
    scope.attr(method.ml_name) =
        nb::steal(PyDescr_NewMethod(reinterpret_cast<PyTypeObject*>(scope.ptr()), &method));
  }
}

}  // namespace path_filter::python
