"""The commands that the pages show: programs, options, scripts and files exist; those marked run.

A block of shell is run if the line above it is <!-- runnable -->. It runs by itself in a directory of
its own, with the built programs first in PATH.
"""

import json
import os
import re
import shlex
import shutil
import signal
import subprocess
import tempfile
from pathlib import Path

import pages

# First words that have a --help of their own.
SUBCOMMANDS = {"zce-board": ("ctl",), "zce-check": ("host", "vendor", "--when"),
               "zce-watch": ("export", "list"),
               "zce-capture": ("info", "verify", "export", "diff", "stats"),
               "zce-relay": ("publish", "subscribe")}
OURS = re.compile(r"^(?:\S*/)?(zce-[a-z-]+)$")
OPTION = re.compile(r"(?<![\w-])--[a-z][a-z-]*")
# Commands of a reader's machine that a test machine need not have.
OTHERS = {"sudo", "perf", "dmesg", "export", "cd", "ulimit", "valgrind", "apt-get", "doxygen", "ninja", "faketime",
          "nats", "nats-server"}
RUN_SECONDS = 30


class Checker:
    def __init__(self, root, programs):
        self.root = Path(root)
        self.programs = Path(programs)
        self.helps = {}
        presets = json.loads((self.root / "CMakePresets.json").read_text())
        self.presets = {p["name"] for kind in presets.values() if isinstance(kind, list)
                        for p in kind if isinstance(p, dict) and "name" in p}

    def help_of(self, *words):
        """What `program [subcommand] --help` prints; None if there is no such program."""
        if words not in self.helps:
            # A program, or a script that the build has made beside their folder.
            places = (self.programs / words[0], self.programs.parent / words[0])
            program = next((place for place in places if place.is_file()), None)
            self.helps[words] = None
            if program:
                run = subprocess.run([program, *words[1:], "--help"], capture_output=True, text=True,
                                     timeout=RUN_SECONDS, check=False)
                self.helps[words] = run.stdout + run.stderr
        return self.helps[words]

    def option_faults(self, program, words):
        """Of `program words...`: the options that its help does not have."""
        names = (program,)
        if words and words[0] in SUBCOMMANDS.get(program, ()):
            names += (words[0],)
        text = self.help_of(*names)
        if text is None:
            return [f"there is no program {program}"]
        known = set(OPTION.findall(text)) | {"--help", "--version"}
        if len(names) > 1:  # a subcommand's own subcommand, as in zce-board ctl tables
            own = [w for w in words[1:] if re.fullmatch(r"[a-z]+", w)]
            known |= set(OPTION.findall(self.help_of(*names, own[0]) or "")) if own else set()
        return [f"{' '.join(names)} has no option {option}"
                for option in OPTION.findall(" ".join(words))
                if option not in known]

    def script_faults(self, script, words):
        path = self.root / script
        if not path.exists():
            return [f"there is no {script}"]
        faults = [] if os.access(path, os.X_OK) else [f"{script} is not executable"]
        sources = path.read_text()
        folder = path.with_suffix("")
        if folder.is_dir():
            sources += "".join(p.read_text() for p in sorted(folder.glob("*.py")))
        sources += "".join(p.read_text() for name in re.findall(r"tests/system/(\w+\.py)", sources)
                           if (p := self.root / "tests/system" / name).exists())
        return faults + [f"{script} has no option {option}" for option in OPTION.findall(" ".join(words))
                         if option not in sources]

    def command_faults(self, words):
        """One simple command, as words."""
        while words and re.match(r"^[A-Za-z_]\w*=", words[0]):
            words = words[1:]
        if not words:
            return []
        faults = []
        if "--" in words:
            at = words.index("--")
            faults += self.command_faults(words[at + 1:])
            words = words[:at]
        if words[0] in ("sudo", "exec", "zce-board-run") and len(words) > 1:
            faults += self.command_faults(words[1:])
            words = words[:1]
        name, rest = words[0], words[1:]
        if re.fullmatch(r"[A-Z_]+", name):  # stands for a program of the reader's
            return faults
        ours = OURS.match(name)
        if ours:
            faults += self.option_faults(ours[1], rest)
        elif name.startswith(("./scripts/", "scripts/")):
            faults += self.script_faults(name.removeprefix("./"), rest)
        elif "/" not in name and name not in OTHERS and not shutil.which(name):
            faults.append(f"there is no command {name}")
        for word in rest:
            faults += self.file_faults(word)
        if "--preset" in rest and rest[-1:] != ["--preset"]:
            preset = rest[rest.index("--preset") + 1]
            if preset not in self.presets:
                faults.append(f"there is no preset {preset}")
        return faults

    def file_faults(self, word):
        """A word that names a file of the tree, or one that the packages install."""
        word = re.sub(r"^(\.\./)+|^/usr/share/doc/VelaZceMdApi/", "", word.rstrip(".,"))
        if not word.startswith(("examples/", "docs/", "tests/", "tools/")) or re.search(r"[*<>{}$]", word):
            return []
        return [] if (self.root / word).exists() else [f"there is no {word}"]

    def line_faults(self, line):
        """A line of shell: its commands, between && ; | and the like, and those in $( )."""
        line = re.sub(r"^\$ ", "", line.strip())
        inner = re.findall(r"\$\(([^()]+)\)", line)
        line = re.sub(r"\$\([^()]+\)", "_", line)
        arithmetic = "$((" in line
        while arithmetic and re.search(r"\([^()]*\)", line):
            line = re.sub(r"\$?\([^()]*\)", "_", line)
        try:
            lexer = shlex.shlex(line, posix=True, punctuation_chars="|&;<>()")
            lexer.whitespace_split = True
            lexer.commenters = "#"
            words = list(lexer)
        except ValueError as error:
            return [f"no line of shell: {error}"]
        commands, redirected = [[]], False
        for word in words:
            if redirected:
                redirected = False
            elif set(word) <= set("<>&") and set(word) & set("<>"):
                redirected = True
            elif set(word) <= set("|&;()"):
                commands.append([])
            else:
                commands[-1].append(word)
        return [fault for command in commands for fault in self.command_faults(command)] + [
            fault for text in inner for fault in self.line_faults(text)]


def shell_lines(first, lines):
    """Lines with their numbers, continued ones joined."""
    joined, start = "", None
    for number, line in enumerate(lines, first):
        start = number if start is None else start
        joined += line.strip()
        if joined.endswith("\\"):
            joined = joined[:-1] + " "
            continue
        if joined and not joined.startswith("#"):
            yield start, joined
        joined, start = "", None


def shown_in_text(text):
    """(line, command) of commands in indented blocks, in transcripts and in code spans."""
    blocks, prose = pages.split(text)
    for first, language, lines in blocks:
        if language == "text":
            yield from ((n, l) for n, l in enumerate(lines, first) if l.startswith("$ "))
    for number, line in prose:
        if re.match(r"^ {4}(\./scripts/|scripts/)\S+\.sh", line):
            yield number, line.strip()
        for span in pages.spans(line):
            if re.match(r"^(\./)?scripts/\S+\.sh( |$)|^(\S*/)?zce-[a-z-]+( |$)", span) and not re.search(
                    r"[=<>]\.\.|\.\.\.|^zce-\S+ channel=", span):
                yield number, span


def faults(root, programs, names=None):
    checker = Checker(root, programs)
    found = []
    for page in names or pages.all_pages(root):
        text = Path(root, page).read_text()
        lines = [pair for first, language, block in pages.split(text)[0] if language in ("sh", "bash")
                 for pair in shell_lines(first, block)]
        for number, line in [*lines, *shown_in_text(text)]:
            found += [f"{page}:{number}: {fault}" for fault in checker.line_faults(line)]
    return found


def runnable(text):
    """(line, script) of the blocks that are marked."""
    lines = text.splitlines()
    for first, language, block in pages.split(text)[0]:
        if language == "sh" and first >= 3 and lines[first - 3].strip() == "<!-- runnable -->":
            yield first, "\n".join(block) + "\n"


def run(root, programs, script):
    """Runs a block; what went wrong, or None. What it leaves running is ended."""
    script = script.replace("/usr/share/doc/VelaZceMdApi", str(Path(root).resolve()))
    with tempfile.TemporaryDirectory() as place:
        environment = {**os.environ, "HOME": place, "LC_ALL": "C", "ZCE_BOARD_SHM_PREFIX": f"docs{os.getpid()}-",
                       "PATH": f"{Path(programs).resolve()}:{os.environ['PATH']}"}
        process = subprocess.Popen(["bash", "-euo", "pipefail", "-c", script], cwd=place, env=environment,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                                   start_new_session=True)
        try:
            output, _ = process.communicate(timeout=RUN_SECONDS)
        except subprocess.TimeoutExpired:
            output = "it does not end"
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            process.wait()
    return None if process.returncode == 0 else (output or "").strip().splitlines()[-1:] or ["failed"]


def run_faults(root, programs, names=None):
    found, seen = [], set()
    for page in names or pages.all_pages(root):
        for line, script in runnable(Path(root, page).read_text()):
            if script in seen:
                continue
            seen.add(script)
            fault = run(root, programs, script)
            if fault:
                found.append(f"{page}:{line}: a runnable block fails: {fault[0]}")
    return found
