"""The values that a scope takes and gives."""

from __future__ import annotations

import enum
import logging
from collections.abc import Iterable, Set
from dataclasses import dataclass
from typing import Any, final

from . import _core


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
        _expect(isinstance(self.indexable, bool), "indexable", "bool", self.indexable)
        if self.kind is not None:
            _expect(isinstance(self.kind, str), "kind", "Exclusion or None", self.kind)
            object.__setattr__(self, "kind", Exclusion(self.kind))
        _expect(isinstance(self.reason, str), "reason", "str", self.reason)
        is_language = self.language is None or isinstance(self.language, str)
        _expect(is_language, "language", "str or None", self.language)

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
        is_size = isinstance(self.max_file_bytes, int)
        _expect(is_size, "max_file_bytes", "int", self.max_file_bytes)
        if self.languages is not None:
            for name in _entries(self.languages, "languages"):
                _expect(isinstance(name, str), "languages", "texts", name)
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
        size, languages = index.max_file_size_mb, index.languages
        max_file_bytes = _core.configured_bytes(size)
        if max_file_bytes is None:
            default = _core.DEFAULT_MAX_FILE_SIZE_MB
            logging.getLogger(__package__).warning(_core.UNUSABLE_SIZE_WARNING, size, default)
            max_file_bytes = default << 20
        names = []
        for name in () if languages in (None, "") else _entries(languages, "index.languages"):
            is_name = not isinstance(name, (list, tuple, dict))
            _expect(is_name, "index.languages", "names", name)
            names.append(str(name))
        return cls(max_file_bytes, _core.configured_languages(names))

    def allows(self, language: str) -> bool:
        """Whether files of `language` are indexed. Only code and documentation languages are
        ever restricted."""
        _expect(isinstance(language, str), "language", "str", language)
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


def _entries(names: Iterable[object], argument: str) -> Iterable[object]:
    is_list = isinstance(names, Iterable) and not isinstance(names, (str, bytes, bytearray))
    _expect(is_list, argument, "a list of language names", names)
    return names


def _expect(holds: bool, argument: str, expected: str, value: object) -> None:
    if not holds:
        raise TypeError(f"{argument}: expected {expected}, not {type(value).__name__}")
