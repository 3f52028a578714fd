"""Random cases of the four kinds, drawn towards the edges.

A case is a JSON object. Names and other texts have one character for each byte; packets and file contents
are hexadecimal.
"""

from __future__ import annotations

from datetime import datetime, timedelta
from random import Random
from typing import Any, Callable, Optional

Case = dict[str, Any]
Setting = list[str]

CLASSES = ["SR", "CF", "TA", "AP", "C", "P", "sr", "ALL", "MALL", "CP"]
EDGE_TIMES = [
    0, 1759, 1800, 75959, 80000, 85510, 90000, 90001, 93000, 101450, 102959, 103000, 113000, 115959, 120000,
    133000, 145959, 150000, 160000, 200000, 201500, 205510, 210000, 210001, 213000, 220000, 232959, 233000,
    235959,
]  # fmt: skip
COUNTERS = ("200b", "200c", "200d", "200e", "210b", "210c", "210d", "210e")


def draw_case(kind: str, seed: int, number: int) -> Case:
    """The case of this number; the same for the same seed."""
    random = Random(f"{kind} {seed} {number}")
    return {"kind": kind, **_KINDS[kind](random)}


def _chance(random: Random, share: float) -> bool:
    return random.random() < share


# Times


def _seconds_of_day(hhmmss: int) -> int:
    return hhmmss // 10000 * 3600 + hhmmss // 100 % 100 * 60 + hhmmss % 100


def _moment(random: Random, edges: list[int]) -> datetime:
    day = datetime(2026, 1, 1) + timedelta(days=random.randrange(1200))
    if _chance(random, 0.7):
        second = (_seconds_of_day(random.choice(edges)) + random.randint(-3, 3)) % 86400
    else:
        second = random.randrange(86400)
    return day + timedelta(seconds=second)


def _stamp(moment: datetime) -> str:
    return moment.strftime("%Y%m%d%H%M%S")


def _hhmmss(moment: datetime) -> int:
    return int(moment.strftime("%H%M%S"))


def _date(moment: datetime) -> int:
    return int(moment.strftime("%Y%m%d"))


# Names and rules


def _digits(random: Random, most: int = 4) -> str:
    return "".join(random.choice("0123456789") for _ in range(random.randint(1, most)))


def _name(random: Random) -> str:
    product = random.choice(CLASSES)
    shape = random.randrange(12)
    if shape < 4:
        return product + random.choice(["209", "301", _digits(random)])
    if shape < 7:
        return product + random.choice(["209", "301"]) + random.choice("CP") + _digits(random)
    if shape < 9:
        prefix = random.choice(["SPD-", "IPS-", "SPD-", "IPS-", "spd-", "SPD", "IPS", "SPDX"])
        return prefix + random.choice(["", product + "209&" + product + "301", product + "209"])
    if shape < 11:
        return "".join(random.choice("CPcp019ASRl-&") for _ in range(random.randint(1, 9)))
    return random.choice([product, _digits(random), product + "209C", "C209", "9C9", "P1P2P3", "\xe9A1", "A\t1"])


def _underlying_like(name: str) -> str:
    for letter in "CP":
        if letter in name[1:]:
            return name[: name.rindex(letter)]
    return name


def _item(random: Random, names: list[str]) -> str:
    choice = random.randrange(8)
    name = random.choice(names) if names else _name(random)
    if choice < 3:
        return name
    if choice == 3:
        return _underlying_like(name)
    if choice < 6:
        return random.choice(CLASSES)
    if choice == 6:
        return _name(random)
    return random.choice(["all", "ALL", "aLl", "a l l", "", "\tSR", "S R", "call", "x1all", "*", "9"])


def _inst_list(random: Random, names: list[str]) -> str:
    joints = [",", ",", ", ", ",,", " ,", ",\t", ", ,"]
    text = random.choice(["", "", "", ",", ", "])
    for _ in range(random.choice([0, 1, 1, 2, 3, 5, 8])):
        text += _item(random, names) + random.choice(joints)
    if _chance(random, 0.6):
        text = text.rstrip(", \t")
    return _trimmed(text)


def _trimmed(text: str) -> str:
    # What the INI reader would take as a comment, a quotation or a line's continuation stays out.
    return "".join(c for c in text if c not in ";#\"'\\=" and c < "\x80").strip()


def _switch(random: Random) -> Optional[str]:
    values = ["recv", "recv", "recv", "norecv", "RECV", "Recv", "recv,", "re cv", "", "0"]
    return random.choice(values) if _chance(random, 0.8) else None


def _channel_settings(random: Random, channel: int, names: list[str]) -> list[Setting]:
    section = f"channel{channel}"
    settings: list[Setting] = []
    with_insts = _chance(random, 0.75)
    if with_insts:
        settings.append([section, "insts", _inst_list(random, names)])
    options = _switch(random)
    if options is None and with_insts and _chance(random, 0.8):
        options = "recv"
    for key, value in (("options", options), ("ips", _switch(random)), ("spd", _switch(random))):
        if value is not None:
            settings.append([section, key, value])
    random.shuffle(settings)
    return settings


def _settings(random: Random, names: list[str], channels: int) -> list[Setting]:
    settings: list[Setting] = [["config", "device", "xilinx0:0"]]
    for level in ("czce_level1", "czce_level2"):
        if _chance(random, 0.4):
            settings.append(["config", level, random.choice(["disabled", "Disabled", "enabled", "", "disabled 1"])])
    for channel in sorted(random.sample(range(16), channels)):
        settings += _channel_settings(random, channel, names)
    if _chance(random, 0.2):
        settings.append([random.choice(["channel16", "channel01", "channelx"]), "insts", "SR209"])
    return settings


def _any_case(random: Random, text: str) -> str:
    return "".join(random.choice([c.lower(), c.upper()]) for c in text) if _chance(random, 0.2) else text


def render_ini(settings: list[Setting], seed: str) -> str:
    """The settings as the text of an INI file."""
    random = Random(seed)
    lines: list[str] = []
    section = ""
    for name, key, value in settings:
        if name != section:
            section = name
            lines.append(f"[{_any_case(random, name)}]")
        equals = random.choice(["=", " = ", "  =  ", " =\t"])
        lines.append(random.choice(["", "", " "]) + _any_case(random, key) + equals + value)
    return "\n".join(lines) + "\n"


def _index(random: Random) -> int:
    return random.choice([0, 1, 2, 3, 4094, 4095, 4096, 65535, random.randrange(40), random.randrange(65536)])


def _instruments(random: Random, names: list[str]) -> list[list[Any]]:
    return [[name, _index(random)] for name in dict.fromkeys(names)]


# Selection


def _draw_selection(random: Random) -> Case:
    names = [_name(random) for _ in range(random.choice([0, 1, 3, 10, 25]))]
    settings = _settings(random, names, random.choice([0, 1, 2, 4, 16]))
    if _chance(random, 0.1):
        settings = [setting for setting in settings if setting[1] != "options" or _chance(random, 0.7)]
    board: Case = {}
    if _chance(random, 0.3):
        board["kept_bits"] = random.choice([0, 1, 0x8000, random.randrange(0x10000)])
    return {
        "settings": settings,
        "instruments": _instruments(random, names),
        "rounds": random.choice([1, 1, 1, 2]),
        "board": board,
    }


# Map packets


def _packet_name(random: Random) -> bytes:
    shape = random.randrange(10)
    if shape < 7:
        return _name(random).encode("latin-1")
    if shape == 7:
        return b"N" * random.choice([0, 1, 54, 55, 58, 59, 62, 63, 64, 65, 255])
    if shape == 8:
        return random.choice([b"SR\x00209", b"\x00", b"A1\x00", b"%s%n", b"A\nB", b"\xff\xfe", b"A,1"])
    return b"SR209"


def _record(random: Random, first: bool) -> bytes:
    name = _packet_name(random)
    head = 9 if first else 5
    length = head + len(name)
    if _chance(random, 0.04):
        length = random.choice([0, 1, 2, head - 1, head, head + 63, head + 64, length + 1, length - 1, 0xFFFF])
    index = _index(random).to_bytes(2, "big")
    return (length % 65536).to_bytes(2, "big") + random.randbytes(5 if first else 1)[: head - 4] + index + name


def _map_packet(random: Random) -> bytes:
    records = b""
    for number in range(random.choice([0, 1, 1, 2, 3, 6])):
        records += _record(random, number == 0)
    length = len(records)
    if _chance(random, 0.35):
        length += random.choice([-9, -5, -2, -1, 1, 2, 3, 9, 300, random.randint(-20, 20)])
    if _chance(random, 0.03):
        length = random.choice([0, 1, 2, 255, 256, 65535])
    packet = b"\x02\x00\x00\x00" + random.randbytes(8) + max(0, length).to_bytes(2, "big") + records
    if _chance(random, 0.25):
        packet += random.choice([b"\x00", b"\x00\x00", random.randbytes(random.randrange(1, 40)), _record(random, False)])
    if _chance(random, 0.2):
        packet = packet[: max(4, len(packet) - random.randrange(1, 12))]
    if _chance(random, 0.05):
        packet = packet[: random.choice([12, 13, 14, 15, 16])]
    return packet


def _many_records(random: Random) -> bytes:
    records = b"".join(_record(random, number == 0) for number in range(random.choice([50, 300])))[:65000]
    return b"\x02\x00\x00\x00" + bytes(8) + len(records).to_bytes(2, "big") + records


def _unknown_message(random: Random) -> bytes:
    kind = random.choice([0, 1, 3, 16, 21, 0x100, 0x102, 0x80000002, 0xFFFFFFFF])
    return kind.to_bytes(4, "little") + random.randbytes(random.choice([0, 8, 11, 30]))


def _learning_moment(random: Random, evening: bool) -> datetime:
    edges = [201000, 205509, 205510, 205959, 210000] if evening else [83000, 85509, 85510, 85959, 90000]
    return _moment(random, edges)


def _auction_clock(random: Random) -> int:
    edge = random.choice([85509, 85510, 85511, 93000, 93001, 205509, 205510, 213000, 213001, 85000, 0, 235959])
    return random.choice([edge, edge, 84000, 84000])


def _map_step(random: Random, moment: datetime, frozen: int) -> Case:
    kind = random.random()
    if kind < 0.93:
        packet = _map_packet(random)
    elif kind < 0.96:
        packet = _many_records(random)
    else:
        packet = _unknown_message(random)
    moving = _auction_clock(random) if _chance(random, 0.25) else frozen
    return {
        "now": _stamp(moment if _chance(random, 0.93) else _moment(random, EDGE_TIMES)),
        "t104": frozen if _chance(random, 0.5) else moving,
        "t105": moving,
        "packet": packet.hex(),
    }


def _draw_map(random: Random) -> Case:
    moment = _learning_moment(random, _chance(random, 0.5))
    frozen = random.choice([0, 84000, 204000, 85510, 210000])
    steps = [_map_step(random, moment, frozen) for _ in range(random.choice([1, 1, 2, 3, 5, 8]))]
    names = [_name(random) for _ in range(random.choice([0, 0, 2, 6]))]
    return {
        "settings": _settings(random, names, random.choice([0, 1, 2])),
        "instruments": _instruments(random, names),
        "parsed": random.choice([0, 0, 0, 8191, 8190, 8180, 16383, 2**32 - 1]),
        "open": True,
        "steps": steps,
    }


# Cache file

CREATION_TIMES = [
    75959, 80000, 85510, 93000, 102959, 102999, 103000, 195959, 200000, 205510, 215959, 219999, 220000, 0,
]  # fmt: skip


def _created(random: Random, moment: datetime) -> int:
    day = moment + timedelta(days=random.choice([0, 0, 0, 0, 0, 0, -1, 1]))
    near = 205510 if moment.hour > 14 else 85510
    return _date(day) * 10**6 + (near if _chance(random, 0.5) else random.choice(CREATION_TIMES))


def _number_text(random: Random) -> str:
    plain = str(_index(random))
    odd = [
        "65536", "65541", "-1", "-65530", "+7", " 12", "\t3", "\v4", "x9", "9x", "0x10", "010", "", "-", "+", "--1", "- 1",
        "4294967296", "9223372036854775807", "9223372036854775813", "18446744073709551615",
        "18446744073709551616", "-9223372036854775809", "-18446744073709551615", "-99999999999999999999",
        "99999999999999999999999", "1.5", "1e3", "\n5",
    ]  # fmt: skip
    return plain if _chance(random, 0.6) else random.choice(odd)


def _cache_line(random: Random) -> str:
    shape = random.random()
    if shape < 0.45:
        return f"{_number_text(random)},{_name(random)}\n"
    if shape < 0.7:
        return random.choice([
            "", "\n", ",\n", ",,,\n", "5\n", "5,\n", ",5,A1\n", "5,,A1\n", "5,A1,\n", "5,A1,B\n", "5, A1\n", "5,A1 \n",
            "5,A1\r\n", "5,A1", "5\x00,A1\n", "5,A\x001\n", "5,A1\x00\n", "\x005,A1\n", "5,A1\n\x00", ",,5,,A1\n", "5;A1\n",
            "A1,5\n", "5,%s%n\n", "5,\xff\xe9\n",
        ])  # fmt: skip
    if shape < 0.85:
        length = random.choice([125, 126, 127, 128, 250, 253, 254, 255, 256, 257, 258, 509, 510, 511, 512, 513, 700])
        name = "".join(random.choice("NNNNNNNNN,") for _ in range(length - 3)) if _chance(random, 0.4) else "N" * (length - 3)
        tail = random.choice(["", "7,B2", ",7,B2", "7", ","])
        return f"5,{name[: length - 3 - len(tail)]}{tail}" + random.choice(["\n", "\n", "\n", ""])
    return random.choice([
        "bin_file_over_tag", "bin_file_over_tag\n", "bin_file_over_tag,7,B2\n", "xbin_file_over_tag\n", "bin_file_over_ta\n",
        "contract's_corresponding_time=\n", "contract's_corresponding_time=x\n", "contract's_corresponding_time\n",
        " contract's_corresponding_time=20260101085510\n", "N" * 255 + "bin_file_over_tag\n",
        "N" * 255 + "5,A1\n",
    ])  # fmt: skip


def _time_line(random: Random, moment: datetime) -> str:
    text = str(_created(random, moment))
    if _chance(random, 0.1):
        text = random.choice([" ", "+", "0", "", "-"]) + text + random.choice(["x", " ", ",5", "\x00", "0"])
    return f"contract's_corresponding_time={text}\n"


def _cache_content(random: Random, moment: datetime) -> str:
    if _chance(random, 0.0005):
        return "1,A1\n" * 65537 + "2,A2\nx\n" + _time_line(random, moment) + "bin_file_over_tag"
    lines = [_cache_line(random) for _ in range(random.choice([0, 1, 2, 4, 8, 15]))]
    if _chance(random, 0.95):
        lines.insert(random.choice([0, len(lines), len(lines)]), _time_line(random, moment))
    if _chance(random, 0.95):
        lines.insert(random.choice([len(lines), len(lines), random.randint(0, len(lines))]), "bin_file_over_tag")
    content = "".join(lines)
    if _chance(random, 0.05) and content:
        content = content[: random.randrange(len(content))]
    return content


def _session_moment(random: Random) -> datetime:
    return _moment(random, [90001, 93000, 110000, 145959, 150000, 150001, 210001, 220000, 235959, 0])


def _long_name(random: Random) -> str:
    # With the index, the comma and the line end around the length that a line may have.
    return "L" * random.choice([118, 119, 120, 121, 122, 123, 124, 125, 126, 127, 128, 200, 300])


def _written_name(random: Random) -> str:
    return _long_name(random) if _chance(random, 0.15) else _name(random)


def _writing_steps(random: Random, moment: datetime) -> list[list[Any]]:
    steps: list[list[Any]] = [["settle", random.choice([85510, 93000, 205510, 213000, 0, 101010])]]
    if _chance(random, 0.3):
        return [*steps, ["rewrite"]]
    if _chance(random, 0.05):
        return [["instrument", _written_name(random), _index(random)], *steps, ["init"], ["end"]]
    steps.append(["init"])
    for _ in range(random.choice([0, 1, 3, 8])):
        steps.append(["instrument", _written_name(random), _index(random)])
    if _chance(random, 0.2):
        steps.append(["clock", _stamp(moment + timedelta(days=1))])
    if _chance(random, 0.85):
        steps.append(["end"])
    return steps


def _draw_cache(random: Random) -> Case:
    moment = _session_moment(random)
    case: Case = {"now": _stamp(moment), "instruments": []}
    names = [_written_name(random) for _ in range(random.choice([0, 0, 1, 4]))]
    case["instruments"] = _instruments(random, names)
    if _chance(random, 0.35):
        case["steps"] = _writing_steps(random, moment)
        if _chance(random, 0.05):
            case["directory"] = True
            case["steps"] = [step for step in case["steps"] if step[0] != "end"]
        elif _chance(random, 0.6):
            case["steps"] += [["new"], ["load"]]
    else:
        case["steps"] = [["load"]]
        if _chance(random, 0.97):
            case["file"] = _cache_content(random, moment).encode("latin-1").hex()
    return case


# Start decision


def _near_time(random: Random, moment: datetime) -> Optional[int]:
    now = _hhmmss(moment)
    choice = random.randrange(12)
    if choice < 5:
        return max(0, now + random.choice([0, 1, 5, -1, 100, -100]))
    if choice < 7:
        return max(0, now + random.choice([1, -1]) * random.choice([1798, 1799, 1800, 1801]) + random.randint(-3, 3))
    if choice < 11:
        return random.choice([*EDGE_TIMES, 101449, 101450, 102000, 103000, 103001, 0xFFFFFFFF])
    return None if _chance(random, 0.3) else 0


def _date_readings(random: Random, moment: datetime) -> list[int]:
    today = _date(moment)
    other = random.choice([0, today - 1, today + 1, 20251231])
    if _chance(random, 0.85):
        return [today]
    return random.choice([[other], [today, other], [today, today, other], [today, other, today]])


def _registers(random: Random, moment: datetime) -> Case:
    registers: Case = {
        "106": _date_readings(random, moment),
        "104": [_near_time(random, moment) for _ in range(random.choice([1, 1, 2]))],
        "105": [_near_time(random, moment) for _ in range(random.choice([1, 1, 2]))],
        "11": [random.choice([0, 1, 2, 3, 3, 3])],
        "103": [random.choice([15, 15, 15, 0, 14, 1, 31, 0xFFFFFFFF])],
    }
    for counter in COUNTERS:
        registers[counter] = [random.randrange(3) * 1000]
    if _chance(random, 0.35):
        moving = random.choice(COUNTERS)
        registers[moving] = random.choice([[5, 6], [5, 5, 6], [5, 6, 5], [5, 4, 4]])
    return registers


def _table_names(random: Random, names: list[str]) -> list[list[Any]]:
    entries: dict[int, list[str]] = {}
    for name in names:
        first = name[:16]
        script = [first]
        if _chance(random, 0.3):
            script = random.choice([
                ["", first], [first[:2], first], [first, "", first], ["A", "B"] * 4, ["A", "B", "A", "B", "A", "B", first],
                ["", "", "", "", "", "", first], [first, "A", first, first], ["A", "", "B", "", "B", first],
            ])  # fmt: skip
        entries[random.choice([0, 1, 4094, 4095, random.randrange(4096)])] = script
    return [[index, script] for index, script in entries.items()]


def _learnt_file(random: Random, moment: datetime, names: list[str]) -> Optional[str]:
    if _chance(random, 0.35):
        return None
    if _chance(random, 0.2):
        return _cache_content(random, moment)
    lines = "".join(f"{_index(random)},{name}\n" for name in names)
    return lines + _time_line(random, moment) + "bin_file_over_tag"


def _draw_start(random: Random) -> Case:
    moment = _moment(random, EDGE_TIMES)
    names = [_name(random) for _ in range(random.choice([0, 2, 6]))]
    case: Case = {
        "now": _stamp(moment),
        "settings": _settings(random, names, random.choice([0, 1, 3])),
        "board": {
            "registers": _registers(random, moment),
            "single": _table_names(random, names[::2]),
            "combined": _table_names(random, names[1::2]),
            "learns_again": _chance(random, 0.7),
        },
    }
    content = _learnt_file(random, moment, names)
    if content is not None:
        case["file"] = content.encode("latin-1").hex()
    return case


_KINDS: dict[str, Callable[[Random], Case]] = {
    "selection": _draw_selection,
    "map": _draw_map,
    "cache": _draw_cache,
    "start": _draw_start,
}
