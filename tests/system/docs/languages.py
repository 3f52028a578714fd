"""Two pages in two languages: they show the same commands, blocks, keys, tables and links.

docs/zh/X.md is the translation of docs/X.md, README.zh.md that of README.md. The text between is the
translator's; what a reader copies or looks up must be the same, section by section:

- headings of the same levels, in the same order;
- fenced blocks, letter by letter;
- tables: columns, rows, and in each row the same words in backticks;
- in the text of a section the same words in backticks, in any order and number;
- links to the same pages (or to their translations).
"""

import re
from pathlib import Path

import pages


def translation_of(page):
    """The page that a translation belongs to, or None if it is none."""
    path = Path(page)
    if path.parent == Path("docs/zh"):
        return str(Path("docs", path.name))
    if path.parent == Path(".") and path.name.endswith(".zh.md"):
        return path.name.removesuffix(".zh.md") + ".md"
    return None


def target_name(page, target):
    """Where a link leads, the same for both languages; None for a link that does not count."""
    if re.match(r"[a-z]+:", target):
        return target
    path = target.partition("#")[0]
    if not path:
        return None  # within the page: its anchors are of its own language
    place = re.sub(r"[^/]+/\.\./", "", f"{Path(page).parent.as_posix()}/{path}".removeprefix("./"))
    while "/../" in place:
        place = re.sub(r"[^/]+/\.\./", "", place, count=1)
    return translation_of(place) or place


class Section:
    def __init__(self, line, level):
        self.line, self.level = line, level
        self.blocks, self.rows, self.words, self.links = [], [], set(), set()


def sections(page, text):
    """The page in pieces from heading to heading."""
    found = [Section(1, 0)]
    blocks, prose = pages.split(text)
    events = [(first, "block", (language, lines)) for first, language, lines in blocks]
    events += [(number, "line", line) for number, line in prose]
    events += [(number, "link", target) for number, target in pages.links(text)]
    kinds = {"line": 0, "block": 1, "link": 2}
    own = {page, translation_of(page)}
    for number, kind, what in sorted(events, key=lambda e: (e[0], kinds[e[1]])):
        if kind == "block":
            found[-1].blocks.append((number, *what))
        elif kind == "link":
            target = target_name(page, what)
            if target and target not in own:
                found[-1].links.add(target)
        elif re.match(r"#{1,6}\s", what):
            found.append(Section(number, len(what) - len(what.lstrip("#"))))
            found[-1].words |= set(pages.spans(what))
        elif what.startswith("|"):
            cells = re.split(r"(?<!\\)\|", what.strip().strip("|"))
            found[-1].rows.append((number, len(cells), sorted(pages.spans(what))))
        else:
            found[-1].words |= set(pages.spans(what))
    return found


def section_faults(page, one, other):
    """What the section `other` of the page has otherwise than `one` of the original."""
    faults = []
    where = f"{page}:{other.line}"
    if [b[1:] for b in one.blocks] != [b[1:] for b in other.blocks]:
        pairs = list(zip(one.blocks, other.blocks))
        at = next((b[0] for a, b in pairs if a[1:] != b[1:]), other.line)
        faults.append(f"{page}:{at}: the blocks of this section are not the original's "
                      f"({len(other.blocks)}, there {len(one.blocks)})")
    if len(one.rows) != len(other.rows):
        faults.append(f"{where}: {len(other.rows)} lines of tables, the original has {len(one.rows)}")
    for (_, columns, words), (line, own_columns, own_words) in zip(one.rows, other.rows):
        if columns != own_columns:
            faults.append(f"{page}:{line}: {own_columns} columns, the original has {columns}")
        if words != own_words:
            faults.append(f"{page}:{line}: the row has {own_words}, the original {words}")
    for name, mine, theirs in (("words", one.words, other.words), ("links", one.links, other.links)):
        if mine - theirs:
            faults.append(f"{where}: lacks the {name} {sorted(mine - theirs)}")
        if theirs - mine:
            faults.append(f"{where}: has the {name} {sorted(theirs - mine)}, which the original has not")
    return faults


def compare(original, original_text, page, text):
    """What the translation `page` has otherwise than the page `original`."""
    here, there = sections(original, original_text), sections(page, text)
    levels, own_levels = [s.level for s in here], [s.level for s in there]
    if levels != own_levels:
        at = next((i for i, (a, b) in enumerate(zip(levels, own_levels)) if a != b),
                  min(len(levels), len(own_levels)))
        line = there[at].line if at < len(there) else there[-1].line
        return [f"{page}:{line}: the headings are not the original's ({len(there) - 1}, there {len(here) - 1})"]
    return [fault for one, other in zip(here, there) for fault in section_faults(page, one, other)]


def faults(root, names=None):
    root = Path(root)
    found = []
    for page in names or pages.all_pages(root):
        original = translation_of(page)
        if original is None:
            continue
        if not (root / original).exists():
            found.append(f"{page} translates {original}, which is not there")
            continue
        found += compare(original, (root / original).read_text(), page, (root / page).read_text())
    return found
