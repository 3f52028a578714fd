"""Subscription rules of the 16 channels and the instruments that they select."""

from __future__ import annotations

from dataclasses import dataclass, field
from typing import Any, Optional

from .fpga import FpgaService, InstrumentMap, Selected
from .names import COMBINATION_PREFIXES, asks_for_all, has_digit, product_class, underlying
from .trace import Log

CHANNELS = 16


class Settings:
    """Keys and values of an INI file; section and key names match without regard to case."""

    def __init__(self, items: list[list[str]]) -> None:
        self._values = {(section.lower(), key.lower()): value for section, key, value in items}

    def get(self, section: str, key: str) -> Optional[str]:
        return self._values.get((section, key))


@dataclass
class Rules:
    """One channel's subscription rules."""

    ids: list[str] = field(default_factory=list)
    classes: list[str] = field(default_factory=list)
    everything: bool = False
    options: bool = False
    ips: bool = False
    spd: bool = False
    options_text: str = ""
    ips_text: str = ""
    spd_text: str = ""

    def add_items(self, value: str) -> None:
        for item in value.split(","):
            if item:
                (self.ids if has_digit(item) else self.classes).append(item)

    def as_list(self) -> list[Any]:
        flags = [int(self.everything), int(self.options), int(self.ips), int(self.spd), 3]
        joined = [",".join(self.ids), ",".join(self.classes)]
        return [self.ids, self.classes, *flags, *joined, self.options_text, self.ips_text, self.spd_text]


class Selection:
    """Rules, lack report and filter."""

    def __init__(self, settings: Settings, fpga: FpgaService, instruments: InstrumentMap, log: Log) -> None:
        self.settings = settings
        self.fpga = fpga
        self.instruments = instruments
        self.log = log
        self.rules = [Rules() for _ in range(CHANNELS)]
        self.single: list[Selected] = [{} for _ in range(CHANNELS)]
        self.combined: list[Selected] = [{} for _ in range(CHANNELS)]

    def run(self) -> None:
        """One whole selection for all channels."""
        self._parse()
        self._report_lack()
        self._filter()
        for channel in range(CHANNELS):
            self.fpga.record(self.single[channel], self.combined[channel], channel)

    def _parse(self) -> bool:
        return all(self._parse_channel(channel) for channel in range(CHANNELS))

    def _parse_channel(self, channel: int) -> bool:
        rules = self.rules[channel]
        section = f"channel{channel}"
        value = self.settings.get(section, "insts")
        if value is not None:
            self._parse_insts(channel, value.replace(" ", ""))
            options = self.settings.get(section, "options")
            if options is None:
                self.log.error(
                    f"[channel:{channel}] Error! In subscribe labek ,Lack item: options=xxx , please check !"
                )
                return False
            rules.options_text = options
            rules.options = self._receives(channel, "options", options) or rules.options
        ips = self.settings.get(section, "ips")
        if ips is not None:
            rules.ips_text = ips
            rules.ips = self._receives(channel, "ips", ips) or rules.ips
        spd = self.settings.get(section, "spd")
        if spd is not None:
            rules.spd_text = spd
            rules.spd = self._receives(channel, "spd", spd) or rules.spd
            self.log.info("-" * 56)
        return True

    def _parse_insts(self, channel: int, value: str) -> None:
        rules = self.rules[channel]
        rules.everything = asks_for_all(value)
        rules.add_items(value)
        self.log.info(
            f"[channel:{channel}] --------Channel {channel} subscribed information is as below:--------"
        )
        for item in rules.ids:
            self.log.info(f"[channel:{channel}] subId:{item}")
        if rules.everything:
            self.log.info(f"[channel:{channel}] You subscribe all subId !")
        for item in rules.classes:
            self.log.info(f"[channel:{channel}] subClass:{item},")

    def _receives(self, channel: int, key: str, value: str) -> bool:
        receives = value == "recv"
        self.log.info(f"[channel:{channel}] {key}={'recv' if receives else 'norecv'}")
        return receives

    def _report_lack(self) -> None:
        if not self.instruments:
            self.log.warn("All instrument count is zero.")
            return
        for channel, rules in enumerate(self.rules):
            lacking = [name for name in rules.ids if name not in self.instruments]
            if lacking:
                self.log.warn(
                    f"[channel:{channel}] Warning!! Hasn't receive these insts:{','.join(lacking)}! "
                    "The program continues to run"
                )

    def _filter(self) -> None:
        self.log.info(f"Begin match needed inst! AllInstNum:{len(self.instruments)}.")
        for channel, rules in enumerate(self.rules):
            for name, index in sorted(self.instruments.items()):
                if name[:4] in COMBINATION_PREFIXES:
                    if rules.spd if name.startswith("SPD-") else rules.ips:
                        self.combined[channel][index] = name
                elif _selects(rules, name):
                    self.single[channel][index] = name
            self.log.info(
                f"[channel:{channel}] Filter needed sgl count:{len(self.single[channel])}, "
                f"cmb count:{len(self.combined[channel])}."
            )


def _selects(rules: Rules, name: str) -> bool:
    """Whether the rules select a single-leg instrument."""
    contract = underlying(name)
    if contract is None:
        return rules.everything or product_class(name) in rules.classes or name in rules.ids
    if not rules.options:
        return False
    return product_class(name) in rules.classes or contract in rules.ids or rules.everything
