"""The host's clock: stands still but for the sleeps."""

from __future__ import annotations

from datetime import datetime, timedelta


class Clock:
    """Local date and time of the host, in whole seconds."""

    def __init__(self, stamp: str) -> None:
        self.now = datetime.strptime(stamp, "%Y%m%d%H%M%S")
        self.slept = 0

    def set(self, stamp: str) -> None:
        self.now = datetime.strptime(stamp, "%Y%m%d%H%M%S")

    def sleep(self, seconds: int) -> None:
        self.now += timedelta(seconds=seconds)
        self.slept += seconds

    @property
    def hour(self) -> int:
        return self.now.hour

    @property
    def time_of_day(self) -> int:
        """hhmmss as a decimal number."""
        return self.now.hour * 10000 + self.now.minute * 100 + self.now.second

    @property
    def date(self) -> int:
        """yyyymmdd as a decimal number."""
        return self.now.year * 10000 + self.now.month * 100 + self.now.day

    @property
    def stamp(self) -> int:
        """yyyymmddhhmmss as a decimal number."""
        return self.date * 10**6 + self.time_of_day

    def in_trade_time(self) -> bool:
        """Whether the exchange trades now."""
        now = self.time_of_day
        return 90001 <= now <= 149999 or 210001 <= now <= 232999
