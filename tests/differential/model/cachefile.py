"""The per-day file that keeps the instrument list."""

from __future__ import annotations

import re
from dataclasses import dataclass
from typing import Iterator, Optional

from .clock import Clock
from .fpga import InstrumentMap
from .trace import Log

END_TAG = "bin_file_over_tag"
TIME_PREFIX = "contract's_corresponding_time="
LINE_BYTES = 127
PIECE_BYTES = 255
ULONG_MAX = 2**64 - 1


@dataclass
class Storage:
    """What lies under the file's name: nothing, a directory or a file of these bytes."""

    content: Optional[str] = None
    is_directory: bool = False


def unsigned_number(text: str) -> int:
    """A base-10 number as the C library's strtoul reads it."""
    match = re.match(r"[ \t\n\v\f\r]*([+-]?)([0-9]+)", text)
    if match is None:
        return 0
    value = int(match.group(2))
    if value > ULONG_MAX:
        return ULONG_MAX
    return -value % 2**64 if match.group(1) == "-" else value


def lines(content: str) -> list[str]:
    """The lines of any length, without their ends."""
    return content.split("\n")


def pieces(content: str) -> Iterator[str]:
    """The strings that reading by lines into a buffer of 256 bytes gives."""
    position = 0
    while position < len(content):
        line_end = content.find("\n", position, position + PIECE_BYTES)
        stop = min(position + PIECE_BYTES, len(content)) if line_end < 0 else line_end + 1
        yield content[position:stop].split("\0", 1)[0]
        position = stop


class CacheFile:
    """One object of the library's cache file class."""

    def __init__(self, storage: Storage, clock: Clock, instruments: InstrumentMap, log: Log) -> None:
        self.storage = storage
        self.clock = clock
        self.instruments = instruments
        self.log = log
        self.is_open = False

    def open_new(self) -> bool:
        """Starts an empty file."""
        self.is_open = not self.storage.is_directory
        if self.is_open:
            self.storage.content = ""
        else:
            self.log.warn("Fail! Unable to open file bin,msg:Is a directory")
        return self.is_open

    def append(self, name: str, index: int) -> None:
        """One learnt instrument."""
        if self.is_open:
            self._put_instrument(name, index)
            self.log.info(f"Write to bin :index:{index},inst:{name},")

    def finish(self, settle_time: int) -> int:
        """Creation time and end tag; the widened time."""
        widened = (self.clock.date * 10**6 + settle_time) % 2**64
        self._put(f"{TIME_PREFIX}{widened}\n{END_TAG}")
        self.log.info("Write end tag to bin.")
        return widened

    def rewrite(self, settle_time: int) -> int:
        """The file anew from the whole map; the settle time afterwards."""
        if not self.open_new():
            return settle_time
        self._put(f"{TIME_PREFIX}{self.clock.stamp}\n")
        for name, index in sorted(self.instruments.items()):
            self._put_instrument(name, index)
        return self.finish(settle_time)

    def load(self) -> bool:
        """Validates the file and enters its instruments; whether it served."""
        if self.storage.content is None:
            self.log.warn("Cannot open file:bin, errmsg:No such file or directory")
            return False
        if not any(line.startswith(END_TAG) for line in lines(self.storage.content)):
            self.log.warn(f" {TIME_PREFIX} not found in the file. bin file  is not complete.")
            self.log.warn("Bin file is not complete.")
            return False
        created = self._creation_time()
        if created is None:
            self.log.warn(f"Error: '{TIME_PREFIX}' not found in the file.\n")
            self.log.warn("Bin time check fail.")
            return False
        if not self._is_of_this_session(created):
            self.log.warn("Bin is not validate")
            return False
        self.log.info("Bin is validate")
        self._load_instruments()
        self.log.info(f"[channel:0] Current bin total inst count:{len(self.instruments)}.")
        return True

    def _put(self, text: str) -> None:
        self.storage.content = (self.storage.content or "") + text

    def _put_instrument(self, name: str, index: int) -> None:
        self._put(f"{index},{name}\n"[:LINE_BYTES])

    def _creation_time(self) -> Optional[int]:
        for line in lines(self.storage.content or ""):
            if line.startswith(TIME_PREFIX):
                created = unsigned_number(line[len(TIME_PREFIX) :])
                self.log.info(f"{TIME_PREFIX}{created}")
                return created
        return None

    def _is_of_this_session(self, created: int) -> bool:
        evening = self.clock.hour > 14
        first, last = (200000, 219999) if evening else (80000, 102999)
        if created // 10**6 == self.clock.date and first <= created % 10**6 <= last:
            return True
        if evening:
            self.log.warn(
                "BinCreTime is not in the current date's 8-9 PM range. "
                f"current time:{self.clock.stamp}, Bintime:{created}."
            )
        else:
            self.log.warn(
                "BinCreTime is not in the current date's 8-9 AM range."
                f"current time:{self.clock.stamp}, bintime:{created}."
            )
        return False

    def _load_instruments(self) -> None:
        for number, piece in enumerate(pieces(self.storage.content or ""), start=1):
            line = number % 65536
            tokens = [token for token in piece.split(",") if token]
            if len(tokens) < 2 or not tokens[1].endswith("\n"):
                self.log.warn(f"Invalid format!we skip line {line}: {piece}")
                continue
            name = tokens[1][:-1]
            index = unsigned_number(tokens[0]) % 65536
            self.instruments[name] = index
            self.log.info(f"Loading from bin: Index:{index},Instructmentid:{name}, lineNumber:{line}.")
        self.log.info("Loading over!")
