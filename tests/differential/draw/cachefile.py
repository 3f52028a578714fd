"""Cache files, sound and not, and the operations on them."""

from __future__ import annotations

from datetime import datetime, timedelta
from random import Random
from typing import Any

from .basics import Case, chance, date, draw_moment, stamp
from .settings import draw_index, draw_instruments, draw_name

CREATION_TIMES = [
    75959, 80000, 85510, 93000, 102959, 102999, 103000, 195959, 200000, 205510, 215959, 219999, 220000, 0,
]  # fmt: skip
# Lengths of lines around what is written and read at once.
PIECE_EDGES = [125, 126, 127, 128, 250, 253, 254, 255, 256, 257, 258, 509, 510, 511, 512, 513, 700]


def _created(random: Random, moment: datetime) -> int:
    day = moment + timedelta(days=random.choice([0, 0, 0, 0, 0, 0, -1, 1]))
    near = 205510 if moment.hour > 14 else 85510
    return date(day) * 10**6 + (near if chance(random, 0.65) else random.choice(CREATION_TIMES))


def _number_text(random: Random) -> str:
    plain = str(draw_index(random))
    odd = [
        "65536", "65541", "-1", "-65530", "+7", " 12", "\t3", "\v4", "x9", "9x", "0x10", "010",
        "", "-", "+", "--1", "- 1",
        "4294967296", "9223372036854775807", "9223372036854775813", "18446744073709551615",
        "18446744073709551616", "-9223372036854775809", "-18446744073709551615", "-99999999999999999999",
        "99999999999999999999999", "1.5", "1e3", "\n5",
    ]  # fmt: skip
    return plain if chance(random, 0.6) else random.choice(odd)


def _cache_line(random: Random) -> str:
    shape = random.random()
    if shape < 0.45:
        return f"{_number_text(random)},{draw_name(random)}\n"
    if shape < 0.7:
        return random.choice([
            "", "\n", ",\n", ",,,\n", "5\n", "5,\n", ",5,A1\n", "5,,A1\n", "5,A1,\n", "5,A1,B\n", 
            "5, A1\n", "5,A1 \n",
            "5,A1\r\n", "5,A1", "5\x00,A1\n", "5,A\x001\n", "5,A1\x00\n", "\x005,A1\n", 
            "5,A1\n\x00", ",,5,,A1\n", "5;A1\n",
            "A1,5\n", "5,%s%n\n", "5,\xff\xe9\n",
        ])  # fmt: skip
    if shape < 0.85:
        length = random.choice(PIECE_EDGES)
        letters = "NNNNNNNNN," if chance(random, 0.4) else "N"
        name = "".join(random.choice(letters) for _ in range(length))
        tail = random.choice(["", "7,B2", ",7,B2", "7", ","])
        return f"5,{name[: length - 3 - len(tail)]}{tail}" + random.choice(["\n", "\n", "\n", ""])
    return random.choice([
        "bin_file_over_tag", "bin_file_over_tag\n", "bin_file_over_tag,7,B2\n", "xbin_file_over_tag\n",
            "bin_file_over_ta\n",
        "contract's_corresponding_time=\n", "contract's_corresponding_time=x\n",
            "contract's_corresponding_time\n",
        " contract's_corresponding_time=20260101085510\n", "N" * 255 + "bin_file_over_tag\n",
        "N" * 255 + "5,A1\n",
    ])  # fmt: skip


def time_line(random: Random, moment: datetime) -> str:
    text = str(_created(random, moment))
    if chance(random, 0.1):
        text = random.choice([" ", "+", "0", "", "-"]) + text + random.choice(["x", " ", ",5", "\x00", "0"])
    return f"contract's_corresponding_time={text}\n"


def cache_content(random: Random, moment: datetime) -> str:
    if chance(random, 0.0005):
        return "1,A1\n" * 65537 + "2,A2\nx\n" + time_line(random, moment) + "bin_file_over_tag"
    lines = [_cache_line(random) for _ in range(random.choice([0, 1, 2, 4, 8, 15]))]
    if chance(random, 0.95):
        lines.insert(random.choice([0, len(lines), len(lines)]), time_line(random, moment))
    if chance(random, 0.95):
        place = len(lines) if chance(random, 0.7) else random.randint(0, len(lines))
        lines.insert(place, "bin_file_over_tag")
    content = "".join(lines)
    if chance(random, 0.05) and content:
        content = content[: random.randrange(len(content))]
    return content


def _session_moment(random: Random) -> datetime:
    return draw_moment(random, [90001, 93000, 110000, 145959, 150000, 150001, 210001, 220000, 235959, 0])


def _long_name(random: Random) -> str:
    # With the index, the comma and the line end around the length that a line may have.
    return "L" * random.choice([118, 119, 120, 121, 122, 123, 124, 125, 126, 127, 128, 200, 300])


def _written_name(random: Random) -> str:
    return _long_name(random) if chance(random, 0.15) else draw_name(random)


def _writing_steps(random: Random, moment: datetime) -> list[list[Any]]:
    steps: list[list[Any]] = [["settle", random.choice([85510, 93000, 205510, 213000, 0, 101010])]]
    if chance(random, 0.3):
        return [*steps, ["rewrite"]]
    if chance(random, 0.05):
        return [["instrument", _written_name(random), draw_index(random)], *steps, ["init"], ["end"]]
    steps.append(["init"])
    for _ in range(random.choice([0, 1, 3, 8])):
        steps.append(["instrument", _written_name(random), draw_index(random)])
    if chance(random, 0.2):
        steps.append(["clock", stamp(moment + timedelta(days=1))])
    if chance(random, 0.85):
        steps.append(["end"])
    return steps


def draw_cache(random: Random) -> Case:
    moment = _session_moment(random)
    case: Case = {"now": stamp(moment), "instruments": []}
    names = [_written_name(random) for _ in range(random.choice([0, 0, 1, 4]))]
    case["instruments"] = draw_instruments(random, names)
    if chance(random, 0.35):
        case["steps"] = _writing_steps(random, moment)
        if chance(random, 0.05):
            case["directory"] = True
            case["steps"] = [step for step in case["steps"] if step[0] != "end"]
        elif chance(random, 0.6):
            case["steps"] += [["new"], ["load"]]
    else:
        case["steps"] = [["load"]]
        if chance(random, 0.97):
            case["file"] = cache_content(random, moment).encode("latin-1").hex()
    return case
