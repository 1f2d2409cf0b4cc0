#include "python/src/registry_bridge.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "python/src/conversions.h"
#include "utils/language_registry/default_registry.h"

namespace path_filter::python {
namespace {

struct Record {
  std::string_view tier;
  std::vector<std::string_view> test_file_globs;
  language_registry::LanguageRecord record = {};  // of the two
};

/// A host's registry. What it answers is kept by its value, for ever, as the component may
/// keep views of it: there are as many texts as there are languages. All is used by the
/// thread alone that holds the interpreter's lock.
struct HostRegistry {
  nb::object module, detect_language, is_lockfile, tier_of;

  std::unordered_set<std::string, TextHash, std::equal_to<>> texts;
  std::map<std::vector<const char*>, Record> records;
  std::list<language_registry::TextSet> test_dir_names;
  std::deque<std::vector<std::string_view>> test_file_globs;
  nb::object last_argument;
  std::string last_name;  // its bytes
  std::string_view last_kept;
  nb::object last_test_dir_names;  // a frozenset, and what was made of it
  const language_registry::TextSet* last_test_dir_set = nullptr;
};

/// Never freed, as a question may come until the very end.
HostRegistry* host = nullptr;
// Which of it is asked, and not the default registry.
std::atomic<bool> asks_functions = false, asks_languages = false;

/// The interpreter's lock, which all who ask from Python hold already.
class InterpreterLock {
 public:
  InterpreterLock() {
    if (!holds_lock()) run_python([&] { _taken.emplace(); });
  }

 private:
  std::optional<nb::gil_scoped_acquire> _taken;
};

nb::object attribute(nb::handle object, const char* name) {
  PyObject* found = run_python([&] { return PyObject_GetAttrString(object.ptr(), name); });
  if (found == nullptr) nb::raise_python_error();
  return nb::steal(found);
}

nb::object called(const nb::object& function) {
  PyObject* result = run_python([&] { return PyObject_CallNoArgs(function.ptr()); });
  if (result == nullptr) nb::raise_python_error();
  return nb::steal(result);
}

nb::object called(const nb::object& function, std::string_view name) {
  // A question asks several functions about one name.
  if (host->last_name != name || !host->last_argument.is_valid()) {
    host->last_argument.reset();
    host->last_name = name;
    host->last_argument = to_str(name);
  }
  const nb::object held = host->last_argument;
  PyObject* const argument = held.ptr();
  PyObject* result =
      run_python([&] { return PyObject_Vectorcall(function.ptr(), &argument, 1, nullptr); });
  if (result == nullptr) nb::raise_python_error();
  return nb::steal(result);
}

nb::object languages(const char* operation) {
  return attribute(attribute(host->module, "LANGUAGES"), operation);
}

std::string_view kept(std::string_view text) {
  if (text == host->last_kept) return host->last_kept;
  auto found = host->texts.find(text);
  if (found == host->texts.end()) found = host->texts.emplace(text).first;
  return host->last_kept = *found;
}

}  // namespace

void bind_registry(nb::object module, bool is_default) {
  if (host != nullptr && is_default && !asks_functions) {
    host->module = std::move(module);
    return;
  }
  if (host != nullptr) {
    if (host->module.is(module)) return;
    PyErr_SetString(PyExc_ImportError,
                    "path_filter has been loaded with another language registry");
    nb::raise_python_error();
  }
  auto made = std::make_unique<HostRegistry>();
  for (const auto& [name, bound] : {std::pair{"detect_language", &made->detect_language},
                                    {"is_lockfile", &made->is_lockfile},
                                    {"tier_of", &made->tier_of},
                                    {"LANGUAGES", &made->module}}) {
    PyObject* found = PyObject_GetAttrString(module.ptr(), name);
    if (found == nullptr) {
      if (PyErr_ExceptionMatches(PyExc_AttributeError) == 0) nb::raise_python_error();
      nb::chain_error(PyExc_ImportError, "the language registry %R has no %s", module.ptr(), name);
      nb::raise_python_error();
    }
    *bound = nb::steal(found);
  }
  made->module = std::move(module);
  host = made.release();
  asks_functions = asks_languages = !is_default;
}

void ask_languages(bool of_module) { asks_languages = of_module; }

}  // namespace path_filter::python

namespace language_registry {

using namespace path_filter::python;

/// Of names that are no set of Python's, and may answer nothing but "in".
static bool is_test_dir_name(std::string_view name) {
  const InterpreterLock hold;
  const nb::object names = called(languages("test_dir_names"));
  const nb::str text = to_str(name);
  const int answer = run_python([&] { return PySequence_Contains(names.ptr(), text.ptr()); });
  if (answer < 0) nb::raise_python_error();
  return answer != 0;
}

const TextSet& Languages::test_dir_names() const {
  if (!asks_languages) return default_registry::test_dir_names();
  const InterpreterLock hold;
  nb::object names = called(languages("test_dir_names"));
  if (PyAnySet_Check(names.ptr()) == 0) {
    static const TextSet& asked = *new TextSet(&is_test_dir_name);
    return asked;
  }
  // A frozenset cannot change: the same one needs no second look.
  if (names.is(host->last_test_dir_names)) return *host->last_test_dir_set;
  std::vector<std::string> members;
  for (nb::handle member : nb::iter(names)) {
    members.emplace_back(std::string_view(TextBytes(member.ptr(), "LANGUAGES.test_dir_names()")));
  }
  TextSet set(members.begin(), members.end());
  auto& known = host->test_dir_names;
  auto found = std::find(known.begin(), known.end(), set);
  if (found == known.end()) found = known.insert(known.end(), std::move(set));
  if (PyFrozenSet_CheckExact(names.ptr()) != 0) {
    host->last_test_dir_names = std::move(names);
    host->last_test_dir_set = &*found;
  }
  return *found;
}

std::span<const std::string_view> Languages::test_file_globs() const {
  if (!asks_languages) return default_registry::test_file_globs();
  const InterpreterLock hold;
  const nb::object globs = called(languages("test_file_globs"));
  std::vector<std::string_view> views;
  for (nb::handle glob : nb::iter(globs)) {
    views.push_back(kept(TextBytes(glob.ptr(), "LANGUAGES.test_file_globs()")));
  }
  return host->test_file_globs.emplace_back(std::move(views));
}

const LanguageRecord* Languages::classify(std::string_view name) const {
  if (!asks_languages) return default_registry::classify(name);
  const InterpreterLock hold;
  const nb::object record = called(languages("classify"), name);
  if (record.is_none()) return nullptr;
  const nb::object tier = attribute(record, "tier");
  Record values{kept(TextBytes(tier.ptr(), "LANGUAGES.classify(): tier")), {}};
  if (values.tier == "code") {  // the globs of others are not asked
    const nb::object globs = attribute(record, "test_file_globs");
    for (nb::handle glob : nb::iter(globs)) {
      values.test_file_globs.push_back(
          kept(TextBytes(glob.ptr(), "LANGUAGES.classify(): test_file_globs")));
    }
  }
  // Texts are kept once: their places tell them apart.
  std::vector<const char*> key{values.tier.data()};
  for (const std::string_view glob : values.test_file_globs) key.push_back(glob.data());
  auto found = host->records.find(key);
  if (found == host->records.end()) {
    found = host->records.emplace(std::move(key), std::move(values)).first;
    found->second.record = {found->second.tier, found->second.test_file_globs};
  }
  return &found->second.record;
}

std::optional<std::string_view> detect_language(std::string_view name) {
  if (!asks_functions) return default_registry::detect_language(name);
  const InterpreterLock hold;
  const nb::object language = called(host->detect_language, name);
  if (language.is_none()) return std::nullopt;
  return kept(TextBytes(language.ptr(), "detect_language()"));
}

bool is_lockfile(std::string_view name) {
  if (!asks_functions) return default_registry::is_lockfile(name);
  const InterpreterLock hold;
  const int answer = PyObject_IsTrue(called(host->is_lockfile, name).ptr());
  if (answer < 0) nb::raise_python_error();
  return answer != 0;
}

std::string_view tier_of(std::string_view language) {
  if (!asks_functions) return default_registry::tier_of(language);
  const InterpreterLock hold;
  return kept(TextBytes(called(host->tier_of, language).ptr(), "tier_of()"));
}

}  // namespace language_registry
