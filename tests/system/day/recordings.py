"""What the recorder has kept of the day: one file for each process."""

import glob
import os
import struct
import subprocess
import time

PATTERN = "%Y%m%d/%c-%H%M%S-%p.pcap"
FILE_HEADER, PACKET_HEADER, PREFIX, MESSAGE, LOST = 24, 16, 16, 1, 2


class RecordingError(Exception):
    """A recording that is not what the process had."""


def verify(programs, path, complete):
    """The recording of a process that ended is complete; of a killed one all but the end is there."""
    done = subprocess.run([programs + "/zce-capture", "verify", path], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False)
    said = done.stdout[len(path):]
    wanted = (0, ": complete: ") if complete else (1, ": UNFINISHED: its recording was interrupted: ")
    if (done.returncode, said[:len(wanted[1])]) != wanted or not complete and "is sound" not in said:
        raise RecordingError(f"zce-capture verify: {done.returncode}: {done.stdout}")


def market_messages(path):
    """How many messages of types 17 to 20 are in it, and how many the recorder lost."""
    with open(path, "rb") as file:
        data = file.read()
    at, count, lost = FILE_HEADER, 0, 0
    while at < len(data):
        size, = struct.unpack_from("<I", data, at + 8)
        at += PACKET_HEADER
        if at + size > len(data):
            raise RecordingError(f"{path}: cut at byte {at}")
        if data[at + 1] == LOST:
            lost += struct.unpack_from("<Q", data, at + 8)[0]
        elif struct.unpack_from("<I", data, at + PREFIX)[0] in range(17, 21):
            count += 1
        at += size
    return count, lost


def path_of(directory, pid):
    """The recording of this process."""
    path, = glob.glob(f"{directory}/*/*-{pid}.pcap")
    return path


class Replay:
    """A board that plays a recording, and a receiver of its channel, which ends with the board."""

    def __init__(self, path, channel, place, programs, environment, clock):
        self.path, self.place = path, place
        os.makedirs(place)
        with open(place + "/config.ini", "w", encoding="ascii") as file:
            file.write(f"[config]\ndevice = xilinx0:{channel}\n[channel0]\ninsts = all\n"
                       "options = recv\n")
        environment = dict(environment, TZ="Asia/Shanghai",
                           ZCE_BOARD_SHM_PREFIX=environment["ZCE_BOARD_SHM_PREFIX"]
                           + os.path.basename(place) + "-")
        self.board = self._start([programs + "/zce-board", "--replay", path, "--speed", "max"],
                                 dict(environment, **clock.environment(True)), "board")
        end = time.monotonic() + 20
        while " ready " not in self.output("board"):
            if time.monotonic() > end or self.board.poll() is not None:
                raise RecordingError(f"{path} is not played\n{self.output('board')}")
            time.sleep(0.005)
        self.receiver = self._start([programs + "/zce-recv", "config.ini", "--end-with-board",
                                     "--own-loop", "--nap", "100"],
                                    dict(environment, **clock.environment(False)), "receiver")

    def _start(self, command, environment, name):
        with open(f"{self.place}/{name}", "w", encoding="utf-8") as file:
            return subprocess.Popen(command, env=environment, cwd=self.place, stdout=file,
                                    stderr=subprocess.STDOUT)

    def output(self, name):
        with open(f"{self.place}/{name}", encoding="utf-8", errors="replace") as file:
            return file.read()

    def last_line(self):
        """The receiver's last line, when all has been played."""
        if self.board.wait(30) != 0 or self.receiver.wait(30) != 1:
            raise RecordingError(f"{self.path}: {self.output('board')[-800:]}"
                                 f"{self.output('receiver')[-800:]}")
        return [line for line in self.output("receiver").splitlines()
                if line.startswith("zce-recv channel=")][-1]

    def close(self):
        for process in (self.receiver, self.board):
            if process.poll() is None:
                process.kill()
                process.wait()
