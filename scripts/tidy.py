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
import shlex
import shutil
import subprocess
import sys
import time

BUILD = "build/tidy"
STAMPS = BUILD + "/clean"
UNITS = BUILD + "/units"
# So many files at most are looked at as one.
TOGETHER = 8


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
        elif word not in ("-c", entry["file"]):
            kept.append(word)
    return kept


def what_is_read(entry):
    """Every file that the compiler reads for an entry, system headers too; none if it fails."""
    done = subprocess.run([*options(entry), entry["file"], "-M", "-w"], cwd=entry["directory"],
                          capture_output=True, text=True, check=False)
    if done.returncode != 0:
        return set()
    rule = done.stdout.split(":", 1)[1].replace("\\\n", " ")
    return {os.path.normpath(os.path.join(entry["directory"], path)) for path in shlex.split(rule)}


def units(due):
    """The due files in groups of the same folder and options, each with the entry to look at: the
    one file, or a file that includes them all. What they include is then read once, and that is most
    of the work."""
    shutil.rmtree(UNITS, ignore_errors=True)
    os.makedirs(UNITS)
    for path in glob.glob("**/.clang-tidy", recursive=True) + [".clang-tidy"]:
        if not path.startswith("build"):
            os.makedirs(os.path.join(UNITS, os.path.dirname(path)), exist_ok=True)
            shutil.copy(path, os.path.join(UNITS, path))
    alike = {}
    for entry in due:
        folder = os.path.dirname(os.path.relpath(entry["file"]))
        alike.setdefault((folder, entry["file"][-2:], *options(entry)), []).append(entry)
    groups = []
    for (folder, kind, *words), members in alike.items():
        while members:
            # Halves of nine are better than eight and one.
            count = -(-len(members) // -(-len(members) // TOGETHER))
            group, members = members[:count], members[count:]
            if len(group) == 1 or kind == ".c":
                groups += [([entry], entry) for entry in group]
                continue
            path = os.path.abspath(f"{UNITS}/{folder}/unit{len(groups)}.cpp")
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "w", encoding="utf-8") as file:
                for entry in group:
                    file.write(f'#include "{entry["file"]}"  // NOLINT(bugprone-suspicious-include)\n')
            groups.append((group, {"file": path, "directory": group[0]["directory"],
                                   "command": shlex.join([*words, "-c", path])}))
    with open(UNITS + "/compile_commands.json", "w", encoding="utf-8") as file:
        json.dump([entry for _, entry in groups], file)
    return sorted(groups, key=lambda group: -len(group[0]))


def look(group, entry, version):
    """Looks at a group and stamps the clean ones. What was found, and the files that it is found in."""
    reads = what_is_read(entry)
    own = {member["file"] for member in group}
    kept = {member["file"]: sorted(reads - own - {entry["file"]} | {member["file"]})
            for member in group}
    keys = {member["file"]: key(member, kept[member["file"]], version) for member in group}
    done = subprocess.run(["clang-tidy", "--quiet", "-p", UNITS, entry["file"]],
                          capture_output=True, text=True, check=False)
    if len(group) > 1 and (not reads or "[clang-diagnostic-" in done.stdout):
        # Two of them use one name for two things, or the compiler sees more than in one file.
        alone = [look([member], member, version) for member in group]
        return "".join(text for text, _ in alone), [path for _, paths in alone for path in paths]
    failed = []
    if done.returncode != 0 or "warning:" in done.stdout or not reads:
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
        entries = {entry["file"]: entry for entry in json.load(file)}
    unknown = wanted - entries.keys()
    if unknown:
        print("tidy: not compiled by this tree: " + " ".join(sorted(unknown)))
        return 1
    entries = [entry for path, entry in sorted(entries.items())
               if path.startswith(os.getcwd() + "/") and (not wanted or path in wanted)]
    due = [entry for entry in entries if everything or not stands(entry, version)]
    failed = []
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for found, paths in pool.map(lambda group: look(*group, version), units(due)):
            print(found, end="", flush=True)
            failed += [os.path.relpath(path) for path in paths]
    print(f"tidy: {len(entries)} files, {len(due)} looked at, {len(failed)} with findings, "
          f"{time.time() - started:.0f} s")
    for path in sorted(failed):
        print("tidy: findings in " + path)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
