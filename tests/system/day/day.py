"""A trading day under the units of examples/systemd: a night session and the three of the day, on an
accelerated clock. The master is killed twice, channel 3 is stopped for a while, the board is killed
once. At the end every message that the boards sent was delivered, or counted as dropped."""

import argparse
import glob
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import recordings
import services
from clock import Clock, moment, text_of

INSTRUMENTS = """SR301 SR305 CF301 CF305 TA301 SR301C5000 SR301P5000 CF301C14000 SPD-SR301&SR305
IPS-SR301&CF301""".split()
RULES = ("[channel0]\ninsts = SR, CF\noptions = recv\nspd = recv\n"
         "[channel3]\ninsts = all\noptions = norecv\nips = recv\n")
LEARNING_RATE = 40  # seconds in one: the board sends a round of its list in four
TRADING_RATE = 20
MASTER, OTHER, BOARD = "zce-recv@0.service", "zce-recv@3.service", "zce-board.service"
CHANNELS = {MASTER: 0, OTHER: 3}


class Failure(Exception):
    """What went wrong, with the end of what the processes printed."""


def fields(line):
    return {name: int(value) for name, value in re.findall(r"(\w+)=(-?\d+)", line)}


def market(row):
    """The messages of market data in a row of counts."""
    return sum(row[f"type{kind}"] for kind in (17, 18, 19, 20))


class Day:
    def __init__(self, arguments):
        self.programs = arguments.programs
        self.root = tempfile.mkdtemp(prefix="zceday.")
        self.prefix = os.path.basename(self.root) + "-"
        os.makedirs(self.root + "/etc/zce")
        self.recordings = self.root + "/var/lib/zce/recordings"
        os.makedirs(self.recordings)
        self._write("list", "\n".join(INSTRUMENTS) + "\n")
        for channel in CHANNELS.values():
            self._write(f"etc/zce/{channel}.ini",
                        f"[config]\ndevice = xilinx0:{channel}\n" + (RULES if channel == 0 else ""))
        self._write("etc/zce/board.env",
                    f"ZCE_BOARD_OPTIONS=--instruments {self.root}/list --seed 7 --rate 8000 "
                    "--broadcast-cycle-trading 8\n")
        self._write("etc/zce/recv.env",
                    "ZCE_RECV_OPTIONS=--end-with-board --print 1\n"
                    f"LD_PRELOAD={arguments.watch}:{arguments.recorder}\n"
                    f"ZCE_WATCH={self.root}/run/zce\n"
                    f"ZCE_RECORD={self.recordings}/{recordings.PATTERN}\n")
        self.clock = Clock(self.root + "/clock", arguments.clock, moment("2026-11-17 20:29:30"))
        environment = dict(os.environ, ZCE_BOARD_SHM_PREFIX=self.prefix, ZCE_BOARD_QUIET="1")
        environment.pop("TZ", None)
        self.manager = services.Manager(arguments.units, self.root, self.programs, self.clock,
                                        environment)
        self.sent = {channel: 0 for channel in CHANNELS.values()}  # by boards that have ended
        self.dropped = dict(self.sent)

    def _write(self, name, text):
        with open(os.path.join(self.root, name), "w", encoding="ascii") as file:
            file.write(text)

    def close(self):
        self.manager.close()
        for path in glob.glob(f"/dev/shm/{self.prefix}*"):
            os.unlink(path)
        shutil.rmtree(self.root)

    # ---- Time -----------------------------------------------------------------------------------

    def jump(self, text):
        """To this moment; what is due before it is done in its time, and given the real time it needs."""
        target = moment(text)
        while True:
            self.clock.set(min(target, self.manager.next_due()))
            self.settle(self.manager.look())
            if self.clock.now() >= target and self.manager.next_due() > target:
                return

    def run(self, rate, condition, what, seconds=30):
        """Lets the clock run until the condition holds."""
        self.clock.run(rate)
        self.await_true(condition, what, seconds)
        self.clock.run(0)

    def run_until(self, text, rate=TRADING_RATE):
        self.run(rate, lambda: self.clock.now() >= moment(text), text)

    def settle(self, names):
        """A jump lets no real time pass: what was started gets through the beginning of its start."""
        for name in names:
            service = self.manager.services.get(name)
            if service is not None and service.state == "active":
                said = " ready " if name == BOARD else "Init dma channel "
                self.await_text(service, said)

    def await_true(self, condition, what, seconds=30, service=None):
        end = time.monotonic() + seconds
        while not condition():
            if time.monotonic() > end:
                raise Failure(f"{text_of(self.clock.now())}: {what}: not within {seconds} s\n"
                              + ("" if service is None else service.output()[-3000:]))
            self.settle(self.manager.look())
            time.sleep(0.005)

    def await_text(self, service, text, seconds=30):
        end = time.monotonic() + seconds
        while text not in service.output():
            if time.monotonic() > end or service.process.poll() is not None:
                raise Failure(f"{service.unit.name}: no '{text}'\n{service.output()[-3000:]}")
            time.sleep(0.005)

    # ---- What is done to them -------------------------------------------------------------------

    def service(self, name):
        return self.manager.services[name]

    def ctl(self, *words):
        for _ in range(10):
            done = subprocess.run([self.programs + "/zce-board", "ctl", "--json", *words],
                                  env=dict(self.manager.environment), capture_output=True, text=True,
                                  check=False)
            # On a loaded machine a board may take longer to answer than ctl waits.
            if "does not answer" not in done.stderr:
                break
        if done.returncode != 0:
            raise Failure(f"zce-board ctl {' '.join(words)}: {done.stderr}")
        return done.stdout

    def still(self):
        """The exchange pauses until each receiver has told what it has: so a count is exact that is
        taken before something is killed."""
        self.ctl("pause")
        active = [name for name in CHANNELS if self.service(name).state == "active"]
        told = {name: len(self._rates(name)) for name in active}
        self.await_true(lambda: all(
            any(rate["rate"] == 0 for rate in self._rates(name)[told[name] + 1:]) for name in active),
            "rate=0/s of every receiver")

    def _rates(self, name, life=-1):
        return [fields(line) for line in self.service(name).output(life).splitlines()
                if line.startswith("zce-recv rate=")]

    def learn(self, before_end, end):
        """The master learns the list until the auction's end, and subscribes."""
        self.jump(before_end)
        cache = self.root + "/var/lib/zce/0/bin"

        def learnt():
            with open(cache, encoding="ascii", errors="replace") as file:
                return len(re.findall(r"^\d+,", file.read(), re.M)) >= len(INSTRUMENTS)
        self.run(LEARNING_RATE, learnt, "the list in the cache file")
        self.jump(end)
        master = self.service(MASTER)
        self.run(LEARNING_RATE, lambda: "All channel subs over." in master.output(),
                 "All channel subs over.")
        for name in CHANNELS:
            self.await_first(name)

    def await_first(self, name):
        service = self.service(name)
        self.await_true(lambda: "zce-recv type=" in service.output(), f"{name}: the first message", 30,
                        service)

    def kill_master(self):
        self.still()
        master = self.service(MASTER)
        master.process.send_signal(signal.SIGKILL)
        master.process.wait()
        self.manager.look()
        self.expect_watched(0, self._rates(MASTER)[-1]["total"])
        # Until the board has seen it, it would send to a stream that nobody reads.
        self.await_true(lambda: not self.rows()[0]["open"], "the board sees the master's end")
        self.ctl("resume")

    def expect_watched(self, channel, total):
        """The page of a killed process tells what it had, and that it died."""
        done = subprocess.run(
            [self.programs + "/zce-watch", "export", "--directory", self.root + "/run/zce"],
            env=dict(self.manager.environment, **self.clock.environment(False)), stdout=subprocess.PIPE,
            text=True, check=True)
        counts = re.findall(rf'^zce_messages_total{{.*channel="{channel}".*type="(?:17|18|19|20)"}} (\d+)$',
                            done.stdout, re.M)
        if sum(map(int, counts)) != total or 'state="died"} 1' not in done.stdout:
            raise Failure(f"channel {channel} had {total}, but its page says\n{done.stdout}")

    def kill_board(self):
        self.still()
        board = self.service(BOARD)
        self._count_board(self.rows())
        board.process.send_signal(signal.SIGKILL)
        board.process.wait()
        self.clock.forget_board()
        receivers = [self.service(name) for name in CHANNELS]
        self.await_true(lambda: all(one.state == "waiting" for one in receivers),
                        "the receivers end with their board")

    def rows(self):
        """What the board says of each channel."""
        return {row["channel"]: row for row in json.loads(self.ctl("status"))["channels"]}

    def end_session(self, just_before, end):
        """The exchange of zce-board trades at all hours: it pauses, so that nothing comes any more when
        the receivers are stopped, as it would be after a session."""
        self.jump(just_before)
        self.still()
        self.jump(end)
        self.ctl("resume")

    def stall(self):
        """Channel 3 is stopped until the board has had to drop messages; it is told of them later."""
        process = self.service(OTHER).process
        process.send_signal(signal.SIGSTOP)
        self.await_true(lambda: self.rows()[3]["dropped"] > 100, "dropped messages")
        process.send_signal(signal.SIGCONT)

    def _count_board(self, rows):
        for channel in CHANNELS.values():
            row = rows[channel]
            self.sent[channel] += market(row)
            self.dropped[channel] += row["dropped"]

    def stop_board(self):
        board = self.service(BOARD)
        board.stop()
        self.clock.forget_board()
        self._count_board({row["channel"]: row for row in map(fields, board.output().splitlines())
                           if "openings" in row})

    def lives(self):
        """Each process of each receiver: channel, life, pid, and its counts by its last line; of a
        killed one by its last rate, which it told when it had everything."""
        for name, channel in CHANNELS.items():
            service = self.service(name)
            for life, pid in enumerate(service.pids):
                lines = [line for line in service.output(life).splitlines()
                         if line.startswith("zce-recv channel=")]
                last = fields(lines[-1]) if lines else self._rates(name, life)[-1]
                if "bad" in last:
                    raise Failure(f"{name}, process {life}: {last}\n{service.output(life)[-3000:]}")
                yield channel, life, pid, last


def play(day):
    manager = day.manager
    # The machine is switched on.
    manager.start(BOARD)
    day.settle([BOARD])
    for timer in ("zce-recv@0.timer", "zce-recv@3.timer", "zce-end.timer"):
        manager.enable(timer, moment("2026-11-18 16:00:00"))
    # The night. The master is killed between the auction's end and the session, and not started
    # before 21:00:31.
    day.jump("2026-11-17 20:30:00")
    day.learn("2026-11-17 20:54:30", "2026-11-17 20:55:11")
    day.jump("2026-11-17 20:56:00")
    day.kill_master()
    day.jump("2026-11-17 21:00:31")
    day.await_first(MASTER)
    day.run_until("2026-11-17 21:01:00")
    day.stall()
    day.jump("2026-11-17 23:29:50")
    day.run_until("2026-11-17 23:30:05")
    day.end_session("2026-11-17 23:34:59", "2026-11-17 23:35:00")
    # The morning; the master is killed in the session.
    day.jump("2026-11-18 08:30:00")
    day.learn("2026-11-18 08:54:30", "2026-11-18 08:55:11")
    day.jump("2026-11-18 09:00:00")
    day.run_until("2026-11-18 09:00:20")
    day.jump("2026-11-18 09:20:00")
    day.kill_master()
    day.jump("2026-11-18 09:20:10")
    day.await_first(MASTER)
    day.jump("2026-11-18 10:14:55")
    day.run_until("2026-11-18 10:15:05")
    # After the break; the board is killed, and the receivers end with it and find the new one.
    day.jump("2026-11-18 10:45:00")
    day.kill_board()
    day.jump("2026-11-18 10:45:10")
    day.await_first(MASTER)
    day.await_first(OTHER)
    day.jump("2026-11-18 11:29:50")
    day.run_until("2026-11-18 11:30:05")
    day.jump("2026-11-18 13:30:31")
    day.run_until("2026-11-18 13:31:00")
    day.jump("2026-11-18 14:59:50")
    day.run_until("2026-11-18 15:00:05")
    day.end_session("2026-11-18 15:04:59", "2026-11-18 15:05:00")
    day.stop_board()


# What happens to the units, and when.
STORY = """
17 20:29:30 zce-board.service: started
17 20:30:00 zce-recv@0.service: started
17 20:30:00 zce-recv@3.service: started
17 20:56:00 zce-recv@0.service: killed by 9
17 20:56:05 zce-recv@0.service: skipped, condition 3
17 21:00:31 zce-recv@0.service: started
17 23:35:00 zce-end.target: reached
17 23:35:00 zce-recv@0.service: stopped
17 23:35:00 zce-recv@3.service: stopped
18 08:30:00 zce-recv@0.service: started
18 08:30:00 zce-recv@3.service: started
18 09:20:00 zce-recv@0.service: killed by 9
18 09:20:05 zce-recv@0.service: started
18 10:45:00 zce-board.service: killed by 9
18 10:45:00 zce-recv@0.service: ended with 1
18 10:45:00 zce-recv@3.service: ended with 1
18 10:45:02 zce-board.service: started
18 10:45:05 zce-recv@0.service: started
18 10:45:05 zce-recv@3.service: started
18 15:05:00 zce-end.target: reached
18 15:05:00 zce-recv@0.service: stopped
18 15:05:00 zce-recv@3.service: stopped
18 15:05:00 zce-board.service: stopped
"""


def expect(condition, what):
    if not condition:
        raise Failure(what)


def check_story(day):
    told = sorted((f"{name}: {what}", at) for at, name, what in day.manager.story)
    wanted = sorted((line[12:], moment("2026-11-" + line[:11])) for line in STORY.strip().splitlines())
    # A start that resets the board sleeps for two seconds, which then have passed for the others too.
    expect([line for line, _ in told] == [line for line, _ in wanted] and
           all(0 <= at - due < 3 for (_, at), (_, due) in zip(told, wanted)),
           "the units did something else:\n" + "\n".join(f"{text_of(at)} {line}" for line, at in told))


def check_counts(day):
    """Every message was delivered, or counted as dropped."""
    received, gaps = dict.fromkeys(day.sent, 0), dict.fromkeys(day.sent, 0)
    for channel, life, _, last in day.lives():
        expect(last["total"] > 0, f"channel {channel}, process {life} had nothing")
        received[channel] += last["total"]
        gaps[channel] += last["gaps"]
    for channel, sent in day.sent.items():
        print(f"channel {channel}: sent {sent}, received {received[channel]}; dropped "
              f"{day.dropped[channel]}, missed {gaps[channel]}")
        expect(received[channel] == sent and gaps[channel] == day.dropped[channel],
               f"channel {channel}: not every message was delivered or counted")
    expect(day.dropped[3] > 0, "the stopped receiver missed nothing")


def check_recordings(day):
    """Each process has a recording of all that it had, killed ones too, and it is played again to a
    receiver."""
    day.clock.set(moment("2026-11-19 09:30:00"))
    replays = []
    try:
        for channel, life, pid, last in day.lives():
            path = recordings.path_of(day.recordings, pid)
            recordings.verify(day.programs, path, "type17" in last)
            count = recordings.market_messages(path)
            expect(count == (last["total"], 0), f"{path}: messages and lost ones {count}, not {last}")
            replays.append((last, recordings.Replay(
                path, channel, f"{day.root}/replay{channel}.{life}", day.programs,
                day.manager.environment, day.clock)))
        for last, replay in replays:
            played = fields(replay.last_line())
            expect(played["total"] == last["total"], f"{replay.path}: played {played}, not {last}")
    finally:
        for _, replay in replays:
            replay.close()


def main():
    parser = argparse.ArgumentParser()
    for name in ("units", "programs", "clock", "watch", "recorder"):
        parser.add_argument("--" + name, required=True)
    day = Day(parser.parse_args())
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    try:
        play(day)
        check_story(day)
        check_counts(day)
        check_recordings(day)
    finally:
        day.close()


if __name__ == "__main__":
    main()
