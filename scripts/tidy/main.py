"""The work of tidy.sh: which files are due, and clang-tidy on them, as many at once as processors.

A file that was found clean stands in a list with one hash over all that the look depends on. It is due
when the hash is another. There are two lists: the one of this build folder, and the one that is in the
repository, so that a fresh copy of the tree has to look at nothing that others have looked at.
"""

import concurrent.futures
import functools
import glob
import hashlib
import json
import os
import re
import resource
import shlex
import shutil
import subprocess
import sys
import time

BUILD = "build/tidy"
RECORD = "scripts/tidy/clean.txt"
LOCAL = BUILD + "/clean.txt"
UNITS = BUILD + "/units"
# So many files at most are looked at as one.
TOGETHER = 24
# What the compiler reads that is not in the tree comes from these.
PACKAGES = ("clang-14", "clang-tidy-14", "libstdc++-12-dev", "libc6-dev", "libiniparser-dev", "libcli11-dev",
            "libfmt-dev", "libpcap0.8-dev", "libzstd-dev", "libxxhash-dev", "libboost1.74-dev", "libgtest-dev", "libgmock-dev",
            "libbenchmark-dev", "libncurses-dev", "nlohmann-json3-dev", "valgrind", "libspdlog-dev", "libiceoryx-posh-dev",
            "libatomic-queue-dev", "libreaderwriterqueue-dev")
# Options that files looked at as one need not have in common.
DIFFER = ("-D", "-I", "-isystem", "-fPIC", "-fPIE", "-O", "-fno-sanitize")


@functools.lru_cache(maxsize=None)
def content(path):
    """The hash of a file; what cannot be read is as good as another content."""
    try:
        with open(path, "rb") as file:
            return hashlib.sha256(file.read()).hexdigest()
    except OSError:
        return "none"


def settings(path):
    """The .clang-tidy files that may speak for a file: those of all folders above it."""
    folder = os.path.dirname(path)
    while folder.startswith(os.getcwd()):
        yield os.path.join(folder, ".clang-tidy")
        folder = os.path.dirname(folder)


@functools.lru_cache(maxsize=None)
def headers():
    """The headers of the tree, by name."""
    found = {}
    for path in subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "*.h"], check=True,
                               capture_output=True, text=True).stdout.split():
        found.setdefault(os.path.basename(path), []).append(path)
    return found


@functools.lru_cache(maxsize=None)
def includes(path):
    """What a file of the tree includes of the tree: any header that the text may mean."""
    try:
        with open(path, encoding="utf-8") as file:
            texts = re.findall(r'^\s*#\s*include\s*["<]([^">]+)[">]', file.read(), re.MULTILINE)
    except OSError:
        return ()
    return tuple(header for text in texts for header in headers().get(os.path.basename(text), ())
                 if header.endswith("/" + os.path.normpath(text).lstrip("./")))


def own_reads(path):
    """A file and all of the tree's headers that it leads to."""
    reads, left = set(), [path]
    while left:
        path = left.pop()
        if path not in reads:
            reads.add(path)
            left += includes(path)
    return sorted(reads)


def versions():
    """Of clang-tidy, and of all that is included and not in the tree."""
    return subprocess.run(["dpkg-query", "-W", "-f", "${Package} ${Version} ${db:Status-Status}\n", *PACKAGES],
                          capture_output=True, text=True, check=False).stdout


def key(entry, version):
    """One hash over all that a look at a file depends on, wherever the tree stands."""
    path = os.path.relpath(entry["file"])
    parts = [version, entry["command"].replace(os.getcwd(), ".")]
    speak = [os.path.relpath(setting) for setting in settings(entry["file"])]
    parts += [read + " " + content(read) for read in [*speak, *own_reads(path)]]
    return hashlib.sha256("\n".join(parts).encode()).hexdigest()[:32]


def known(path):
    """A list of what was found clean: path and hash."""
    try:
        with open(path, encoding="utf-8") as file:
            return dict(line.split() for line in file)
    except OSError:
        return {}


def keep(path, clean):
    """Writes such a list."""
    with open(path, "w", encoding="utf-8") as file:
        file.writelines(f"{name} {clean[name]}\n" for name in sorted(clean))


def options(entry):
    """The compiler and its options, without the file and what is made of it."""
    words, kept = iter(shlex.split(entry["command"])), []
    for word in words:
        if word == "-o":
            next(words)
        elif word == "-isystem":
            kept.append(word + next(words))
        elif word not in ("-c", entry["file"]):
            kept.append(word)
    return kept


def errors(entry):
    """What the compiler says of an entry. Errors alone: its warnings are the builds' own, and files
    looked at as one would give others."""
    return subprocess.run([*options(entry), "-w", "-ferror-limit=0", "-fsyntax-only", entry["file"]],
                          cwd=entry["directory"], capture_output=True, text=True, check=False).stderr


def definitions(words):
    """The macros that options define, each with its value."""
    return dict(word[2:].partition("=")[::2] for word in words if word.startswith("-D"))


def groups(due):
    """The due files, as many together as may be: neighbours under the same .clang-tidy files, with
    the same options but for include paths and macros, and no macro of two values. What they include
    is then read and searched once, and that is most of the work."""
    alike = {}
    for entry in due:
        words = [word for word in options(entry) if not word.startswith(DIFFER)]
        speak = [path for path in settings(entry["file"]) if os.path.exists(path)]
        # C has no namespaces: each file of it has its names to itself.
        by_itself = entry["file"] if entry["file"].endswith(".c") else ""
        alike.setdefault((by_itself, *speak, *words), []).append(entry)
    made = []
    for members in alike.values():
        macros = {}
        # Halves of nine are better than eight and one.
        most = -(-len(members) // -(-len(members) // TOGETHER))
        group = []
        for entry in members:
            own = definitions(options(entry))
            with open(entry["file"], encoding="utf-8") as file:
                # A program has one, and so has what is compiled as one.
                own.update({"main": entry["file"]} if " main(" in file.read() else {})
            if len(group) == most or any(macros.get(name, own[name]) != own[name] for name in own):
                made.append(group)
                group, macros = [], {}
            group.append(entry)
            macros.update(own)
        made.append(group)
    return sorted(made, key=lambda group: -len(group))


def unit(group):
    """The entry to look at for a group: the one file, or a file that includes them all, with the
    options of each."""
    if len(group) == 1:
        return group[0]
    folder = os.path.relpath(os.path.commonpath([os.path.dirname(one["file"]) for one in group]))
    name = os.path.relpath(group[0]["file"]).replace("/", "+")
    path = os.path.abspath(f"{UNITS}/{folder}/{len(group)}+{name}")
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as file:
        for number, entry in enumerate(group):
            # The one function that each of libFuzzer's programs has.
            file.write(f"#undef LLVMFuzzerTestOneInput\n#define LLVMFuzzerTestOneInput fuzz{number}\n")
            file.write(f'#include "{entry["file"]}"  // NOLINT(bugprone-suspicious-include)\n')
    words = dict.fromkeys(word for entry in group for word in options(entry))
    return {"file": path, "directory": group[0]["directory"], "command": shlex.join(words)}


def prepare():
    """Where the units of this run are: the .clang-tidy files above them speak for them too."""
    shutil.rmtree(UNITS, ignore_errors=True)
    for path in [".clang-tidy", *glob.glob("**/.clang-tidy", recursive=True)]:
        if not path.startswith("build"):
            os.makedirs(os.path.join(UNITS, os.path.dirname(path)), exist_ok=True)
            shutil.copy(path, os.path.join(UNITS, path))


def fitting(group):
    """The part of a group that compiles as one, and the others: two files may use one name for two
    things. Alone a file fits, whatever the compiler says of it."""
    entry = unit(group)
    said = errors(entry) if len(group) > 1 else ""
    if not said:
        return group, entry, []
    # The files of each error: where it is, and from where that is included.
    places, wrong = set(), set()
    for line in said.splitlines():
        place = re.match(r"(?:In file included from )?(/[^:]+):\d+", line)
        places |= {place[1]} if place else set()
        if ": error: " in line or ": fatal error: " in line:
            wrong |= places
        if not line.startswith("In file included from "):
            places = set()
    out = [member for member in group[1:] if member["file"] in wrong] or group[len(group) // 2:]
    group = [member for member in group if member not in out]
    return group, unit(group), out


def look(group, entry):
    """Looks at a group. What was found, and the files that it is found in."""
    own = {member["file"] for member in group}
    done = subprocess.run(["clang-tidy", "--quiet", entry["file"], "--", *options(entry)[1:], "-w"],
                          cwd=entry["directory"], capture_output=True, text=True, check=False)
    places = re.findall(r"^(/[^:]+):\d+:\d+: (?:error|warning): ", done.stdout, re.MULTILINE)
    if len(group) > 1 and not own.issuperset(places):
        # In a header: perhaps only because another file of the group has the same name.
        half = len(group) // 2
        halves = [look(part, unit(part)) for part in (group[:half], group[half:])]
        return "".join(text for text, _ in halves), [path for _, paths in halves for path in paths]
    failed = []
    if done.returncode != 0 or "warning:" in done.stdout:
        failed = [path for path in own if path in done.stdout] or sorted(own)
    return (done.stdout + done.stderr if failed else ""), failed


def main(arguments):
    started = time.time()
    flags = {argument for argument in arguments if argument.startswith("--")}
    wanted = {os.path.abspath(path) for path in arguments if path not in flags}
    version = versions()
    with open(BUILD + "/compile_commands.json", encoding="utf-8") as file:
        # A file that several programs share is looked at once.
        entries = {entry["file"]: entry for entry in reversed(json.load(file))
                   if entry["file"].startswith(os.getcwd() + "/")}
    unknown = wanted - entries.keys()
    if unknown or flags - {"--all", "--record"}:
        print("tidy: not compiled by this tree: " + " ".join(sorted(unknown)) if unknown
              else "tidy: there are --all and --record")
        return 2
    keys = {os.path.relpath(path): key(entry, version) for path, entry in sorted(entries.items())}
    lists = [] if "--all" in flags else [known(RECORD), known(LOCAL)]
    clean = {name: found for name, found in keys.items() if any(one.get(name) == found for one in lists)}
    due = [entry for path, entry in sorted(entries.items())
           if os.path.relpath(path) not in clean and (not wanted or path in wanted)]
    failed, fits, left = [], [], due
    prepare()
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        while left:
            tried = list(pool.map(fitting, groups(left)))
            fits += [found[:2] for found in tried]
            left = [entry for found in tried for entry in found[2]]
        fits.sort(key=lambda fit: -len(fit[0]))
        for found, paths in pool.map(lambda fit: look(*fit), fits):
            print(found, end="", flush=True)
            failed += [os.path.relpath(path) for path in paths]
    looked = {os.path.relpath(entry["file"]) for entry in due} - set(failed)
    clean.update((name, keys[name]) for name in looked)
    keep(LOCAL, clean)
    if "--record" in flags:
        keep(RECORD, clean)
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    print(f"tidy: {len(keys)} files, {len(due)} looked at as {len(fits)}, {len(failed)} with findings, "
          f"{time.time() - started:.0f} s, {used.ru_utime + used.ru_stime:.0f} CPU s")
    for path in sorted(failed):
        print("tidy: findings in " + path)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
