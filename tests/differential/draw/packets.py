"""Instrument-map packets and the moments at which they arrive."""

from __future__ import annotations

from datetime import datetime
from random import Random

from .basics import EDGE_TIMES, Case, chance, draw_moment, stamp
from .settings import draw_index, draw_instruments, draw_name, draw_settings

AUCTION_EDGES = [85509, 85510, 85511, 93000, 93001, 205509, 205510, 213000, 213001, 85000, 0, 235959]


def _packet_name(random: Random) -> bytes:
    shape = random.randrange(10)
    if shape < 7:
        return draw_name(random).encode("latin-1")
    if shape == 7:
        return b"N" * random.choice([0, 1, 54, 55, 58, 59, 62, 63, 64, 65, 255])
    if shape == 8:
        return random.choice([b"SR\x00209", b"\x00", b"A1\x00", b"%s%n", b"A\nB", b"\xff\xfe", b"A,1"])
    return b"SR209"


def _record(random: Random, first: bool) -> bytes:
    name = _packet_name(random)
    head = 9 if first else 5
    length = head + len(name)
    if chance(random, 0.04):
        length = random.choice([0, 1, 2, head - 1, head, head + 63, head + 64, length + 1, 0xFFFF])
    unread = random.randbytes(5 if first else 1)
    index = draw_index(random).to_bytes(2, "big")
    return (length % 65536).to_bytes(2, "big") + unread + index + name


def _map_packet(random: Random) -> bytes:
    records = b""
    for number in range(random.choice([0, 1, 1, 2, 3, 6])):
        records += _record(random, number == 0)
    length = len(records)
    if chance(random, 0.35):
        length += random.choice([-9, -5, -2, -1, 1, 2, 3, 9, 300, random.randint(-20, 20)])
    if chance(random, 0.03):
        length = random.choice([0, 1, 2, 255, 256, 65535])
    packet = b"\x02\x00\x00\x00" + random.randbytes(8) + max(0, length).to_bytes(2, "big") + records
    if chance(random, 0.25):
        packet += random.choice([b"\x00", b"\x00\x00", random.randbytes(20), _record(random, False)])
    if chance(random, 0.2):
        packet = packet[: max(4, len(packet) - random.randrange(1, 12))]
    if chance(random, 0.05):
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
    return draw_moment(random, edges)


def _auction_clock(random: Random) -> int:
    return random.choice(AUCTION_EDGES) if chance(random, 0.5) else 84000


def _map_step(random: Random, moment: datetime, frozen: int) -> Case:
    kind = random.random()
    if kind < 0.93:
        packet = _map_packet(random)
    elif kind < 0.96:
        packet = _many_records(random)
    else:
        packet = _unknown_message(random)
    moving = _auction_clock(random) if chance(random, 0.25) else frozen
    return {
        "now": stamp(moment if chance(random, 0.93) else draw_moment(random, EDGE_TIMES)),
        "t104": frozen if chance(random, 0.5) else moving,
        "t105": moving,
        "packet": packet.hex(),
    }


def draw_map(random: Random) -> Case:
    moment = _learning_moment(random, chance(random, 0.5))
    frozen = random.choice([0, 84000, 204000, 85510, 210000])
    steps = [_map_step(random, moment, frozen) for _ in range(random.choice([1, 1, 2, 3, 5, 8]))]
    names = [draw_name(random) for _ in range(random.choice([0, 0, 2, 6]))]
    return {
        "settings": draw_settings(random, names, random.choice([0, 1, 2])),
        "instruments": draw_instruments(random, names),
        "parsed": random.choice([0, 0, 0, 8191, 8190, 8180, 16383, 2**32 - 1]),
        "open": True,
        "steps": steps,
    }
