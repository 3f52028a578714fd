"""Instrument names, subscription rules and the INI file that holds them."""

from __future__ import annotations

from random import Random
from typing import Any, Optional

from .basics import Case, chance

Setting = list[str]

CLASSES = ["SR", "CF", "TA", "AP", "C", "P", "sr", "ALL", "MALL", "CP"]


def _digits(random: Random, most: int = 4) -> str:
    return "".join(random.choice("0123456789") for _ in range(random.randint(1, most)))


def draw_name(random: Random) -> str:
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
    odd = [product + "209C", "C209", "9C9", "P1P2P3", "\xe9A1", "A\t1"]
    return random.choice([product, _digits(random), *odd])


def _underlying_like(name: str) -> str:
    for letter in "CP":
        if letter in name[1:]:
            return name[: name.rindex(letter)]
    return name


def _item(random: Random, names: list[str]) -> str:
    choice = random.randrange(8)
    name = random.choice(names) if names else draw_name(random)
    if choice < 3:
        return name
    if choice == 3:
        return _underlying_like(name)
    if choice < 6:
        return random.choice(CLASSES)
    if choice == 6:
        return draw_name(random)
    return random.choice(["all", "ALL", "aLl", "a l l", "", "\tSR", "S R", "call", "x1all", "*", "9"])


def _inst_list(random: Random, names: list[str]) -> str:
    joints = [",", ",", ", ", ",,", " ,", ",\t", ", ,"]
    text = random.choice(["", "", "", ",", ", "])
    for _ in range(random.choice([0, 1, 1, 2, 3, 5, 8])):
        text += _item(random, names) + random.choice(joints)
    if chance(random, 0.6):
        text = text.rstrip(", \t")
    return _trimmed(text)


def _trimmed(text: str) -> str:
    # What the INI reader would take as a comment, a quotation or a line's continuation stays out.
    return "".join(c for c in text if c not in ";#\"'\\=" and c < "\x80").strip()


def _switch(random: Random) -> Optional[str]:
    values = ["recv", "recv", "recv", "norecv", "RECV", "Recv", "recv,", "re cv", "", "0"]
    return random.choice(values) if chance(random, 0.8) else None


def _channel_settings(random: Random, channel: int, names: list[str]) -> list[Setting]:
    section = f"channel{channel}"
    settings: list[Setting] = []
    with_insts = chance(random, 0.75)
    if with_insts:
        settings.append([section, "insts", _inst_list(random, names)])
    options = _switch(random)
    if options is None and with_insts and chance(random, 0.8):
        options = "recv"
    for key, value in (("options", options), ("ips", _switch(random)), ("spd", _switch(random))):
        if value is not None:
            settings.append([section, key, value])
    random.shuffle(settings)
    return settings


def draw_settings(random: Random, names: list[str], channels: int) -> list[Setting]:
    settings: list[Setting] = [["config", "device", "xilinx0:0"]]
    for level in ("czce_level1", "czce_level2"):
        if chance(random, 0.4):
            value = random.choice(["disabled", "Disabled", "enabled", "", "disabled 1"])
            settings.append(["config", level, value])
    for channel in sorted(random.sample(range(16), channels)):
        settings += _channel_settings(random, channel, names)
    if chance(random, 0.2):
        settings.append([random.choice(["channel16", "channel01", "channelx"]), "insts", "SR209"])
    return settings


def _any_case(random: Random, text: str) -> str:
    return "".join(random.choice([c.lower(), c.upper()]) for c in text) if chance(random, 0.2) else text


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


def draw_index(random: Random) -> int:
    return random.choice([0, 1, 2, 3, 4094, 4095, 4096, 65535, random.randrange(40), random.randrange(65536)])


def draw_instruments(random: Random, names: list[str]) -> list[list[Any]]:
    return [[name, draw_index(random)] for name in dict.fromkeys(names)]


def draw_selection(random: Random) -> Case:
    names = [draw_name(random) for _ in range(random.choice([0, 1, 3, 10, 25]))]
    settings = draw_settings(random, names, random.choice([0, 1, 2, 4, 16]))
    if chance(random, 0.1):
        settings = [setting for setting in settings if setting[1] != "options" or chance(random, 0.7)]
    board: Case = {}
    if chance(random, 0.3):
        board["kept_bits"] = random.choice([0, 1, 0x8000, random.randrange(0x10000)])
    return {
        "settings": settings,
        "instruments": draw_instruments(random, names),
        "rounds": random.choice([1, 1, 1, 2]),
        "board": board,
    }
