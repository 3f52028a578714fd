#!/usr/bin/env python3
"""Two boards with a receiver on each channel, for some minutes: faults come and go, receivers are
restarted, the day changes. Each message that was sent is delivered, or counted as dropped by back
pressure; memory and descriptors of each process stay what they were."""

import argparse
import os
import random
import sys
import time

from session import Failure, Session, fields, output_of

BUSES = (0, 1)
SPEED = 4
DAY_SECONDS = 25
ROOM_KB = 2048  # of a process's own memory, between its first look and its last
FAULTS = ("link-down", "counters-stuck", "clock-stuck", "fifo-errors", "send-busy", "slow-reader")
MARKET_DATA = ("type17", "type18", "type19", "type20")


def footprint(process):
    """A process's own memory in KiB, and its descriptors."""
    with open(f"/proc/{process.pid}/status", encoding="ascii") as file:
        memory = next(int(line.split()[1]) for line in file if line.startswith("RssAnon:"))
    return memory, len(os.listdir(f"/proc/{process.pid}/fd"))


class Soak:
    def __init__(self, session, seed, channels):
        self.session = session
        self.random = random.Random(seed)
        self.channels = channels
        self.receivers = {}
        self.first = {}
        self.delivered = {}
        self.gaps = 0
        self.faults = {}
        self.restarts = 0
        self.days = 1
        self.flips = 0

    def start(self, key):
        self.receivers[key] = self.session.start_receiver(key[1], key[0])

    def begin_day(self):
        """The masters first: the others receive what these have subscribed."""
        keys = [(bus, channel) for channel in self.channels for bus in BUSES]
        for key in keys:
            if key not in self.receivers:
                self.start(key)
        for bus in BUSES:
            self.session.await_text(self.receivers[(bus, 0)], "All channel subs over.", 180)
        for key in keys:
            self.session.await_text(self.receivers[key], "zce-recv rate=", 180)
            self.look(key, self.receivers[key])
        self.look("board", self.session.board)

    def look(self, key, process):
        memory, descriptors = footprint(process)
        first = (key, process.pid) not in self.first
        known = self.first.setdefault((key, process.pid), (memory, descriptors))
        for _ in range(20):  # the board opens its clock's file for a moment; a lost descriptor stays
            if descriptors == known[1] and not first:
                break
            time.sleep(0.02)
            descriptors = min(descriptors, footprint(process)[1])
        if first:
            self.first[(key, process.pid)] = known = (memory, descriptors)
        if memory > known[0] + ROOM_KB or descriptors != known[1]:
            raise Failure(f"{key}: {known[0]} KiB and {known[1]} descriptors have become "
                          f"{memory} KiB and {descriptors}")

    def look_at_all(self):
        for key, process in self.receivers.items():
            if process.poll() is not None:
                raise Failure(f"{key} has ended\n" + output_of(process)[-3000:])
            if (key, process.pid) in self.first:
                self.look(key, process)
        self.look("board", self.session.board)

    def change_a_fault(self):
        bus = self.random.choice(BUSES)
        fault = self.random.choice(FAULTS)
        key = (bus, fault)
        if key in self.faults:
            self.session.ctl("--bus", str(bus), "fault", "off", fault)
            del self.faults[key]
        else:
            more = ["value=4096"] if fault == "slow-reader" else []
            self.session.ctl("--bus", str(bus), "fault", "on", fault, *more)
            self.faults[key] = True
        self.flips += 1

    def quietly(self, action):
        """With both boards paused and all rings empty, so that a receiver's end loses nothing."""
        for bus in BUSES:
            self.session.ctl("--bus", str(bus), "pause")
        for key, process in self.receivers.items():
            self.session.await_true(lambda k=key: self.session.is_drained(*k),
                                    f"{key} has nothing more to read", process, 180)
        action()
        for bus in BUSES:
            self.session.ctl("--bus", str(bus), "resume")

    def end(self, key):
        last = self.session.finish(self.receivers.pop(key))
        self.delivered[key] = self.delivered.get(key, 0) + sum(last[kind] for kind in MARKET_DATA)
        self.gaps += last["gaps"]
        if last.get("bad", 0) != 0:
            raise Failure(f"{key}: {last}")

    def restart_some(self):
        keys = [key for key in self.receivers if key[1] != 0]
        chosen = self.random.sample(keys, min(3, len(keys)))

        def restart():
            for key in chosen:
                self.end(key)
                self.start(key)
            self.restarts += len(chosen)
        self.quietly(restart)

    def change_day(self):
        """The masters and some others start the new day afresh, the rest goes on through it."""
        def change():
            ended = [key for key in self.receivers if key[1] == 0 or self.random.random() < 0.3]
            for key in ended:
                self.end(key)
            self.restarts += len(ended)
            for bus in BUSES:
                self.session.ctl("--bus", str(bus), "fault", "off", "all")
                self.session.ctl("--bus", str(bus), "advance", "to", "08:54:50")
            self.faults.clear()
            self.days += 1
        self.quietly(change)
        self.begin_day()

    def account(self):
        """The board's own counts, one line for each channel, against what was delivered."""
        self.quietly(lambda: [self.end(key) for key in list(self.receivers)])
        self.session.board.terminate()
        if self.session.board.wait(60) != 0:
            raise Failure("the board\n" + output_of(self.session.board)[-3000:])
        sent = dropped = unaccounted = 0
        for line in output_of(self.session.board).splitlines():
            if not line.startswith("zce-board channel="):
                continue
            count = fields(line)
            sent += count["total"]
            dropped += count["dropped"]
            unaccounted += abs(count["total"] -
                               self.delivered.get((count["bus"], count["channel"]), 0))
        delivered = sum(self.delivered.values())
        if sent == 0 or unaccounted != 0:
            raise Failure(f"{sent} sent, {delivered} delivered, {unaccounted} unaccounted")
        if self.gaps > dropped:
            raise Failure(f"{self.gaps} sequence numbers are missing, {dropped} were dropped")
        return sent + dropped, delivered, dropped


def run(soak, minutes):
    soak.session.start_board()
    soak.begin_day()
    end = time.monotonic() + 60 * minutes
    next_day = time.monotonic() + DAY_SECONDS
    while time.monotonic() < end:
        time.sleep(soak.random.uniform(0.2, 1))
        soak.change_a_fault()
        if soak.random.random() < 0.15:
            soak.restart_some()
        soak.look_at_all()
        if time.monotonic() > next_day:
            soak.change_day()
            next_day = time.monotonic() + DAY_SECONDS
    for bus in BUSES:
        soak.session.ctl("--bus", str(bus), "fault", "off", "all")
    soak.look_at_all()
    board = footprint(soak.session.board)
    return *soak.account(), board


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("minutes", type=float)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--channels", type=int, default=16, help="of each board")
    parser.add_argument("--programs", required=True, help="where zce-board and zce-recv are")
    arguments = parser.parse_args()
    channels = range(arguments.channels)
    rules = "".join(f"[channel{channel}]\ninsts = all\noptions = recv\nips = recv\nspd = recv\n"
                    for channel in channels)
    session = Session(os.path.abspath(arguments.programs), BUSES, rules, SPEED)
    soak = Soak(session, arguments.seed, channels)
    try:
        sent, delivered, dropped, board = run(soak, arguments.minutes)
    except Failure as failure:
        print(f"soak: failed, seed {arguments.seed}: {failure}")
        return 1
    finally:
        session.close()
    print(f"soak: ok, {arguments.minutes:g} minutes, {len(BUSES)} boards, {len(channels)} channels "
          f"each, {soak.days} days, {soak.restarts} restarts, {soak.flips} faults switched, {sent} "
          f"messages sent, {delivered} delivered, {dropped} dropped by back pressure, 0 unaccounted, "
          f"RSS flat (the board's own {board[0]} KiB, {board[1]} descriptors), "
          f"seed {arguments.seed}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
