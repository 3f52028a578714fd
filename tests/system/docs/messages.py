"""What the library prints: the texts in src/, and the entries of docs/troubleshooting.md."""

import re
from pathlib import Path

PAGE = "docs/troubleshooting.md"
# How the sources log and print: the call, and under which name the page has it.
LEVELS = {"LOG_ERROR": "ERROR", "LOG_WARN": "WARN", "LOG_INFO": "INFO", "LOG_WARN_IN_SIGNAL": "WARN"}
# Literals with a blank that nobody is shown.
NOT_SHOWN = re.compile(
    r"^(lspci|lsmod|ps) |"  # command lines
    r"^\[[A-Z ]+\]|"  # labels and rows of the log
    r"^(xilinx%d|%hh)|"  # scanf
    r"^ (tid|pid):|^%02X |^ {2,}|"  # pieces of a log line
    r"^cmpb "  # an instruction
)

TOKEN = re.compile(
    r'//[^\n]*|/\*.*?\*/|#\s*include[^\n]*|R"\((?P<raw>.*?)\)"|"(?P<text>(?:\\.|[^"\\\n])*)"|'
    r"'(?:\\.|[^'\\])'|(?P<word>\w+)|(?P<sign>[^\s\w])",
    re.S,
)
ESCAPES = {"\\n": "\n", '\\"': '"', "\\\\": "\\", "\\t": "\t"}


def tokens(source):
    """Words, signs and literals of C++ source, neighbouring literals as one: (kind, text) pairs."""
    found = []
    for match in TOKEN.finditer(source):
        if match["text"] is not None or match["raw"] is not None:
            text = match["raw"]
            if text is None:
                text = re.sub(r"\\.", lambda m: ESCAPES.get(m[0], m[0]), match["text"])
            if found and found[-1][0] == "literal":
                found[-1] = ("literal", found[-1][1] + text)
            else:
                found.append(("literal", text))
        elif match["word"]:
            found.append(("word", match["word"]))
        elif match["sign"]:
            found.append(("sign", match["sign"]))
    return found


def shape(text):
    """A text with its variable parts alike, as the source (%u) and the page (<count>) write them."""
    text = re.sub(r"%%", "%", re.sub(r"%[-0-9.]*(?:l|ll|h|z)?[a-zA-Z]", "<>", text))
    return re.sub(r"<[a-z][^<>]*>", "<>", text).strip(" \n")


def texts_of(source):
    """Of one source: shape of the text -> the level it is logged at, or None where that shows elsewhere."""
    found = {}
    row = tokens(source)
    for at, (kind, text) in enumerate(row):
        if kind != "literal":
            continue
        before = [t for _, t in row[max(0, at - 2):at]]
        level = LEVELS.get(before[0]) if len(before) == 2 and before[1] == "(" else None
        if before[:1] == ["LOG_WARN_IN_SIGNAL"]:
            behind = next(t for k, t in row[at + 1:] if k == "literal")
            text += "%ld" + behind
        elif level is None and (" " not in text.strip() or NOT_SHOWN.search(text)):
            continue
        if shape(text) not in ("", "<>", "!!"):
            found[shape(text)] = level or found.get(shape(text))
    return found


def printed(root):
    """Every text that the library can print."""
    found = {}
    for path in sorted(Path(root, "src").rglob("*")):
        if path.suffix in (".cpp", ".h"):
            for text, level in texts_of(path.read_text()).items():
                found[text] = level or found.get(text)
    return found


def entries(page):
    """The page's entries: shape of the text -> what its level column says."""
    found = {}
    for line in page.splitlines():
        cells = re.split(r"(?<!\\)\|", line.strip().strip("|"))
        if len(cells) < 4 or not line.startswith("|") or cells[1].strip() not in (
                "ERROR", "WARN", "INFO", "stdout", "stderr"):
            continue
        for span in re.findall(r"`([^`]+)`", cells[0]):
            found[shape(span)] = cells[1].strip()
    return found


def differences(root):
    """One line for each text without an entry, entry without a text, and entry of another level."""
    there, told = printed(root), entries(Path(root, PAGE).read_text())
    faults = [f"{PAGE} has no entry for: {text}" for text in sorted(set(there) - set(told))]
    faults += [f"{PAGE} has an entry that nothing in src/ prints: {text}"
               for text in sorted(set(told) - set(there))]
    faults += [f"{PAGE} says {told[text]}, src/ {level}: {text}" for text, level in sorted(there.items())
               if level and text in told and told[text] != level]
    return faults


if __name__ == "__main__":
    for shown, shown_level in sorted(printed(Path(__file__).parents[3]).items(), key=lambda e: str(e)):
        print(shown_level, "|", shown)
