"""A small indexer over path_filter: the files of a tree and what they import, in SQLite.

    python indexer.py ROOT --db FILE [--watch]

Needs the package watchdog. A change is but a path to look at again: what is there by then, and
what the scope says of it, decides. So it does not matter in which order changes are heard of.
"""

import argparse
import contextlib
import logging
import os
import queue
import re
import sqlite3
import stat
import subprocess
import sys
import time
from multiprocessing.pool import ThreadPool
from pathlib import Path, PurePath
from typing import Any

from path_filter import IGNORE_FILE_NAME, IndexLimits, IndexScope, git_lookups
from path_filter import production_paths, register_path_functions, sql_test_path_filter
from watchdog import events
from watchdog.observers import Observer

SCHEMA = """PRAGMA foreign_keys = ON;
CREATE TABLE IF NOT EXISTS files(id INTEGER PRIMARY KEY, path TEXT NOT NULL UNIQUE,
    language TEXT NOT NULL, size INTEGER NOT NULL, mtime INTEGER NOT NULL, lines INTEGER NOT NULL);
CREATE TABLE IF NOT EXISTS imports(file INTEGER NOT NULL REFERENCES files(id) ON DELETE CASCADE,
    name TEXT NOT NULL, PRIMARY KEY(file, name)) WITHOUT ROWID;"""
INSERT = "INSERT INTO files(path, language, size, mtime, lines) VALUES(?, ?, ?, ?, ?)"
DELETE = "DELETE FROM files WHERE path = ?"  # and what it imports
# Looked for where a file begins: a stand-in for a parser.
IMPORT = re.compile(rb'^[ \t]*(?:#[ \t]*include[ \t]*[<"]|import[ \t]+|from[ \t]+)([\w./-]+)', re.M)
RULES = (IGNORE_FILE_NAME, ".git")  # where one comes or goes, other files belong
GIT = git_lookups(logging.warning)  # the user's own rules, and whether their case counts
# Not that files are opened: we open them ourselves.
HEARD = "FileCreated FileModified FileMoved FileDeleted DirCreated DirMoved DirDeleted".split()


def git(root: Path, *arguments: str) -> str | None:
    """What git prints; None when it fails, as it does in a tree that is no work tree."""
    done = subprocess.run(["git", "-C", root, *arguments], capture_output=True)
    return None if done.returncode else os.fsdecode(done.stdout)


def stored(path: str) -> str | bytes:
    """A path for SQLite, whose text is UTF-8: a name that is not becomes a blob, so that no file
    is lost for its name. The SQL function takes both; os.fsdecode gives the path again."""
    name = os.fsencode(path)
    return path if name.decode(errors="replace") == path else name


class Indexer(events.FileSystemEventHandler):
    """Keeps a database in line with the files below a root; config is the index section."""

    def __init__(self, root: str, database: str, config: Any) -> None:
        self.root = Path(os.path.abspath(root))
        limits = IndexLimits.from_config(config)
        self.scope = IndexScope(
            self.root, limits=limits, excludes_file=GIT.excludes_file, ignore_case=GIT.ignore_case
        )
        self.database = sqlite3.connect(database, check_same_thread=False)
        self.database.executescript(SCHEMA)
        register_path_functions(self.database)
        # They ask the one scope. The database is for the one thread that calls update().
        self._workers = ThreadPool(2)
        self._observer = Observer()
        self._rule_files: set[str] = set()
        self._changes: queue.SimpleQueue[str] = queue.SimpleQueue()

    def close(self) -> None:
        with contextlib.suppress(KeyError):  # watchdog's, of a directory that left the tree
            self._observer.stop()
        self._workers.terminate()
        self.database.close()

    def watch(self) -> None:
        """Hears of changes from here on: before the first pass, so that none is missed."""
        # Git has rules outside the tree too; a linked work tree even its info/exclude.
        asked = git(self.root, "rev-parse", "--git-path", "info/exclude", "--git-path", "config")
        names = [*(asked or "").splitlines(), GIT.excludes_file(self.root) or ""]
        self._rule_files = {os.path.join(self.root, name) for name in names if name}
        heard = [getattr(events, f"{kind}Event") for kind in HEARD]
        self._observer.schedule(self, self.root, recursive=True, event_filter=heard)
        for directory in {os.path.dirname(path) for path in self._rule_files}:
            if self.scope.relative(directory) is None and os.path.isdir(directory):
                self._observer.schedule(self, directory, event_filter=heard)
        self._observer.start()

    def on_any_event(self, event: events.FileSystemEvent) -> None:
        for path in {os.fsdecode(event.src_path), os.fsdecode(event.dest_path)} - {""}:
            self._changes.put(path + "/" * event.is_directory)

    def changes(self) -> set[str]:
        """The paths that changed since the last call, as soon as there are any."""
        batch = {self._changes.get()}
        time.sleep(0.1)  # a change seldom comes alone
        return batch | {self._changes.get() for _ in range(self._changes.qsize())}

    def update(self, changed: set[str] | None = None) -> None:
        """Looks again at the absolute paths that changed; at everything when they are not known,
        or when a directory or a file of rules is among them."""
        paths, whole = set[str](), changed is None
        for path in changed or ():
            relative = self.scope.relative(path)
            if path in self._rule_files:
                whole = True
            elif relative is not None:
                parent, name = os.path.split(relative)
                if name in RULES or path.endswith("/"):
                    whole |= self._admits(parent if name in RULES else relative)
                elif not self._is_nested(relative):
                    paths.add(relative)
        # What changed is read; of all the rest, what is not as the table has it.
        todo: dict[str, Any] = dict.fromkeys(paths)
        with self.database:
            if whole:
                self.scope.refresh()
                rows = self.database.execute("SELECT path, size, mtime FROM files")
                known = {os.fsdecode(path): (size, mtime) for path, size, mtime in rows}
                listed = self._list()
                todo = {path: None if path in paths else known.get(path) for path in listed}
                self.database.executemany(DELETE, [(stored(p),) for p in known.keys() - listed])
            found = self._workers.imap_unordered(self._examine, todo.items(), chunksize=100)
            for path, row, names in filter(None, found):
                self.database.execute(DELETE, (stored(path),))
                if row:
                    file = self.database.execute(INSERT, (stored(path), *row)).lastrowid
                    pairs = [(file, name) for name in names]
                    self.database.executemany("INSERT INTO imports VALUES(?, ?)", pairs)

    def _list(self) -> set[str]:
        """Every file that may belong. Git names the tracked ones that it ignores, too."""
        os.listdir(self.root)  # a root that is gone is no empty tree
        asked = ("ls-files", "-z", "--cached", "--others", "--exclude-standard")
        listed = git(self.root, *asked) if os.path.lexists(self.root / ".git") else None
        files = self.scope.walk(logging.warning) if listed is None else listed.split("\0")
        return set(files) - {""}

    def _admits(self, directory: str) -> bool:
        try:
            return self.scope.admits_directory(directory)
        except ValueError:  # named like an absolute path
            return False

    def _is_nested(self, path: str) -> bool:
        """Whether git leaves a file to a repository within this one."""
        held = [os.path.lexists(self.root / above / ".git") for above in PurePath(path).parents]
        return held[-1] and any(held[:-1])

    def _examine(self, file: tuple[str, Any]) -> tuple[str, Any, set[str]] | None:
        """A file's row, without one when it does not belong; None when it is as it was."""
        path, before = file
        row, names = None, set[str]()
        try:
            status = os.lstat(self.root / path)
            now = status.st_size, status.st_mtime_ns
            if stat.S_ISREG(status.st_mode):
                decision = self.scope.is_indexable(path, size=status.st_size)
                if decision and now == before:
                    return None
                if decision:
                    text = (self.root / path).read_bytes()
                    names = {name.decode() for name in IMPORT.findall(text, 0, 1 << 15)}
                    row = (decision.language, *now, text.count(b"\n"))
        except OSError as error:
            if not isinstance(error, (FileNotFoundError, NotADirectoryError)):
                logging.warning("Cannot read %r: %s", path, error.strerror)
        except UnicodeDecodeError:
            raise  # of the repository's own .git
        except ValueError as error:  # a name like "\\x" or "C:\\x", an absolute path
            logging.warning("Cannot index: %s", error)
        return path, row, names


def report(database: sqlite3.Connection) -> dict[str, list[Any]]:
    """The code without its tests."""
    by_path, none = sql_test_path_filter("f", exclude=True)
    languages = f"""SELECT language, count(*), sum(lines) FROM files f WHERE {by_path}
        GROUP BY language ORDER BY 3 DESC"""
    # A join has many rows of a file: this form asks once of each file.
    by_id, none = sql_test_path_filter("f", exclude=True, via="id")
    imports = f"""SELECT name, count(*) FROM imports JOIN files f ON f.id = file WHERE {by_id}
        GROUP BY name ORDER BY 2 DESC, name LIMIT 10"""
    paths = database.execute("SELECT path FROM files ORDER BY lines DESC, path")
    return {
        "language, files, lines": database.execute(languages, none).fetchall(),
        "imported, by files": database.execute(imports, none).fetchall(),
        "longest": production_paths(os.fsdecode(path) for (path,) in paths)[:10],
    }


def main() -> None:
    parser = argparse.ArgumentParser(description="Indexes the source files of a tree.")
    parser.add_argument("root", metavar="ROOT", help="a git work tree, or any other directory")
    parser.add_argument("--db", metavar="FILE", required=True, help="the SQLite database")
    parser.add_argument("--watch", action="store_true", help="then follow the tree, until Ctrl-C")
    parser.add_argument("--max-file-size-mb", metavar="N", default=10, help="default: 10")
    parser.add_argument("--languages", metavar="NAME", nargs="+", help="default: all")
    options = parser.parse_args()
    logging.basicConfig(format="%(levelname)s %(name)s: %(message)s")
    try:
        with contextlib.closing(Indexer(options.root, options.db, options)) as indexer:
            if options.watch:
                indexer.watch()
            indexer.update()
            for title, rows in report(indexer.database).items():
                print(title, *map(repr, rows), sep="\n    ", flush=True)
            while options.watch:
                indexer.update(indexer.changes())
    except KeyboardInterrupt:
        sys.exit(130)
    except (OSError, sqlite3.Error) as error:
        sys.exit(f"indexer: {error}")


if __name__ == "__main__":
    main()
