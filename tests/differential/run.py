"""Runs the library and the model on the same random cases and compares what they did."""

from __future__ import annotations

import argparse
import json
import subprocess
import sys
import time
from typing import Any, Optional

from draw import Case, draw_case, render_ini
from minimise import minimise
from model import run_case
from model.trace import ANY_LINE, ANY_NUMBER, lines_equal

KINDS = {
    "selection": "selection",
    "map": "map walk",
    "cache": "cache file",
    "start": "start decision",
}

Result = dict[str, Any]

CONTEXT = 6
"""Lines shown around a difference of logs."""


class Library:
    """The library in a process of its own, one case at a time; started anew if a case ends it."""

    def __init__(self, program: str) -> None:
        self._program = program
        self._process: Optional[subprocess.Popen[str]] = None

    def run(self, case: Case) -> Result:
        process = self._running()
        assert process.stdin is not None and process.stdout is not None
        try:
            process.stdin.write(json.dumps(case) + "\n")
            process.stdin.flush()
            line = process.stdout.readline()
        except BrokenPipeError:
            line = ""
        if line:
            return json.loads(line)
        self._process = None
        return {"ended": process.wait()}

    def close(self) -> int:
        """The exit status of the process."""
        if self._process is None:
            return 0
        assert self._process.stdin is not None
        self._process.stdin.close()
        return self._process.wait()

    def _running(self) -> subprocess.Popen[str]:
        if self._process is None:
            self._process = subprocess.Popen(
                [self._program], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True
            )
        return self._process


def with_ini(case: Case, seed: int) -> Case:
    """The case with its settings as the file that the library reads."""
    if "settings" not in case:
        return case
    return {**case, "ini": render_ini(case["settings"], f"ini {seed}")}


def difference(expected: Result, actual: Result) -> Optional[str]:
    """The first part of the results that differs; None if they agree."""
    if "ended" in actual:
        return "ended"
    for key, value in expected.items():
        if key == "log":
            if not lines_equal(value, actual[key]):
                return key
        elif actual.get(key) != value:
            return key
    return None


class Comparison:
    """One kind's cases through both."""

    def __init__(self, library: Library, seed: int) -> None:
        self._library = library
        self._seed = seed

    def differs(self, case: Case) -> Optional[str]:
        return difference(run_case(case), self._library.run(with_ini(case, self._seed)))

    def report(self, kind: str, number: int, case: Case) -> None:
        """Prints the smallest case found that still differs, and both results."""
        part = self.differs(case) or ""
        case = minimise(case, lambda smaller: self.differs(smaller) == part)
        print(f"differential: {KINDS[kind]} case {number} of seed {self._seed} differs in {part!r}")
        print("case:", json.dumps(case))
        _print_contents(case)
        expected = run_case(case)
        actual = self._library.run(with_ini(case, self._seed))
        if part == "log":
            _print_lines(expected["log"], actual["log"])
        else:
            print("model:  ", json.dumps(expected.get(part)))
            print("library:", json.dumps(actual.get(part)))


def _print_contents(case: Case) -> None:
    if case.get("file") is not None:
        print("file:", bytes.fromhex(case["file"]))
    for step in case.get("steps", []):
        if isinstance(step, dict):
            print("packet:", bytes.fromhex(step["packet"]))


def _print_lines(expected: list[str], actual: list[str]) -> None:
    """Where the logs part, with the lines around."""
    before = 0
    while lines_equal(expected[before : before + 1], actual[before : before + 1]):
        before += 1
    after = 0
    rest = min(len(expected), len(actual)) - before
    while after < rest and lines_equal([expected[-1 - after]], [actual[-1 - after]]):
        after += 1
    for line in actual[max(0, before - CONTEXT) : before]:
        print("   both:   ", line)
    for line in expected[before : len(expected) - after]:
        print(" * model:  ", line.replace(ANY_LINE, "(any line)").replace(ANY_NUMBER, "(any number)"))
    for line in actual[before : len(actual) - after]:
        print(" * library:", line)
    for line in actual[len(actual) - after :][:CONTEXT]:
        print("   both:   ", line)


def compare(kind: str, library: Library, arguments: argparse.Namespace) -> int:
    """The number of cases that differ; the first of them are reported."""
    comparison = Comparison(library, arguments.seed)
    different = 0
    numbers = range(arguments.cases) if arguments.only is None else [arguments.only]
    for number in numbers:
        case = draw_case(kind, arguments.seed, number)
        if comparison.differs(case) is None:
            continue
        different += 1
        if different <= arguments.show:
            comparison.report(kind, number, case)
    return different


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--differ", required=True, help="the program that runs the library")
    parser.add_argument("--cases", type=int, default=10000, help="cases of each kind")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--kind", choices=KINDS, action="append", help="this kind alone; may be repeated")
    parser.add_argument("--only", type=int, help="the case of this number alone")
    parser.add_argument("--show", type=int, default=1, help="differences to print for each kind")
    return parser.parse_args()


def main() -> int:
    arguments = parse_arguments()
    started = time.monotonic()
    library = Library(arguments.differ)
    cases = 0
    different = 0
    figures: list[str] = []
    for kind in arguments.kind or KINDS:
        begun = time.monotonic()
        found = compare(kind, library, arguments)
        done = arguments.cases if arguments.only is None else 1
        print(f"{KINDS[kind]}: {done} cases, {found} differ, {time.monotonic() - begun:.1f} s", flush=True)
        cases += done
        different += found
        figures.append(f"{KINDS[kind]} {done}")
    status = library.close()
    seconds = time.monotonic() - started
    if different or status:
        print(
            f"differential: FAILED, {different} of {cases} cases differ, "
            f"seed {arguments.seed}, exit {status}"
        )
        return 1
    print(f"differential: ok, {cases} cases ({', '.join(figures)}) in {seconds:.1f} s")
    return 0


if __name__ == "__main__":
    sys.exit(main())
