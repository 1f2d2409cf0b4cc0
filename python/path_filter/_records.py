"""The values that a scope takes and gives."""

from __future__ import annotations

import enum
import logging
from collections.abc import Iterable, Set
from dataclasses import dataclass
from typing import Any, final

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
            if not isinstance(self.kind, str):
                raise TypeError(f"kind: expected Exclusion or None, not {type(self.kind).__name__}")
            object.__setattr__(self, "kind", Exclusion(self.kind))
        if not isinstance(self.reason, str):
            raise TypeError(f"reason: expected str, not {type(self.reason).__name__}")
        if not isinstance(self.language, (str, type(None))):
            raise TypeError(f"language: expected str or None, not {type(self.language).__name__}")

    def __bool__(self) -> bool:
        return self.indexable


@final
@dataclass(frozen=True, slots=True)
class IndexLimits:
    """What the configuration's index section lets into the index."""

    #: The largest size, in bytes, of a file that is indexed.
    max_file_bytes: int
    #: The languages whose files are indexed; None: every language.
    languages: Set[str] | None

    def __post_init__(self) -> None:
        if not isinstance(self.max_file_bytes, int):
            raise TypeError(
                f"max_file_bytes: expected int, not {type(self.max_file_bytes).__name__}"
            )
        if self.languages is not None:
            for name in _entries(self.languages, "languages"):
                if not isinstance(name, str):
                    raise TypeError(f"languages: expected texts, not {type(name).__name__}")
            names = frozenset(map(str.__str__, self.languages))
            object.__setattr__(self, "languages", names)

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
            is_bytes = isinstance(size, (bytes, bytearray, memoryview))
            max_file_bytes = 0 if is_bytes else int(float(size) * _MIB)
        except Exception:  # whatever it is, it is no number
            max_file_bytes = 0
        if max_file_bytes <= 0:
            logging.getLogger(__package__).warning(
                "index.max_file_size_mb=%r is not a positive number; using %d",
                index.max_file_size_mb,
                _core.DEFAULT_MAX_FILE_SIZE_MB,
            )
            max_file_bytes = _core.DEFAULT_MAX_FILE_SIZE_MB * _MIB
        languages = index.languages
        if languages is None or languages == "":
            languages = ()
        names = set()
        for name in _entries(languages, "index.languages"):
            if isinstance(name, (list, tuple, dict)):
                raise TypeError(f"index.languages: expected names, not {type(name).__name__}")
            names.add(str(name))
        if "typescript" in names:
            names.add("tsx")
        return cls(max_file_bytes, names or None)

    def allows(self, language: str) -> bool:
        """Whether files of `language` are indexed. Only code and documentation languages are
        ever restricted."""
        if not isinstance(language, str):
            raise TypeError(f"language: expected str, not {type(language).__name__}")
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


def _entries(names: object, argument: str) -> Iterable[object]:
    if isinstance(names, (str, bytes, bytearray)) or not isinstance(names, Iterable):
        raise TypeError(
            f"{argument}: expected a list of language names, not {type(names).__name__}"
        )
    return names
