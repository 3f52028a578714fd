"""Chances and moments."""

from __future__ import annotations

from datetime import datetime, timedelta
from random import Random
from typing import Any

Case = dict[str, Any]

EDGE_TIMES = [
    0, 1759, 1800, 75959, 80000, 85510, 90000, 90001, 93000, 101450, 102959, 103000, 113000, 115959, 120000,
    133000, 145959, 150000, 160000, 200000, 201500, 205510, 210000, 210001, 213000, 220000, 232959, 233000,
    235959,
]  # fmt: skip


def chance(random: Random, share: float) -> bool:
    return random.random() < share


def _seconds_of_day(hhmmss: int) -> int:
    return hhmmss // 10000 * 3600 + hhmmss // 100 % 100 * 60 + hhmmss % 100


def draw_moment(random: Random, edges: list[int]) -> datetime:
    day = datetime(2026, 1, 1) + timedelta(days=random.randrange(1200))
    if chance(random, 0.7):
        apart = random.choice([0, 0, 0, 1, -1, 2, -2, 3, -3])
        second = (_seconds_of_day(random.choice(edges)) + apart) % 86400
    else:
        second = random.randrange(86400)
    return day + timedelta(seconds=second)


def stamp(moment: datetime) -> str:
    return moment.strftime("%Y%m%d%H%M%S")


def hhmmss(moment: datetime) -> int:
    return int(moment.strftime("%H%M%S"))


def date(moment: datetime) -> int:
    return int(moment.strftime("%Y%m%d"))
