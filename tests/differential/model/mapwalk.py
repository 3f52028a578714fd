"""Instrument-map packets: the records in them and the states that they lead through."""

from __future__ import annotations

from .cachefile import CacheFile
from .clock import Clock
from .fpga import FpgaService, InstrumentMap
from .selection import Selection
from .trace import Log

RECORDS = 14
SHORTEST_PACKET = 15
FIRST_HEAD = 9
LATER_HEAD = 5
NAME_BUFFER = 64


def big_endian(data: bytes, offset: int) -> int:
    return data[offset] << 8 | data[offset + 1]


class MapWalk:
    """What one worker makes of the packets that it is handed."""

    def __init__(
        self,
        clock: Clock,
        log: Log,
        instruments: InstrumentMap,
        fpga: FpgaService,
        cache: CacheFile,
        selection: Selection,
        parsed: int,
    ) -> None:
        self.clock = clock
        self.log = log
        self.instruments = instruments
        self.fpga = fpga
        self.cache = cache
        self.selection = selection
        self.parsed = parsed
        self.over = False
        self.expired = False
        self.learning = True
        self.settle_time = 0
        self._first_time: int | None = None

    def packet(self, data: bytes) -> None:
        """One message of any type from the board."""
        kind = int.from_bytes(data[:4], "little")
        if kind == 2:
            self._map_packet(data)
        else:
            self.log.error(f"Unsupported dma type 0x{kind:x}")

    def _map_packet(self, data: bytes) -> None:
        if self.clock.in_trade_time():
            self.log.warn("Now is in trade time! Note that you should start program before each trade!")
            self.fpga.close_transfer()
        elif not self.over and self.expired:
            self._subscribe()
        elif len(data) < SHORTEST_PACKET:
            self.log.warn(f"Unexpect dma size, size {len(data)}")
        elif not self.expired and self._auction_is_over():
            self.expired = True
            self.learning = False
            self.log.info(f"Call auction time has expired, totally parse {self.parsed} instrumentid.")
            self.settle_time = self.cache.finish(self.settle_time)
        elif self.learning:
            self._walk(data)

    def _subscribe(self) -> None:
        self.selection.run()
        self.fpga.subscribe()
        self.fpga.start_decode()
        self.fpga.close_transfer()
        self.log.info("All channel subs over.")
        self.over = True

    def _auction_is_over(self) -> bool:
        first = self.fpga.board.read(0x104) or 0
        second = self.fpga.board.read(0x105) or 0
        if self._first_time is None:
            self._first_time = first
            return False
        time = second if first == self._first_time else first
        start, end = (205510, 213000) if self.clock.hour > 14 else (85510, 93000)
        if not start <= time <= end:
            return False
        self.settle_time = time
        return True

    def _walk(self, data: bytes) -> None:
        position = RECORDS
        end = RECORDS + big_endian(data, 12) - 1
        head = FIRST_HEAD
        while position < end:
            if position + 2 > len(data):
                self.log.anything()
                return
            length = big_endian(data, position)
            if length < head or position + length > len(data) or length - head >= NAME_BUFFER:
                self.log.anything()
                return
            record = data[position : position + length]
            name = record[head:].split(b"\0", 1)[0].decode("latin-1")
            self._enter(name, big_endian(record, head - 2))
            position += length
            head = LATER_HEAD

    def _enter(self, name: str, index: int) -> None:
        self.parsed += 1
        if self.parsed % 8192 == 0:
            shown = self.parsed % 2**32
            self.log.info(f"Have parsed {shown} instrument id already, instnum:{len(self.instruments)}.")
        if name not in self.instruments:
            self.cache.append(name, index)
        self.instruments[name] = index
