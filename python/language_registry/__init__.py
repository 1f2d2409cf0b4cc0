"""The language registry: which language a file name belongs to, of what tier that language
is, which files are dependency locks, and each language's test conventions.

path_filter asks the module of this name beside it. A host that has a registry of its own
puts its module in this one's place: with the same four names, callable from any thread.

    detect_language("app.ts")    # "typescript", or None
    is_lockfile("yarn.lock")     # True
    tier_of("typescript")        # "code"
    LANGUAGES.classify("app.ts") # a LanguageRecord, or None

Every argument is a file's name, not a path. The tables are compiled in.
"""

from __future__ import annotations

from typing import NamedTuple

from . import _native
from ._native import detect_language, is_lockfile, tier_of

__all__ = ["LANGUAGES", "LanguageRecord", "Languages", "detect_language", "is_lockfile", "tier_of"]

#: Which tables these are: path_filter, when its own are the same, asks them directly.
TABLES: str = _native.VERSION


class LanguageRecord(NamedTuple):
    """What the registry knows of the language of a file."""

    #: "code" for programming languages, "docs" for documentation, else another name.
    tier: str
    #: Shell-style globs that the names of this language's test files match.
    test_file_globs: tuple[str, ...]


class Languages:
    """The registry object."""

    __slots__ = ()  # replaced as a whole, or not at all

    def test_dir_names(self) -> frozenset[str]:
        """The directory names, in lower case, that hold test code."""
        return _native.TEST_DIR_NAMES

    def test_file_globs(self) -> tuple[str, ...]:
        """The test file-name globs of all languages."""
        return _native.TEST_FILE_GLOBS

    def classify(self, name: str) -> LanguageRecord | None:
        """The record of the language of a file of this name; None when it is of none."""
        found = _native.classify(name)
        return None if found is None else LanguageRecord(found[0], tuple(found[1]))


LANGUAGES = Languages()
