"""zce-check as a user runs it: the examples, a file with every mistake, what cannot be done."""

from __future__ import annotations

import argparse
import os
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
EXAMPLES = ROOT / "examples" / "config"
MISTAKES = Path(__file__).resolve().parent / "every-mistake.ini"
LIST = "SR209\nSR301\nCF209\nTA209\nSR209C5000\nSPD-SR209&SR301\n"

program = ""


def check(*arguments: str | Path, given: str = "") -> subprocess.CompletedProcess[str]:
    return subprocess.run(
        [program, *map(str, arguments)], input=given, capture_output=True, text=True, check=False
    )


class Examples(unittest.TestCase):
    def test_every_configuration_of_the_examples_is_fine(self) -> None:
        files = [file for file in sorted(EXAMPLES.glob("*.ini")) if "\ndevice" in file.read_text()]
        self.assertGreaterEqual(len(files), 2)
        for file in files:
            done = check(file)
            self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)
            self.assertTrue(done.stdout.endswith("\nzce-check: fine\n"), done.stdout)

    def test_the_master_of_the_examples_is_told_whole(self) -> None:
        done = check(EXAMPLES / "master.ini", "--instruments", "-", given=LIST + "IPS-SR209&CF209\n")
        self.assertEqual(
            done.stdout,
            """\
board 0, DMA channel 0, no CPU binding

channel  futures  options  combinations  rules
      0        4        1             1  SR, CF, TA, with options; calendar spreads
      3        4        0             1  every future, no options; inter-product spreads
of the instruments of standard input; the other channels receive nothing

L1 on, 6 of 6 addresses: switch 0x310 opens
   to   01:00:5e:01:01:01 239.1.1.1:30001
   from 00:1b:21:aa:bb:01 192.168.1.10:31001
L5 on, 6 of 6 addresses: switch 0x300 opens
   to   01:00:5e:01:01:05 239.1.1.5:30005
   from 00:1b:21:aa:bb:05 192.168.5.10:31005

zce-check: fine
""",
        )


class Mistakes(unittest.TestCase):
    def test_every_mistake_is_told_with_its_line(self) -> None:
        marked = set()
        for number, line in enumerate(MISTAKES.read_text().splitlines(), 1):
            if line.startswith("; > "):
                marked |= {(number + 1, code) for code in line[4:].split()}
            elif not line.startswith(";"):
                marked |= {(number, code) for code in line.partition(" ; ")[2].split()}
        self.assertEqual(len(marked), 40)
        done = check(MISTAKES, "--instruments", "-", given=LIST)
        found = re.findall(r"every-mistake\.ini:(\d+): \w+: .* \(([a-z-]+)\)\n", done.stdout)
        self.assertEqual({(int(number), code) for number, code in found}, marked)
        self.assertEqual(done.returncode, 2)
        self.assertRegex(done.stdout.splitlines()[-1], r"^zce-check: \d+ errors, \d+ warnings$")


class NotDone(unittest.TestCase):
    def assert_refused(self, done: subprocess.CompletedProcess[str], reason: str) -> None:
        self.assertEqual((done.returncode, done.stdout), (2, ""))
        self.assertEqual(done.stderr, f"zce-check: {reason}\n")

    def test_a_usage_error_is_one_line(self) -> None:
        self.assert_refused(check(), "CONFIG is required")
        self.assert_refused(check("--jsn"), "The following argument was not expected: --jsn")
        done = check(EXAMPLES / "master.ini", "--board", "10")
        self.assert_refused(done, "--board: Value 10 not in range 0 to 9")
        done = check(EXAMPLES / "master.ini", "--bin", "a", "--instruments", "b")
        self.assertEqual((done.returncode, done.stdout), (2, ""))

    def test_a_file_that_cannot_be_read_is_named(self) -> None:
        with tempfile.TemporaryDirectory() as directory:
            self.assert_refused(check(directory), f"{directory}: Is a directory")
            none = f"{directory}/none"
            self.assert_refused(check(none), f"{none}: No such file or directory")
            master = EXAMPLES / "master.ini"
            self.assert_refused(check(master, "--bin", none), f"{none}: No such file or directory")
            pipe = f"{directory}/pipe"
            os.mkfifo(pipe)
            self.assert_refused(check(master, "--bin", pipe), f"{pipe}: is no regular file")
            # A device that never ends.
            self.assert_refused(check(master, "--bin", "/dev/zero"), "/dev/zero: is no regular file")
            self.assert_refused(check("/dev/zero"), "/dev/zero: is no regular file")
            self.assert_refused(check(pipe), f"{pipe}: is no regular file")
            self.assert_refused(
                check(master, "--instruments", "/dev/zero"), "/dev/zero: has more than 16 MiB"
            )

    def test_what_cannot_be_read_twice_is_refused_at_once(self) -> None:
        with tempfile.TemporaryDirectory() as directory:
            fifo = f"{directory}/fifo"
            os.mkfifo(fifo)
            master = EXAMPLES / "master.ini"
            self.assert_refused(check(fifo), f"{fifo}: is no regular file")
            self.assert_refused(check("/dev/stdin", given="[config]\n"), "/dev/stdin: is no regular file")
            self.assert_refused(check(master, "--bin", fifo), f"{fifo}: is no regular file")
            self.assert_refused(check("host", "--config", fifo), f"{fifo}: is no regular file")
            large = Path(directory) / "large.ini"
            with large.open("wb") as file:
                file.truncate(1 << 40)
            self.assert_refused(check(large), f"{large}: has more than 16 MiB: no configuration has")

    def test_an_empty_argument_is_an_argument(self) -> None:
        master = EXAMPLES / "master.ini"
        for option in ("--bin", "--instruments"):
            self.assert_refused(check(master, option, ""), ": No such file or directory")
        self.assert_refused(check("host", "--config", ""), ": No such file or directory")
        done = check("--when", "--at", "")
        self.assertEqual((done.returncode, done.stdout), (2, ""))
        self.assertEqual(check("vendor", "").returncode, 2)

    def test_a_list_says_nothing_to_the_terminal(self) -> None:
        done = check(EXAMPLES / "master.ini", "--instruments", "-", given="SR\x1b[2J209\n")
        self.assert_refused(done, 'standard input:1: "SR\\x1b[2J209" is not one instrument\'s name')

    def test_a_bad_line_of_a_list_is_named(self) -> None:
        done = check(EXAMPLES / "master.ini", "--instruments", "-", given="SR209\nSR 301\n")
        self.assert_refused(done, 'standard input:2: "SR 301" is not one instrument\'s name')


class Output(unittest.TestCase):
    def test_the_log_of_the_library_is_told_on_demand_alone(self) -> None:
        silent = check(EXAMPLES / "master.ini")
        told = check(EXAMPLES / "master.ini", "--log")
        self.assertEqual(silent.stderr, "")
        self.assertEqual(told.stdout, silent.stdout)
        self.assertIn("\n[channel:3] You subscribe all subId !\n", told.stderr)

    def test_a_full_disk_is_an_error(self) -> None:
        with open("/dev/full", "w", encoding="ascii") as full:
            done = subprocess.run(
                [program, EXAMPLES / "master.ini"], stdout=full, stderr=subprocess.PIPE, text=True, check=False
            )
        self.assertEqual(done.returncode, 2)
        self.assertEqual(done.stderr, "zce-check: standard output: No space left on device\n")


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True, help="zce-check")
    program = parser.parse_args().program
    unittest.main(argv=sys.argv[:1])
