"""Boards, clocks and files that a start may find."""

from __future__ import annotations

from datetime import datetime
from random import Random
from typing import Any, Optional

from .basics import EDGE_TIMES, Case, chance, date, draw_moment, hhmmss, stamp
from .cachefile import cache_content, time_line
from .settings import draw_index, draw_name, draw_settings

# Where what a start does changes, beside the ends of the trading time.
DECISION_EDGES = [80000, 90000, 101450, 103000, 113000, 133000, 160000, 201500, 210000, 233000]
COUNTERS = ("200b", "200c", "200d", "200e", "210b", "210c", "210d", "210e")


def _near_time(random: Random, moment: datetime) -> Optional[int]:
    now = hhmmss(moment)
    choice = random.randrange(12)
    if choice < 5:
        return max(0, now + random.choice([0, 1, 5, -1, 100, -100]))
    if choice < 7:
        apart = random.choice([1798, 1799, 1800, 1801]) + random.randint(-3, 3)
        return max(0, now + random.choice([apart, -apart]))
    if choice < 11:
        return random.choice([*EDGE_TIMES, 101449, 101450, 102000, 103000, 103001, 0xFFFFFFFF])
    return None if chance(random, 0.3) else 0


def _board_times(random: Random, moment: datetime) -> Case:
    if chance(random, 0.3):
        # Of no use: the host's time counts.
        return {"104": [0], "105": [0]}
    if chance(random, 0.3):
        now = hhmmss(moment)
        edge = min(DECISION_EDGES, key=lambda time: abs(time - now)) + random.choice([0, 0, 1, -1])
        return {"104": [edge], "105": [random.choice([edge, edge - 1])]}
    return {
        "104": [_near_time(random, moment) for _ in range(random.choice([1, 1, 2]))],
        "105": [_near_time(random, moment) for _ in range(random.choice([1, 1, 2]))],
    }


def _date_readings(random: Random, moment: datetime) -> list[int]:
    today = date(moment)
    other = random.choice([0, today - 1, today + 1, 20251231])
    if chance(random, 0.75):
        return [today]
    if chance(random, 0.5):
        return [other]
    return random.choice([[today, other], [today, today, other], [today, other, today]])


def _registers(random: Random, moment: datetime) -> Case:
    registers: Case = {
        "106": _date_readings(random, moment),
        **_board_times(random, moment),
        "11": [random.choice([0, 1, 2, 3, 3, 3])],
        "103": [random.choice([15, 15, 15, 0, 14, 1, 31, 0xFFFFFFFF])],
    }
    for counter in COUNTERS:
        registers[counter] = [random.randrange(3) * 1000]
    if chance(random, 0.35):
        moving = random.choice(COUNTERS)
        registers[moving] = random.choice([[5, 6], [5, 5, 6], [5, 6, 5], [5, 4, 4]])
    return registers


def _table_names(random: Random, names: list[str]) -> list[list[Any]]:
    entries: dict[int, list[str]] = {}
    for name in names:
        first = name[:16]
        script = [first]
        if chance(random, 0.3):
            script = random.choice([
                ["", first], [first[:2], first], [first, "", first], ["A", "B"] * 4,
                ["A", "B", "A", "B", "A", "B", first],
                ["", "", "", "", "", "", first], [first, "A", first, first],
                ["A", "", "B", "", "B", first],
            ])  # fmt: skip
        entries[random.choice([0, 1, 4094, 4095, random.randrange(4096)])] = script
    return [[index, script] for index, script in entries.items()]


def _learnt_file(random: Random, moment: datetime, names: list[str]) -> Optional[str]:
    if chance(random, 0.35):
        return None
    if chance(random, 0.2):
        return cache_content(random, moment)
    lines = "".join(f"{draw_index(random)},{name}\n" for name in names)
    return lines + time_line(random, moment) + "bin_file_over_tag"


def draw_start(random: Random) -> Case:
    moment = draw_moment(random, EDGE_TIMES if chance(random, 0.5) else DECISION_EDGES)
    names = [draw_name(random) for _ in range(random.choice([0, 2, 6]))]
    case: Case = {
        "now": stamp(moment),
        "settings": draw_settings(random, names, random.choice([0, 1, 3])),
        "board": {
            "registers": _registers(random, moment),
            "single": _table_names(random, names[::2]),
            "combined": _table_names(random, names[1::2]),
            "learns_again": chance(random, 0.7),
        },
    }
    content = _learnt_file(random, moment, names)
    if content is not None:
        case["file"] = content.encode("latin-1").hex()
    return case
