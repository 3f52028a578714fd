"""What an instrument's name says about the instrument."""

from __future__ import annotations

import string
from typing import Optional

DIGITS = frozenset(string.digits)
LETTERS = frozenset(string.ascii_letters)
COMBINATION_PREFIXES = ("SPD-", "IPS-")


def has_digit(text: str) -> bool:
    return any(c in DIGITS for c in text)


def underlying(name: str) -> Optional[str]:
    """The contract an option is on; None for a name that is no option's."""
    first = next((i for i, c in enumerate(name) if c in DIGITS), None)
    if first is None:
        return None
    for i in range(max(first, 1), len(name) - 1):
        if name[i] in "CP" and name[i - 1] in DIGITS and name[i + 1] in DIGITS:
            return name[:i]
    return None


def product_class(name: str) -> str:
    """The leading letters."""
    for i, c in enumerate(name):
        if c not in LETTERS:
            return name[:i]
    return name


def lowercase(text: str) -> str:
    """ASCII only, as tolower in the C locale."""
    return "".join(c.lower() if c in LETTERS else c for c in text)


def asks_for_all(text: str) -> bool:
    return "all" in lowercase(text)
