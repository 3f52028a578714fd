"""The pages: which there are, what is in them, and whether their links lead anywhere."""

import re
import unicodedata
from pathlib import Path

HOUSE_WORDS = re.compile(r"\b(roads?|floors?|going on)\b", re.I)
PUBLIC_HEADERS = ("include/*.h", "board/include/*.h", "capture/ZceCapture.h")


def all_pages(root):
    """Every page of the tree, as paths relative to it."""
    root = Path(root)
    found = [path for part in ("*.md", "docs/**/*.md", "examples/**/*.md") for path in sorted(root.glob(part))]
    return [str(path.relative_to(root)) for path in found]


def split(text):
    """Fenced blocks and what is around them: ([(line, language, [lines])], [(line, text)])."""
    blocks, prose, block = [], [], None
    for number, line in enumerate(text.splitlines(), 1):
        fence = re.match(r"\s*```(.*)$", line)
        if block is not None:
            if fence:
                blocks.append(block)
                block = None
            else:
                block[2].append(line)
        elif fence:
            block = (number + 1, fence[1].strip(), [])
        else:
            prose.append((number, line))
    return blocks, prose


def spans(line):
    """The code spans of a line of text."""
    return [m[2] for m in re.finditer(r"(?<!`)(`+)(?!`)(.+?)(?<!`)\1(?!`)", line)]


def without_spans(line):
    return re.sub(r"(?<!`)(`+)(?!`)(.+?)(?<!`)\1(?!`)", lambda m: " " * len(m[0]), line)


def anchor(heading):
    """The anchor that a heading gets."""
    text = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", heading.strip().lower())
    kept = [c for c in text if c in "-_ " or unicodedata.category(c)[0] in "LNM"]
    return "".join(kept).replace(" ", "-")


def anchors(text):
    """All anchors of a page; a heading that is there twice gets a number."""
    seen, found = {}, set()
    for _, line in split(text)[1]:
        heading = re.match(r"#{1,6}\s+(.*)$", line)
        if heading:
            name = anchor(heading[1])
            found.add(f"{name}-{seen[name]}" if name in seen else name)
            seen[name] = seen.get(name, 0) + 1
    return found


def links(text):
    """(line, target) of every link; a link may run over a line end."""
    prose = {number: without_spans(line) for number, line in split(text)[1]}
    last = max(prose, default=0)
    joined = "\n".join(prose.get(number, "") for number in range(1, last + 1))
    return [(joined.count("\n", 0, m.start()) + 1, m[1])
            for m in re.finditer(r"\]\(([^()\s]+(?:\([^()\s]*\))?)\)", joined)]


def link_faults(root, pages=None):
    root = Path(root)
    faults = []
    for page in pages or all_pages(root):
        text = (root / page).read_text()
        for line, target in links(text):
            if re.match(r"[a-z]+:", target):
                continue
            path, _, name = target.partition("#")
            place = (root / page).parent / path if path else root / page
            relative = str(place.resolve().relative_to(root.resolve())) if path else page
            if not place.exists():
                faults.append(f"{page}:{line}: there is no {target}")
            elif name and place.suffix == ".md" and name not in anchors(place.read_text()):
                faults.append(f"{page}:{line}: {relative} has no heading #{name}")
    return faults


def word_faults(root):
    """Words of ours where a reader expects the field's."""
    root = Path(root)
    headers = [str(p.relative_to(root)) for g in PUBLIC_HEADERS for p in sorted(root.glob(g))]
    return [f"{name}:{number}: {match[0]!r} is a word of ours"
            for name in all_pages(root) + headers
            for number, line in enumerate((root / name).read_text().splitlines(), 1)
            for match in HOUSE_WORDS.finditer(line)]


def span_faults(root):
    """A code span ends on its line: what looks for commands and words looks at lines."""
    root = Path(root)
    return [f"{page}:{number}: a backtick without its partner"
            for page in all_pages(root)
            for number, line in split((root / page).read_text())[1]
            if "`" in without_spans(line)]


def index_faults(root):
    """docs/README.md leads to every page of docs/."""
    root = Path(root)
    told = {target.partition("#")[0] for _, target in links((root / "docs/README.md").read_text())}
    return [f"docs/README.md does not lead to {path.name}"
            for path in sorted((root / "docs").glob("*.md"))
            if path.name not in told | {"README.md"}]


def test_name_faults(root):
    """Every test that the architecture page names is there (X.* may also be the files of a class)."""
    root = Path(root)
    page = "docs/architecture.md"
    sources = "\n".join(p.read_text() for p in sorted((root / "tests").rglob("*.cpp")))
    told = set(re.findall(r"`([A-Z][A-Za-z0-9]+)\.([A-Z*][A-Za-z0-9*]*)`", (root / page).read_text()))
    files = {p.stem for room in ("src", "board", "capture", "tools", "program")
             for p in (root / room).rglob("*.h")}
    return [f"{page} names the test {suite}.{name}, which is not there"
            for suite, name in sorted(told)
            if not (name == "*" and suite in files) and
            not re.search(rf"TEST(_F|_P)?\({suite},\s*{name.rstrip('*')}", sources)]
