#!/usr/bin/env python3
"""prometheus_test.py SOURCE BUILD: a watched receiver on a software board, Debian's Prometheus and promtool.

The board plays the end of a call auction and market data, zce-watch export writes again and again,
Prometheus looks at that; then every query of the dashboard is run by promtool.
"""

import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from contextlib import contextmanager
from datetime import datetime, timedelta, timezone
from pathlib import Path

SOURCE, BUILD = (Path(argument).resolve() for argument in sys.argv[1:3])
MONITORING = SOURCE / "examples/monitoring"
sys.path.insert(0, str(SOURCE / "scripts/watch"))
import queries  # noqa: E402  pylint: disable=wrong-import-position

SCENARIO = """[exchange]
instruments = small.txt
[clock]
start = 08:54:50
end = 09:30:00
speed = 10
file = day.clock
[broadcast]
auction_cycle = 0.25
[level1]
rate = 500
phases = auction, trading
[level2]
rate = 500
phases = auction, trading
"""
CHINA = timezone(timedelta(hours=8))
THURSDAY = datetime(2026, 11, 26, tzinfo=CHINA)
bad = []


def expect(fine, what):
    if not fine:
        bad.append(what)


class Day:
    """The board, with a watched master beside it, and what exports its page."""

    def __init__(self, work):
        self.pages = work / "pages"
        self.pages.mkdir()
        (work / "prom").mkdir()
        self.file = work / "prom/zce.prom"
        self.log = work / "day.log"
        (work / "day.ini").write_text(SCENARIO)
        shutil.copy(SOURCE / "examples/scenarios/small.txt", work)
        environment = dict(os.environ, ZCE_BOARD_SHM_PREFIX=f"watch{os.getpid()}-", ZCE_WATCH=str(self.pages),
                           LD_PRELOAD=str(BUILD / "lib/libzce-watch.so"))
        with self.log.open("w") as log:
            self.board = subprocess.Popen(  # pylint: disable=consider-using-with
                [BUILD / "bin/zce-board", "--scenario", "day.ini", "--", BUILD / "bin/zce-recv",
                 SOURCE / "examples/config/master.ini"],
                cwd=work, env=environment, stdout=log, stderr=log, start_new_session=True)
        self.export = subprocess.Popen(  # pylint: disable=consider-using-with
            [BUILD / "bin/zce-watch", "export", "--directory", self.pages, "--output", self.file, "--every", "0.2"],
            stderr=subprocess.PIPE, text=True)
        while not self.file.exists() and self.export.poll() is None:
            time.sleep(0.01)

    @contextmanager
    def export_stopped(self):
        """What is done meanwhile is there at once for zce-watch export."""
        self.export.send_signal(signal.SIGSTOP)
        os.waitpid(self.export.pid, os.WUNTRACED)
        yield
        self.export.send_signal(signal.SIGCONT)

    def close(self):
        self.export.kill()
        self.export.wait()
        try:
            os.killpg(self.board.pid, signal.SIGINT)
        except ProcessLookupError:
            pass
        try:
            self.board.wait(10)
        except subprocess.TimeoutExpired:
            os.killpg(self.board.pid, signal.SIGKILL)
            self.board.wait()


def check_sessions(prometheus):
    """The phases of the rules at each bound, and a second before, beside the exchange's own table."""
    table = re.findall(r"\{(\d+), (\d+), Phase::(\w+)\}", (SOURCE / "board/exchange/SessionTable.cpp").read_text())
    expect(len(table) == 8, f"the exchange's table: {table}")
    windows = [(int(a), int(b), phase.lower()) for a, b, phase in table]
    rules = [rule for group in prometheus.get("rules")["groups"] for rule in group["rules"]]
    text = {rule["name"]: rule["query"] for rule in rules if rule["type"] == "recording"}

    def filled(query):
        for name in ("zce:exchange_day", "zce:exchange_holiday", "zce:exchange_no_night", "zce:exchange_date",
                     "zce:exchange_second_of_day"):
            query = query.replace(name, f"({text[name]})")
        return query

    phases = {rule["labels"]["phase"]: filled(rule["query"]) for rule in rules
              if rule["name"] == "zce:exchange_phase_seconds"}
    expect(sorted(phases) == ["auction", "break", "trading"], f"phases: {phases}")

    def phase_at(moment):
        return [phase for phase, query in phases.items() if prometheus.series(query, time=moment.timestamp())]

    for edge in sorted({edge for a, b, _ in windows for edge in (a, b)}):
        bound = THURSDAY + timedelta(hours=edge // 10000, minutes=edge // 100 % 100)
        for moment in (bound - timedelta(seconds=1), bound):
            now = int(moment.strftime("%H%M%S"))
            expected = [phase for a, b, phase in windows if a <= now < b]
            expect(phase_at(moment) == expected, f"{moment}: {phase_at(moment)}, not {expected}")

    # The holidays' file as it comes: New Year's Day of 2027, and the evening before.
    for moment, expected in (("2026-12-31 14:59:59", ["trading"]), ("2026-12-31 20:30:00", []),
                             ("2026-12-31 21:00:00", []), ("2027-01-01 09:30:00", []), ("2027-01-01 21:30:00", []),
                             ("2026-12-30 21:30:00", ["trading"]), ("2027-01-04 09:30:00", ["trading"])):
        got = phase_at(datetime.fromisoformat(moment).replace(tzinfo=CHINA))
        expect(got == expected, f"{moment}: {got}, not {expected}")
    day = datetime(2027, 1, 1, tzinfo=CHINA)
    for moment, there in ((day - timedelta(seconds=1), 0), (day, 1), (day + timedelta(seconds=86399), 1),
                          (day + timedelta(days=1), 0)):
        got = len(prometheus.series(filled(text["zce:exchange_holiday"]), time=moment.timestamp()))
        expect(got == there, f"holiday at {moment}: {got}")


def check_bad_pages(day):
    """What is no page, or none of this layout, is told; the page beside it is exported all the same."""
    page = next(day.pages.glob("zce-recv-*.watch")).read_bytes()
    faults = {"cut.watch": (page[:5000], "this page is damaged: remove it, and start the application anew"),
              "foreign.watch": (b"not of us\n", "this is no page of libzce-watch.so: remove it, or name another "
                                                "directory"),
              "older.watch": (page[:8] + bytes(8) + page[16:],
                              "this page has layout 0, this program reads 1: use the zce-watch and zce-top of the "
                              "older release that the application's libzce-watch.so is of, or start the application "
                              "with this release's")}
    with day.export_stopped():
        for name, (content, _) in faults.items():
            (day.pages / name).write_bytes(content)
    told = "".join(f"zce-watch: {day.pages}/{name}: {reason}\n" for name, (_, reason) in sorted(faults.items()))
    for command in (["export"], ["list"]):
        run = subprocess.run([BUILD / "bin/zce-watch", *command, "--directory", day.pages], capture_output=True,
                             text=True, check=False)
        expect(run.returncode == 1, f"{command} with bad pages: status {run.returncode}")
        expect(run.stderr == told, f"{command} with bad pages: {run.stderr}")
        expect("zce-recv" in run.stdout, f"{command} with bad pages: {run.stdout}")
    # What exports again and again tells it once.
    time.sleep(0.5)
    with day.export_stopped():
        for name in faults:
            (day.pages / name).unlink()
    return told


def check_refusals(work):
    """What cannot be done at all: status 2, one line, and nothing is written."""
    output = work / "none.prom"
    for arguments, reason in (
            (["export", "--directory", work / "none", "--output", output],
             f"{work}/none: No such file or directory: name the directory that the applications have in ZCE_WATCH"),
            (["list", "--directory", work / "none"],
             f"{work}/none: No such file or directory: name the directory that the applications have in ZCE_WATCH"),
            (["export", "--directory", work, "--output", work / "none/zce.prom"],
             f"{work}/none/zce.prom cannot be written: No such file or directory"),
            (["export", "--every", "1"], "--every requires --output"),
            ([], "A subcommand is required")):
        run = subprocess.run([BUILD / "bin/zce-watch", *arguments], capture_output=True, text=True, check=False)
        expect((run.returncode, run.stdout, run.stderr) == (2, "", f"zce-watch: {reason}\n"), f"{arguments}: {run}")
    expect(not output.exists(), "an output of a directory that is not there")


def check_market_data(day, prometheus):
    prometheus.wait_for_series('zce_messages_total{type="17"} > 0')
    prometheus.wait_until_looked()
    prometheus.wait_for_series("zce:messages:rate1m > 0")
    expect(queries.run(prometheus, MONITORING) == 0, "queries of the dashboard")
    for query in ("zce_process_up == 1", "zce_stream_open == 1", 'zce_process_state{state="running"} == 1',
                  'zce_bytes_total{type="20"} > 0', "zce:poll_gap_seconds:p99 > 0", "zce:bytes:rate1m > 0",
                  'zce_longest_poll_gap_seconds{window="ever"} > 0', "zce_stream_packets_total > 0",
                  "time() - zce_last_poll_timestamp_seconds < 5", "zce_pages_unreadable == 0"):
        expect(len(prometheus.series(query)) == 1, f"{query}: {prometheus.series(query)}")
    told = check_bad_pages(day)

    # The receiver ends, and what Prometheus has in the end is what it has counted.
    pid = int(prometheus.series("zce_process_info")[0]["metric"]["pid"])
    os.kill(pid, signal.SIGINT)
    prometheus.wait_for_series('zce_process_state{state="ended"} == 1 and ignoring(state) zce_process_up == 0')
    counted = re.findall(r"^zce-recv channel=0 total=\d+ (.*) gaps=", day.log.read_text(), re.M)[-1]
    for number, count in re.findall(r"type(\d+)=(\d+)", counted):
        value = prometheus.series(f'zce_messages_total{{type="{number}"}}')[0]["value"][1]
        expect(int(value) == int(count) > 0, f"type {number}: {value} exported, {count} received")

    day.export.send_signal(signal.SIGTERM)
    said = day.export.communicate(timeout=10)[1]
    expect(day.export.returncode == 0, f"zce-watch export --every ends with {day.export.returncode}")
    expect(said == told, f"zce-watch export --every said: {said}")


def main():
    with tempfile.TemporaryDirectory() as name:
        work = Path(name)
        day = Day(work)
        prometheus = None
        try:
            prometheus = queries.Prometheus(MONITORING, day.file, work)
            prometheus.wait_for_series("zce_export_timestamp_seconds")
            check_refusals(work)
            check_sessions(prometheus)
            check_market_data(day, prometheus)
        except RuntimeError as error:
            bad.append(str(error))
        finally:
            if prometheus:
                prometheus.close()
            day.close()
        for fault in bad:
            print(f"FAILED: {fault}")
        if bad:
            print(day.log.read_text()[-2000:])
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
