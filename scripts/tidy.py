"""The work of tidy.sh: which files are due, and clang-tidy on them, as many at once as processors.

A file that was found clean leaves a stamp: what was read for it, and one hash over all of that. It
is due when the hash over the same files is another, or the stamp is not there.
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
import tempfile
import time

BUILD = "build/tidy"
STAMPS = BUILD + "/clean"
UNITS = BUILD + "/units"
# So many files at most are looked at as one.
TOGETHER = 24
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


def key(entry, reads, version):
    """One hash over all that a look at a file depends on."""
    parts = [version, entry["command"]]
    parts += [path + " " + content(path) for path in [*settings(entry["file"]), *reads]]
    return hashlib.sha256("\n".join(parts).encode()).hexdigest()


def stamp_of(entry):
    return os.path.join(STAMPS, os.path.relpath(entry["file"]).replace("/", "+"))


def stands(entry, version):
    """Whether the last look at a file still stands."""
    try:
        with open(stamp_of(entry), encoding="utf-8") as file:
            found, *reads = file.read().splitlines()
    except (OSError, ValueError):
        return False
    return found == key(entry, reads, version)


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


def compiled(entry):
    """What the compiler says of an entry, and every file that it reads for it, system headers too.
    Errors alone: its warnings are the builds' own, and files looked at as one would give others."""
    with tempfile.NamedTemporaryFile("r", dir=UNITS, encoding="utf-8") as made:
        done = subprocess.run([*options(entry), "-w", "-ferror-limit=0", "-fsyntax-only",
                               "-MD", "-MF", os.path.abspath(made.name), entry["file"]],
                              cwd=entry["directory"], capture_output=True, text=True, check=False)
        rule = made.read().partition(":")[2].replace("\\\n", " ")
    reads = {os.path.normpath(os.path.join(entry["directory"], path)) for path in shlex.split(rule)}
    return done.stderr, reads


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
    """The part of a group that compiles as one, with what is read for it, and the others: two files
    may use one name for two things. Alone a file fits, whatever the compiler says of it."""
    entry = unit(group)
    said, reads = compiled(entry)
    if not said or len(group) == 1:
        return group, entry, reads, []
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
    return group, unit(group), reads, out


def look(group, entry, reads, version):
    """Looks at a group and stamps the clean ones. What was found, and the files that it is found in."""
    own = {member["file"] for member in group}
    kept = {member["file"]: sorted(reads - own - {entry["file"]} | {member["file"]})
            for member in group}
    keys = {member["file"]: key(member, kept[member["file"]], version) for member in group}
    done = subprocess.run(["clang-tidy", "--quiet", entry["file"], "--", *options(entry)[1:], "-w"],
                          cwd=entry["directory"], capture_output=True, text=True, check=False)
    places = re.findall(r"^(/[^:]+):\d+:\d+: (?:error|warning): ", done.stdout, re.MULTILINE)
    if len(group) > 1 and not own.issuperset(places):
        # In a header: perhaps only because another file of the group has the same name.
        half = len(group) // 2
        halves = [look(part, unit(part), reads, version) for part in (group[:half], group[half:])]
        return "".join(text for text, _ in halves), [path for _, paths in halves for path in paths]
    failed = []
    if done.returncode != 0 or "warning:" in done.stdout:
        failed = [path for path in own if path in done.stdout] or sorted(own)
    for member in group:
        if member["file"] not in failed:
            with open(stamp_of(member), "w", encoding="utf-8") as file:
                file.write("\n".join([keys[member["file"]], *kept[member["file"]]]) + "\n")
    return (done.stdout + done.stderr if failed else ""), failed


def main(arguments):
    started = time.time()
    everything = "--all" in arguments
    wanted = {os.path.abspath(path) for path in arguments if path != "--all"}
    os.makedirs(STAMPS, exist_ok=True)
    version = subprocess.run(["clang-tidy", "--version"], capture_output=True, text=True,
                             check=True).stdout
    with open(BUILD + "/compile_commands.json", encoding="utf-8") as file:
        # A file that several programs share is looked at once.
        entries = {entry["file"]: entry for entry in reversed(json.load(file))}
    unknown = wanted - entries.keys()
    if unknown:
        print("tidy: not compiled by this tree: " + " ".join(sorted(unknown)))
        return 1
    entries = [entry for path, entry in sorted(entries.items())
               if path.startswith(os.getcwd() + "/") and (not wanted or path in wanted)]
    due = [entry for entry in entries if everything or not stands(entry, version)]
    failed = []
    prepare()
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        fits, left = [], due
        while left:
            tried = list(pool.map(fitting, groups(left)))
            fits += [found[:3] for found in tried]
            left = [entry for found in tried for entry in found[3]]
        fits.sort(key=lambda fit: -len(fit[0]))
        for found, paths in pool.map(lambda fit: look(*fit, version), fits):
            print(found, end="", flush=True)
            failed += [os.path.relpath(path) for path in paths]
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    print(f"tidy: {len(entries)} files, {len(due)} looked at as {len(fits)}, {len(failed)} with findings, "
          f"{time.time() - started:.0f} s, {used.ru_utime + used.ru_stime:.0f} CPU s")
    for path in sorted(failed):
        print("tidy: findings in " + path)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
