#!/usr/bin/env python3
"""manuals.py BUILD SOURCE: every option and command in a program's --help is in its manual page and is
completed by bash, and no other is; the pages are clean for mandoc and for man."""

import os
import re
import subprocess
import sys

PROGRAMS = ["zce-board", "zce-board-run", "zce-top", "zce-recv", "zce-check", "zce-bin", "zce-capture", "zce-watch"]
# A command with a manual page of its own.
PAGES = {("zce-board", "ctl"): "zce-board-ctl.1"}
# Forms of a program that its --help does not list as commands; what the program's first form offers
# to get into them.
FORMS = {"zce-board": (["ctl"],), "zce-check": (["--when"], ["host"], ["vendor"])}
WAYS = {("zce-check",): {"--when"}}
# Macros of mdoc that end what Fl says.
MACROS = {"Ar", "Cm", "Fl", "Op", "Oo", "Oc", "Ns", "Ql", "Sq", "|", "Ic", "Pa", "Xr", "Nm"}

bad = []


def complain(text):
    bad.append(text)


def output(words, **options):
    return subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          timeout=60, check=False, **options).stdout


def help_of(build, path):
    """The options and the commands that --help of this command line tells."""
    where = "/bin/" if path[0] != "zce-board-run" else "/"
    text = output([build + where + path[0], *path[1:], "--help"])
    options = set()
    for short, long in re.findall(r"^ +(-[A-Za-z])?,? ?(--[A-Za-z][\w-]*)?(?![\w-])", text,
                                  re.MULTILINE):
        options |= {short, long} - {""}
    commands = []
    listed = re.search(r"^Subcommands:\n((?: .*\n?)*)", text, re.MULTILINE)
    if listed:
        commands = re.findall(r"^  (\S+)", listed.group(1), re.MULTILINE)
    if not options:
        complain(f"{' '.join(path)} --help tells no option: {text}")
    return options, commands


def page_of(source, name):
    """What a page explains in a list, options and commands, and every option that it names."""
    explained, named, commands = set(), set(), set()
    with open(f"{source}/man/{name}", encoding="utf-8") as page:
        for line in page:
            words = line.split()
            in_fl = False
            for word in words[1:] if line.startswith(".") else []:
                if word == "Fl":
                    in_fl = True
                elif word in MACROS:
                    in_fl = False
                elif in_fl and word not in (",", ".", ":", ";"):
                    named.add("-" + word)
                    if words[0] == ".It":
                        explained.add("-" + word)
            if words and words[0] == ".Fl":
                named.add("-" + words[1])
            if line.startswith(".It Cm ") or line.startswith(".It Ic "):
                taken = []
                for word in words[2:]:
                    if word in MACROS:
                        break
                    taken.append(word)
                commands.update([" ".join(taken[:n]) for n in range(1, len(taken) + 1)])
            elif line.startswith(".Cm "):
                commands.add(words[1])
    return explained, named - {"--"}, commands  # the end of the options is none


def completed(source, build, path, word):
    """What bash offers for `word` behind this command line."""
    script = f'''
        source "{source}/completion/{path[0]}"
        name=$(complete -p {path[0]} | sed 's/.*-F \\([^ ]*\\) .*/\\1/')
        COMP_WORDS=({" ".join(path)} "{word}")
        COMP_CWORD={len(path)}
        "$name"
        printf '%s\\n' "${{COMPREPLY[@]}}"'''
    environment = dict(os.environ, PATH=f"{build}/bin:{build}:{os.environ['PATH']}")
    return set(output(["bash", "--norc", "-c", script], env=environment, cwd="/").split())


def compare(what, told, other, where):
    for name in sorted(told - other):
        complain(f"{what}: --help tells {name}, {where} does not")
    for name in sorted(other - told):
        complain(f"{what}: {where} has {name}, --help does not")


def check(build, source, path, page, told):
    """This command line and the commands below it. told: page -> options and commands of --help."""
    page = PAGES.get(tuple(path), page)
    options, commands = help_of(build, path)
    of_page = told.setdefault(page, [set(), set()])
    of_page[0] |= options
    long_options = {option for option in options if option.startswith("--")}
    offered = completed(source, build, path, "-")
    long_options |= WAYS.get(tuple(path), set())
    compare(" ".join(path), long_options, {word for word in offered if word.startswith("-")},
            "the completion")
    if commands:
        offered = completed(source, build, path, "")
        compare(" ".join(path), set(commands),
                {word for word in offered if not word.startswith("-")}, "the completion")
    for command in commands:
        below = path + [command]
        if tuple(below) not in PAGES:
            depth = 2 if page == "zce-board-ctl.1" else 1
            of_page[1].add(" ".join(below[depth:]))
        check(build, source, below, page, told)


def main():
    build, source = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    there = [name for name in PROGRAMS if os.path.exists(f"{build}/bin/{name}")]
    if os.path.exists(f"{build}/zce-board-run"):
        there.append("zce-board-run")
    if len(there) < 4:
        complain(f"only {there} are built")
    pages = {}
    for name in there:
        if not os.path.exists(f"{source}/man/{name}.1"):
            complain(f"{name} has no manual page")
            continue
        if not os.path.exists(f"{source}/completion/{name}"):
            complain(f"{name} has no completion")
            continue
        for form in ([], *FORMS.get(name, ())):
            check(build, source, [name] + form, f"{name}.1", pages)
    if "zce-recv" not in completed(source, build, ["zce-board", "--products", "all", "--"], "zce-re"):
        complain("zce-board: no command is completed behind --")
    for page, (options, commands) in pages.items():
        explained, named, commands_of_page = page_of(source, page)
        compare(page, options, explained, "the page")
        for name in sorted(named - options):
            complain(f"{page}: the page names {name}, --help does not")
        if commands:
            # The values of an option are Cm as well, in the text: those of lists are compared.
            compare(page, commands, commands_of_page - {"all"}, "the page")

    names = sorted(os.listdir(f"{source}/man"))
    for name in names:
        path = f"{source}/man/{name}"
        lint = output(["mandoc", "-Tlint", path])
        for line in lint.splitlines():
            # A page of another package, or one that is not installed here.
            if "referenced manual not found" not in line and "outdated mandoc.db" not in line:
                complain(line)
        warnings = output(["sh", "-c", f"man --warnings -l '{path}' 2>&1 >/dev/null"])
        if warnings:
            complain(f"man {name}: {warnings}")
        with open(path, encoding="utf-8") as page:
            for other, section in re.findall(r"^\.(?:It )?Xr (\S+) (\d)", page.read(), re.MULTILINE):
                if f"{other}.{section}" not in names and other != "tshark":
                    complain(f"{name} refers to {other}({section}), which is not there")
    if bad:
        print("\n".join(bad))
        return 1
    print(f"manuals: {len(names)} pages, {len(there)} programs")
    return 0


if __name__ == "__main__":
    sys.exit(main())
