"""The manual pages and the pages that Doxygen makes: both without a warning."""

import os
import shutil
import subprocess
import tempfile
from pathlib import Path

ENVIRONMENT = {**os.environ, "LC_ALL": "C"}


def manual_faults(root):
    """Every page of man/, as groff reads it with all its warnings on."""
    manuals = sorted(path for path in Path(root, "man").glob("*.[1-8]"))
    if manuals and not shutil.which("groff"):
        return ["groff is not there (Debian: groff-base)"]
    found = []
    for manual in manuals:
        run = subprocess.run(["groff", "-man", "-Tutf8", "-ww", "-z", "-K", "utf8", str(manual)],
                             capture_output=True, text=True, env=ENVIRONMENT, check=False)
        found += [f"man/{manual.name}: {line}" for line in run.stderr.splitlines()]
        if run.returncode and not run.stderr:
            found.append(f"man/{manual.name}: groff fails")
    return found


def doxygen_faults(doxyfile):
    """What Doxygen warns of with these settings; its pages go to a place of their own."""
    if not shutil.which("doxygen"):
        return ["doxygen is not there (Debian: doxygen)"]
    with tempfile.TemporaryDirectory() as place:
        settings = Path(doxyfile).read_text() + f'\nOUTPUT_DIRECTORY = "{place}"\nWARN_AS_ERROR = NO\n'
        run = subprocess.run(["doxygen", "-"], input=settings, capture_output=True, text=True,
                             env=ENVIRONMENT, check=False)
        found = [line for line in run.stderr.splitlines() if line.strip()]
        if not found and (run.returncode or not Path(place, "html/index.html").exists()):
            found.append("doxygen makes no pages")
    return found
