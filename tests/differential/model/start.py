"""What a start does with the board and where the instrument list comes from."""

from __future__ import annotations

from .cachefile import CacheFile
from .clock import Clock
from .fpga import FpgaService, InstrumentMap
from .selection import Selection, Settings
from .trace import Log

NO_STREAM = "NOSTREAM"
"""A stream name without a channel in it: the stream is refused before the board's library is asked."""


def feed_switches(settings: Settings) -> int:
    """The feed switch word: bit 1 is level 1, bit 0 is level 2."""
    word = 3
    if settings.get("config", "czce_level1") == "disabled":
        word = 1
    if settings.get("config", "czce_level2") == "disabled":
        word &= ~1
    return word


class Start:
    """The master channel's start, to the point where its stream is opened."""

    def __init__(
        self,
        settings: Settings,
        clock: Clock,
        log: Log,
        instruments: InstrumentMap,
        fpga: FpgaService,
        cache: CacheFile,
        selection: Selection,
    ) -> None:
        self.settings = settings
        self.clock = clock
        self.log = log
        self.instruments = instruments
        self.fpga = fpga
        self.cache = cache
        self.selection = selection
        self.source = ""

    def run(self) -> None:
        self._init()
        self._work()

    def _init(self) -> None:
        self.log.info("[channel:0] Doesn't need to bind cpu.")
        self._check_and_reset()
        self.log.info("Current soft version 3.10.0.")
        self._report_links()
        self._report_feeds()
        self.fpga.update_date()
        self.fpga.unsubscribe_all()

    def _check_and_reset(self) -> None:
        same, board_date, today = self.fpga.date_equal()
        self.log.info(f"First time read fpga date:{board_date}, system date:{today}.")
        if not same:
            self._reset()
            return
        time = self.fpga.real_time()
        if self.fpga.date_equal()[0] and self._must_reset(time):
            self._reset()

    def _must_reset(self, time: int) -> bool:
        if time <= 80000:
            return True
        for first, last in ((90000, 101450), (103000, 113000), (133000, 160000), (210000, 233000)):
            if first <= time <= last and self.fpga.counters_stand():
                return True
        return 160000 <= time <= 201500 or 233000 <= time <= 235959

    def _reset(self) -> None:
        self.fpga.reset()
        self.fpga.clear_tables()

    def _report_links(self) -> None:
        links = self.fpga.board.read(0x103) or 0
        self.log.info(f"Fiber linkstatus 0x103:0x{links:x}.")
        if not links & 1:
            self.log.error(
                "The fiber 0 is not connected, status is incorrect! "
                "Please modify or contact technical support!"
            )
        if links != 15:
            self.log.warn("Warning! The fiber optic cable is not fully connected.")

    def _report_feeds(self) -> None:
        for level in ("czce_level1", "czce_level2"):
            value = self.settings.get("config", level)
            if value is not None:
                self.log.info(f"config:{level}={value}.")
        word = feed_switches(self.settings)
        if word == 0:
            self.log.warn("L1 and L5 switch off! Software won't get data!")
        else:
            texts = {
                3: "L1 and L5 switch on.",
                2: "L1 switch on and L5 switch off.",
                1: "L1 switch off and L5 switch on.",
            }
            self.log.info(texts[word])

    def _work(self) -> None:
        if self.clock.in_trade_time():
            self.fpga.close_transfer()
            self._recover()
            self.selection.run()
            self.fpga.subscribe()
            self.fpga.start_decode()
        else:
            self.source = "learn"
            self.cache.open_new()
            self.fpga.start_transfer()
        self.log.info("Extract dma channel fail.")
        self.log.error(f"Dma init busid:0, chanName:{NO_STREAM} fail!")
        self.log.error(f"[channel:0] Init dma fail! dma name {NO_STREAM}.")

    def _recover(self) -> None:
        self.log.info("Now begin recover all inst")
        if self.cache.load():
            self.source = "bin"
            self.log.info("Get inst from bin success")
            if self.fpga.was_reset:
                self.log.info("We wait for fpga gather enough inst, please wait 120 second...")
                self.clock.sleep(120)
            self.log.info(f"Bin inst count:{len(self.instruments)}")
        else:
            self.source = "tables"
            seconds = 60 * self._minutes_to_wait()
            for left in range(seconds, 0, -10):
                self.log.info(f"Left {left} seconds")
                self.clock.sleep(10)
            self.fpga.fetch_all()
        self.log.info(f"Fetch all inst from fpga over! insts count:{len(self.instruments)}.")

    def _minutes_to_wait(self) -> int:
        now = self.clock.time_of_day
        time = self.fpga.real_time()
        morning_break = 90001 <= now <= 119999 and 101450 <= time <= 103000
        minutes = (20 if morning_break else 4) if self.fpga.was_reset else 0
        self.log.info(f"Expire time {minutes} minute.")
        return minutes
