from __future__ import annotations

from typing import Any, Optional


class CacheError(OSError):
    """A cache that could not be opened, read or written.

    `filename` is the file, `strerror` the reason in words.
    """

    def __init__(self, reason: str, filename: Optional[str] = None) -> None:
        super().__init__(reason)
        self.strerror = reason
        self.filename = filename

    def __str__(self) -> str:
        return f"{self.filename}: {self.strerror}" if self.filename else str(self.strerror)

    def __reduce__(self) -> tuple[Any, ...]:
        return type(self), (self.strerror, self.filename)


class Cancelled(Exception):
    """A call that its progress function ended by returning False; it has left nothing behind."""


class CacheWarning(UserWarning):
    """What a careful person wants to know of a call that did what it was asked."""
