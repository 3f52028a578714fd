"""Puts the figures of a benchmark run into docs/performance.md and draws its plots.

    page.py OUTPUT PAGE FOLDER    OUTPUT: what the benchmarks printed (lines "ratio ..." and "point ...");
                                  the blocks of PAGE between "<!-- measured: NAME -->" and "<!-- end -->" are
                                  made anew, and one FOLDER/PLOT.svg for each plot (gnuplot)

The text around the blocks is written by hand.
"""

import os
import platform
import re
import subprocess
import sys
from collections import defaultdict
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
from rows import PLOTS, ROWS  # noqa: E402

BLOCK = re.compile(r"(<!-- measured: (\S+) -->\n).*?(<!-- end -->)", re.DOTALL)


def read(output: Path) -> tuple[dict[str, list[str]], dict[str, dict[str, list[tuple[float, float]]]]]:
    """Ratios by name, and dots by plot and series."""
    ratios: dict[str, list[str]] = {}
    points: dict[str, dict[str, list[tuple[float, float]]]] = defaultdict(lambda: defaultdict(list))
    for line in output.read_text().splitlines():
        words = line.split()
        if line.startswith("ratio "):
            ratios[words[1]] = words[2:]
        elif line.startswith("point "):
            points[words[1]][words[2]].append((float(words[3]), float(words[4])))
    return ratios, points


def misses(ratio: list[str]) -> bool:
    if len(ratio) < 3:
        return False
    value, relation, bound = float(ratio[0]), ratio[1], float(ratio[2])
    return value < bound if relation == "at-least" else value > bound


def run(*command: str) -> str:
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.strip()


def machine() -> list[str]:
    cpu = next((line.split(":", 1)[1].strip() for line in Path("/proc/cpuinfo").read_text().splitlines()
                if line.startswith("model name")), platform.machine())
    caches = [line.strip() for line in run("lscpu").splitlines() if re.match(r"L[123]", line)]
    flags = sorted(set(re.findall(r" (-(?:O3|flto\S*|fno-plt|march=\S+)) ", " ".join(
        line for line in Path("build/release/build.ninja").read_text().splitlines() if "FLAGS" in line) + " ")))
    changed = run("git", "status", "--porcelain", "--", "src", "board", "bench", "include", "tools", "cmake")
    commit = run("git", "rev-parse", "--short=12", "HEAD") + (" and changes" if changed else "")
    return ["| | |", "|---|---|",
            f"| processor | {cpu}, {os.cpu_count()} for this run |",
            *[f"| {re.sub(r' +', ' ', c.split(':')[0])} | {c.split(':')[1].strip()} |" for c in caches],
            f"| system | {run('sed', '-n', 's/^PRETTY_NAME=//p', '/etc/os-release').strip(chr(34))}, "
            f"Linux {platform.release()} |",
            f"| compiler | {run('g++', '--version').splitlines()[0]} |",
            f"| flags | `{' '.join(flags)}` |",
            f"| commit | {commit} |"]


def row(name: str) -> tuple[int, str, str, str]:
    """Place in the table, what, beside what, unit."""
    for place, (pattern, what, beside, unit) in enumerate(ROWS):
        match = re.fullmatch(pattern, name)
        if match:
            return place, match.expand(what), match.expand(beside), unit
    raise SystemExit(f"bench: the ratio {name} has no row in scripts/bench/rows.py")


def table(ratios: dict[str, list[str]]) -> list[str]:
    lines = ["| what | beside | measured | bound | |", "|---|---|---|---|---|"]
    for name in sorted(ratios, key=lambda n: row(n)[0]):
        _, what, beside, unit = row(name)
        ratio = ratios[name]
        bound = f"{ratio[1].replace('-', ' ')} {float(ratio[2]):g}{unit}" if len(ratio) >= 3 else ""
        verdict = "" if not bound else "**missed**" if misses(ratio) else "kept"
        lines.append(f"| {what} | {beside} | {float(ratio[0]):.4g}{unit} | {bound} | {verdict} |")
    return lines


def draw(plot: str, series: dict[str, list[tuple[float, float]]], folder: Path) -> None:
    if plot not in PLOTS:
        raise SystemExit(f"bench: the plot {plot} has no title in scripts/bench/rows.py")
    title, x, y, options = PLOTS[plot]
    style = "boxes" if "boxes" in options else "linespoints pointtype 7 pointsize 0.4"
    script = ["set terminal svg size 720,400 dynamic background 'white' font 'sans,12'",
              f"set output '{folder / plot}.svg'", f"set title '{title}'", f"set xlabel '{x}'",
              f"set ylabel '{y}'", "set grid", "set key top left",
              *[f"set logscale {axis}" for axis in ("x", "y") if axis in options.split()],
              *(["set yrange [0:*]"] if "y" not in options.split() else [])]
    for name, dots in series.items():
        script += [f"${name.replace('-', '_')} << EOD", *(f"{a:.9g} {b:.9g}" for a, b in sorted(dots)), "EOD"]
    script.append("plot " + ", ".join(
        f"${name.replace('-', '_')} using 1:2 with {style} title '{name.replace('_', ' ')}'" for name in series))
    subprocess.run(["gnuplot"], input="\n".join(script) + "\n", text=True, check=True)


def main() -> int:
    output, page, folder = map(Path, sys.argv[1:4])
    ratios, points = read(output)
    blocks = {"machine": machine(), "ratios": table(ratios)}

    def made(match: re.Match) -> str:
        return match[1] + "\n".join(blocks[match[2]]) + "\n" + match[3]
    page.write_text(BLOCK.sub(made, page.read_text()))
    folder.mkdir(parents=True, exist_ok=True)
    for plot, series in points.items():
        draw(plot, series, folder)
    missing = set(PLOTS) - set(points)
    if missing:
        raise SystemExit(f"bench: no dots of the plots {', '.join(sorted(missing))} in this run")
    return 0


if __name__ == "__main__":
    sys.exit(main())
