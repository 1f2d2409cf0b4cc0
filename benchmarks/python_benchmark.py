"""What a question costs from Python, beside what it costs in C++ and beside its peers.

    python_benchmark.py SCOPE_BENCHMARK TREE

SCOPE_BENCHMARK is the C++ program of that name. Each round runs all of them; the smallest time
of a round counts. Prints a ratio for each row.
"""

import gc
import json
import os
import pathlib
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import textwrap
import time

import pathspec

import path_filter

ROUNDS = int(os.environ.get("ROUNDS", "3"))


def best(call, repetitions=5):
    """The least seconds of some calls."""
    least = float("inf")
    gc.disable()
    for _ in range(repetitions):
        begin = time.perf_counter()
        call()
        least = min(least, time.perf_counter() - begin)
    gc.enable()
    return least


def cpp(program, tree):
    """Milliseconds of CPU by the name of the C++ benchmark; each asks about the whole tree."""
    done = subprocess.run(
        [program, "--benchmark_format=json", "--benchmark_filter=Warm/shuffled:0|IsTestPath"],
        env={**os.environ, "PATH_FILTER_BENCHMARK_TREE": str(tree)},
        check=True, stdout=subprocess.PIPE,
    )  # fmt: skip
    runs = json.loads(done.stdout)["benchmarks"]
    return {run["name"].split("/")[0]: run["cpu_time"] / 1000 for run in runs}


def each(function, paths):
    for path in paths:
        function(path)


def relative_paths(tree):
    """What a walk gives, by os.walk."""
    cut = len(str(tree)) + 1
    return [
        os.path.join(folder[cut:], name) for folder, _, names in os.walk(tree) for name in names
    ]


HOST = '''
from types import SimpleNamespace
import time, sys
record = SimpleNamespace(tier="code", test_file_globs=("*_test.c",))
class LANGUAGES:
    test_dir_names = staticmethod(lambda names=frozenset({"tests", "test"}): names)
    test_file_globs = staticmethod(lambda: ())
    classify = staticmethod(lambda name: record)
def detect_language(name): return "c"
def is_lockfile(name): return False
def tier_of(language): return "code"
'''


def with_a_host_registry(tree):
    """Seconds of is_indexable about the whole tree when the registry is a Python module."""
    with tempfile.TemporaryDirectory() as top:
        utils = pathlib.Path(top, "utils")
        utils.mkdir()
        (utils / "__init__.py").touch()
        (utils / "language_registry.py").write_text(HOST)
        shutil.copytree(pathlib.Path(path_filter.__file__).parent, utils / "path_filter")
        code = f"""
            import sys, time
            from utils import path_filter
            scope = path_filter.IndexScope({str(tree)!r})
            paths = list(scope.walk())
            least = 9e9
            for _ in range(6):
                begin = time.perf_counter()
                for path in paths: scope.is_indexable(path)
                least = min(least, time.perf_counter() - begin)
            print(least)
            """
        done = subprocess.run([sys.executable, "-c", textwrap.dedent(code)], check=True,
                              env={**os.environ, "PYTHONPATH": top}, stdout=subprocess.PIPE)  # fmt: skip
        return float(done.stdout)


def sql(paths):
    """Seconds of a query that asks about each path, and of one that calls a builtin."""
    connection = sqlite3.connect(":memory:")
    path_filter.register_path_functions(connection)
    connection.create_function("is_nothing", 1, callable, deterministic=True)
    connection.execute("CREATE TABLE files(path)")
    connection.executemany("INSERT INTO files VALUES(?)", [(path,) for path in paths[:50000]])
    ask = "SELECT count(*) FROM files WHERE {}(path)"
    return [
        best(lambda: connection.execute(ask.format(name)).fetchall())
        for name in (path_filter.SQL_TEST_PATH_FN, "is_nothing")
    ]


def main(program, tree):
    scope = path_filter.IndexScope(tree)
    paths = list(scope.walk())
    rules = pathspec.GitIgnoreSpec.from_lines((tree / ".gitignore").read_text().splitlines())
    some = paths[::100]
    least = {}
    for _ in range(ROUNDS):
        compiled = cpp(program, tree)
        ours, builtin = sql(paths)
        for name, seconds in {
            "C++ is_indexable": compiled["Warm"],
            "C++ is_test_path": compiled["IsTestPath"],
            "is_indexable": best(lambda: each(scope.is_indexable, paths)),
            "are_indexable": best(lambda: scope.are_indexable(paths)),
            "map": best(lambda: list(map(scope.is_indexable, paths))),
            "is_test_path": best(lambda: each(path_filter.is_test_path, paths)),
            "walk": best(lambda: list(scope.walk())),
            "os.walk": best(lambda: [names for _, _, names in os.walk(tree)]),
            "os.walk, paths": best(lambda: relative_paths(tree)),
            "is_ignored": best(lambda: each(scope.is_ignored, some)),
            "pathspec": best(lambda: each(rules.check_file, some), 1),
            "SQL function": ours,
            "SQL builtin": builtin,
            "host's registry": with_a_host_registry(tree),
        }.items():
            least[name] = min(seconds, least.get(name, float("inf")))
    print(f"{len(paths)} paths, Python {sys.version.split()[0]}")
    for ours, theirs, target in (
        ("is_indexable", "C++ is_indexable", "1.5"),
        ("is_test_path", "C++ is_test_path", "1.5"),
        ("are_indexable", "C++ is_indexable", "1.15"),
        ("are_indexable", "map", "1"),
        ("walk", "os.walk", "0.4"),
        ("walk", "os.walk, paths", "-"),
        ("pathspec", "is_ignored", "at least 100"),
        ("SQL function", "SQL builtin", "2"),
        ("host's registry", "is_indexable", "3"),
    ):
        ratio = least[ours] / least[theirs]
        print(f"{ours + ' / ' + theirs:34} {ratio:7.2f}   target {target}"
              f"   ({least[ours] * 1e3:.2f} ms / {least[theirs] * 1e3:.2f} ms)")  # fmt: skip


if __name__ == "__main__":
    main(sys.argv[1], pathlib.Path(sys.argv[2]))
