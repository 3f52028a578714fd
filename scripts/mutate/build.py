"""Builds a test program with one changed file and runs its cases.

Nothing is built anew but the objects that the change reaches: they are compiled by the commands of
an existing build tree, without optimisation, from a private copy of the sources, and stand on the
program's link line before the library that holds the unchanged ones.
"""

import json
import os
import re
import resource
import shlex
import shutil
import signal
import subprocess
import time
from pathlib import Path

MEMORY_LIMIT = 8 << 30
FILE_LIMIT = 1 << 30
COMPILE_SECONDS = 300
# What is undefined ends the program, as it does under the sanitizers that the tests run with.
CHECKED = ["-D_GLIBCXX_ASSERTIONS", "-fsanitize=undefined", "-fno-sanitize=vptr",
           "-fsanitize-undefined-trap-on-error"]


class Timeout(Exception):
    pass


def _limits() -> None:
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY_LIMIT, MEMORY_LIMIT))
    resource.setrlimit(resource.RLIMIT_FSIZE, (FILE_LIMIT, FILE_LIMIT))


def run(command: list[str], cwd: Path, seconds: float, env: dict[str, str] | None = None,
        limits: bool = True) -> tuple[int, str]:
    """Exit status and output. Raises Timeout, all that was started ended."""
    with subprocess.Popen(command, cwd=cwd, env=env, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          start_new_session=True, preexec_fn=_limits if limits else None) as child:
        try:
            output, _ = child.communicate(timeout=seconds)
            return child.returncode, output.decode(errors="replace")
        except subprocess.TimeoutExpired:
            raise Timeout(" ".join(command)) from None
        finally:
            try:
                os.killpg(child.pid, signal.SIGKILL)  # its session, whatever is left of it
            except ProcessLookupError:
                pass


class Tree:
    """What the build tree knows: how an object is compiled, how a program is linked, and which
    objects a source file reaches."""

    def __init__(self, root: Path, build: Path):
        self.root = root
        self.build = build
        self.commands = {}  # object, relative to the build tree -> command
        for entry in json.loads((build / "compile_commands.json").read_text()):
            words = shlex.split(entry["command"])
            self.commands[os.path.normpath(words[words.index("-o") + 1])] = words
        self.deps = self._read_deps()
        self._links: dict[str, list[str]] = {}
        self._objects: dict[str, list[str]] = {}

    def _ninja(self, *arguments: str) -> str:
        return subprocess.run(["ninja", "-C", str(self.build), *arguments], check=True,
                              capture_output=True, text=True).stdout

    def _read_deps(self) -> dict[str, set[str]]:
        """source, relative to the root -> objects made from it."""
        reached: dict[str, set[str]] = {}
        made = ""
        for line in self._ninja("-t", "deps").splitlines():
            if line and not line[0].isspace():
                made = line.split(":")[0]
            elif line.strip():
                source = os.path.realpath(self.build / line.strip())
                if source.startswith(f"{self.root}/"):
                    reached.setdefault(os.path.relpath(source, self.root), set()).add(made)
        return reached

    def make(self, programs: list[str]) -> None:
        subprocess.run(["ninja", "-C", str(self.build), *programs], check=True,
                       stdout=subprocess.DEVNULL)
        self.deps = self._read_deps()

    def link(self, program: str) -> list[str]:
        """The command that links the program."""
        if program not in self._links:
            output = program if "/" in program else f"bin/{program}"
            parts = [part for line in self._ninja("-t", "commands", program).splitlines()
                     for part in line.split(" && ") if f" -o {output} " in f"{part} "]
            self._links[program] = shlex.split(parts[-1])
        return self._links[program]

    def shared(self, program: str) -> list[str]:
        """The tree's own shared libraries that the program is linked with."""
        return [w for w in self.link(program) if re.fullmatch(r"lib/lib[^/]*\.so(\.[\d.]+)?", w)]

    def objects(self, program: str) -> list[str]:
        """The program's own objects and those of the libraries that it is linked with."""
        if program not in self._objects:
            made = self._ninja("-t", "inputs", program).splitlines()
            self._objects[program] = [o for o in made if o in self.commands]
        return self._objects[program]


class Workshop:
    """A private copy of the sources, and the programs built from it. One for each worker."""

    def __init__(self, tree: Tree, place: Path):
        self.tree = tree
        self.place = place
        self.sources = place / "tree"
        self.temp = place / "tmp"
        shutil.rmtree(place, ignore_errors=True)
        self.temp.mkdir(parents=True)
        shutil.copytree(tree.root, self.sources, symlinks=True,
                        ignore=shutil.ignore_patterns("build", ".git"))
        self.libraries = place / "lib"
        self.libraries.mkdir()
        self.env = {**os.environ, "TMPDIR": str(self.temp), "LC_ALL": "C",
                    "LD_LIBRARY_PATH": str(self.libraries)}
        linker = shutil.which("ld.gold")
        self.linker = ["-fno-lto", "-Wl,--enable-new-dtags"] + (["-fuse-ld=gold"] if linker else [])

    def _room(self, word: str) -> str:
        """For an include path of the build tree, which holds links to folders of the sources, one
        with links to those of the private copy."""
        folder = Path(word[2:])
        if not word.startswith("-I") or not folder.is_relative_to(self.tree.build):
            return ""
        links = [p for p in folder.iterdir() if p.is_symlink()]
        if not links:
            return ""
        copy = self.place / "rooms" / folder.relative_to(self.tree.build)
        copy.mkdir(parents=True, exist_ok=True)
        for link in links:
            if not (copy / link.name).exists():
                source = link.resolve().relative_to(self.tree.root)
                (copy / link.name).symlink_to(self.sources / source)
        return f"-I{copy}"

    def _compile(self, made: str, folder: str) -> Path | None:
        """The object from the private copy; None if it does not compile."""
        target = self.place / folder / made
        target.parent.mkdir(parents=True, exist_ok=True)
        root = re.escape(str(self.tree.root))
        build = re.escape(os.path.relpath(self.tree.build, self.tree.root))
        words = [self._room(word) or
                 re.sub(rf"{root}(?!/{build})(?=/|$)", str(self.sources), word)
                 for word in self.tree.commands[made]]
        words = [word for word in words if not re.fullmatch(r"-O\w|-g\d?|-flto.*|-ffat-lto-objects", word)]
        words[words.index("-o") + 1] = str(target)
        words += ["-O0", "-w", *CHECKED]
        status, self.output = run(words, self.tree.build, COMPILE_SECONDS, limits=False)
        return target if status == 0 else None

    def compile(self, path: str, source: str, programs: list[str],
                folder: str = "changed") -> dict[str, Path] | None:
        """Everything that the changed file reaches in these programs; None if it does not compile.
        """
        reached = self.tree.deps.get(path, set())
        wanted = sorted({o for p in programs for o in self.tree.objects(p)} & reached)
        place = self.sources / path
        kept = (self.tree.root / path).read_text()
        place.write_text(source)
        try:
            objects = {}
            for made in wanted:
                target = self._compile(made, folder)
                if target is None:
                    return None
                objects[made] = target
            return objects
        finally:
            place.write_text(kept)

    def link(self, program: str, objects: dict[str, Path]) -> Path | None:
        """The program with the changed objects in the place of its own and of its libraries'; the
        shared libraries among them come to a folder where the loader looks first."""
        for library in self.libraries.iterdir():
            library.unlink()
        for shared in self.tree.shared(program):
            if not any(o in objects for o in self.tree.objects(shared)):
                continue
            words = self.tree.link(shared)
            soname = next(w for w in words if w.startswith("-Wl,-soname,")).rsplit(",", 1)[1]
            if not self._link(shared, objects, self.libraries / soname):
                return None
        target = self.place / program
        return target if self._link(program, objects, target) else None

    def _link(self, output: str, objects: dict[str, Path], target: Path) -> bool:
        words = []
        replaced = set()
        for word in self.tree.link(output):
            made = os.path.normpath(word)
            if made in objects:
                replaced.add(made)
                words.append(str(objects[made]))
            else:
                words.append(word)
        at = words.index("-o")
        of_program = set(self.tree.objects(output))
        words[at + 1] = str(target)
        words[at:at] = [str(objects[o]) for o in objects if o not in replaced and o in of_program]
        words = [word for word in words if not word.startswith("-flto")]
        status, self.output = run(words + self.linker, self.tree.build, COMPILE_SECONDS,
                                  limits=False)
        return status == 0

    def run_cases(self, program: Path, cases: list[str], seconds: float) -> tuple[bool, str]:
        """Whether these cases pass, in one process; the name of the first that does not."""
        shutil.rmtree(self.temp, ignore_errors=True)
        self.temp.mkdir()
        command = [str(program), "--gtest_fail_fast", "--gtest_brief=0", "--gtest_color=no",
                   f"--gtest_filter={':'.join(cases)}"]
        began = time.monotonic()
        status, output = run(command, self.temp, seconds, self.env)
        self.seconds = time.monotonic() - began
        self.output = output
        passed = status == 0 and f"[  PASSED  ] {len(cases)} test" in output
        begun = re.findall(r"^\[ RUN +\] (\S+)", output, re.MULTILINE)
        return passed, "" if passed or not begun else begun[-1]

    def cases(self, program: Path, pattern: str) -> list[str]:
        _, output = run([str(program), "--gtest_list_tests", f"--gtest_filter={pattern}"],
                        self.temp, 120, self.env)
        names = []
        suite = ""
        for line in output.splitlines():
            name = line.split("#")[0].rstrip()
            if name and not name.startswith(" ") and name.endswith("."):
                suite = name
            elif name.startswith("  ") and suite:
                names.append(suite + name.strip())
        return names
