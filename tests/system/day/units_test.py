"""The files of examples/systemd: read strictly, asked about by systemd's own programs, and compared with
what the start rules say of their times."""

import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

import services
import units
from clock import moment, text_of

ARGUMENTS = None
TEMPLATES = {"zce-recv@.service": ("zce-recv@0.service", "zce-recv@3.service"),
             "zce-recv@.timer": ("zce-recv@0.timer", "zce-recv@3.timer")}


def run(*command, **environment):
    return subprocess.run(command, env=dict(os.environ, LC_ALL="C", **environment), text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)


class Units(unittest.TestCase):
    def setUp(self):
        self.place = tempfile.mkdtemp(prefix="zceunits.")
        self.addCleanup(shutil.rmtree, self.place)
        self.units = shutil.copytree(ARGUMENTS.units, self.place + "/units")

    def change(self, name, old, new):
        """Changes a file of the copy. The number of the line."""
        path = os.path.join(self.units, name)
        with open(path, encoding="utf-8") as file:
            text = file.read()
        self.assertIn(old, text)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text.replace(old, new, 1))
        return text[:text.index(old)].count("\n") + 1

    def load(self):
        for name in units.all_units(self.units):
            for instance in TEMPLATES.get(name, (name,)):
                units.load(self.units, instance)

    def refused(self, message):
        with self.assertRaises(units.UnitError) as caught:
            self.load()
        self.assertTrue(str(caught.exception).startswith(self.units + "/" + message),
                        str(caught.exception))

    def installed(self):
        """The units with this build's programs, and instances of the templates."""
        for folder, _, names in os.walk(self.units):
            for name in names:
                if name.endswith((".service", ".conf")) and not name.startswith("zce."):
                    path = os.path.join(folder, name)
                    with open(path, encoding="utf-8") as file:
                        text = file.read()
                    with open(path, "w", encoding="utf-8") as file:
                        file.write(text.replace("=/usr/bin/", f"={ARGUMENTS.programs}/"))
        for template, instances in TEMPLATES.items():
            for instance in instances:
                os.symlink(template, os.path.join(self.units, instance))
        return [os.path.join(self.units, name) for name in units.all_units(self.units)
                if "@." not in name]

    def verify(self):
        shutil.copy(ARGUMENTS.monitoring + "/zce-watch-export.service", self.units)
        return run("systemd-analyze", "verify", "--man=no", *self.installed()).stdout

    # ---- Reading ------------------------------------------------------------------------------

    def test_what_is_there_is_read(self):
        self.load()
        self.assertEqual(units.all_units(self.units),
                         ["zce-board.service", "zce-end.target", "zce-end.timer", "zce-recv@.service",
                          "zce-recv@.timer"])
        master = units.load(self.units, "zce-recv@0.service")
        self.assertEqual(master.get("ExecCondition"), ["/usr/bin/zce-check --when"])
        self.assertEqual(master.get("ExecStart"), ["/usr/bin/zce-recv /etc/zce/0.ini $ZCE_RECV_OPTIONS"])
        other = units.load(self.units, "zce-recv@3.service")
        self.assertEqual(other.get("ExecCondition"), [])
        self.assertEqual(other.get("WorkingDirectory"), "/var/lib/zce/3")
        self.assertNotEqual(master.get("CPUAffinity"), other.get("CPUAffinity"))

    def test_an_unknown_key_is_named_with_its_place(self):
        line = self.change("zce-recv@.service", "RestartSec=5s", "RestartSecs=5s")
        self.refused(f"zce-recv@.service:{line}: key 'RestartSecs' is not known in [Service]; known are ")
        self.assertRegex(self.verify(),
                         rf"zce-recv@\.service:{line}: Unknown key '?RestartSecs'? in section \[?Service")

    def test_an_unknown_key_of_a_drop_in_is_named_with_its_place(self):
        line = self.change("zce-recv@0.service.d/master.conf", "ExecCondition=", "ExecConditions=")
        self.refused(f"zce-recv@0.service.d/master.conf:{line}: key 'ExecConditions' is not known in "
                     "[Service]; known are ")

    def test_what_else_is_wrong_is_named_with_its_place(self):
        for name, old, new, said in (
                ("zce-end.timer", "[Timer]", "[Timers]", "section [Timers] is not known; known are [Unit], "),
                ("zce-end.timer", "Unit=zce-end.target", "zce-end.target",
                 "'zce-end.target' is not KEY=VALUE in a section"),
                ("zce-recv@.service", "/etc/zce/%i.ini", "/etc/zce/%I.ini",
                 "specifier '%I' is not read here; known are %i, %n, %p, %%"),
                ("zce-recv@.timer", "08:30:00 Asia/Shanghai", "08:30:00 \\",
                 "a line that goes on in the next one is not read here")):
            with self.subTest(new):
                line = self.change(name, old, new)
                self.refused(f"{name}:{line}: {said}")
                self.change(name, new, old)
        with self.assertRaisesRegex(units.UnitError, "zce-none.timer"):
            units.load(self.units, "zce-none.timer")
        with self.assertRaisesRegex(units.UnitError, "OnCalendar=Mon 25:00: "):
            services.elapses("Mon 25:00", 0, 1)
        with self.assertRaisesRegex(units.UnitError, "'5 minutes' is not read here"):
            units.seconds("5 minutes")

    def test_a_bad_line_of_an_environment_file_is_named(self):
        for name in ("recv.env", "board.env"):
            self.assertTrue(units.environment_file(os.path.join(self.units, name)))
        line = self.change("board.env", "ZCE_BOARD_OPTIONS=", "ZCE_BOARD_OPTIONS ")
        with self.assertRaisesRegex(units.UnitError, f"board.env:{line}: .* is not NAME=VALUE"):
            units.environment_file(os.path.join(self.units, "board.env"))

    # ---- What systemd says --------------------------------------------------------------------

    def test_verify_finds_nothing(self):
        self.assertEqual(self.verify(), "")

    def test_few_privileges_are_left(self):
        for name in ("zce-recv@0.service", "zce-recv@3.service", "zce-board.service"):
            exposure = self.exposure(name)
            self.assertEqual(exposure.returncode, 0, exposure.stdout[-200:])
        units.load(ARGUMENTS.monitoring, "zce-watch-export.service")
        exposure = self.exposure("zce-watch-export.service", ARGUMENTS.monitoring, 12)
        self.assertEqual(exposure.returncode, 0, exposure.stdout[-200:])
        # The check can fail.
        self.change("zce-recv@.service", "User=zce", "User=root")
        self.assertNotEqual(self.exposure("zce-recv@3.service").returncode, 0)

    def exposure(self, name, directory=None, tenths=10):
        """Status 0: at most so many tenths of a point, of 10 points."""
        path = os.path.join(directory or self.units, name)
        if not os.path.lexists(path):
            os.symlink("zce-recv@.service", path)
        return run("systemd-analyze", "security", "--offline=true", f"--threshold={tenths}", "--no-pager",
                   path)

    def test_user_and_directories_are_made(self):
        root = self.place + "/root"
        os.makedirs(root + "/etc")
        if os.geteuid() != 0:
            self.skipTest("only root can give a directory away")
        made = run("systemd-sysusers", f"--root={root}", self.units + "/zce.sysusers.conf")
        self.assertEqual(made.returncode, 0, made.stdout)
        made = run("systemd-tmpfiles", "--create", f"--root={root}", self.units + "/zce.tmpfiles.conf")
        self.assertEqual(made.stdout, "")
        with open(root + "/etc/passwd", encoding="ascii") as file:
            user = file.read().split(":")
        for path, mode in (("/tmp/fpgalog", 0o2775), ("/run/zce", 0o2775), ("/var/lib/zce", 0o755),
                           ("/var/lib/zce/recordings", 0o2770)):
            stat = os.stat(root + path)
            self.assertEqual((stat.st_mode & 0o7777, stat.st_uid), (mode, int(user[2])), path)
        # Each place that a unit may write to is there.
        for path in " ".join(units.load(self.units, "zce-recv@0.service").get("ReadWritePaths")).split():
            self.assertTrue(os.path.isdir(root + path), path)

    def test_old_logs_are_compressed_and_the_one_in_use_is_not(self):
        logs = self.place + "/logs"
        os.mkdir(logs)
        for name, days in (("fpga_20261116.log", 3), ("fpga_20261119.log", 0)):
            with open(f"{logs}/{name}", "w", encoding="ascii") as file:
                file.write("a line\n")
            os.utime(f"{logs}/{name}", (time.time() - days * 86400,) * 2)
        self.change("zce.logrotate", "/tmp/fpgalog/", logs + "/")
        self.change("zce.logrotate", "    su zce zce\n", "")
        os.chmod(self.units + "/zce.logrotate", 0o644)
        # A file is rotated when it was looked at once before, a day ago.
        with open(self.place + "/state", "w", encoding="ascii") as file:
            os.chmod(file.fileno(), 0o600)
            file.write("logrotate state -- version 2\n")
            for name in os.listdir(logs):
                file.write(f'"{logs}/{name}" 2026-1-1-0:0:0\n')
        done = run("/usr/sbin/logrotate", "--state", self.place + "/state", self.units + "/zce.logrotate")
        self.assertEqual(done.stdout, "")
        self.assertEqual(sorted(os.listdir(logs)), ["fpga_20261116.log.1.gz", "fpga_20261119.log"])

    # ---- The times ----------------------------------------------------------------------------

    def test_no_timer_starts_a_master_too_late_or_on_a_weekend(self):
        # From a Monday to the next one, by the exchange's clock.
        timer = units.load(self.units, "zce-recv@0.timer")
        starts = sorted(at for calendar in timer.get("OnCalendar")
                        for at in services.elapses(calendar, moment("2026-11-16 00:00:00"),
                                                   moment("2026-11-23 00:00:00")))
        times = [text_of(at)[11:] for at in starts]
        self.assertEqual(len(starts), 5 * len(timer.get("OnCalendar")))
        self.assertEqual({text_of(at)[:10] for at in starts}, {f"2026-11-{day}" for day in range(16, 21)})
        with open(ARGUMENTS.operations, encoding="utf-8") as file:
            page = re.search(r"between \*\*(\S+) and (\S+)\*\* for the day and between \*\*(\S+) and "
                             r"(\S+)\*\* for the night", " ".join(file.read().split()))
        for begin, end in (page.group(1, 2), page.group(3, 4)):
            self.assertTrue(any(begin <= at <= end for at in times), f"{begin} to {end}: {times}")
        for at in sorted(set(times)):
            when = run(ARGUMENTS.programs + "/zce-check", "--when", "--at", f"2026-11-18T{at}")
            self.assertEqual(when.returncode, 0, when.stdout)
        # What the condition is there for.
        for at in ("08:56:00", "20:59:58"):
            when = run(ARGUMENTS.programs + "/zce-check", "--when", "--at", f"2026-11-18T{at}")
            self.assertEqual(when.returncode, 3, when.stdout)

    def test_the_ends_lie_behind_the_sessions_and_before_the_next_start(self):
        timer = units.load(self.units, "zce-end.timer")
        self.assertEqual(timer.get("Unit"), "zce-end.target")
        ends = {text_of(at)[11:] for calendar in timer.get("OnCalendar")
                for at in services.elapses(calendar, moment("2026-11-18 00:00:00"),
                                           moment("2026-11-19 00:00:00"))}
        self.assertEqual(ends, {"15:05:00", "23:35:00"})
        self.assertIn("zce-end.target", units.load(self.units, "zce-recv@0.service").get("Conflicts"))


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    for option in ("units", "monitoring", "programs", "operations"):
        parser.add_argument("--" + option, required=True)
    ARGUMENTS = parser.parse_args()
    unittest.main(argv=sys.argv[:1])
