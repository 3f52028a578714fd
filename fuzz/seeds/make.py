#!/usr/bin/env python3
"""Writes the seeds that are not text: fuzz/seeds/make.py, in any directory. Their formats are told
at the top of each target."""
import pathlib
import struct

HERE = pathlib.Path(__file__).resolve().parent
EXAMPLES = HERE.parent.parent / "examples"


def put(target, name, data):
    folder = HERE / target
    folder.mkdir(exist_ok=True)
    (folder / name).write_bytes(data)


def records(*insts):
    """The record area of a map packet, with its length in front."""
    area = b""
    for k, (index, name) in enumerate(insts):
        head = b"\0\0\0\0" if k == 0 else b""
        area += struct.pack(">H", 5 + len(head) + len(name)) + head + b"A"
        area += struct.pack(">H", index) + name
    return struct.pack(">H", len(area)) + area


def message(kind, body):
    return struct.pack("<IHHI", kind, 0, len(body), 0) + body


def dma():
    packet = message(2, b"")[:12] + records((1, b"SR209"), (2, b"SR209C5000"), (3, b"CF301"))
    ticks = [message(kind, bytes(range(40))) for kind in (17, 18, 19, 20)]
    odd = [b"", b"\x11\0", message(5, b"x" * 30), message(2, b"")]

    def step(time, data):
        return struct.pack("<BH", time, len(data)) + data

    put("dmaMessage", "ticks", b"".join(step(0x80, one) for one in ticks + odd))
    # The packet is learnt, the auction found over, all subscribed; then trading time.
    put("dmaMessage", "day", b"".join(step(time, packet) for time in (0, 2, 0x80, 0x80, 6)))
    put("dmaMessage", "night", b"".join(step(time, packet) for time in (11, 12, 0x80, 0x80, 13)))

    def packets(*bodies):
        return b"".join(struct.pack("<H", len(body)) + body for body in bodies)

    put("mapPacket", "three", packets(records((1, b"SR209"), (2, b"SR209C5000"), (3, b"CF301"))))
    put("mapPacket", "again", packets(records((1, b"SR209")), records((9, b"SR209"), (4, b"TA301"))))
    put("mapPacket", "long", packets(records((65535, b"N" * 63), (7, b"M" * 70))))


def names():
    for name, (channel, first, second) in {
        "option": (0, b"SR209C5000", b"SR,CF301,SPD-SR209&SR301"),
        "all": (3, b"all", b" SR , ALL ,CF209P12000,,"),
        "channel": (16, b"C5P5C6", b"1C2"),
    }.items():
        put("nameRules", name, bytes([channel, len(first)]) + first + second)
    for name, (mac, ip, port) in {
        "good": (b"01:00:5e:01:01:05", b"239.1.1.5", b"30005"),
        "odd": (b"01-00:5e:01:01:0g", b"1..2.3.34", b"-1"),
        "zeros": (b"00:00:5e:00:01:05", b"001.2.3.0004", b"030005"),
        "large": (b"aa:bb:cc:dd:ee:ff", b"255.255.255.256", b"99999999999"),
    }.items():
        put("addresses", name, bytes([len(mac)]) + mac + bytes([len(ip)]) + ip + port)


def files():
    # No instrument list of thousands: the small examples, and the list that the target has.
    for name in ("bursts", "night-faults", "two-boards"):
        text = (EXAMPLES / "scenarios" / (name + ".ini")).read_bytes()
        put("scenarioFile", name, text.replace(b"small.txt", b"list.txt"))
    put("scenarioFile", "feeds", (EXAMPLES / "config" / "feeds.ini").read_bytes())
    for time, name in ((0, "master"), (1, "master"), (0, "channel3")):
        text = (EXAMPLES / "config" / (name + ".ini")).read_bytes()
        put("iniStart", f"{name}{time}", bytes([time]) + text)
    for device in (b"xilinx0:16", b"xilinx5:0", b"XILINX4:15"):
        name = device.decode().lower().replace(":", "-")
        put("iniStart", name, b"\0[config]\ndevice=" + device + b"\n")
    lines = b"1,SR209\n2,SR209C5000\n7,SPD-SR209&SR301\n"
    for name, choice, stamp in (("day", 6, b"20261120085510"), ("night", 13, b"20261120205511")):
        end = b"contract's_corresponding_time=" + stamp + b"\nbin_file_over_tag"
        put("cacheFile", name, bytes([choice]) + lines + end)
    put("cacheFile", "cut", b"\6" + lines)


def captures():
    head = struct.pack("<IHHIIII", 0xA1B23C4D, 2, 4, 0, 0, 262144, 147)

    def packet(at, data):
        return struct.pack("<IIII", 1795262695, at, len(data), len(data)) + data

    def prefix(kind, channel, number):
        return struct.pack("<BBHHHQ", 1, kind, 0, channel, 1, number)

    told = message(2, b"")[:12] + records((1, b"SR209"), (2, b"CF301"))
    tick = message(17, bytes(range(60)))
    whole = head + packet(1, prefix(1, 0, 1) + told) + packet(2, prefix(1, 3, 1) + tick)
    put("captureFile", "two", whole)
    put("captureFile", "lost", whole + packet(3, prefix(2, 3, 5)) + packet(4, prefix(1, 3, 7) + tick))
    put("captureFile", "cut", whole[:-5])

    # One zstd frame of blocks that are not compressed, and its beginning alone.
    def raw(data, last):
        return struct.pack("<I", len(data) << 3 | last)[:3] + data

    frame = b"\x28\xb5\x2f\xfd\0\x50" + raw(whole[:40], 0) + raw(whole[40:], 1)
    put("captureFile", "zst", frame)
    put("captureFile", "zstcut", frame[:-5])
    put("sidecarFile", "day", b"""{
  "zce_capture": 1, "file": "day.pcap", "state": "complete", "ended": "size", "compression": "none",
  "bytes": 3, "uncompressed_bytes": 3, "xxh128": "06b05ab6733a618578af5f94892f3950",
  "messages": 7, "lost": 2, "first_time_ns": 1795262695845098017, "last_time_ns": -1, "number": 2,
  "previous": "day-1.pcap", "next": "../20261123/day.pcap",
  "streams": [{"bus": 65535, "channel": 3, "opening": 1, "messages": 7, "lost": 2, "first": 5, "last": 13}]}
""")

    def block(kind, body):
        body += bytes(-len(body) % 4)
        return struct.pack("<II", kind, len(body) + 12) + body + struct.pack("<I", len(body) + 12)

    data = prefix(1, 3, 1) + tick
    begin = block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1))
    begin += block(1, struct.pack("<HHI", 147, 0, 0))

    def enhanced(us):
        sizes = struct.pack("<IIIII", 0, us >> 32, us & 0xFFFFFFFF, len(data), len(data))
        return block(6, sizes + data)

    put("captureFile", "ng", begin + enhanced(1795262695000000) + enhanced(1795262695000001))
    # The last time that nanoseconds can say, and the next one.
    put("captureFile", "far", begin + enhanced(9223372036854775) + enhanced(9223372036854776))


def words():
    step = struct.pack
    ask = b"".join(step("<BIQIBB", 0, kind, argument, number, 7, 1)
                   for number, (kind, argument) in
                   enumerate([(1, 0), (3, 5), (4, 90000), (2, 0), (9, 1)], 1))
    put("controlWords", "requests", ask)
    faults = b"".join(step("<BBIIIIIBB", 1, kind, 2, 0xFFFFFFFF, 4096, 3, 0, 7, 5)
                      for kind in range(14))
    put("controlWords", "faults", faults)
    registers = step("<BBI", 4, 1, 3) * 2 + step("<BIIBI", 3, 0x44, 0, 32, 3)
    put("controlWords", "registers", registers + step("<BBI", 4, 3, 7) + step("<BB", 7, 20))
    rings = b"".join(step("<BBI", 5, choice, value) + b"\7\1"
                     for choice, value in ((32, 1), (160, 1), (128, 4096), (144, 16), (48, 0x20010)))
    put("controlWords", "rings", rings)

    polls = b"\3" * 3
    put("ringWords", "traffic", (step("<BH", 1, 99) + step("<BH", 1, 1500) + polls) * 4)
    put("ringWords", "headers",
        (step("<BH", 1, 60) + step("<BHI", 5, 64, 0x20700) + polls) * 3)
    put("ringWords", "positions", step("<BH", 1, 60) + step("<BBQ", 6, 0, 1 << 40) +
        step("<BBQ", 7, 1, 4095) + polls + step("<BH", 1, 2000) + polls)


for make in (dma, names, files, captures, words):
    make()
