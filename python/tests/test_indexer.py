"""The example indexer: after any changes that it watched, its table is that of a fresh pass."""

import contextlib
import os
import random
import shutil
import sqlite3
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from types import SimpleNamespace

import pytest

pytest.importorskip("watchdog")
sys.path.insert(0, os.path.join(os.path.dirname(__file__), "../../examples/indexer"))
import indexer  # noqa: E402

CONFIG = SimpleNamespace(max_file_size_mb=0.001, languages=["python", "c"])
WINDOWS = os.name == "nt"
ODD = "\u00e9.py" if WINDOWS else os.fsdecode(b"\xff.py")
NAMES = ["a.py", "b.c", "test_a.py", "x.log", ODD, "d.md", *([] if WINDOWS else ["\\c.py"])]
RULES = ["*.c\n", "/d1/\n", "a.py\n!/d2/a.py\n", "d*/\n!d2/\n", "!b.c\n", ""]


def table(database):
    rows = database.execute("SELECT path, language, size, mtime, lines FROM files").fetchall()
    return {*rows, *database.execute("SELECT path, name FROM imports JOIN files ON file = id")}


def fresh_pass(root):
    with contextlib.closing(indexer.Indexer(root, ":memory:", CONFIG)) as fresh:
        fresh.update()
        return table(fresh.database)


def change(chance, base):
    """One change of a kind that people and their tools make: in the tree, or to and from away."""
    root = base / "root"
    places = [path for path in base.rglob("d[123]") if ".git" not in path.parts]
    place, other = chance.choices([root, base / "away", *places], k=2)
    some = chance.choice([at for at in place.iterdir() if at != root / ".git"] or [place / "d1"])
    kind = chance.choice(["write", "write", "rules", "rules", "tree", "move", "move", "delete"])
    if kind == "write":
        (place / chance.choice(NAMES)).write_text("import m\n" * chance.choice([1, 2, 199]))
    elif kind == "rules":
        files = [place / ".gitignore"] * 4 + [root / ".git/info/exclude", base / "git/ignore"]
        chance.choice(files).write_text(chance.choice(RULES))
    elif kind == "tree":
        deep = place / chance.choice(["d1", "d2", "d3"]) / chance.choice(["d1", "d2"])
        deep.mkdir(parents=True, exist_ok=True)
        (deep / chance.choice([".gitignore", *NAMES])).write_text("b.c\n")
        if chance.random() < 0.2 and not WINDOWS:  # a repository within
            subprocess.run(["git", "init", "-q", deep.parent], check=True)
    elif kind == "move":
        some.rename(other / chance.choice([some.name, "a.py", "d1", "d3"]))
    elif some.is_dir():
        shutil.rmtree(some)
    else:
        some.unlink()


NEEDS_GIT = pytest.mark.skipif(WINDOWS, reason="there is no git for Windows here")


@pytest.mark.parametrize("seed, git_lists", [pytest.param(1, True, marks=NEEDS_GIT), (2, False)])
def test_the_table_ends_as_a_fresh_pass_makes_it(tmp_path, monkeypatch, seed, git_lists):
    monkeypatch.setenv("XDG_CONFIG_HOME", str(tmp_path))
    monkeypatch.setenv("GIT_CONFIG_GLOBAL", os.devnull)
    for directory in (root := tmp_path / "root", tmp_path / "git", tmp_path / "away"):
        directory.mkdir()
    if git_lists:
        subprocess.run(["git", "init", "-q", root], check=True)
    chance, watching = random.Random(seed), True
    with (
        contextlib.closing(indexer.Indexer(root, tmp_path / "db", CONFIG)) as watched,
        contextlib.closing(sqlite3.connect(tmp_path / "db")) as reader,
        ThreadPoolExecutor(1) as thread,
    ):
        watched.watch()
        watched.update()

        def follow():
            while watching:
                watched.update(watched.changes())

        followed = thread.submit(follow)
        try:
            for step in range(1, 61):
                with contextlib.suppress(OSError):  # a directory into itself, or onto another
                    change(chance, tmp_path)
                deadline = time.monotonic() + 20
                while step % 4 == 0 and (differing := table(reader) ^ fresh_pass(root)):
                    assert time.monotonic() < deadline, (seed, step, differing, followed)
                    time.sleep(0.02)
        finally:
            watching = False
            watched._changes.put("")  # wakes it
        followed.result(20)
        assert table(reader) == fresh_pass(root), seed


def test_the_report_leaves_tests_out(tmp_path):
    for name in ("a.py", "test_a.py", ODD, f"test_{ODD}"):
        (tmp_path / name).write_text("import os\nimport re\n")
    with contextlib.closing(indexer.Indexer(tmp_path, ":memory:", CONFIG)) as indexed:
        indexed.update()
        languages, imports, longest = indexer.report(indexed.database).values()
    assert languages == [("python", 2, 4)] and imports == [("os", 2), ("re", 2)]
    assert longest == ["a.py", ODD]
