"""The values that a scope takes and gives."""

from __future__ import annotations

import enum
from collections.abc import Iterable
from dataclasses import dataclass
from typing import Any

from . import _core

_MIB = 1048576


class Exclusion(str, enum.Enum):
    """Why a file is left out, in the order in which a scope applies its rules."""

    directory = "directory"
    index_data = "index_data"
    unknown_language = "unknown_language"
    lockfile = "lockfile"
    minified = "minified"
    gitignore = "gitignore"
    size = "size"
    language = "language"

    __str__ = str.__str__
    __format__ = str.__format__  # type: ignore[assignment]


@dataclass(frozen=True, slots=True)
class Decision:
    """The verdict on one file: true when it is indexed."""

    indexable: bool
    #: The rule that leaves the file out; None when it is in.
    kind: Exclusion | None = None
    #: Why, for a log line or a list of skipped files; empty when the file is in.
    reason: str = ""
    #: The language the file is indexed as.
    language: str | None = None

    def __post_init__(self) -> None:
        if not isinstance(self.indexable, bool):
            raise TypeError(f"indexable: expected bool, not {type(self.indexable).__name__}")
        if self.kind is not None:
            object.__setattr__(self, "kind", Exclusion(self.kind))

    def __bool__(self) -> bool:
        return self.indexable


@dataclass(frozen=True, slots=True)
class IndexLimits:
    """What the configuration's index section lets into the index."""

    #: The largest size, in bytes, of a file that is indexed.
    max_file_bytes: int
    #: The languages whose files are indexed; None: every language.
    languages: frozenset[str] | None

    def __post_init__(self) -> None:
        if not isinstance(self.max_file_bytes, int):
            raise TypeError(
                f"max_file_bytes: expected int, not {type(self.max_file_bytes).__name__}"
            )
        if self.languages is not None:
            object.__setattr__(self, "languages", _names(self.languages, "languages"))

    @classmethod
    def from_config(cls, index: Any) -> IndexLimits:
        """The limits that `index` asks for: any object with max_file_size_mb, in MiB, and
        languages.

        A size that gives no positive number of bytes is replaced by the default, with a
        warning. No languages restrict nothing; "typescript" brings "tsx". Raises
        AttributeError when `index` lacks a field, TypeError when its languages are no list
        of names.
        """
        size = index.max_file_size_mb
        try:
            max_file_bytes = int(float(size) * _MIB)
        except (TypeError, ValueError, OverflowError):
            max_file_bytes = 0
        if max_file_bytes <= 0:
            from . import DEFAULT_MAX_FILE_SIZE_MB, logger

            logger.warning(
                "index.max_file_size_mb=%r is not a positive number; using %d",
                size,
                DEFAULT_MAX_FILE_SIZE_MB,
            )
            max_file_bytes = DEFAULT_MAX_FILE_SIZE_MB * _MIB
        names = _names(index.languages or (), "index.languages")
        if "typescript" in names:
            names |= {"tsx"}
        return cls(max_file_bytes, names or None)

    def allows(self, language: str) -> bool:
        """Whether files of `language` are indexed. Only code and documentation languages are
        ever restricted."""
        if self.languages is None or _core.tier_of(language) not in ("code", "docs"):
            return True
        return language in self.languages


@dataclass(frozen=True, slots=True)
class IgnoreRule:
    """The rule of an ignore file that decided about a path."""

    #: The ignore file, as git names it: relative to the root where it lies below it.
    source: str
    #: The pattern's line, counted from 1.
    line: int
    #: The pattern as written.
    pattern: str


@dataclass(frozen=True, slots=True)
class Explanation:
    """What decided about a file, for a person who asks why."""

    decision: Decision
    #: Of a file left out by its directory: the skipped directory, by its path.
    directory: str | None = None
    #: Of a minified bundle: the glob its name matches.
    glob: str | None = None
    #: The rule of git's that decided, if one did.
    rule: IgnoreRule | None = None


def _names(names: Iterable[object], argument: str) -> frozenset[str]:
    if isinstance(names, str) or not isinstance(names, Iterable):
        raise TypeError(
            f"{argument}: expected a list of language names, not {type(names).__name__}"
        )
    return frozenset(map(str, names))
