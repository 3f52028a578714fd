"""Random cases of the four kinds, drawn towards the edges.

A case is a JSON object. Names and other texts have one character for each byte; packets and file contents
are hexadecimal.
"""

from __future__ import annotations

from random import Random
from typing import Callable

from .basics import Case
from .cachefile import draw_cache
from .packets import draw_map
from .settings import draw_selection, render_ini
from .start import draw_start

__all__ = ["Case", "draw_case", "render_ini"]

_KINDS: dict[str, Callable[[Random], Case]] = {
    "selection": draw_selection,
    "map": draw_map,
    "cache": draw_cache,
    "start": draw_start,
}


def draw_case(kind: str, seed: int, number: int) -> Case:
    """The case of this number; the same for the same seed."""
    random = Random(f"{kind} {seed} {number}")
    return {"kind": kind, **_KINDS[kind](random)}
