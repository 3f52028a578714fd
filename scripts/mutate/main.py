"""A mutation run: one change of the code at a time, and whether a test notices. See --help."""

import argparse
import os
import random
import re
import signal
import sys
import threading
import time
from collections import Counter, defaultdict
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))

from build import Timeout, Tree, Workshop  # noqa: E402
from mutants import Mutant, mutants_of  # noqa: E402
from table import tests_of  # noqa: E402

ROOT = Path(__file__).resolve().parent.parent.parent
BOARD = ("Ring", "CoreLock", "RegisterFile")
GOAL = 95.0
CASE_SECONDS = 20.0  # and ten times what the unchanged program takes
FIRST_CASES = 12  # of a program, and
FIRST_PROGRAMS = 2  # so many of these: what is asked before all others


class Plan:
    """What the unchanged file's tests do, built as the changed ones are: the measure of all. Each
    program is measured when it is first needed."""

    def __init__(self, tree: Tree, path: str):
        reached = tree.deps.get(path, set())
        self.path = path
        self.tests = [(program, pattern) for program, pattern in tests_of(path)
                      if reached & set(tree.objects(program))]
        self.programs = list(dict.fromkeys(program for program, _ in self.tests))
        self.steps: dict[int, tuple[list[str], list[str], float]] = {}
        self.seen: set[tuple[str, str]] = set()
        self.caught: list[tuple[str, str]] = []  # program and case, the last to catch one first
        self.lock = threading.Lock()
        if not self.tests:
            raise SystemExit(f"mutate: {path} reaches no test in scripts/mutate/table.py")

    def step(self, shop: Workshop, number: int) -> tuple[list[str], list[str], float]:
        """Of the n-th test program: cases that may share a process, the others, seconds."""
        with self.lock:
            if number not in self.steps:
                self.steps[number] = self._first(shop, *self.tests[number])
            return self.steps[number]

    def noted(self, program: str, case: str) -> str:
        """That this case caught a change: changes of one file are often caught by the same."""
        with self.lock:
            if (program, case) in self.caught:
                self.caught.remove((program, case))
            if not any(case in alone for _, alone, _ in self.steps.values()):
                self.caught.insert(0, (program, case))
        return f"{program} {case}"

    def first_asked(self) -> dict[str, list[str]]:
        """By program, the cases that caught the last changes of this file."""
        asked: dict[str, list[str]] = {}
        with self.lock:
            for program, case in self.caught:
                if program in asked or len(asked) < FIRST_PROGRAMS:
                    asked.setdefault(program, []).append(case)
        return {program: cases[:FIRST_CASES] for program, cases in asked.items()}

    def _first(self, shop: Workshop, program: str,
               pattern: str) -> tuple[list[str], list[str], float]:
        source = (ROOT / self.path).read_text()
        objects = shop.compile(self.path, source, [program], "unchanged")
        binary = shop.link(program, objects) if objects is not None else None
        if binary is None:
            raise SystemExit(f"mutate: {self.path} unchanged: {program} cannot be built:\n"
                             f"{shop.output}")
        names = [n for n in shop.cases(binary, pattern) if (program, n) not in self.seen]
        self.seen.update((program, n) for n in names)
        return self._measure(shop, binary, names)

    @staticmethod
    def _measure(shop: Workshop, binary: Path, names: list[str]) -> tuple[list[str], list[str], float]:
        """Cases that pass one after the other in one process, cases that pass alone, seconds."""
        together, alone = list(names), []
        shop.seconds = 0.0
        while together:
            passed, first = shop.run_cases(binary, together, 600)
            if passed:
                break
            if not first:
                raise SystemExit(f"mutate: {binary.name} unchanged does not run:\n{shop.output}")
            together.remove(first)
            if shop.run_cases(binary, [first], 600)[0]:
                alone.append(first)
        return together, alone, shop.seconds


def judge(shop: Workshop, plan: Plan, mutant: Mutant) -> tuple[str, str]:
    """(caught, time, survived or invalid; the case that caught it)."""
    changed = mutant.apply((ROOT / mutant.path).read_text())
    try:
        objects = shop.compile(mutant.path, changed, plan.programs)
        if objects is None:
            return "invalid", ""
        for program, cases in plan.first_asked().items():
            binary = shop.link(program, objects)
            if binary is None:
                return "invalid", ""
            passed, first = shop.run_cases(binary, cases, CASE_SECONDS)
            if not passed and first and not shop.run_cases(binary, [first], CASE_SECONDS)[0]:
                return "caught", plan.noted(program, first)
        for number, (program, _) in enumerate(plan.tests):
            together, alone, seconds = plan.step(shop, number)
            binary = shop.link(program, objects)
            if binary is None:
                return "invalid", ""
            limit = CASE_SECONDS + 10 * seconds
            rest = list(alone)
            if together:
                passed, first = shop.run_cases(binary, together, limit)
                # A failure may come of the cases before it: it counts if the case fails alone too.
                rest = ([first] if first else []) + rest + together
            for case in dict.fromkeys(rest):
                if not shop.run_cases(binary, [case], limit)[0]:
                    return "caught", plan.noted(program, case)
    except Timeout:
        return "time", ""
    return "survived", ""


class Run:
    def __init__(self, mutants: list[Mutant], same: dict[str, str], verbose: bool, log: Path):
        self.mutants = mutants
        self.same = same
        self.verbose = verbose
        self.log = log  # each verdict, as soon as it is known
        self.plans: dict[str, Plan] = {}
        self.results: list[tuple[Mutant, str]] = []
        self.lock = threading.Lock()
        self.stopped: BaseException | None = None

    def _next(self) -> Mutant | None:
        with self.lock:
            return self.mutants.pop(0) if self.mutants and self.stopped is None else None

    def _plan(self, shop: Workshop, path: str) -> Plan:
        with self.lock:
            if path not in self.plans:
                self.plans[path] = Plan(shop.tree, path)
            return self.plans[path]

    def work(self, shop: Workshop) -> None:
        try:
            while (mutant := self._next()) is not None:
                verdict, by = judge(shop, self._plan(shop, mutant.path), mutant)
                if verdict == "survived" and mutant.key() in self.same:
                    verdict = "same"
                with self.lock:
                    self.results.append((mutant, verdict))
                    line = f"{verdict} {mutant} {by}".rstrip()
                    with self.log.open("a") as log:
                        log.write(line + "\n")
                    if verdict == "survived" or self.verbose:
                        print(line, flush=True)
        except BaseException as reason:  # the other worker must not go on alone
            self.stopped = reason


def report(run: Run, seconds: float, out: Path) -> int:
    counts: dict[str, Counter] = defaultdict(Counter)
    for mutant, verdict in run.results:
        counts[mutant.path][verdict] += 1
        counts["all"][verdict] += 1
    lines = [f"{'file':40} {'caught':>7} {'time':>5} {'same':>5} {'survived':>9} {'invalid':>8}"]
    for path in sorted(counts, key=lambda p: (p == "all", p)):
        c = counts[path]
        lines.append(f"{path:40} {c['caught']:7} {c['time']:5} {c['same']:5} {c['survived']:9} "
                     f"{c['invalid']:8}")
    total = counts["all"]
    caught = total["caught"] + total["time"]
    judged = caught + total["survived"]
    share = 100.0 * caught / judged if judged else 100.0
    survivors = sorted(str(m) for m, verdict in run.results if verdict == "survived")
    lines += ["", *survivors, ""] if survivors else [""]
    lines.append(f"mutate: {caught} of {judged} mutants caught ({share:.1f} %), "
                 f"{total['same']} are the same program, {total['invalid']} do not compile, "
                 f"{seconds:.0f} s")
    out.write_text("\n".join(lines) + "\n")
    print("\n".join(lines))
    return 0 if share >= GOAL else 1


def read_same(path: Path) -> dict[str, str]:
    """Changes known to give the same program: `file | line | old -> new | why`."""
    known = {}
    for line in path.read_text().splitlines():
        if line and not line.startswith("#"):
            key, why = line.rsplit(" | ", 1)
            known[key] = why
    return known


def files_of(arguments: list[str]) -> list[str]:
    if arguments:
        return [os.path.relpath(Path(a).resolve(), ROOT) for a in arguments]
    found = [p for suffix in ("cpp", "h") for p in ROOT.glob(f"src/**/*.{suffix}")]
    found += [p for name in BOARD for p in ROOT.glob(f"board/memory/{name}.*")]
    return sorted(str(p.relative_to(ROOT)) for p in found)


def main() -> int:
    parser = argparse.ArgumentParser(prog="mutate.sh", description=(
        "Changes one operator, constant, text or statement of the code at a time and runs the "
        "tests of its file. Prints the mutants that no test caught; exit status 0 if at least "
        f"{GOAL:.0f} %% were caught."))
    parser.add_argument("files", nargs="*", metavar="FILE",
                        help="default: src/, and ring, lock and register file of the board")
    parser.add_argument("--match", metavar="REGEX", default="",
                        help="only those whose description, as --list has it, matches")
    parser.add_argument("--sample", type=int, metavar="N", help="only N of them, drawn at random")
    parser.add_argument("--seed", type=int, default=1, help="of the draw (default 1)")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1)
    parser.add_argument("--build", type=Path, default=ROOT / "build/release",
                        help="a configured build tree (default build/release)")
    parser.add_argument("--place", type=Path, default=ROOT / "build/mutate",
                        help="where it works; two runs at once want two (default build/mutate)")
    parser.add_argument("--list", action="store_true", help="list the mutants and end")
    parser.add_argument("--verbose", action="store_true", help="print the caught ones too")
    options = parser.parse_args()

    mutants = [m for path in files_of(options.files)
               for m in mutants_of(path, (ROOT / path).read_text())
               if re.search(options.match, str(m))]
    if options.sample is not None and options.sample < len(mutants):
        # In the order of the draw: a run that is ended early has judged a sample too.
        mutants = random.Random(options.seed).sample(mutants, options.sample)
    if options.list:
        print("\n".join(map(str, mutants)))
        return 0

    began = time.monotonic()
    tree = Tree(ROOT, options.build.resolve())
    tree.make(sorted({p for m in mutants for p, _ in tests_of(m.path)}))
    place = options.place.resolve()
    place.mkdir(parents=True, exist_ok=True)
    log = place / "verdicts.txt"
    log.unlink(missing_ok=True)
    run = Run(mutants, read_same(Path(__file__).parent / "same.txt"), options.verbose, log)
    print(f"{len(mutants)} mutants in {len({m.path for m in mutants})} files", flush=True)
    workers = [threading.Thread(target=run.work, args=(Workshop(tree, place / str(n)),))
               for n in range(options.jobs)]
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    try:
        for worker in workers:
            worker.start()
        for worker in workers:
            worker.join()
    except KeyboardInterrupt as ended:
        print(f"ended early: {len(run.mutants)} are left", flush=True)
        run.stopped = ended
        for worker in workers:
            worker.join()
    if run.stopped is not None and not isinstance(run.stopped, KeyboardInterrupt):
        raise run.stopped
    return report(run, time.monotonic() - began, place / "report.txt")


if __name__ == "__main__":
    sys.exit(main())
