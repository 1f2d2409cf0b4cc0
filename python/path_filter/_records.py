"""The values that a scope takes and gives."""

from __future__ import annotations

import enum
import logging
from collections.abc import Iterable
from dataclasses import dataclass
from typing import Any, final

from . import _core


class _Kinds(enum.EnumMeta):
    def __dir__(cls) -> list[str]:
        return list(cls.__members__)  # for help(): not what a text has


class Exclusion(str, enum.Enum, metaclass=_Kinds):
    """Why a file is left out, in the order in which a scope applies its rules. A text."""

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


@dataclass(frozen=True, slots=True, init=False)
class Decision:
    """The verdict on one file: true when it is indexed.

    indexable  whether it is
    kind       the Exclusion, the rule that leaves the file out; None when it is in
    reason     why, for a log line or a list of skipped files; empty when the file is in
    language   the language the file is indexed as, or None
    """

    indexable: bool
    kind: Exclusion | None = None
    reason: str = ""
    language: str | None = None

    def __init__(
        self,
        indexable: bool,
        kind: Exclusion | str | None = None,
        reason: str = "",
        language: str | None = None,
    ) -> None:
        _expect(isinstance(indexable, bool), "indexable", "bool", indexable)
        _expect(kind is None or isinstance(kind, str), "kind", "Exclusion or None", kind)
        _expect(isinstance(reason, str), "reason", "str", reason)
        is_language = language is None or isinstance(language, str)
        _expect(is_language, "language", "str or None", language)
        object.__setattr__(self, "indexable", indexable)
        object.__setattr__(self, "kind", None if kind is None else Exclusion(kind))
        object.__setattr__(self, "reason", reason)
        object.__setattr__(self, "language", language)

    def __bool__(self) -> bool:
        return self.indexable


@final
@dataclass(frozen=True, slots=True, init=False)
class IndexLimits:
    """What the configuration's index section lets into the index.

    max_file_bytes  the largest size, in bytes, of a file that is indexed
    languages       the languages whose files are indexed; None: every language
    """

    max_file_bytes: int
    languages: frozenset[str] | None

    def __init__(self, max_file_bytes: int, languages: Iterable[str] | None) -> None:
        _expect(isinstance(max_file_bytes, int), "max_file_bytes", "int", max_file_bytes)
        names = None
        if languages is not None:
            given = list(_entries(languages, "languages"))
            for name in given:
                _expect(isinstance(name, str), "languages", "texts", name)
            names = frozenset(map(str.__str__, given))
        object.__setattr__(self, "max_file_bytes", max_file_bytes)
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
    """The rule of an ignore file that decided about a path.

    source   the ignore file, as git names it: relative to the root where it lies below it
    line     the pattern's line, counted from 1
    pattern  the pattern as written
    """

    source: str
    line: int
    pattern: str


@dataclass(frozen=True, slots=True)
class Explanation:
    """What decided about a file, for a person who asks why.

    decision   what is_indexable answers
    directory  of a file left out by its directory: the skipped directory, by its path
    glob       of a minified bundle: the glob its name matches
    rule       the IgnoreRule of git's that decided, if one did
    """

    decision: Decision
    directory: str | None = None
    glob: str | None = None
    rule: IgnoreRule | None = None


def _entries(names: Iterable[Any], argument: str) -> Iterable[Any]:
    is_list = isinstance(names, Iterable) and not isinstance(names, (str, bytes, bytearray))
    _expect(is_list, argument, "a list of language names", names)
    return names


def _expect(holds: bool, argument: str, expected: str, value: object) -> None:
    if not holds:
        raise TypeError(f"{argument}: expected {expected}, not {type(value).__name__}")
