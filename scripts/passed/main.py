"""What has passed need not pass again as long as nothing has changed that it depends on.

A test program, or a step of the test command as a whole, is known by one hash over the bytes of the
programs and libraries that the build made and over the files of the tree that no compiler reads
(examples, tables, scripts, pages). The source files count through what was built from them.

    main.py due BUILD LABELS [--again]   writes BUILD/due.txt, what `ctest -I` takes: the test runs to do;
                                         exit status 3 if there are none
    main.py passed BUILD LABELS          those of due.txt have passed
    main.py step NAME BUILD [--again]    exit status 3 if the step passed with what BUILD has now
    main.py step-passed NAME BUILD       it has

The record lies in the build folders, so that a fresh copy of the tree repeats everything.
"""

import argparse
import hashlib
import json
import os
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
NOTHING_DUE = 3
# Read by a compiler alone; the folders are no part of the tree or are made by tests and tools.
COMPILED = {".cpp", ".h", ".c"}
NOT_OF_THE_TREE = {".git", "build"}


def digest(path: Path) -> str:
    with path.open("rb") as file:
        return hashlib.file_digest(file, "sha256").hexdigest()


def files_of_tree() -> list[Path]:
    found = []
    for folder, folders, names in os.walk(ROOT):
        folders[:] = sorted(f for f in folders if f not in NOT_OF_THE_TREE and f != "__pycache__")
        found += [Path(folder, n) for n in sorted(names) if Path(n).suffix not in COMPILED]
    return [p for p in found if p.is_file()]


def files_built(build: Path) -> list[Path]:
    return sorted(p for sub in ("bin", "lib") for p in (build / sub).glob("**/*")
                  if p.is_file() and not p.is_symlink())


def together(paths: list[Path]) -> str:
    whole = hashlib.sha256()
    for path in paths:
        whole.update(f"{path.relative_to(ROOT)} {digest(path)}\n".encode())
    return whole.hexdigest()


class Runs:
    """The test runs of a build tree with one of the labels, by the program that they run."""

    def __init__(self, build: Path, labels: str):
        shown = json.loads(subprocess.run(
            ["ctest", "--test-dir", str(build), "--show-only=json-v1", "-L", labels],
            check=True, capture_output=True, text=True).stdout)
        everything = json.loads(subprocess.run(
            ["ctest", "--test-dir", str(build), "--show-only=json-v1"],
            check=True, capture_output=True, text=True).stdout)
        number = {test["name"]: n for n, test in enumerate(everything["tests"], 1)}
        self.numbers: dict[Path, list[int]] = {}
        for test in shown["tests"]:
            self.numbers.setdefault(Path(test["command"][0]), []).append(number[test["name"]])
        programs = set(self.numbers)
        shared = together([p for p in files_built(build) if p not in programs] + files_of_tree())
        self.keys = {p: hashlib.sha256(f"{digest(p)} {shared}".encode()).hexdigest()
                     for p in programs}


def read(record: Path) -> set[str]:
    return set(record.read_text().split()) if record.exists() else set()


def due(build: Path, labels: str, again: bool) -> int:
    runs = Runs(build, labels)
    known = set() if again else read(build / "passed.txt")
    programs = [p for p in runs.numbers if runs.keys[p] not in known]
    numbers = sorted(n for p in programs for n in runs.numbers[p])
    # From the first to the first, and these on top: ctest's way to name some.
    first = numbers[:1] * 2 + [1] if numbers else []
    (build / "due.txt").write_text(",".join(map(str, first + numbers)) + "\n")
    (build / "due.keys").write_text("".join(f"{runs.keys[p]}\n" for p in programs))
    total = sum(map(len, runs.numbers.values()))
    if len(numbers) < total:
        print(f"{total - len(numbers)} of {total} test runs passed with these very programs before "
              "(--again repeats them)")
    return 0 if numbers else NOTHING_DUE


def passed(build: Path, labels: str) -> int:
    current = set(Runs(build, labels).keys.values())
    known = read(build / "passed.txt") | read(build / "due.keys")
    (build / "passed.txt").write_text("".join(f"{key}\n" for key in sorted(known & current)))
    return 0


def step(name: str, build: Path, again: bool) -> int:
    key = together(files_built(build) + files_of_tree())
    (build / f"{name}.key").write_text(key)
    if again or key not in read(build / f"{name}.passed"):
        return 0
    print("passed with these very programs before (--again repeats it)")
    return NOTHING_DUE


def step_passed(name: str, build: Path) -> int:
    (build / f"{name}.key").replace(build / f"{name}.passed")
    return 0


def main() -> int:
    parser = argparse.ArgumentParser(prog="passed")
    parser.add_argument("command", choices=["due", "passed", "step", "step-passed"])
    parser.add_argument("words", nargs=2)
    parser.add_argument("--again", action="store_true")
    options = parser.parse_args()
    first, second = options.words
    if options.command == "due":
        return due(ROOT / first, second, options.again)
    if options.command == "passed":
        return passed(ROOT / first, second)
    if options.command == "step":
        return step(first, ROOT / second, options.again)
    return step_passed(first, ROOT / second)


if __name__ == "__main__":
    sys.exit(main())
