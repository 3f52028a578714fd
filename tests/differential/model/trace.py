"""Log lines and text as the model writes them down.

Texts are bytes held in a `str`, one character for each byte (Latin-1).
"""

from __future__ import annotations

import re
from typing import Sequence

ANY_NUMBER = "\ue000"
"""Stands for a number whose value is not defined."""

ANY_LINE = "\ue001"
"""Stands for one log line whose wording and level are free."""


def escape(text: str) -> str:
    """Printable form: everything but printable ASCII, and the backslash, as \\xNN."""
    return "".join(
        c if c in (ANY_NUMBER, ANY_LINE) or (" " <= c <= "~" and c != "\\") else f"\\x{ord(c):02x}"
        for c in text
    )


def lines_equal(expected: Sequence[str], actual: Sequence[str]) -> bool:
    """Whether the library's lines are the model's, free places in the model's lines allowed for."""
    return len(expected) == len(actual) and all(map(_line_equal, expected, actual))


def _line_equal(expected: str, actual: str) -> bool:
    if expected == ANY_LINE:
        return True
    if ANY_NUMBER not in expected:
        return expected == actual
    pattern = "-?[0-9]+".join(re.escape(part) for part in expected.split(ANY_NUMBER))
    return re.fullmatch(pattern, actual) is not None


class Log:
    """The lines in the order in which they are logged, each as level letter, blank, text."""

    def __init__(self) -> None:
        self.lines: list[str] = []

    def info(self, text: str) -> None:
        self.lines.append("I " + escape(text))

    def warn(self, text: str) -> None:
        self.lines.append("W " + escape(text))

    def error(self, text: str) -> None:
        self.lines.append("E " + escape(text))

    def anything(self) -> None:
        """One line that must be there, whatever it says."""
        self.lines.append(ANY_LINE)
