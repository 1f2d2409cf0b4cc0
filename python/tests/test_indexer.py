"""The example indexer in a real repository: its table after any changes is a fresh pass's."""

import contextlib
import os
import pathlib
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
sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "examples" / "indexer"))
import indexer  # noqa: E402

CONFIG = SimpleNamespace(max_file_size_mb=0.001, languages=["python", "c"])
NAMES = ["a.py", "b.c", "test_a.py", "x.log", os.fsdecode(b"\xff.py"), "\\c.py", "d.md"]
RULES = ["*.c\n", "/d1/\n", "a.py\n!/d2/a.py\n", "d*/\n!d2/\n", "!b.c\n", ""]
KINDS = ["write", "write", "rules", "rules", "no rules", "tree", "move", "out", "in", "delete"]


def table(database):
    rows = database.execute("SELECT path, language, size, mtime, lines FROM files").fetchall()
    names = database.execute("SELECT path, name FROM imports JOIN files ON file = id").fetchall()
    return sorted(rows + names, key=repr)


def fresh_pass(root):
    with contextlib.closing(indexer.Indexer(root, ":memory:", CONFIG)) as fresh:
        fresh.update()
        return table(fresh.database)


def change(chance, root, outside):
    directories = [path for path in root.rglob("d[123]") if ".git" not in path.parts]
    place, other = chance.choice([root, *directories]), chance.choice([root, *directories])
    names = sorted(name for name in os.listdir(place) if name != ".git")
    away = sorted(path for path in outside.iterdir() if path.name != "git")
    rules = [place / ".gitignore", place / ".gitignore"]
    rules += [root / ".git" / "info" / "exclude", outside / "git" / "ignore"]
    kind = chance.choice([*KINDS, "nest"])
    if kind == "write":
        imports = f"import m{chance.randrange(9)}\n" * chance.choice([1, 2, 99])
        (place / chance.choice(NAMES)).write_text(imports)
    elif kind == "rules":
        chance.choice(rules).write_text(chance.choice(RULES))
    elif kind == "no rules":
        chance.choice(rules).unlink(missing_ok=True)
    elif kind == "tree":
        deep = place / chance.choice(["d1", "d2", "d3"]) / chance.choice(["d1", "d2"])
        deep.mkdir(parents=True, exist_ok=True)
        (deep / chance.choice([".gitignore", *NAMES])).write_text("b.c\n")
        (deep.parent / chance.choice(NAMES)).write_text("import m\n")
    elif kind == "nest" and place != root:
        if (place / ".git").exists():
            shutil.rmtree(place / ".git")
        else:
            subprocess.run(["git", "init", "-q", place], check=True)
    elif kind == "in" and away:
        away[0].rename(place / away[0].name.partition("-")[2])
    elif names and kind in ("move", "out"):
        name = chance.choice(names)
        new = other / chance.choice([name, *NAMES[:2], "d1", "d3"])
        new = new if kind == "move" else outside / f"{time.monotonic_ns()}-{name}"
        (place / name).rename(new)
    elif names and kind == "delete":
        gone = place / chance.choice(names)
        shutil.rmtree(gone) if gone.is_dir() else gone.unlink()
    return kind


def test_the_table_ends_as_a_fresh_pass_makes_it(tmp_path, monkeypatch):
    root, outside = tmp_path / "root", tmp_path / "outside"
    (outside / "git").mkdir(parents=True)
    monkeypatch.setenv("XDG_CONFIG_HOME", str(outside))
    monkeypatch.setenv("GIT_CONFIG_GLOBAL", os.devnull)
    subprocess.run(["git", "init", "-q", root], check=True)
    seed = int(os.environ.get("INDEXER_SEED", 1))
    chance, steps, watching = random.Random(seed), [], True
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
        for step in range(60):
            with contextlib.suppress(OSError):  # a directory into itself, or onto another
                steps.append(change(chance, root, outside))
            deadline = time.monotonic() + 20
            while step % 4 == 3 and table(reader) != fresh_pass(root):
                assert time.monotonic() < deadline, (seed, steps, table(reader), fresh_pass(root))
                assert not followed.done() or followed.result()
                time.sleep(0.02)
        watching = False
        (root / "last.py").write_text("")
        followed.result(20)
        assert table(reader) == fresh_pass(root), (seed, steps)
