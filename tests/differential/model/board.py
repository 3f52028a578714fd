"""The board as the library sees it: registers and two instrument tables."""

from __future__ import annotations

from collections import Counter
from typing import Any, Optional

TABLE_BASES = (0x11000, 0x12000)
WORDS_PER_ENTRY = 64
COUNTERS = (0x200B, 0x200C, 0x200D, 0x200E, 0x210B, 0x210C, 0x210D, 0x210E)

NameScripts = dict[int, list[str]]


class Board:
    """Registers with scripted readings; every access is recorded.

    A script is the list of values that successive reads give; the last one stays. None in it is a read
    that fails. Table accesses are counted, and listed as well when `list_tables` is set.
    """

    def __init__(self, setup: dict[str, Any], list_tables: bool) -> None:
        self.scripts: dict[int, list[Optional[int]]] = {
            int(register, 16): list(values) for register, values in setup.get("registers", {}).items()
        }
        self.reads: Counter[int] = Counter()
        self.names: list[NameScripts] = [
            _scripts(setup.get("single", [])),
            _scripts(setup.get("combined", [])),
        ]
        self.learns_again: bool = setup.get("learns_again", False)
        self.kept_bits: int = setup.get("kept_bits", 0xFFFF)
        self.masks: list[dict[int, int]] = [{}, {}]
        self.access: list[str] = []
        self.table_access: Counter[str] = Counter()
        self.list_tables = list_tables

    def read(self, register: int) -> Optional[int]:
        """A control register's next value; None when the read fails."""
        self.access.append(f"R {register:x}")
        values = self.scripts.get(register, [0])
        value = values[min(self.reads[register], len(values) - 1)]
        self.reads[register] += 1
        return value

    def write(self, register: int, value: int) -> None:
        """A plain write to a control register."""
        self._write("W", register, value)

    def write_logged(self, register: int, value: int) -> None:
        """A logged write to a control register."""
        self._write("L", register, value)

    def write_mask(self, table: int, index: int, mask: int) -> None:
        """Word 0 of one entry by two writes with read-back: data, then address."""
        base = TABLE_BASES[table]
        self._table(f"V {base + 1:x}", mask)
        self._table(f"V {base:x}", index * WORDS_PER_ENTRY)
        self.masks[table][index] = mask & self.kept_bits

    def read_mask(self, table: int, index: int) -> int:
        base = TABLE_BASES[table]
        self._table(f"V {base + 2:x}", index * WORDS_PER_ENTRY)
        self._table(f"R {base + 3:x}")
        return self.masks[table].get(index, 0)

    def clear_tables(self) -> None:
        """All words of entries 0 to 4094 and word 0 of entry 4095, both tables."""
        for table, base in enumerate(TABLE_BASES):
            self._count_plain_writes(base, 0x3FFC0 + 1)
            self._clear_masks(table)
            if not self.learns_again:
                self.names[table] = {i: s for i, s in self.names[table].items() if i > 4094}

    def clear_masks(self, passes: int) -> None:
        """Word 0 of entries 0 to 4095, both tables, `passes` times."""
        for table, base in enumerate(TABLE_BASES):
            self._count_plain_writes(base, passes * 4096)
            self._clear_masks(table)

    def count_name_reads(self, table: int, attempts: int) -> None:
        """Reading a name takes four words: a read address and a read each."""
        base = TABLE_BASES[table]
        self.table_access[f"V {base + 2:x}"] += 4 * attempts
        self.table_access[f"R {base + 3:x}"] += 4 * attempts

    def result(self) -> dict[str, Any]:
        return {
            "access": self.access,
            "tables": {key: n for key, n in sorted(self.table_access.items()) if n},
            "masks": [[[i, m] for i, m in sorted(masks.items()) if m] for masks in self.masks],
        }

    def _write(self, kind: str, register: int, value: int) -> None:
        self.access.append(f"{kind} {register:x} {value:x}")
        self.scripts[register] = [value]

    def _table(self, key: str, value: Optional[int] = None) -> None:
        self.table_access[key] += 1
        if self.list_tables:
            self.access.append(key if value is None else f"{key} {value:x}")

    def _count_plain_writes(self, base: int, count: int) -> None:
        self.table_access[f"W {base + 1:x}"] += count
        self.table_access[f"W {base:x}"] += count

    def _clear_masks(self, table: int) -> None:
        self.masks[table] = {i: m for i, m in self.masks[table].items() if i > 4095}


def _scripts(entries: list[Any]) -> NameScripts:
    return {index: list(names) for index, names in entries}
