"""Makes a case smaller as long as it keeps what it shows."""

from __future__ import annotations

import copy
from typing import Any, Callable, Iterator

Case = dict[str, Any]
Path = tuple[str, ...]

LISTS: tuple[Path, ...] = (
    ("steps",),
    ("settings",),
    ("instruments",),
    ("board", "single"),
    ("board", "combined"),
)


def minimise(case: Case, shows: Callable[[Case], bool]) -> Case:
    """The smallest case found for which `shows` holds; `case` itself must show it."""
    smaller = True
    while smaller:
        smaller = False
        for candidate in _candidates(case):
            if shows(candidate):
                case = candidate
                smaller = True
                break
    return case


def _candidates(case: Case) -> Iterator[Case]:
    for path in LISTS:
        yield from _without_items(case, path)
    yield from _shorter_file(case)


def _without_items(case: Case, path: Path) -> Iterator[Case]:
    holder: Any = case
    for key in path[:-1]:
        holder = holder.get(key, {})
    count = len(holder.get(path[-1], []))
    size = count
    while size > 0:
        for first in range(0, count, size):
            if path == ("settings",) and first == 0:
                continue  # The device.
            candidate = copy.deepcopy(case)
            target: Any = candidate
            for key in path[:-1]:
                target = target[key]
            del target[path[-1]][first : first + size]
            yield candidate
        size //= 2


def _shorter_file(case: Case) -> Iterator[Case]:
    content = bytes.fromhex(case.get("file") or "")
    lines = content.splitlines(keepends=True)
    size = len(lines)
    while size > 0:
        for first in range(0, len(lines), size):
            yield {**case, "file": b"".join(lines[:first] + lines[first + size :]).hex()}
        size //= 2
