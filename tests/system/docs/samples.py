"""The C++ that the pages show: a file of examples/, or a piece that compiles by itself."""

import os
import subprocess
import tempfile
from pathlib import Path

import pages

FLAGS = ["-std=c++11", "-pedantic", "-Wall", "-Wextra", "-Wconversion", "-Wshadow", "-Werror", "-fsyntax-only"]
INCLUDES = ["include", "board/include", "capture"]


def compile_fault(root, text, compiler="g++"):
    """What the compiler has against a piece; None if nothing."""
    with tempfile.TemporaryDirectory() as place:
        source = Path(place, "sample.cpp")
        source.write_text(text)
        run = subprocess.run([compiler, *FLAGS, *[f"-I{Path(root, d)}" for d in INCLUDES], str(source)],
                             capture_output=True, text=True, env={**os.environ, "LC_ALL": "C"})
    if run.returncode == 0:
        return None
    return next((line for line in run.stderr.splitlines() if "error" in line), run.stderr.strip())


def faults(root, names=None):
    root = Path(root)
    files = {path.name: path.read_text() for path in sorted((root / "examples").glob("*.cpp"))}
    found, seen = [], set()
    for page in names or pages.all_pages(root):
        for line, language, lines in pages.split((root / page).read_text())[0]:
            if language not in ("cpp", "c++", "c"):
                continue
            text = "\n".join(lines) + "\n"
            if text in files.values() or text in seen:
                continue
            seen.add(text)
            copy = [name for name, whole in files.items()
                    if whole.splitlines()[:1] == lines[:1]]
            if copy:
                found.append(f"{page}:{line}: this is not examples/{copy[0]} any more")
                continue
            fault = compile_fault(root, text)
            if fault:
                found.append(f"{page}:{line}: does not compile: {fault}")
    return found
