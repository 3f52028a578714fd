"""Sessions of software boards and receivers on an accelerated clock, for crash.py and soak.py."""

import glob
import json
import os
import re
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time

INSTRUMENTS = """SR209 SR301 CF209 TA209 SR209C5000 SR209P5000 CF209C14000
SPD-SR209&SR301 IPS-SR209&CF209""".split()


# Of board/memory/ShmLayout.h: four pages, the registers, both tables, 16 rings of 2 MiB to the host
# and 16 of 64 KiB to the board, each with a page in front and one behind; 16 tables of counts.
PAGE = 4096
FIRST_RING = 4 * PAGE + 4 * 0x20000 + 2 * 4 * 4096 * 64
RING_BYTES = (2 << 20) + 2 * PAGE
SHM_BYTES = FIRST_RING + 16 * RING_BYTES + 16 * ((64 << 10) + 2 * PAGE) + 16 * 2 * 4096 * 8


class Failure(Exception):
    """What went wrong, with the end of what the processes printed."""


def faketime():
    found = glob.glob("/usr/lib/*/faketime/libfaketime.so.1")
    if not found:
        raise Failure("libfaketime is not there (Debian: faketime)")
    return found[0]


class Session:
    """A directory, a place in shared memory of its own, and what is started in them."""

    def __init__(self, programs, buses, rules, speed):
        signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # what was started is ended
        self.programs = programs
        self.buses = buses
        self.rules = rules
        self.directory = tempfile.mkdtemp(prefix="zcesession.")
        self.prefix = os.path.basename(self.directory) + "-"
        self.environment = dict(os.environ, ZCE_BOARD_SHM_PREFIX=self.prefix)
        self.environment.pop("ZCE_BOARD_QUIET", None)
        self.started = 0
        self.processes = []
        self.board = None
        with open(self.path("list"), "w", encoding="ascii") as file:
            file.write("\n".join(INSTRUMENTS) + "\n")
        with open(self.path("day.ini"), "w", encoding="ascii") as file:
            file.write(
                f"[board]\nbus = {','.join(map(str, buses))}\n"
                "[exchange]\ninstruments = list\nseed = 7\n"
                f"[clock]\nstart = 08:54:50\nspeed = {speed}\nfile = clock\n"
                "[broadcast]\nauction_cycle = 4\ntrading_cycle = 8\n"
                "[level1]\nrate = 100\nphases = auction, trading, break, closed\n"
                "[level2]\nrate = 50\nphases = auction, trading, break, closed\n")

    def close(self):
        for process in self.processes:
            if process.poll() is None:
                process.kill()
                process.wait()
        for path in glob.glob(f"/dev/shm/{self.prefix}*"):
            os.unlink(path)
        shutil.rmtree(self.directory)

    def path(self, *names):
        return os.path.join(self.directory, *names)

    def _start(self, command, directory, environment):
        self.started += 1
        output = self.path(f"output{self.started}")
        with open(output, "w", encoding="utf-8") as file:
            process = subprocess.Popen(command, cwd=directory, env=environment, stdout=file,
                                       stderr=subprocess.STDOUT)
        process.output = output
        self.processes.append(process)
        return process

    def start_board(self):
        self.board = self._start([self.programs + "/zce-board", "--scenario", "day.ini"],
                                 self.directory, self.environment)
        for bus in self.buses:
            self.await_text(self.board, f"zce-board bus={bus} ready")

    def start_receiver(self, channel, bus=0):
        directory = self.path(f"bus{bus}channel{channel}")
        os.makedirs(directory, exist_ok=True)
        with open(directory + "/config.ini", "w", encoding="ascii") as file:
            file.write(f"[config]\ndevice = xilinx{bus}:{channel}\n{self.rules}")
        clock = {"LD_PRELOAD": faketime(), "FAKETIME_NO_CACHE": "1", "DONT_FAKE_MONOTONIC": "1",
                 "FAKETIME_DONT_FAKE_MONOTONIC": "1",
                 "FAKETIME_TIMESTAMP_FILE": self.path("clock")}
        # Dozens of receivers share few CPU: those that have nothing to do rest.
        return self._start([self.programs + "/zce-recv", "config.ini", "--own-loop", "--nap", "100"],
                           directory,
                           dict(self.environment, **clock))

    def ctl(self, *arguments):
        # What is asked for stays the same if it is asked again: on a loaded machine a board may take
        # longer to answer than ctl waits.
        for _ in range(10):
            done = subprocess.run([self.programs + "/zce-board", "ctl", *arguments],
                                  env=self.environment, capture_output=True, text=True, check=False)
            if "does not answer" not in done.stderr:
                break
        if done.returncode != 0:
            raise Failure(f"zce-board ctl {' '.join(arguments)}: {done.stderr}")
        return done.stdout

    def is_drained(self, bus, channel):
        """Whether a receiver has taken all that lies in its ring. Nothing else tells it."""
        with open(f"/dev/shm/{self.prefix}zce-board.{bus}", "rb") as file:
            if os.fstat(file.fileno()).st_size != SHM_BYTES:
                raise Failure("the board's memory has another layout than session.py knows")
            file.seek(FIRST_RING + channel * RING_BYTES)
            control = file.read(72)
        head, tail = struct.unpack_from("<Q", control, 0), struct.unpack_from("<Q", control, 64)
        return head == tail

    def masks(self, bus=0):
        tables = json.loads(self.ctl("--bus", str(bus), "--json", "tables"))
        return sorted((entry["name"], entry["mask"]) for entry in tables["entries"])

    def await_true(self, condition, what, process=None, seconds=60):
        end = time.monotonic() + seconds
        while not condition():
            if time.monotonic() > end or (process is not None and process.poll() is not None):
                text = "" if process is None else "\n" + output_of(process)[-3000:]
                raise Failure(f"{what}: not within {seconds} s{text}")
            time.sleep(0.02)

    def await_text(self, process, text, seconds=60):
        self.await_true(lambda: text in output_of(process), text, process, seconds)

    def finish(self, process):
        """Interrupts a receiver, and gives the fields of its last line."""
        process.send_signal(signal.SIGINT)
        try:
            status = process.wait(60)
        except subprocess.TimeoutExpired as hung:
            raise Failure("a receiver does not end\n" + output_of(process)[-3000:]) from hung
        lines = [line for line in output_of(process).splitlines()
                 if line.startswith("zce-recv channel=")]
        if status != 0 or not lines:
            raise Failure(f"a receiver ended with {status}\n" + output_of(process)[-3000:])
        return fields(lines[-1])


def output_of(process):
    with open(process.output, encoding="utf-8", errors="replace") as file:
        return file.read()


def fields(line):
    return {name: int(value) for name, value in re.findall(r"(\w+)=(-?\d+)", line)}


def last_gaps(process):
    """The gaps that a receiver has told of so far."""
    found = re.findall(r"^zce-recv .*gaps=(\d+)", output_of(process), re.M)
    return int(found[-1]) if found else 0
