"""Result codes of the library, and the exceptions that carry them."""

from __future__ import annotations

import enum
from typing import Dict, List, Sequence

__all__ = ["CacheFileError", "Code", "ContainerError", "Finding", "Findings", "Severity"]


class Code(enum.IntEnum):
    """The result codes of the library."""

    OK = 0
    NOT_FOUND = 4001
    BAD_CONTAINER = 4002
    DISK_FULL = 4003
    ACCESS_DENIED = 4004
    BAD_PATH = 4005
    FAILED = 4006
    NOT_OPEN = 4007
    ALREADY_OPEN = 4008
    INVALID_ARG = 4009
    INVALID_STATE = 4010
    OUT_OF_MEMORY = 4011
    WRITE_DENIED = 4012
    TRY_AGAIN = 4013


class CacheFileError(Exception):
    """An operation failed. ``code`` is the library's result code for the failure."""

    def __init__(self, code: int, message: str) -> None:
        super().__init__(message)
        self.code = Code(code) if code in _CODES else code

    def __str__(self) -> str:
        return f"{self.args[0]} (code {int(self.code)})"

    def __reduce__(self) -> "tuple[object, ...]":
        return type(self), (int(self.code), self.args[0])


_CODES = frozenset(Code)


class Severity(str, enum.Enum):
    """ERROR: a reader refuses the container, or bytes are missing. WARNING: anything else."""

    WARNING = "warning"
    ERROR = "error"


class Finding:
    """One problem of a container, as in a line of ``cachefile doctor``."""

    __slots__ = ("severity", "code", "offset", "message")

    def __init__(self, severity: Severity, code: str, offset: int, message: str) -> None:
        self.severity = severity
        self.code = code  #: for programs; does not change between versions
        self.offset = offset  #: position in the file
        self.message = message

    def __str__(self) -> str:
        return f"{self.severity.value} {self.code} {self.offset} {self.message}"

    def __repr__(self) -> str:
        return f"<Finding {self}>"


class Findings(List[Finding]):
    """The first findings of each code, in the order of the file's parts.

    ``totals`` counts all findings by code.
    """

    def __init__(self) -> None:
        super().__init__()
        self.totals: Dict[str, int] = {}


class ContainerError(CacheFileError):
    """The file has no valid container header. ``findings`` has the reasons."""

    def __init__(self, code: int, message: str, findings: Sequence[Finding] = ()) -> None:
        super().__init__(code, message)
        self.findings: List[Finding] = list(findings)

    def __reduce__(self) -> "tuple[object, ...]":
        return type(self), (int(self.code), self.args[0], self.findings)
