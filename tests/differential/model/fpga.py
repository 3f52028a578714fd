"""The service around the board's instrument tables and control registers."""

from __future__ import annotations

from typing import Optional

from .board import COUNTERS, Board
from .clock import Clock
from .trace import ANY_NUMBER, Log

READ_FAILED = 0xFFFFFFFF
ATTEMPTS = 8
TABLE_ENTRIES = 4095

InstrumentMap = dict[str, int]
Selected = dict[int, str]


class FpgaService:
    """One channel's view of the board."""

    def __init__(self, board: Board, clock: Clock, log: Log, instruments: InstrumentMap, switch: int) -> None:
        self.board = board
        self.clock = clock
        self.log = log
        self.instruments = instruments
        self.switch = switch
        self.was_reset = False
        self.names: list[Selected] = [{}, {}]
        self.masks: list[dict[int, int]] = [{}, {}]

    def date_equal(self) -> tuple[bool, int, int]:
        """Whether the board's date is today's; both dates."""
        today = self.clock.date
        board_date = self.board.read(0x106) or 0
        return board_date == today, board_date, today

    def real_time(self) -> int:
        """The time of day to rely on, hhmmss."""
        now = self.clock.time_of_day
        board_time = 0
        if self.clock.in_trade_time() and self.date_equal()[0]:
            first = self.board.read(0x104)
            if first is None:
                self.log.error("[channel:0] 1 Unable to read time stamp !")
                return READ_FAILED
            second = self.board.read(0x105)
            if second is None:
                self.log.error(f"[channel:{ANY_NUMBER}] 2 Unable to read time stamp !")
                return READ_FAILED
            board_time = max(first, second)
            self.log.info(f"[channel:0] Current fpga time:{board_time}. system time:{now}.")
        result = board_time if (board_time - now + 1799) % 2**32 < 3599 else now
        self.log.info(f"System time:{result}.")
        return result

    def counters_stand(self) -> bool:
        """Whether a decoding board has parsed nothing for two seconds."""
        switch = self.board.read(0x11) or 0
        self.log.info(f"0x11 register value:0x{switch:x}")
        if switch == 0:
            return False
        before = self._counters()
        equal = True
        for _ in range(2):
            self.clock.sleep(1)
            equal = self._counters() == before and equal
        if equal:
            self.log.info("Fpga parse static count doesn't change!")
        return equal

    def start_transfer(self) -> None:
        self.board.write_logged(0x12, 1)
        self.log.info("Fpga start transmit inst map pkt.")

    def close_transfer(self) -> None:
        self.board.write_logged(0x12, 0)
        self.log.info("Fpga stop transmit inst map pkt.")

    def start_decode(self) -> None:
        self.board.write_logged(0x11, self.switch)
        self.log.info(f"Now Fpga start trans subscribe result! write 0x11 value:0x{self.switch:x}.")

    def reset(self) -> None:
        self.board.write_logged(0x10, 1)
        self.clock.sleep(1)
        self.board.write_logged(0x10, 0)
        self.clear_tables()
        self.was_reset = True
        self.log.info("Reset and Clear fpga table over.")

    def clear_tables(self) -> None:
        self.board.clear_tables()
        self.log.info("[channel:0] Clear all inst table over")

    def update_date(self) -> None:
        date = self.clock.date
        self.board.write(0x106, date)
        self.log.info(f"Update fpga addr 0x106 to {date} over")

    def unsubscribe_all(self) -> None:
        self.board.clear_masks(6)
        self.log.info("Unsubscribe all insts now")

    def record(self, single: Selected, combined: Selected, channel: int) -> None:
        """Merges one channel's selection into the masks of all channels."""
        self.log.info(
            f"[channel:{channel}] Record func:Meeting conditions count is:"
            f"OneLeg:{len(single)}, Combine:{len(combined)}."
        )
        if not single and not combined:
            self.log.info(f"[channel:{channel}] Matched subs inst count is 0. you doesn't subscribe inst.")
        for kind, selected in enumerate((single, combined)):
            for index, name in selected.items():
                self.masks[kind][index] = self.masks[kind].get(index, 0) | 1 << channel
                self.names[kind][index] = name

    def subscribe(self) -> None:
        """Writes all masks to the board and reads them back."""
        single, combined = len(self.masks[0]), len(self.masks[1])
        self.log.warn(
            f"Subscribe:Meeting conditions count is:OneLeg:{single}, Combine:{combined}. Now write to fpga!"
        )
        if single == 0 and combined == 0:
            self.log.info(
                "Warning !! The number of contracts that comply with the subscription rules is 0. "
                "You subscribe no contract !!"
            )
        for kind in (0, 1):
            for index, mask in sorted(self.masks[kind].items()):
                self.board.write_mask(kind, index, mask)
                name = self.names[kind][index]
                self.log.info(f"Subscribes:Write to fpga:chanbit:0x{mask:x}, index:{index}, instId:{name}")
        self.log.info("Subscribes:Write to fpga Over!")
        self._read_back()

    def fetch_all(self) -> None:
        """Enters every name that two successive reads of the board's tables agree on."""
        for table in (0, 1):
            named = {i: script for i, script in sorted(self.board.names[table].items()) if i < TABLE_ENTRIES}
            attempts = sum(self._fetch(index, script) for index, script in named.items())
            self.board.count_name_reads(table, attempts + ATTEMPTS * (TABLE_ENTRIES - len(named)))
        self.log.info(f"New round, fetch from fpga, inst count:{len(self.instruments)}.")

    def _fetch(self, index: int, script: list[str]) -> int:
        """Reads one entry; the number of attempts it took."""
        last: Optional[str] = None
        for attempt in range(ATTEMPTS):
            name = script[min(attempt, len(script) - 1)]
            if not name:
                continue
            if attempt != 0 and name == last:
                self.instruments[name] = index
                if attempt != 1:
                    self.log.warn(
                        f"current read fpga {attempt} time, and this is equal previous, "
                        f"current inst id:{name} "
                    )
                return attempt + 1
            last = name
        return ATTEMPTS

    def _counters(self) -> list[Optional[int]]:
        return [self.board.read(register) for register in COUNTERS]

    def _read_back(self) -> None:
        self.log.info("Already write into fpga, now read back!")
        for kind in (0, 1):
            for index, mask in sorted(self.masks[kind].items()):
                value = self.board.read_mask(kind, index)
                if mask & value == 0:
                    self.log.warn(
                        f"Attention! Maybe subscribed fail! Type {kind}, index:{index}, "
                        f"shouldbe:0x{mask:x}, fpgavalue:0x{value:x},"
                    )
