#!/usr/bin/env python3
"""main.py SOURCE PROGRAMS DOXYFILE: what the pages say beside what is there. One line for each fault.

PROGRAMS is the folder of the built programs. Each check is a module of this folder.
"""

import sys

import commands
import configs
import formats
import languages
import messages
import pages
import references
import samples


def main():
    root, programs, doxyfile = sys.argv[1:]
    checks = (
        ("links", lambda: pages.link_faults(root)),
        ("words", lambda: pages.word_faults(root) + pages.span_faults(root)),
        ("index", lambda: pages.index_faults(root)),
        ("names of tests", lambda: pages.test_name_faults(root)),
        ("log lines", lambda: messages.differences(root)),
        ("registers and messages", lambda: formats.faults(root)),
        ("C++ samples", lambda: samples.faults(root)),
        ("INI files", lambda: configs.faults(root, programs)),
        ("commands", lambda: commands.faults(root, programs)),
        ("runnable commands", lambda: commands.run_faults(root, programs)),
        ("languages", lambda: languages.faults(root)),
        ("Doxygen", lambda: references.doxygen_faults(doxyfile)),
    )
    count = 0
    for name, check in checks:
        for fault in check():
            print(f"{name}: {fault}")
            count += 1
    print(f"{len(checks)} checks, {count} faults")
    return 1 if count else 0


if __name__ == "__main__":
    sys.exit(main())
