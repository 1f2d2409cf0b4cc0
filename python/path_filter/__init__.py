"""Which files of a repository belong in the index, and which are test code.

    from path_filter import IndexLimits, IndexScope, git_lookups, is_test_path

    limits = IndexLimits(max_file_bytes=10 << 20, languages=None)
    git = git_lookups()
    scope = IndexScope(
        "/srv/repo", limits=limits, excludes_file=git.excludes_file, ignore_case=git.ignore_case
    )
    scope.is_indexable("src/app.py")                # truthy: a Decision
    scope.is_indexable("build/out.py").reason       # "in a directory the index skips"
    for path in scope.walk():                       # a tree that git does not list
        ...
    is_test_path("src/UserServiceTest.java")        # True

Paths are str or os.PathLike. A name that is not valid text comes and goes as os.listdir
gives it. A wrong type is a TypeError that names the argument, an absolute path where a
relative one is asked for a ValueError.

Threads may share a scope and everything else here, but not a walk. A question holds the
interpreter's lock; where the disk is read it is free, and in a batch it is let go now and
then. Ctrl-C is heard there, and in SQL queries. All works in a forked child. There is one
interpreter to a process: the package refuses to be loaded in a second one. Two copies of the
package in a process have nothing in common.

The languages are those of the module language_registry beside this package: the one that
is installed with it, which is answered without a call of Python's, or the host's own. In a
host's package (utils.path_filter) that is the package's own (utils.language_registry). Its
three functions are bound when this package is loaded; LANGUAGES is looked up at each use.

Besides what is below there are:

    logger              the logging.Logger of two warnings: of an ignore file that cannot be
                        read (its path, the system's message), and of a size limit that cannot
                        be used (its value, the default). A path that cannot be printed is
                        quoted in the message, and itself as the argument.
    ExcludesFileLookup  the type of IndexScope's excludes_file: a callable that is given the
                        scope's root, and returns the file that git's core.excludesFile names
                        or None. It is called once for each refresh, from any thread, when the
                        root has a git directory; what it raises passes through the question.
    IgnoreCaseLookup    the type of IndexScope's ignore_case: a callable that is given the
                        scope's root, and returns whether git's core.ignorecase is set there. It
                        is called in the same way when the first ignore rules are read, before
                        the ExcludesFileLookup.
    SQLITE_EXTENSION    the path of a loadable extension of SQLite, for connections that are
                        not sqlite3's: what register_path_functions does, with the same memo
"""

from __future__ import annotations

import atexit
import importlib
import logging
import os
from collections.abc import Callable, Iterable
from typing import TYPE_CHECKING, Any, NamedTuple, Optional, TypeVar, Union, overload

if TYPE_CHECKING:
    import sqlite3

from . import _core
from ._core import is_indexable_path, is_test_path, should_skip_directory, should_skip_path
from ._records import Decision, Exclusion, Explanation, IgnoreRule, IndexLimits, _expect

__all__ = [
    "ALLOWED_HIDDEN_DIRS",
    "ALWAYS_SKIP_DIRS",
    "DEFAULT_MAX_FILE_SIZE_MB",
    "Decision",
    "Exclusion",
    "ExcludesFileLookup",
    "Explanation",
    "GITHUB_ALLOWED_SUBDIRS",
    "GitLookups",
    "IGNORE_FILE_NAME",
    "INDEX_DATA_DIR",
    "IgnoreCaseLookup",
    "IgnoreRule",
    "IndexLimits",
    "IndexScope",
    "MINIFIED_FILE_GLOBS",
    "SQLITE_EXTENSION",
    "SQL_TEST_PATH_FN",
    "TEST_DIR_NAMES",
    "TEST_FILE_GLOBS",
    "excludes_file_lookup",
    "git_lookups",
    "is_indexable_path",
    "is_test_path",
    "logger",
    "production_paths",
    "register_path_functions",
    "should_skip_directory",
    "should_skip_path",
    "sql_test_path_filter",
]

_AnyPath = Union[str, "os.PathLike[str]"]
_Path = TypeVar("_Path", bound=_AnyPath)

ExcludesFileLookup = Callable[[Any], Optional[_AnyPath]]
IgnoreCaseLookup = Callable[[Any], bool]


def _load_registry() -> Any:
    """The language registry beside this package."""
    parent = __name__.rpartition(".")[0]
    return importlib.import_module(f"{parent}.language_registry".lstrip("."))


def _is_ours(registry: Any) -> bool:
    """Whether it is the one that comes with this package, with nothing in it replaced: its
    tables are in C++, and here too."""
    if getattr(registry, "TABLES", None) != _core.VERSION:
        return False
    functions = ("detect_language", "is_lockfile", "tier_of")
    native = registry._native
    return type(registry.LANGUAGES) is registry.Languages and all(
        getattr(registry, name) is getattr(native, name) for name in functions
    )


_registry = _load_registry()
for _name in ("LANGUAGES", "detect_language", "is_lockfile", "tier_of"):
    if not hasattr(_registry, _name):
        raise ImportError(f"the language registry {_registry!r} has no {_name}")
_names = _registry.LANGUAGES.test_dir_names()  # which need answer nothing but "in"
TEST_DIR_NAMES: frozenset[str] = frozenset(_names) if isinstance(_names, Iterable) else _names
TEST_FILE_GLOBS: tuple[str, ...] = tuple(_registry.LANGUAGES.test_file_globs())
_core.bind_registry(_registry, _is_ours(_registry))
if _is_ours(_registry):

    class _Registry(type(_registry)):  # type: ignore[misc]
        """Says when LANGUAGES is replaced, which nobody looks at while it is in C++."""

        def __setattr__(self, name: str, value: Any) -> None:
            super().__setattr__(name, value)
            if name == "LANGUAGES":
                _core.ask_languages(type(value) is not self.Languages)

    _registry.__class__ = _Registry

__version__: str = _core.VERSION

logger: logging.Logger = logging.getLogger(__name__)

ALWAYS_SKIP_DIRS: frozenset[str] = _core.ALWAYS_SKIP_DIRS
ALLOWED_HIDDEN_DIRS: frozenset[str] = _core.ALLOWED_HIDDEN_DIRS
GITHUB_ALLOWED_SUBDIRS: frozenset[str] = _core.GITHUB_ALLOWED_SUBDIRS
MINIFIED_FILE_GLOBS: tuple[str, ...] = _core.MINIFIED_FILE_GLOBS
SQL_TEST_PATH_FN: str = _core.SQL_TEST_PATH_FN
DEFAULT_MAX_FILE_SIZE_MB: int = _core.DEFAULT_MAX_FILE_SIZE_MB
INDEX_DATA_DIR: str = _core.INDEX_DATA_DIR
IGNORE_FILE_NAME: str = _core.IGNORE_FILE_NAME

SQLITE_EXTENSION: str = _core.__file__


class _Quoted(str):
    """A path in the arguments of a log record, of which a message shows what is printable."""

    def __str__(self) -> str:
        return _core.printable(str.__str__(self))


def _warn(message: str, arguments: tuple[Any, ...]) -> None:
    shown = (_Quoted(value) if isinstance(value, str) else value for value in arguments)
    logger.warning(message, *shown)


_core.set_records(Decision, tuple(Exclusion))
_core.set_sink(_warn)
atexit.register(_core.set_sink, None)


class IndexScope(_core.Scope):
    """What belongs in the index of one repository.

    Making a scope reads nothing. A directory's .gitignore and the repository's exclude files
    are read when a question first needs them, and kept until refresh().

    root           the repository's root, kept as it is given. An absolute one still names the
                   repository after os.chdir, and relative() finds absolute paths below it
    limits         the configuration's limits; None: no limits
    excludes_file  an ExcludesFileLookup, such as that of git_lookups(); None: no such file is
                   read, the user's own ignore file among them
    ignore_case    whether the ignore rules match as git's do with core.ignorecase, or an
                   IgnoreCaseLookup, such as that of git_lookups(). No other rule ignores case
    """

    def __init__(
        self,
        root: _AnyPath,
        *,
        limits: IndexLimits | None = None,
        excludes_file: ExcludesFileLookup | None = None,
        ignore_case: bool | IgnoreCaseLookup = False,
    ) -> None:
        """Reads nothing."""
        are_limits = limits is None or type(limits) is IndexLimits
        _expect(are_limits, "limits", "IndexLimits or None", limits)
        super().__init__(root, limits, excludes_file, ignore_case)

    def __repr__(self) -> str:
        return f"{type(self).__name__}({self.root!r})"

    def explain(self, rel_path: _AnyPath, *, size: int | None = None) -> Explanation:
        """What is_indexable answers, and what decided."""
        decision, directory, glob, rule = self._explain(rel_path, size)
        return Explanation(decision, directory, glob, rule and IgnoreRule(*rule))

    def deciding_ignore_rule(self, rel_path: _AnyPath) -> IgnoreRule | None:
        """The rule by which git's ignore rules decide about the file at rel_path, or about the
        directory there when it ends in "/": what `git check-ignore -v` prints. It may be one
        that includes the path again ("!..."). None when no rule matches."""
        rule = self._deciding_ignore_rule(rel_path)
        return rule and IgnoreRule(*rule)


def excludes_file_lookup(warn: Callable[[str], object] | None = None) -> ExcludesFileLookup:
    """A lookup of git's core.excludesFile that asks git, for IndexScope.

    Gives git's default place for the user's ignore file when none is configured, when there is
    no git, and when it fails or does not answer in two seconds, of which warn is given a
    sentence.
    """
    _expect(warn is None or callable(warn), "warn", "a callable or None", warn)
    return lambda root: _core.git_settings(root, warn)[0]


class GitLookups(NamedTuple):
    """What git_lookups gives."""

    excludes_file: ExcludesFileLookup
    ignore_case: IgnoreCaseLookup


def git_lookups(warn: Callable[[str], object] | None = None) -> GitLookups:
    """Lookups of git's core.excludesFile and core.ignorecase that ask git, for IndexScope.

    The two share one call of git: what it says when it is asked about case is kept for the
    question about the file that follows, of the same root. A scope that is given both asks in
    this order, anew after each refresh. When git fails, case counts; for the rest see
    excludes_file_lookup.
    """
    find_file = excludes_file_lookup(warn)
    left: dict[Any, str | None] = {}  # the file of the last root that was asked about

    def excludes_file(root: Any) -> _AnyPath | None:
        try:
            return left.pop(os.fspath(root))
        except KeyError:
            return find_file(root)

    def ignore_case(root: Any) -> bool:
        file, ignores = _core.git_settings(root, warn)
        left.clear()
        left[os.fspath(root)] = file
        return ignores

    return GitLookups(excludes_file, ignore_case)


@overload
def production_paths(paths: Iterable[_Path], *, include_tests: bool = ...) -> list[_Path]: ...
@overload  # of texts and paths, for which mypy finds no _Path
def production_paths(  # type: ignore[overload-cannot-match]
    paths: Iterable[_AnyPath], *, include_tests: bool = ...
) -> list[_AnyPath]: ...
def production_paths(paths: Iterable[Any], *, include_tests: bool = False) -> list[Any]:
    """Those of `paths` that are not test code, in their order; all of them when nothing else is
    left, or with include_tests."""
    are_paths = isinstance(paths, Iterable) and not isinstance(paths, (str, bytes))
    _expect(are_paths, "paths", "an iterable of paths", paths)
    _expect(isinstance(include_tests, bool), "include_tests", "bool", include_tests)
    everything = list(paths)
    if include_tests:
        return everything
    return [path for path in everything if not is_test_path(path)] or everything


def _find_sqlite() -> tuple[Any, int, int] | None:
    """Python's type of connections, and where two functions of the SQLite below it lie."""
    module: Any = importlib.import_module("_sqlite3")
    for file in (getattr(module, "__file__", None), "sqlite3.dll"):
        try:
            import ctypes  # not every Python has it

            library = ctypes.CDLL(file)
            add, cancel = (
                ctypes.addressof(ctypes.c_char.in_dll(library, f"sqlite3_{name}auto_extension"))
                for name in ("", "cancel_")
            )
        except Exception:  # whatever a system or an audit hook raises
            continue
        return module.Connection, add, cancel
    return None


def register_path_functions(connection: sqlite3.Connection) -> None:
    """Makes the SQL function SQL_TEST_PATH_FN known to an open connection.

    It takes one argument: a text of any bytes or a blob is a path, NULL is no test code, a number
    an error. When the registry fails, the statement does, and says what was raised. Ctrl-C ends
    the statement with an OperationalError, behind which the KeyboardInterrupt follows.

    Where the SQLite of Python's own module cannot be reached, a text must be UTF-8, and what the
    registry raises goes to sys.unraisablehook.
    """
    import sqlite3  # not every Python has it

    is_connection = isinstance(connection, sqlite3.Connection)
    _expect(is_connection, "connection", "sqlite3.Connection", connection)
    # Refuses a connection that is closed, or another thread's.
    connection.create_function(SQL_TEST_PATH_FN, 1, _core._sql_is_test_path, deterministic=True)
    _core.register_with_sqlite(connection, _find_sqlite)


def sql_test_path_filter(
    alias: str = "f", *, exclude: bool, via: str = "path"
) -> tuple[str, list[str]]:
    """A condition on the rows of `alias` for a WHERE clause, and its parameters: none.

    It holds for test code or, with `exclude`, for all else. `via="id"` gives the form for the
    table files that asks once for each file instead of once for each row.
    """
    _expect(isinstance(exclude, bool), "exclude", "bool", exclude)
    _expect(isinstance(alias, str), "alias", "str", alias)
    _expect(isinstance(via, str), "via", "str", via)
    return _core.sql_condition(alias, exclude, via), []
