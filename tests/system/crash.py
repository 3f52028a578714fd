#!/usr/bin/env python3
"""Kills the master, another channel's receiver or the board at random moments of a session, starts
it anew, and compares: what is subscribed is what was subscribed before, whatever the cache file
held; no other channel has a gap; a receiver whose board has gone says so, and that a new one has
come. The moments and the victims are those of the seed."""

import argparse
import os
import random
import signal
import sys
import time

from session import Failure, Session, last_gaps, output_of

RULES = ("[channel0]\ninsts = all\noptions = recv\nips = recv\nspd = recv\n"
         "[channel3]\ninsts = SR, CF\noptions = norecv\nspd = recv\n"
         "[channel7]\ninsts = TA209\noptions = recv\n")
CHANNELS = (0, 3, 7)
SPEED = 8
LONGEST_WAIT = 2.5
GONE = "zce-board: bus 0: the board has gone; this process gets nothing more from it"
BACK = ("zce-board: bus 0: a new board is running, but this process has the memory of the old one: "
        "start it anew")
# A master that learns opens its stream and subscribes then; one that comes back in trading time the
# other way round.
READY = ("Init dma channel :CUSTOM_CHAN0_DATA success.",
         "Now Fpga start trans subscribe result! write 0x11 value:0x3.")


class Crash:
    def __init__(self, session, seed):
        self.session = session
        self.random = random.Random(seed)
        self.receivers = {}
        self.expected = None
        self.counts = {"master": 0, "channel": 0, "board": 0}
        self.restarts = 0
        self.cached = 0

    def begin(self):
        self.session.start_board()
        for channel in CHANNELS:
            self.receivers[channel] = self.session.start_receiver(channel)
        self.expect_recovered()

    def expect_recovered(self):
        for text in READY:
            self.session.await_text(self.receivers[0], text)
        masks = self.session.masks()
        if self.expected is None:
            self.expected = masks
            if not masks:
                raise Failure("nothing is subscribed")
        if masks != self.expected:
            raise Failure(f"subscribed {masks}, before {self.expected}\n" +
                          output_of(self.receivers[0])[-6000:])

    def expect_no_gap(self):
        for channel, receiver in self.receivers.items():
            if last_gaps(receiver) != 0:
                raise Failure(f"channel {channel} has a gap\n{output_of(receiver)[-3000:]}")

    def restart(self, channel):
        self.receivers[channel] = self.session.start_receiver(channel)
        self.restarts += 1

    def kill(self, process):
        if process.poll() is not None:
            raise Failure("it has ended by itself\n" + output_of(process)[-3000:])
        process.send_signal(signal.SIGKILL)
        process.wait()

    def kill_board(self):
        self.kill(self.session.board)
        self.counts["board"] += 1
        # Those that had their stream say so; one that was still starting fails, or has none.
        holders = [receiver for receiver in self.receivers.values()
                   if "Init dma channel :" in output_of(receiver) and receiver.poll() is None]
        for receiver in holders:
            self.session.await_text(receiver, GONE)
        self.session.start_board()
        self.restarts += 1
        for receiver in holders:
            self.session.await_text(receiver, BACK)
            if output_of(receiver).count(GONE) != 1 or output_of(receiver).count(BACK) != 1:
                raise Failure("told twice\n" + output_of(receiver)[-3000:])
        self.expect_no_gap()
        for channel, receiver in list(self.receivers.items()):
            if receiver in holders:
                self.session.finish(receiver)
            elif receiver.poll() is None:
                self.kill(receiver)
            self.restart(channel)

    def one(self):
        time.sleep(self.random.uniform(0, LONGEST_WAIT))
        victim = self.random.choice(("master", "channel", "board"))
        if victim == "board":
            self.kill_board()
        else:
            channel = 0 if victim == "master" else self.random.choice(CHANNELS[1:])
            self.kill(self.receivers[channel])
            self.counts[victim] += 1
            if channel == 0 and os.path.exists(self.session.path("bus0channel0", "bin")):
                self.cached += 1
            self.restart(channel)
        # Half of the kills come while what was killed before is still coming back.
        if self.random.random() < 0.5:
            self.expect_recovered()
        self.expect_no_gap()

    def end(self):
        self.expect_recovered()
        for channel, receiver in self.receivers.items():
            self.session.await_text(receiver, "zce-recv rate=")
            last = self.session.finish(receiver)
            if last["gaps"] != 0 or last["total"] == 0:
                raise Failure(f"channel {channel}: {last}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("kills", type=int)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--programs", required=True, help="where zce-board and zce-recv are")
    arguments = parser.parse_args()
    session = Session(os.path.abspath(arguments.programs), [0], RULES, SPEED)
    crash = Crash(session, arguments.seed)
    done = 0
    try:
        crash.begin()
        for done in range(1, arguments.kills + 1):
            crash.one()
        crash.end()
    except Failure as failure:
        print(f"crash: failed at kill {done} of seed {arguments.seed}: {failure}")
        return 1
    finally:
        session.close()
    counts = crash.counts
    print(f"crash: {done} kills ({counts['master']} of the master, {crash.cached} with a cache "
          f"file, {counts['channel']} of another channel, {counts['board']} of the board), "
          f"{crash.restarts} restarts, 0 gaps, subscriptions as before, seed {arguments.seed}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
