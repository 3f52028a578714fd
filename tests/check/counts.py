"""What zce-check tells of rules and counts, against the model of the library's decisions."""

from __future__ import annotations

import argparse
import json
import subprocess
import sys
import tempfile
from pathlib import Path
from typing import Any

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "differential"))

from draw import Case, draw_case, render_ini  # noqa: E402
from model.cases import Setting  # noqa: E402
from model.names import COMBINATION_PREFIXES, underlying  # noqa: E402

CHANNELS = 16


def is_listable(name: str) -> bool:
    """Whether a line of a list can hold the name."""
    return bool(name) and all(" " < letter < "\x7f" and letter not in "#," for letter in name)


def expected(case: Case) -> list[dict[str, Any]]:
    """Rules and counts of all channels, as the model has them."""
    selection = Setting(case, list_tables=True).selection
    selection.run()
    channels = []
    for channel in range(CHANNELS):
        rules = selection.rules[channel]
        single = selection.single[channel].values()
        options = sum(underlying(name) is not None for name in single)
        channels.append(
            {
                "rules": {
                    "ids": rules.ids,
                    "classes": rules.classes,
                    "all": rules.everything,
                    "options": rules.options,
                    "ips": rules.ips,
                    "spd": rules.spd,
                },
                "futures": len(single) - options,
                "options": options,
                "combinations": len(selection.combined[channel]),
            }
        )
    return channels


def told(program: str, ini: str, instruments: list[tuple[str, int]], directory: Path) -> list[dict[str, Any]]:
    """The same as zce-check has it."""
    file = directory / "case.ini"
    file.write_bytes(ini.encode("latin-1"))
    names = "".join(
        f"{index},{int(name[:4] in COMBINATION_PREFIXES)},{name}\n" for name, index in instruments
    )
    done = subprocess.run(
        [program, str(file), "--instruments", "-", "--json"],
        input=names,
        capture_output=True,
        text=True,
        check=False,
    )
    channels = json.loads(done.stdout)["channels"]
    keys = ("rules", "futures", "options", "combinations")
    return [{key: channel[key] for key in keys} for channel in channels]


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True, help="zce-check")
    parser.add_argument("--cases", type=int, default=30)
    parser.add_argument("--seed", type=int, default=1)
    options = parser.parse_args()
    compared = 0
    with tempfile.TemporaryDirectory() as directory:
        for number in range(options.cases):
            case = draw_case("selection", options.seed, number)
            listed = [(name, index) for name, index in case["instruments"] if is_listable(name)]
            if not listed:
                continue
            case["instruments"] = listed
            ini = render_ini(case["settings"], f"ini {options.seed}")
            wanted = expected(case)
            found = told(options.program, ini, listed, Path(directory))
            if wanted != found:
                differing = [n for n in range(CHANNELS) if wanted[n] != found[n]]
                print(f"case {number} of seed {options.seed} differs in channels {differing}")
                print(f"{ini}\n{listed}")
                for channel in differing:
                    print(f"model:     {wanted[channel]}\nzce-check: {found[channel]}")
                return 1
            compared += 1
    print(f"{compared} configurations, told as the model has them")
    return 0 if compared >= options.cases // 2 else 1


if __name__ == "__main__":
    sys.exit(main())
