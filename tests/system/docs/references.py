"""The pages that Doxygen makes of the headers: without a warning."""

import os
import shutil
import subprocess
import tempfile
from pathlib import Path

ENVIRONMENT = {**os.environ, "LC_ALL": "C"}


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
