"""docs/register-map.md beside the headers that it describes."""

import re
from pathlib import Path

import pages

PAGE = "docs/register-map.md"
REGISTERS = "src/DataType/ZceRegMap.h"
MESSAGES = "board/include/ZceBoardMsg.h"
FIELD = re.compile(r"^\s+(\w+) (\w+)(?:\[\w+\])?;\s*/\*(?:\*<)?\s*(\d+)\s", re.M)


def register_faults(page, header):
    """Every register of the header is on the page, and no other."""
    code = re.sub(r"//[^\n]*", "", header)
    there = set()
    for line in code.split(";"):
        if re.search(r"\bZCE_REG_\w+", line):
            there |= {int(n, 16) for n in re.findall(r"\b0x[0-9a-fA-F]+", line)}
    told = set()
    table = page[page.index("## Registers"):page.index("How an address becomes a value")]
    for line in table.splitlines():
        if line.startswith("| `0x"):
            told |= {int(n, 16) for n in re.findall(r"0x[0-9a-fA-F]+", line.split("|")[1])}
    return ([f"{PAGE} lacks the register 0x{n:x}" for n in sorted(there - told)] +
            [f"{PAGE} has a register 0x{n:x}, which {REGISTERS} has not" for n in sorted(told - there)])


def structs(header):
    """Name of a record -> [(offset, field)] as its comments tell them."""
    found = {}
    for body, name in re.findall(r"typedef struct \w+ \{(.*?)\n\} (\w+);", header, re.S):
        found[name] = [(int(offset), field) for _, field, offset in FIELD.findall(body)]
    return found


def struct_faults(page, header):
    """The tables of the records have the header's fields, at the header's offsets."""
    told, name = {}, None
    for line in page.splitlines():
        if not line.startswith("|"):
            names = [s for s in pages.spans(line) if s.startswith("Zce") and s.endswith("_t")]
            name = names[-1] if names else name
        else:
            row = re.match(r"\| (\d+) \| \d+ \| `(\w+)` \|", line)
            if row:
                told.setdefault(name, []).append((int(row[1]), row[2]))
    return [f"{PAGE}: {record} is {told.get(record)}, in {MESSAGES} {fields}"
            for record, fields in structs(header).items()
            if fields and record not in ("ZceBoardL1_t", "ZceBoardL5_t") and told.get(record) != fields]


def faults(root):
    page = Path(root, PAGE).read_text()
    return (register_faults(page, Path(root, REGISTERS).read_text()) +
            struct_faults(page, Path(root, MESSAGES).read_text()))
