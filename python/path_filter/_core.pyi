from collections.abc import Callable, Iterable, Iterator
from os import PathLike
from typing import Any, final

from ._records import Decision, IndexLimits

VERSION: str
ALWAYS_SKIP_DIRS: frozenset[str]
ALLOWED_HIDDEN_DIRS: frozenset[str]
GITHUB_ALLOWED_SUBDIRS: frozenset[str]
MINIFIED_FILE_GLOBS: tuple[str, ...]
SQL_TEST_PATH_FN: str
DEFAULT_MAX_FILE_SIZE_MB: int
INDEX_DATA_DIR: str
IGNORE_FILE_NAME: str

def bind_registry(registry: Any) -> None: ...
def set_records(decision: type, exclusions: tuple[str, ...]) -> None: ...
def set_sink(sink: Callable[[str, tuple[Any, ...]], None] | None) -> None: ...
def sql_condition(alias: str, exclude: bool, via: str) -> str: ...
def tier_of(language: str) -> str: ...
def _sql_is_test_path(path: str | bytes | None) -> int: ...
def should_skip_directory(
    dirname: str | PathLike[str], parent_path: str | PathLike[str] | None = None
) -> bool:
    """Whether the indexer skips the directory dirname (one name) that lies in parent_path."""

def should_skip_path(path: str | PathLike[str]) -> bool:
    """Whether any component of path is skipped, its last one included."""

def is_indexable_path(path: str | PathLike[str]) -> bool:
    """Whether no component of path is skipped."""

def is_test_path(path: str | PathLike[str]) -> bool:
    """Whether path is test code."""

@final
class Walk(Iterator[str]):
    def __iter__(self) -> Walk: ...
    def __next__(self) -> str: ...

class Scope:
    def __init__(self, root: Any, limits: Any, excludes_file: Any, /) -> None: ...
    @property
    def root(self) -> Any:
        """The repository's root, as it was given."""

    @property
    def limits(self) -> IndexLimits | None:
        """The configuration's limits, or None."""

    def refresh(self) -> None:
        """Forgets git's ignore rules and verdicts: the next question reads them again."""

    def relative(self, path: str | PathLike[str]) -> str | None:
        """The path below the root that an absolute path names; None for the root itself and
        for what is not below it. Both are compared as text."""

    def is_indexable(
        self, rel_path: str | PathLike[str], *, size: int | None = None
    ) -> Decision:
        """The Decision on the file at rel_path, relative to the root; size is in bytes."""

    def are_indexable(
        self,
        rel_paths: Iterable[str | PathLike[str]],
        *,
        sizes: Iterable[int | None] | None = None,
    ) -> list[Decision]:
        """What is_indexable answers about each of rel_paths, for less."""

    def is_ignored(self, rel_path: str | PathLike[str]) -> bool:
        """Whether git's ignore rules alone leave out the file at rel_path."""

    def admits_directory(self, rel_dir: str | PathLike[str]) -> bool:
        """Whether a walk goes into the directory at rel_dir."""

    def walk(self, on_error: Callable[[OSError], object] | None = None) -> Walk:
        """The files below the root, outside the directories that are left out, one at a time
        as they are taken: nothing is open in between. on_error is told of each directory that
        cannot be listed. A name that begins with a backslash reads as an absolute path:
        is_indexable raises ValueError for it."""

    def _explain(
        self, rel_path: str | PathLike[str], size: int | None
    ) -> tuple[Decision, str | None, str | None, tuple[str, int, str] | None]: ...
    def _deciding_ignore_rule(
        self, rel_path: str | PathLike[str]
    ) -> tuple[str, int, str] | None: ...
