"""A small stand-in for systemd: it reads the unit files, has a clock of its own, and does of them what
units.PLAYED names. What it cannot do (users, limits, hardening), the real manager is asked about, by
systemd-analyze in units_test.py."""

import datetime
import os
import re
import shlex
import signal
import subprocess

import units
from clock import ZONE, text_of

SKIPPED = range(1, 255)  # what ExecCondition= says "not now" with


def elapses(calendar, begin, end):
    """The moments, as seconds since 1970, at which OnCalendar= of a timer comes in (begin, end]."""
    utc = datetime.datetime.fromtimestamp(begin, datetime.timezone.utc)
    said = subprocess.run(
        ["systemd-analyze", "calendar", "--iterations=20",
         f"--base-time={utc.strftime('%Y-%m-%d %H:%M:%S')} UTC", calendar],
        env=dict(os.environ, TZ="UTC", LC_ALL="C"), capture_output=True, text=True, check=False)
    if said.returncode != 0:
        raise units.UnitError(f"OnCalendar={calendar}: {said.stderr.strip()}")
    found = re.findall(r"(?:Next elapse|Iter\S* #\d+): \w+ (\S+ \S+) UTC$", said.stdout, re.M)
    times = [datetime.datetime.fromisoformat(text).replace(tzinfo=datetime.timezone.utc).timestamp()
             for text in found]
    return [at for at in times if begin < at <= end]


class Service:
    """One service: `state` is inactive, active, waiting (for its restart, at `due`) or failed."""

    def __init__(self, unit, manager):
        self.unit, self.manager = unit, manager
        self.state, self.process, self.due = "inactive", None, None
        self.starts = []  # of which StartLimitBurst= counts
        self.lives = []   # the output of each process
        self.pids = []

    def start(self):
        if self.state == "active":
            return
        now = self.manager.clock.now()
        window = units.seconds(self.unit.get("StartLimitIntervalSec", "10s"))
        self.starts = [at for at in self.starts if at > now - window]
        if len(self.starts) >= int(self.unit.get("StartLimitBurst", "5")):
            self._becomes("failed", "start limit reached")
            return
        self.starts.append(now)
        environment, directory = self._prepare()
        for condition in self.unit.get("ExecCondition"):
            status = subprocess.run(self._command(condition, environment), env=environment,
                                    cwd=directory, stdout=subprocess.DEVNULL, check=False).returncode
            if status in SKIPPED:
                self._becomes("inactive", f"skipped, condition {status}")
                return
            if status != 0:
                self._becomes("failed", f"condition failed, {status}")
                return
        self._execute(environment, directory)

    def _prepare(self):
        """The environment, and the working directory."""
        manager = self.manager
        environment = dict(manager.environment)
        for line in self.unit.get("Environment"):
            environment.update(pair.split("=", 1) for pair in shlex.split(line))
        for path in self.unit.get("EnvironmentFile"):
            if not path.startswith("-") or os.path.exists(manager.path(path[1:])):
                environment.update(units.environment_file(manager.path(path.lstrip("-"))))
        clock = manager.clock.environment(self.unit.name == manager.board)
        preloaded = [clock.pop("LD_PRELOAD"), environment.get("LD_PRELOAD", "")]
        environment.update(clock, LD_PRELOAD=":".join(filter(None, preloaded)))
        state = self.unit.get("StateDirectory", "")
        if state:
            os.makedirs(manager.path("/var/lib/" + state), exist_ok=True)
        directory = self.unit.get("WorkingDirectory", "/")
        return environment, manager.path(directory) if directory != "/" else manager.root

    def _command(self, line, environment):
        """$NAME, a word by itself, becomes the words of its value; nothing else is known here."""
        words = []
        for word in shlex.split(line):
            if word.startswith("$"):
                words += environment.get(word[1:], "").split()
            else:
                words.append(self.manager.path(word))
        return words

    def _execute(self, environment, directory):
        command, = self.unit.get("ExecStart")
        output = self.manager.path(f"/output/{self.unit.name}.{len(self.lives)}")
        os.makedirs(os.path.dirname(output), exist_ok=True)
        with open(output, "w", encoding="utf-8") as file:
            self.process = subprocess.Popen(self._command(command, environment), env=environment,
                                            cwd=directory, stdout=file, stderr=subprocess.STDOUT)
        self.lives.append(output)
        self.pids.append(self.process.pid)
        self._becomes("active", "started")

    def look(self):
        """Whether it has ended, and what then."""
        if self.state == "active" and self.process.poll() is not None:
            status = self.process.returncode
            ended = f"ended with {status}" if status >= 0 else f"killed by {-status}"
            prevented = self.unit.get("RestartPreventExitStatus", "").split()
            restart = self.unit.get("Restart", "no")
            if restart not in ("no", "always", "on-failure"):
                raise units.UnitError(f"{self.unit.name}: Restart={restart} is not played here")
            if str(status) in prevented or restart == "no" or (restart == "on-failure" and not status):
                self._becomes("failed" if status else "inactive", ended)
            else:
                self.due = self.manager.clock.now() + units.seconds(self.unit.get("RestartSec", "1"))
                self._becomes("waiting", ended)

    def stop(self):
        if self.state == "active":
            self.process.send_signal(getattr(signal, self.unit.get("KillSignal", "SIGTERM")))
            try:
                self.process.wait(units.seconds(self.unit.get("TimeoutStopSec", "90s")))
                self._becomes("inactive", "stopped")
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
                self._becomes("failed", "killed, it did not stop in time")
        elif self.state == "waiting":
            self._becomes("inactive", "not started any more")

    def _becomes(self, state, why):
        self.state = state
        self.manager.note(self.unit.name, why)

    def output(self, life=-1):
        with open(self.lives[life], encoding="utf-8", errors="replace") as file:
            return file.read()


class Manager:
    """The services and timers of a directory of unit files, on a clock.

    `root` stands for / and has /etc/zce, /var/lib/zce and the outputs; `programs` for /usr/bin."""

    def __init__(self, directory, root, programs, clock, environment, board="zce-board.service"):
        self.directory, self.root, self.programs = directory, root, programs
        self.clock, self.environment, self.board = clock, environment, board
        self.services, self.timers, self.targets = {}, [], {}
        self.story = []  # (seconds since 1970, unit, what)

    def path(self, path):
        if path.startswith("/usr/bin/"):
            return os.path.join(self.programs, path[len("/usr/bin/"):])
        return self.root + path if path.startswith(("/etc/", "/var/", "/run/", "/output/")) else path

    def note(self, name, what):
        self.story.append((self.clock.now(), name, what))
        print(f"{text_of(self.clock.now())}  {name}: {what}", flush=True)

    def service(self, name):
        if name not in self.services:
            self.services[name] = Service(units.load(self.directory, name), self)
        return self.services[name]

    def enable(self, name, end):
        """Arms a timer until this moment, on which each of its elapses starts its unit once."""
        timer = units.load(self.directory, name)
        starts = timer.get("Unit", name.rpartition(".")[0] + ".service")
        units.load(self.directory, starts)
        for calendar in timer.get("OnCalendar"):
            self.timers += [(at, starts) for at in elapses(calendar, self.clock.now(), end)]
        self.timers.sort()

    def start(self, name):
        """A service, or a target: what has Conflicts= with it is stopped."""
        if name.endswith(".target"):
            self.note(name, "reached")
            for service in self.services.values():
                if name in " ".join(service.unit.get("Conflicts")).split():
                    service.stop()
        else:
            self.service(name).start()

    def next_due(self):
        """When a timer or a restart comes next."""
        due = [service.due for service in self.services.values() if service.state == "waiting"]
        return min(due + [at for at, _ in self.timers[:1]], default=float("inf"))

    def look(self):
        """Does what is due. The names of what was started."""
        for service in self.services.values():
            service.look()
        now, done = self.clock.now(), []
        while self.timers and self.timers[0][0] <= now:
            done.append(self.timers.pop(0)[1])
        done += [name for name, service in self.services.items()
                 if service.state == "waiting" and service.due <= now]
        for name in done:
            self.start(name)
        return done

    def close(self):
        for service in self.services.values():
            if service.state == "active":
                service.process.kill()
                service.process.wait()
