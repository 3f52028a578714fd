"""What counts as unchanged: tried on a tree of a few files with a ctest that tells of two programs."""

import contextlib
import io
import json
import os
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
import main as passed  # noqa: E402

CTEST = """#!/bin/sh
cat "$(dirname "$0")/tests.json"
"""


class Passed(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        passed.ROOT = Path(self.folder.name)
        self.build = passed.ROOT / "build/asan"
        for path, text in {"build/asan/bin/one": "1", "build/asan/bin/two": "2", "build/asan/lib/lib.so": "l",
                           "src/a.cpp": "int a;", "examples/a.ini": "[a]", ".git/HEAD": "main",
                           "build/asan/ctest.out": "old"}.items():
            self.put(path, text)
        tests = [{"name": name, "command": [str(self.build / "bin" / program)]}
                 for name, program in (("A.1", "one"), ("B.1", "two"), ("A.2", "one"))]
        self.put("tools/tests.json", json.dumps({"tests": tests}))
        self.put("tools/ctest", CTEST)
        (passed.ROOT / "tools/ctest").chmod(0o755)
        path = os.environ["PATH"]
        os.environ["PATH"] = f"{passed.ROOT}/tools:{path}"
        self.addCleanup(os.environ.__setitem__, "PATH", path)

    def put(self, path, text):
        target = passed.ROOT / path
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text(text)

    def due(self, again=False):
        """The numbers of the test runs that are due."""
        with contextlib.redirect_stdout(io.StringIO()):
            status = passed.due(self.build, "unit", again)
        words = (self.build / "due.txt").read_text().strip().split(",")
        if words == [""]:
            self.assertEqual(status, 3)
            return []
        self.assertEqual(status, 0)
        self.assertEqual(words[:3], [words[3], words[3], "1"])
        return [int(n) for n in words[3:]]

    def all_pass(self):
        self.due()
        passed.passed(self.build, "unit")

    def test_at_first_all_are_due(self):
        self.assertEqual(self.due(), [1, 2, 3])

    def test_what_did_not_pass_stays_due(self):
        self.due()
        self.assertEqual(self.due(), [1, 2, 3])

    def test_unchanged_nothing_is_due_unless_asked_for(self):
        self.all_pass()
        self.assertEqual(self.due(), [])
        self.assertEqual(self.due(again=True), [1, 2, 3])

    def test_a_changed_program_has_its_own_runs_due(self):
        self.all_pass()
        self.put("build/asan/bin/one", "1 changed")
        self.assertEqual(self.due(), [1, 3])
        passed.passed(self.build, "unit")
        self.assertEqual(self.due(), [])

    def test_a_changed_library_has_all_due(self):
        self.all_pass()
        self.put("build/asan/lib/lib.so", "changed")
        self.assertEqual(self.due(), [1, 2, 3])

    def test_a_changed_or_new_file_that_no_compiler_reads_has_all_due(self):
        self.all_pass()
        self.put("examples/a.ini", "[b]")
        self.assertEqual(self.due(), [1, 2, 3])
        self.all_pass()
        self.put("examples/b.ini", "[b]")
        self.assertEqual(self.due(), [1, 2, 3])

    def test_sources_and_what_the_runs_leave_count_only_through_the_programs(self):
        self.all_pass()
        self.put("src/a.cpp", "int b;")
        self.put("build/asan/ctest.out", "new")
        self.put(".git/HEAD", "other")
        self.assertEqual(self.due(), [])

    def test_a_step_is_due_until_it_has_passed_and_when_a_program_changes(self):
        with contextlib.redirect_stdout(io.StringIO()):
            for change in ("1", "1 changed"):
                self.put("build/asan/bin/one", change)
                self.assertEqual(passed.step("valgrind", self.build, False), 0)
                self.assertEqual(passed.step("valgrind", self.build, False), 0)
                passed.step_passed("valgrind", self.build)
                self.assertEqual(passed.step("valgrind", self.build, False), 3)
                self.assertEqual(passed.step("valgrind", self.build, True), 0)
                passed.step_passed("valgrind", self.build)


if __name__ == "__main__":
    unittest.main()
