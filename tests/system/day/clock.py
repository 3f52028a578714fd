"""The clock of tests/system/startClockPreload.cpp: the wall clock and the sleeps of all processes that
load it, in the hand of this one."""

import datetime
import mmap
import struct
import time

# Of startClockPage.h: the number of the setting; two settings of three numbers; what was slept; the
# board's rounds.
NUMBER, SETTINGS, SETTING_BYTES, SLEPT, ROUNDS, PAGE_BYTES = 0, 8, 24, 56, 64, 72
ZONE = datetime.timezone(datetime.timedelta(hours=8))  # the exchange's
ROUNDS_TO_FOLLOW = 3
BOARD_PATIENCE = 10.0


def moment(text):
    """'2026-11-18 08:30:00' of the exchange, as seconds since 1970."""
    return datetime.datetime.fromisoformat(text).replace(tzinfo=ZONE).timestamp()


def text_of(seconds):
    return datetime.datetime.fromtimestamp(seconds, ZONE).strftime("%Y-%m-%d %H:%M:%S")


class Clock:
    def __init__(self, path, library, start):
        self.path, self.library = path, library
        with open(path, "wb") as file:
            file.write(bytes(PAGE_BYTES))
        with open(path, "r+b") as file:
            self.page = mmap.mmap(file.fileno(), PAGE_BYTES)
        self._put(int(start * 1e9), 0)

    def environment(self, is_board):
        values = {"VELATEST_CLOCK": self.path, "LD_PRELOAD": self.library}
        return dict(values, VELATEST_CLOCK_BOARD="1") if is_board else values

    def _read(self, form, offset):
        return struct.unpack_from(form, self.page, offset)[0]

    def _put(self, wall_ns, rate):
        number = (self._read("<I", NUMBER) + 1) % 2**32
        struct.pack_into("<qqq", self.page, SETTINGS + number % 2 * SETTING_BYTES,
                         wall_ns - self._read("<q", SLEPT), time.monotonic_ns(), round(rate * 1000))
        struct.pack_into("<I", self.page, NUMBER, number)

    def _now_ns(self):
        at = SETTINGS + self._read("<I", NUMBER) % 2 * SETTING_BYTES
        wall, real, rate = struct.unpack_from("<qqq", self.page, at)
        return wall + (time.monotonic_ns() - real) // 1000 * rate + self._read("<q", SLEPT)

    def now(self):
        """Seconds since 1970."""
        return self._now_ns() / 1e9

    def set(self, seconds):
        """Jumps there and stands still, unless it is later already; the board has the time then."""
        self._put(max(int(seconds * 1e9), self._now_ns()), 0)
        self.await_board(ROUNDS_TO_FOLLOW)

    def run(self, rate):
        """Goes on from where it is, `rate` seconds in a real one; 0: it stands still."""
        self._put(self._now_ns(), rate)

    def await_board(self, rounds):
        before = self._read("<Q", ROUNDS)
        end = time.monotonic() + BOARD_PATIENCE
        while before and self._read("<Q", ROUNDS) < before + rounds and time.monotonic() < end:
            time.sleep(0.001)

    def forget_board(self):
        """The board has ended: nobody waits for it until there is another one."""
        struct.pack_into("<Q", self.page, ROUNDS, 0)
