"""One case in, one result out, for each of the four kinds.

Names and other texts in cases and results have one character for each byte; packets and file contents are
hexadecimal.
"""

from __future__ import annotations

from typing import Any, Callable, Optional

from .board import Board
from .cachefile import CacheFile, Storage
from .clock import Clock
from .fpga import FpgaService, InstrumentMap
from .mapwalk import MapWalk
from .selection import Selection, Settings
from .start import Start, feed_switches
from .trace import Log, escape

Case = dict[str, Any]
Result = dict[str, Any]


class Setting:
    """The parts that every kind is put together from."""

    def __init__(self, case: Case, list_tables: bool) -> None:
        self.log = Log()
        self.clock = Clock(case.get("now", "20260105120000"))
        self.instruments: InstrumentMap = {name: index for name, index in case.get("instruments", [])}
        self.board = Board(case.get("board", {}), list_tables)
        self.settings = Settings(case.get("settings", []))
        self.fpga = FpgaService(
            self.board, self.clock, self.log, self.instruments, feed_switches(self.settings)
        )
        self.selection = Selection(self.settings, self.fpga, self.instruments, self.log)
        self.storage = Storage(_unhex(case.get("file")), case.get("directory", False))
        self.cache = self.new_cache()

    def new_cache(self) -> CacheFile:
        return CacheFile(self.storage, self.clock, self.instruments, self.log)

    def result(self) -> Result:
        return {
            "log": self.log.lines,
            "map": [[escape(name), index] for name, index in sorted(self.instruments.items())],
            "file": _hex(self.storage.content),
        }


def run_case(case: Case) -> Result:
    """The model's result for one case."""
    return _KINDS[case["kind"]](case)


def _select(case: Case) -> Result:
    parts = Setting(case, list_tables=True)
    for _ in range(case["rounds"]):
        parts.selection.run()
        parts.fpga.subscribe()
    result = parts.result()
    result["board"] = parts.board.result()
    result["rules"] = [_escaped(rules.as_list()) for rules in parts.selection.rules]
    return result


def _walk_map(case: Case) -> Result:
    parts = Setting(case, list_tables=True)
    if case["open"]:
        parts.cache.open_new()
    walk = MapWalk(
        parts.clock,
        parts.log,
        parts.instruments,
        parts.fpga,
        parts.cache,
        parts.selection,
        case["parsed"],
    )
    for step in case["steps"]:
        parts.clock.set(step["now"])
        parts.board.scripts[0x104] = [step["t104"]]
        parts.board.scripts[0x105] = [step["t105"]]
        walk.packet(bytes.fromhex(step["packet"]))
    result = parts.result()
    result["board"] = parts.board.result()
    result["parsed"] = walk.parsed
    result["flags"] = [int(walk.over), int(walk.expired), int(walk.learning)]
    result["settle"] = walk.settle_time
    return result


def _use_cache(case: Case) -> Result:
    parts = Setting(case, list_tables=True)
    settle = 0
    loaded: list[int] = []
    for step in case["steps"]:
        operation = step[0]
        if operation == "new":
            parts.cache = parts.new_cache()
        elif operation == "clock":
            parts.clock.set(step[1])
        elif operation == "settle":
            settle = step[1]
        elif operation == "init":
            parts.cache.open_new()
        elif operation == "instrument":
            parts.cache.append(step[1], step[2])
        elif operation == "end":
            settle = parts.cache.finish(settle)
        elif operation == "rewrite":
            settle = parts.cache.rewrite(settle)
        elif operation == "load":
            loaded.append(0 if parts.cache.load() else -1)
        else:
            raise ValueError(f"no such step: {operation}")
    result = parts.result()
    result["settle"] = settle
    result["loaded"] = loaded
    return result


def _start(case: Case) -> Result:
    parts = Setting(case, list_tables=False)
    start = Start(
        parts.settings, parts.clock, parts.log, parts.instruments, parts.fpga, parts.cache, parts.selection
    )
    start.run()
    result = parts.result()
    result["board"] = parts.board.result()
    result["reset"] = parts.fpga.was_reset
    result["source"] = start.source
    result["slept"] = parts.clock.slept
    return result


_KINDS: dict[str, Callable[[Case], Result]] = {
    "selection": _select,
    "map": _walk_map,
    "cache": _use_cache,
    "start": _start,
}


def _escaped(value: Any) -> Any:
    if isinstance(value, list):
        return [_escaped(item) for item in value]
    return escape(value) if isinstance(value, str) else value


def _unhex(text: Optional[str]) -> Optional[str]:
    return None if text is None else bytes.fromhex(text).decode("latin-1")


def _hex(text: Optional[str]) -> Optional[str]:
    return None if text is None else text.encode("latin-1").hex()
