"""The package as its users meet it. What the component answers is tested in C++; here is what
lies between: texts, types, errors, threads, the registry and the log."""

import _thread
import contextlib
import gc
import importlib
import logging
import os
import pathlib
import pickle
import posixpath
import pydoc
import shutil
import signal
import sqlite3
import subprocess
import sys
import textwrap
import threading
import time
import weakref
from types import SimpleNamespace
from unittest import mock

import pytest
from hypothesis import given
from hypothesis import strategies as st

import path_filter
from path_filter import Decision, Exclusion, IndexLimits, IndexScope

WINDOWS = os.name == "nt"
PACKAGES = pathlib.Path(path_filter.__file__).parents[1]


@pytest.fixture
def repository(tmp_path):
    (tmp_path / ".git").mkdir()
    (tmp_path / ".gitignore").write_text("*.log\n!keep.log\n/gen/\n")
    for path in ("src/app.py", "src/x.log", "tests/test_app.py", "gen/out.py", "yarn.lock"):
        (tmp_path / path).parent.mkdir(exist_ok=True)
        (tmp_path / path).write_text("x")
    return tmp_path


def run(code, **environment):
    """A Python of its own: what it prints."""
    done = subprocess.run(
        [sys.executable, "-c", textwrap.dedent(code)],
        env={**os.environ, "PYTHONPATH": str(PACKAGES), **environment},
        capture_output=True,
        text=True,
        timeout=60,
    )
    assert done.returncode == 0, done.stderr
    return done.stdout.strip()


def test_a_scope_answers(repository):
    limits = IndexLimits(10, frozenset({"python", "tsx"}))
    scope = IndexScope(repository, limits=limits)
    assert scope.root is repository and scope.limits is limits
    for path, size, kind, language in (
        ("src/app.py", 10, None, "python"),
        (pathlib.Path("src/app.py"), None, None, "python"),
        ("src\\app.py", 1 << 70, "size", "python"),
        ("src/app.c", -5, "language", "c"),
        ("gen/out.py", None, "gitignore", "python"),
        ("a.min.js", None, "minified", "javascript"),
        ("node_modules/a.py", None, "directory", None),
        ("memory/codebase-index/a.py", None, "index_data", None),
        ("a.nothing", None, "unknown_language", None),
        ("package-lock.json", None, "lockfile", "json"),
    ):
        decision = scope.is_indexable(path, size=size)
        assert (decision.kind, decision.language) == (kind, language), path
        assert decision.indexable is bool(decision) is (kind is None) is not bool(decision.reason)
        assert scope.explain(path, size=size).decision == decision
        assert scope.are_indexable(iter([path]), sizes=[size]) == [decision]
    assert scope.explain("gen/x.py").rule == path_filter.IgnoreRule(".gitignore", 3, "/gen/")
    assert scope.deciding_ignore_rule("keep.log").pattern == "!keep.log"
    assert scope.deciding_ignore_rule("a.py") is None
    assert scope.explain("node_modules/a/b.py").directory == "node_modules"
    assert scope.explain("a.min.js").glob == "*.min.js"
    assert scope.is_ignored("x.log") and not scope.admits_directory("gen")
    assert scope.relative(repository / "src" / "a.py") == "src/a.py"
    assert scope.relative("elsewhere") is None
    assert sorted(scope.walk()) == [".gitignore", "src/app.py", "src/x.log", "tests/test_app.py",
                                    "yarn.lock"]  # fmt: skip
    (repository / ".gitignore").write_text("")
    assert scope.is_ignored("x.log")
    scope.refresh()
    assert not scope.is_ignored("x.log")


class InBytes(os.PathLike):
    def __init__(self, path):
        self.path = path

    def __fspath__(self):
        return os.fsencode(self.path)


@pytest.mark.skipif(not WINDOWS, reason="drives and shares are there only")
@pytest.mark.parametrize("kind", [str, pathlib.Path, InBytes])
@pytest.mark.parametrize(
    "root, path, relative",
    [
        ("C:\\Repo", "c:\\repo\\src\\A.py", "src/A.py"),
        ("C:/repo", "\\\\?\\C:\\repo\\\u00e9\ud800.py", "\u00e9\ud800.py"),
        ("\\\\?\\c:\\repo", "C:/repo/a.py", "a.py"),
        ("\\\\host\\share\\repo", "\\\\?\\UNC\\Host\\share\\repo\\a.py", "a.py"),
        ("C:\\repo", "D:\\repo\\a.py", None),
    ],
)
def test_absolute_paths_of_windows(kind, root, path, relative):
    assert IndexScope(kind(root)).relative(kind(path)) == relative


def test_decisions_are_values(repository):
    scope = IndexScope(repository)
    one, other = scope.is_indexable("a.py"), scope.is_indexable("b.py")
    assert one is other  # nothing is made for a question
    for decision in (one, scope.is_indexable("gen/a.py"), Decision(False, "size", "big", "c")):
        copy = pickle.loads(pickle.dumps(decision))
        assert copy == decision and hash(copy) == hash(decision) and copy is not decision
        assert repr(decision).startswith("Decision(indexable=")
        with pytest.raises(AttributeError):
            decision.reason = "another"
    assert f"{Exclusion.gitignore}" == str(Exclusion.gitignore) == "gitignore" == Exclusion.gitignore
    assert Decision(True) == Decision(True, None, "", None) != Decision(False)
    with pytest.raises(TypeError):
        Decision(1)
    with pytest.raises(ValueError):
        Decision(False, "no kind")


@pytest.mark.parametrize(
    "path, skipped, is_test",
    [
        ("src/node_modules/x.py", True, False),
        ("tests/x.py", False, True),
        ("src\\node_modules\\x.py", WINDOWS, False),
        (pathlib.PurePosixPath("src\\node_modules\\x.py"), WINDOWS, False),
        (pathlib.PureWindowsPath("src\\node_modules\\x.py"), True, False),
        (pathlib.PureWindowsPath("c:\\tests\\x.py"), False, True),
    ],
)
def test_questions_about_a_path_alone(path, skipped, is_test):
    assert path_filter.should_skip_path(path) is skipped
    assert path_filter.is_indexable_path(path) is not skipped
    assert path_filter.is_test_path(path) is is_test


class Raises:
    def __fspath__(self):
        raise ZeroDivisionError


SCOPE = IndexScope("/nowhere")
CLOSED = sqlite3.connect(":memory:")
CLOSED.close()


@pytest.mark.parametrize(
    "call, error, says",
    [
        (lambda: SCOPE.is_indexable(3), TypeError, "rel_path: expected str or os.PathLike, not int"),
        (lambda: SCOPE.is_indexable(b"a"), TypeError, "rel_path: .* not bytes"),
        (lambda: SCOPE.is_indexable(), TypeError, "missing .*'rel_path'"),
        (lambda: SCOPE.is_indexable("a", 3), TypeError, "takes 1 positional argument but 2"),
        (lambda: SCOPE.is_indexable("a", rel_path="a"), TypeError, "multiple values .*'rel_path'"),
        (lambda: SCOPE.is_indexable("a", sise=1), TypeError, "unexpected .*'sise'"),
        (lambda: SCOPE.is_indexable("a", size="1"), TypeError, "size: expected int or None, not str"),
        (lambda: SCOPE.is_indexable(Raises()), ZeroDivisionError, "^$"),
        (lambda: SCOPE.is_indexable("/a\n"), ValueError, r"^'/a\\n' is not relative to the repos"),
        pytest.param(lambda: SCOPE.is_indexable("\ud800"), UnicodeEncodeError, "surrogates",
                     marks=pytest.mark.skipif(WINDOWS, reason="a name there")),
        (lambda: SCOPE.are_indexable("ab"), TypeError, "rel_paths: expected an iterable, not str"),
        (lambda: SCOPE.are_indexable(b"ab"), TypeError, "rel_paths: expected an iterable, not byt"),
        (lambda: SCOPE.are_indexable(["a", 1]), TypeError, "rel_paths: "),
        (lambda: SCOPE.are_indexable(["a"], sizes=[]), ValueError, "sizes: "),
        (lambda: SCOPE.are_indexable(["a", "\\x"]), ValueError, r"^rel_paths\[1\]: '\\\\x' is not"),
        (lambda: SCOPE.are_indexable(["a"], errors="no"), ValueError, "errors: expected 'raise' or"),
        (lambda: path_filter.should_skip_path(3), TypeError, "path: .* not int"),
        (lambda: path_filter.is_indexable_path(None), TypeError, "path: .* not NoneType"),
        (lambda: path_filter.excludes_file_lookup(3), TypeError, "warn: expected a callable or None"),
        (lambda: path_filter._core.tier_of("\ud800"), UnicodeEncodeError, "surrogates"),
        (lambda: SCOPE.is_ignored("C:\\a"), ValueError, r"^'C:\\\\a' is not relative"),
        (lambda: SCOPE.relative(None), TypeError, "path: .* not NoneType"),
        (lambda: SCOPE.walk(1), TypeError, "on_error: expected a callable or None, not int"),
        (lambda: IndexScope(None), TypeError, "root: .* not NoneType"),
        (lambda: IndexScope("a\0b"), ValueError, "root: embedded null character"),
        (lambda: path_filter.production_paths("abc"), TypeError, "paths: expected an iterable of"),
        (lambda: IndexLimits(1, [None]), TypeError, "languages: expected texts, not NoneType"),
        (lambda: IndexScope("a", IndexLimits(1, None)), TypeError, "positional"),
        (lambda: IndexScope("a", limits=10), TypeError, "limits: expected IndexLimits or None"),
        (lambda: IndexScope("a", excludes_file="a"), TypeError, "excludes_file: expected a call"),
        (lambda: IndexScope("a", ignore_case=1), TypeError, "ignore_case: expected bool or a call"),
        (lambda: IndexScope.__new__(IndexScope).is_ignored("a"), TypeError, "__init__"),
        (lambda: repr(IndexScope.__new__(IndexScope)), TypeError, "__init__ has not been called"),
        (lambda: path_filter.is_test_path(1.5), TypeError, "path: .* not float"),
        (lambda: path_filter.should_skip_directory(None), TypeError, "dirname: "),
        (lambda: path_filter.should_skip_directory("a", 1), TypeError, "parent_path: "),
        (lambda: path_filter.sql_test_path_filter(), TypeError, "exclude"),
        (lambda: path_filter.sql_test_path_filter("f", True), TypeError, "positional"),
        (lambda: path_filter.sql_test_path_filter(exclude=1), TypeError, "exclude: .* not int"),
        (lambda: path_filter.register_path_functions(3), TypeError, "connection: expected sqlite3"),
        (lambda: path_filter.register_path_functions(CLOSED), sqlite3.ProgrammingError, "closed"),
        (lambda: IndexLimits("1", None), TypeError, "max_file_bytes: expected int, not str"),
        (lambda: IndexLimits(1, "python"), TypeError, "languages: expected a list .* not str"),
        (lambda: IndexLimits.from_config(SimpleNamespace(languages=[])), AttributeError, "max_file"),
        (lambda: IndexLimits.from_config(SimpleNamespace(max_file_size_mb=1, languages="c")),
         TypeError, "index.languages: "),
    ],
)  # fmt: skip
def test_wrong_use_is_an_error_that_says_so(call, error, says):
    with pytest.raises(error, match=says):
        call()


TEXTS = st.text(st.characters(), max_size=40) if WINDOWS else st.binary(max_size=40).map(os.fsdecode)


@given(TEXTS.filter(lambda name: "\0" not in name) | st.just("x" * (1 << 20)))
def test_every_name_is_text_both_ways(text):
    try:
        decision = SCOPE.is_indexable(text)
    except ValueError:
        assert text.replace("\\", "/").startswith("/") or text.replace("\\", "/")[1:3] == ":/"
        return
    assert SCOPE.are_indexable([text])[0] is decision
    assert path_filter.is_test_path(text) in (True, False)
    native = text.replace("\\", "/") if WINDOWS else text
    below = posixpath.relpath(f"/a/{native}x", "/")
    assert SCOPE.relative(f"/nowhere/a/{text}x") in (None, below)


@pytest.mark.skipif(WINDOWS, reason="names are UTF-16 there, whatever the locale")
def test_a_name_is_what_the_system_encodes():
    code = "import path_filter; path_filter.is_test_path('\\xe9')"
    with pytest.raises(AssertionError, match="UnicodeEncodeError: 'ascii' codec"):
        run(code, PYTHONUTF8="0", PYTHONCOERCECLOCALE="0", LC_ALL="C")


def test_a_walk_gives_names_as_the_system_does(tmp_path):
    odd = ["\U0001f600.py"] if WINDOWS else ["\udcff.py", "new\nline.py"]
    for name in ("a.py", "\u00e9.py", *odd):
        (tmp_path / name).touch()
    scope = IndexScope(tmp_path)
    names = list(scope.walk())
    assert names == os.listdir(tmp_path) and all(scope.are_indexable(names))
    batch = scope.are_indexable(["\\x.py", names[0]], errors="skip")
    assert batch == [None, scope.is_indexable(names[0])]
    assert not scope.is_indexable("nul\0.zz") and scope.is_indexable("nul\0.py")
    if WINDOWS:
        return  # all texts are names
    with pytest.raises(UnicodeEncodeError) as caught:
        scope.are_indexable(["a.py", "\ud800"])
    assert caught.value.__notes__ == ["rel_paths[1]"]


def test_a_walk_ends_with_an_error_and_stays_ended(tmp_path):
    errors = []
    assert list(IndexScope(tmp_path / "none").walk(errors.append)) == []
    assert [(type(error), error.errno, error.filename) for error in errors] == [
        (FileNotFoundError, 2, (tmp_path / "none").as_posix())
    ]
    raised = KeyError("mine")

    def fail(error):
        raise raised

    walk = IndexScope(tmp_path / "none").walk(on_error=fail)
    with pytest.raises(KeyError) as caught:
        next(walk)
    assert caught.value is raised and list(walk) == []
    raised = StopIteration()
    with pytest.raises(RuntimeError) as caught:
        list(IndexScope(tmp_path / "none").walk(fail))
    assert caught.value.__cause__ is raised
    if WINDOWS:
        return  # no name has a colon
    (tmp_path / "c:" / "d").mkdir(parents=True)
    with pytest.warns(RuntimeWarning, match="c:/d' is left out: it reads as an absolute path"):
        assert list(IndexScope(tmp_path).walk()) == []


def test_two_threads_do_not_take_from_one_walk(tmp_path):
    def reenter(error):
        with pytest.raises(ValueError, match="walk already executing"):
            next(walk)
        entered.append(error)

    entered = []
    walk = IndexScope(tmp_path / "none").walk(reenter)
    assert list(walk) == [] and len(entered) == 1


def test_what_the_lookup_raises_and_returns(repository):
    raised = LookupError("mine")

    def lookup(root):
        assert root is repository
        if isinstance(answer, Exception):
            raise answer
        return answer

    scope = IndexScope(repository, excludes_file=lookup)
    for answer in (raised, raised):
        with pytest.raises(LookupError) as caught:
            scope.is_indexable("a.py")
        assert caught.value is raised
    answer = 3
    with pytest.raises(TypeError, match=r"excludes_file\(\): expected str or os.PathLike"):
        scope.is_indexable("a.py")
    (repository / "mine").write_text("*.py\n")
    answer = repository / "mine"
    assert scope.is_indexable("a.py").kind == "gitignore"
    with pytest.raises(TypeError, match=r"ignore_case\(\): expected bool, not int"):
        IndexScope(repository, ignore_case=lambda root: 1).is_ignored("a.py")


def test_the_lookup_that_asks_git(repository, monkeypatch):
    monkeypatch.setenv("GIT_CONFIG_GLOBAL", str(repository / "config"))
    (repository / "config").write_text("[core]\nexcludesFile = mine\n")
    (repository / "mine").write_text("*.py\n")
    scope = IndexScope(str(repository), excludes_file=path_filter.excludes_file_lookup())
    assert scope.is_indexable("a.py").kind == "gitignore"
    warnings = []
    (repository / "config").write_text("no configuration")
    monkeypatch.setenv("XDG_CONFIG_HOME", none := (repository / "none").as_posix())
    assert path_filter.excludes_file_lookup(warnings.append)(repository) == f"{none}/git/ignore"
    assert len(warnings) == 1 and warnings[0].startswith("git does not say which file")
    (repository / "config").write_text("[core]\nexcludesFile = mine\nignorecase = true\n")
    asked = mock.Mock(wraps=path_filter._core.git_settings)
    monkeypatch.setattr(path_filter._core, "git_settings", asked)
    git = path_filter.git_lookups()
    scope = IndexScope(repository, excludes_file=git.excludes_file, ignore_case=git.ignore_case)
    for calls in (1, 2):  # one for both lookups
        assert scope.is_ignored("A.PY") and asked.call_count == calls
        scope.refresh()


def test_a_git_file_that_is_not_text(tmp_path):
    (tmp_path / ".git").write_bytes(b"gitdir: \xc3(")
    (tmp_path / "sub").mkdir()
    scope = IndexScope(tmp_path)
    for ask in (lambda: scope.is_indexable("a.py"), lambda: list(scope.walk())):
        with pytest.raises(UnicodeDecodeError) as caught:
            ask()
        error = caught.value
        assert (error.object, error.start, error.end) == (b"gitdir: \xc3(", 8, 9)
        assert (tmp_path / ".git").as_posix() in error.__notes__[0]


def test_warnings_are_records_of_logging(tmp_path, caplog, capfd):
    name, shown = ("\x7f", "\\177") if WINDOWS else ("\n\udcff", "\\n\\377")
    root = tmp_path / name
    (root / ".gitignore").mkdir(parents=True)
    path_filter._core.set_sink(None)
    assert not IndexScope(root).is_ignored("a.py")
    path_filter._core.set_sink(path_filter._warn)
    assert capfd.readouterr().err.startswith("utils.path_filter: warning: Cannot read the ignore")
    assert not IndexScope(root).is_ignored("a.py")
    assert f'rules in "{tmp_path.as_posix()}/{shown}/.gitignore": ' in caplog.messages[0]
    index = SimpleNamespace(max_file_size_mb="ten", languages=["typescript"])
    assert IndexLimits.from_config(index) == IndexLimits(10485760, {"tsx", "typescript"})
    assert [(record.name, record.levelno, record.msg, record.args) for record in caplog.records] == [
        ("path_filter", logging.WARNING, "Cannot read the ignore rules in %s: %s",
         ((root / ".gitignore").as_posix(), os.strerror(21))),
        ("path_filter", logging.WARNING,
         "index.max_file_size_mb=%r is not a positive number; using %d", ("ten", 10)),
    ]  # fmt: skip
    assert "max_file_size_mb='ten' is" in caplog.text


@pytest.mark.parametrize(
    "size, size_bytes",
    [(10, 10485760), (0.5, 524288), ("2", 2097152), (True, 1048576), (10**9, 10**9 << 20)]
    + [(bad, 10485760) for bad in (0, -1, None, "2_0", "inf", float("nan"), 10**400, b"2", 1e-7)],
)
def test_configured_sizes(size, size_bytes):
    limits = IndexLimits.from_config(SimpleNamespace(max_file_size_mb=size, languages=None))
    assert limits == IndexLimits(size_bytes, None) and limits.allows("no such language")


def test_test_code_in_sql(caplog):
    connection = sqlite3.connect(":memory:", check_same_thread=False)
    path_filter.register_path_functions(connection)
    connection.execute("CREATE TABLE files(id, path)")
    rows = [(1, "src/a.py"), (2, "tests/a.py"), (3, None), (4, b"test_\xff.py"), (5, "")]
    connection.executemany("INSERT INTO files VALUES(?, ?)", rows)
    connection.execute("INSERT INTO files SELECT 6, CAST(path AS TEXT) FROM files WHERE id = 4")
    for via in ("path", "id", "ID"):
        for exclude, expected in ((True, [1, 3, 5]), (False, [2, 4, 6])):
            condition, parameters = path_filter.sql_test_path_filter(exclude=exclude, via=via)
            query = f"SELECT id FROM files f WHERE {condition} ORDER BY id"
            assert [row[0] for row in connection.execute(query, [*parameters])] == expected
    connection.execute("CREATE INDEX i ON files(brelo_is_test_path(path))")  # it is deterministic
    with pytest.raises(sqlite3.OperationalError, match="the argument is a number, not a path"):
        connection.execute("SELECT brelo_is_test_path(3)").fetchall()
    path_filter.register_path_functions(mock.Mock(spec=sqlite3.Connection))  # has no SQLite
    # Where SQLite cannot be reached.
    connection.create_function("other", 1, path_filter._core._sql_is_test_path)
    query = "SELECT id FROM files WHERE id < 6 AND other(path)"
    assert connection.execute(query).fetchall() == [(2,), (4,)]
    unraised = []
    sys.unraisablehook, hook = unraised.append, sys.unraisablehook
    try:
        with pytest.raises(sqlite3.OperationalError):
            connection.execute("SELECT other(3)").fetchall()
    finally:
        sys.unraisablehook = hook
    assert isinstance(unraised[0].exc_value, TypeError)


def test_threads_register_at_once():
    code = """
        import sqlite3, threading, path_filter
        reached = []
        def register():
            connection = sqlite3.connect(":memory:")
            together.wait()
            reached.append(path_filter._core.register_with_sqlite(connection, path_filter._find_sqlite))
        together = threading.Barrier(8)
        threads = [threading.Thread(target=register) for _ in range(8)]
        for thread in threads: thread.start()
        for thread in threads: thread.join()
        print(sum(reached))
        """
    assert run(code) == "8"


def test_production_paths():
    paths = ["src/a.py", "tests/b.py", "src/a.py"]
    assert path_filter.production_paths(iter(paths)) == ["src/a.py", "src/a.py"]
    assert path_filter.production_paths(paths, include_tests=True) == paths
    assert path_filter.production_paths(["tests/b.py"]) == ["tests/b.py"]


def test_cycles_are_collected(repository):
    class Owner:
        def __init__(self):
            self.scope = IndexScope(repository, excludes_file=self.lookup)
            self.walk = self.scope.walk(self.lookup)

        def lookup(self, root):
            return None

    owner = Owner()
    assert owner.scope.is_indexable("a.py")
    gone = weakref.ref(owner.scope)
    del owner
    gc.collect()
    assert gone() is None


def test_threads_share_a_scope_and_reading_lets_others_run(repository):
    getattr(os, "mkfifo", pathlib.Path.touch)(repository / "fifo")
    scope = IndexScope(repository)
    wrong = []

    def ask():
        for _ in range(300):
            wrong.extend(path for path in ("a.log", "gen/a") if not scope.is_ignored(path))
            scope.refresh()

    threads = [threading.Thread(target=ask) for _ in range(4)]
    for thread in threads:
        thread.start()
    for _ in range(20):
        assert len(list(scope.walk())) == 6
    for thread in threads:
        thread.join()
    assert wrong == []


@pytest.mark.skipif(WINDOWS, reason="no process forks there")
def test_a_forked_child_asks_the_same_scope(repository):
    scope = IndexScope(repository)
    before = scope.is_indexable("src/app.py")
    child = os.fork()
    if child == 0:
        scope.refresh()
        same = scope.is_indexable("src/app.py") == before and scope.is_ignored("x.log")
        os._exit(0 if same else 1)
    assert os.waitpid(child, 0)[1] == 0


@pytest.fixture
def host(tmp_path):
    """A host's package `utils` with a registry of its own."""
    (tmp_path / "utils").mkdir()
    (tmp_path / "utils" / "__init__.py").touch()
    to = tmp_path / "utils" / "path_filter"
    shutil.copytree(PACKAGES / "path_filter", to, copy_function=shutil.copyfile)  # Wine lacks CopyFile2
    registry = tmp_path / "utils" / "language_registry.py"
    registry.write_text(
        textwrap.dedent("""
            from types import SimpleNamespace

            class LANGUAGES:
                test_dir_names = staticmethod(lambda: {"checks"})
                test_file_globs = staticmethod(lambda: ["check_*"])
                classify = staticmethod(lambda name: None if name.endswith(".txt") else
                    SimpleNamespace(tier="code", test_file_globs=["check_*"]))

            failure = KeyError("mine")
            def detect_language(name):
                if name == "fail": raise failure
                return 3 if name == "three" else None if name == "none" else name[-2:]
            is_lockfile = "lock".__eq__
            def tier_of(language): return "code"
            """)
    )
    return registry


def test_a_registry_of_the_host_is_asked(host):
    code = """
        import threading
        from utils import path_filter, language_registry
        scope = path_filter.IndexScope("/none", limits=path_filter.IndexLimits(1, ["py"]))
        print(path_filter.logger.name, *path_filter.TEST_DIR_NAMES, *path_filter.TEST_FILE_GLOBS)
        print(*(scope.is_indexable(name).kind for name in ("a.py", "lock", "none", "a.cc")))
        print(*map(path_filter.is_test_path, ("check_a.c", "Checks/a", "a.c", "checks/a.txt")))
        language_registry.LANGUAGES.test_dir_names = frozenset  # looked up at each use
        print(path_filter.is_test_path("Checks/a"), path_filter.should_skip_directory("__checks__"))
        class Members:
            __contains__ = "checks".__eq__
        language_registry.LANGUAGES.test_dir_names = Members  # answers nothing but "in"
        print(path_filter.is_test_path("Checks/a"), path_filter.is_test_path("tests/a"))
        for name in ("fail", "three"):
            try:
                scope.is_indexable(name)
            except Exception as error:
                print(error is language_registry.failure, error)
        asked = []
        thread = threading.Thread(target=lambda: asked.append(scope.is_indexable("b.py")))
        thread.start(); thread.join()
        print(asked[0] is scope.is_indexable("a.py"))
        """
    assert run(code, PYTHONPATH=str(host.parents[1])).splitlines() == [
        "utils.path_filter checks check_*",
        "None lockfile unknown_language language",
        "True True False False",
        "False True",
        "True False",
        "True 'mine'",
        "False detect_language(): expected str, not int",
        "True",
    ]


@pytest.mark.parametrize("first", ["path_filter", "utils.path_filter"])
def test_two_copies_have_nothing_in_common(host, repository, first):
    (repository / ".gitignore").unlink()
    (repository / ".gitignore").mkdir()
    code = f"""
        import logging, sys, {first}
        import path_filter, utils.path_filter
        logging.basicConfig(format="%(name)s", stream=sys.stdout)
        for package in (path_filter, utils.path_filter):
            scope = package.IndexScope({str(repository)!r})
            decision = scope.is_indexable("a.rs")
            print(decision.language, type(decision) is package.Decision)
        """
    said = run(code, PYTHONPATH=os.pathsep.join([str(host.parents[1]), str(PACKAGES)]))
    assert said.splitlines() == ["path_filter", "rust True", "utils.path_filter", "rs True"]


def test_languages_of_the_installed_registry_are_looked_up(monkeypatch):
    registry = importlib.import_module("language_registry")
    record = registry.LanguageRecord("code", ("*.rs",))
    other = SimpleNamespace(classify=lambda name: record, test_dir_names=set)
    monkeypatch.setattr(registry, "LANGUAGES", other)
    assert path_filter.is_test_path("a.rs") and SCOPE.is_indexable("a.rs").language == "rust"
    monkeypatch.undo()
    assert not path_filter.is_test_path("a.rs")


def test_a_registry_that_lacks_a_name_is_refused(host):
    complete = host.read_text()
    for name in ("detect_language", "is_lockfile", "tier_of", "LANGUAGES"):
        host.write_text(complete + f"\ndel {name}\n")
        code = """
            try:
                import utils.path_filter
            except ImportError as error:
                print(error)
            """
        assert run(code, PYTHONPATH=str(host.parents[1])).endswith(f"has no {name}")


def test_a_second_interpreter_is_refused_and_harms_nothing(repository):
    name = "_interpreters" if sys.version_info >= (3, 13) else "_xxsubinterpreters"
    code = f"""
        import {name} as interpreters, path_filter
        made = interpreters.create()
        scope = path_filter.IndexScope({str(repository)!r})
        walk = scope.walk()
        next(walk)
        scope.refresh()
        print(len(list(walk)))
        try:
            print(interpreters.run_string(made, "import path_filter"))
        except Exception as error:
            print(error)
        scope = path_filter.IndexScope({str(repository)!r})
        print(scope.root == {str(repository)!r}, len(list(scope.walk())))
        """
    said = run(code)
    assert said.startswith("4\n") and said.endswith("\nTrue 5")
    assert "ImportError" in said or "does not support" in said


@pytest.mark.parametrize("call", ["walk", "batch", "brelo_is_test_path", "other_door"])
def test_signals_are_heard_in_a_long_call(tmp_path, call):
    class Fifth(Exception):
        pass

    def hear(number, frame):
        heard.append(number)
        if len(heard) == 5:  # what comes while nobody listens is heard as one
            raise Fifth

    for number in range(3000 if call == "walk" else 0):
        (tmp_path / str(number)).mkdir()
    scope = IndexScope(tmp_path)
    connection = sqlite3.connect(":memory:")
    connection.create_function("other_door", 1, path_filter._core._sql_is_test_path)
    path_filter.register_path_functions(connection)
    numbers = "WITH n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 3000000)"

    def press():  # as Ctrl-C is, where no timer sends signals
        while len(heard) < 5:
            time.sleep(0.001)
            _thread.interrupt_main()

    number = signal.SIGINT if WINDOWS else signal.SIGALRM
    heard, before = [], signal.signal(number, hear)
    presser = threading.Thread(target=press, daemon=True)
    with pytest.raises(Fifth), contextlib.suppress(sqlite3.OperationalError):
        presser.start() if WINDOWS else signal.setitimer(signal.ITIMER_REAL, 0.001, 0.001)
        try:
            if call == "walk":
                list(scope.walk())
            elif call == "batch":
                scope.are_indexable(["a.py"] * 3_000_000)
            else:
                connection.execute(f"{numbers} SELECT sum({call}(i || '')) FROM n").fetchall()
        finally:
            if not WINDOWS:
                signal.setitimer(signal.ITIMER_REAL, 0)
    if WINDOWS:
        presser.join()
    signal.signal(number, before)


def test_the_process_ends_while_threads_ask_and_read(repository):
    code = f"""
        import threading, time, sys, path_filter
        for name in [name for name in sys.modules if name.startswith("path_filter")]:
            del sys.modules[name]
        import path_filter  # anew
        scope = path_filter.IndexScope({str(repository)!r})
        def ask():
            while True:
                scope.refresh()
                [scope.is_indexable(path) for path in scope.walk()]
        for _ in range(3):
            threading.Thread(target=ask, daemon=True).start()
        time.sleep(0.2)
        print(type(scope.is_indexable("a.py")) is path_filter.Decision)
        """
    assert run(code) == "True"


def test_the_stubs_say_what_the_modules_have():
    allowed = pathlib.Path(__file__).parents[1] / "stubtest_allowlist.txt"
    subprocess.run(
        [sys.executable, "-m", "mypy.stubtest", "path_filter", "language_registry", "--allowlist",
         allowed, "--ignore-unused-allowlist"], check=True
    )  # fmt: skip


def test_public_names_are_there():
    manual = pydoc.plain(pydoc.render_doc(path_filter))
    assert "casefold" not in manual
    for name in path_filter.__all__:
        assert getattr(path_filter, name) is not None and name in manual
    registry = importlib.import_module("language_registry")
    assert path_filter.TEST_DIR_NAMES == registry.LANGUAGES.test_dir_names() >= {"tests"}
    assert path_filter.TEST_FILE_GLOBS == registry.LANGUAGES.test_file_globs()
    assert registry.LANGUAGES.classify("a.py").tier == registry.tier_of("python") == "code"
    assert registry.LANGUAGES.classify("a.nothing") is registry.detect_language("a.nothing") is None


def test_the_readme_runs_as_written(tmp_path, monkeypatch, capsys):
    readme = pathlib.Path(__file__).parents[2] / "README.md"
    code = readme.read_text().split("```python\n")[1].split("```")[0]
    monkeypatch.chdir(tmp_path)
    exec(code, {})
    says = [line.partition("  # ")[2] for line in code.splitlines() if line.startswith("print")]
    assert capsys.readouterr().out.splitlines() == says
