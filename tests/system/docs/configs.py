"""The INI files that the pages show: zce-check has nothing against them."""

import subprocess
import tempfile
from pathlib import Path

import pages

# What a page begins with on purpose, and zce-check rightly warns of.
SMALLEST = "[config]\ndevice = xilinx0:0\n"


def faults(root, programs, names=None):
    checker = Path(programs, "zce-check").resolve()
    if not checker.exists():
        return [f"there is no {checker}"]
    found, seen = [], set()
    for page in names or pages.all_pages(root):
        for line, language, lines in pages.split(Path(root, page).read_text())[0]:
            text = "\n".join(lines) + "\n"
            if language != "ini" or "..." in lines or text in seen:
                continue
            seen.add(text)
            if "[config]" not in text:
                text = SMALLEST + text
            with tempfile.TemporaryDirectory() as place:
                file = Path(place, "sample.ini")
                file.write_text(text)
                run = subprocess.run([checker, file.name], cwd=place, capture_output=True, text=True, check=False)
            told = [l for l in run.stdout.splitlines() if l.startswith(("sample.ini:", "zce-check: cannot"))
                    and "(cpu-absent)" not in l]  # the page's machine may have more processors than this
            if text == SMALLEST:
                told = [l for l in told if ": error:" in l]
            if told or run.returncode not in (0, 1, 2):
                found.append(f"{page}:{line}: zce-check: {(told or [run.stderr.strip()])[0]}")
    return found
