VERSION: str
TEST_DIR_NAMES: frozenset[str]
TEST_FILE_GLOBS: tuple[str, ...]

def detect_language(name: str) -> str | None:
    """The name of the language that a file of this name is written in."""

def is_lockfile(name: str) -> bool:
    """Whether a file of this name is a dependency lock."""

def tier_of(language: str) -> str:
    """The tier of a language; "" for one that is not known."""

def classify(name: str) -> tuple[str, list[str]] | None: ...
