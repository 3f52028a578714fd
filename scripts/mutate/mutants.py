"""The changes that a mutation run makes: one at a time, each in a line of code.

Written for this tree's formatting: clang-format puts blanks round binary operators and none round
the brackets of a template, so that "a < b" is a comparison and "vector<b>" is not.
"""

import re
from dataclasses import dataclass

TOKEN = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
      |(?P<string>(?:u8|[uUL])?R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)"|"(?:\\.|[^"\\\n])*")
      |(?P<char>'(?:\\.|[^'\\\n])*')
      |(?P<number>(?:0[xX][0-9a-fA-F']+|\d[\d']*(?:\.\d+)?)(?:[uUlLzZ]*)\b)
      |(?P<word>[A-Za-z_]\w*)
      |(?P<op><<=|>>=|<=>|->\*|\+\+|--|->|&&|\|\||<<|>>|[=!<>+\-*/%&|^]=|::|.)""",
    re.VERBOSE | re.DOTALL,
)

# Between blanks. What an operator becomes.
BINARY = {
    "==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">",
    "+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "&&": "||", "||": "&&", "|": "&", "&": "|",
    "<<": ">>", ">>": "<<", "+=": "-=", "-=": "+=", "|=": "&=", "&=": "|=", "*=": "/=", "/=": "*=",
}
STEP = {"++": "--", "--": "++"}
WORDS = {"true": "false", "false": "true"}
# A line that begins so is no statement that could be left out: a declaration, or the end of one.
KEPT = re.compile(
    r"(return|using|const|constexpr|static|auto|extern|struct|class|enum|template|typename|delete|"
    r"public|private|protected|friend|virtual|explicit|case|default|else|namespace|goto|inline|"
    r"unsigned|int|char|bool|long|short|double|float|volatile)\b"
)
STATEMENT = re.compile(r"(\+\+|--|\*|\(|::)?[A-Za-z_]\w*(?:(?:::|\.|->)~?\w+|\[[^;]*?\])*"
                       r"(\(| ?[-+*/|&^%]?= |\+\+|--|;)")


@dataclass(frozen=True)
class Mutant:
    """One change: the bytes `begin` to `end` of the file become `new`."""

    path: str
    line: int  # from 1
    begin: int
    end: int
    old: str
    new: str
    kind: str
    text: str  # the line, without its indent; a short one behind the line before it

    def apply(self, source: str) -> str:
        return source[: self.begin] + self.new + source[self.end :]

    def key(self) -> str:
        """Names the change wherever the line stands."""
        return f"{self.path} | {self.text} | {self.old or '(nothing)'} -> {self.new or '(nothing)'}"

    def __str__(self) -> str:
        return f"{self.path}:{self.line}: {self.old!r} -> {self.new!r} in: {self.text}"


def _number(text: str) -> list[str]:
    """The constant one up and one down, in its own base and with its suffix."""
    body = text.rstrip("uUlLzZ")
    suffix = text[len(body):]
    digits = body.replace("'", "")
    if "." in digits:
        return [f"{float(digits) + 1}{suffix}"]
    if digits.lower().startswith("0x"):
        base, form = 16, "0x{:x}"
    elif digits.startswith("0") and digits != "0":
        base, form = 8, "0{:o}"
    else:
        base, form = 10, "{}"
    value = int(digits, base)
    values = [value + 1] + ([value - 1] if value > 0 else [])
    return [form.format(v) + suffix for v in values]


def _skipped_lines(source: str) -> set[int]:
    """Lines in which nothing is changed: the preprocessor's, static_assert, names of types."""
    skipped = set()
    inside = False
    for number, line in enumerate(source.split("\n"), 1):
        code = line.strip()
        if inside or code.startswith("#"):
            skipped.add(number)
            inside = code.endswith("\\")
        elif code.startswith(("using ", "template")) or re.search(r"~\w+\(\)|= (delete|default);", code):
            skipped.add(number)
    for match in re.finditer(r"static_assert\(.*?\);", source, re.DOTALL):
        first = source.count("\n", 0, match.start()) + 1
        skipped.update(range(first, first + match.group().count("\n") + 1))
    return skipped


def _token_changes(kind: str, text: str, before: str, after: str) -> list[tuple[str, str]]:
    """(new text, name of the change) for one token between the characters before and after it."""
    if kind == "string":
        if text.endswith('R"') or 'R"' in text[:4]:
            return []
        quote = text.index('"') + 1
        return [(text[:quote] + "~" + text[quote:], "text")]
    if kind == "number":
        return [(new, "constant") for new in _number(text)]
    if kind == "word" and text in WORDS:
        return [(WORDS[text], "true/false")]
    if kind == "char" and len(text) == 3:
        return [("'" + ("~" if text[1] != "~" else "^") + "'", "text")]
    if kind != "op":
        return []
    if text in BINARY and before in " \n" and after in " \n":
        return [(BINARY[text], "operator")]
    if text in STEP:
        return [(STEP[text], "operator")]
    if text in "!~" and (after.isalnum() or after in "_(") and before in " (!~[,\n":
        return [("", "operator")]
    return []


def _text(lines: list[str], number: int) -> str:
    code = lines[number - 1].strip()
    return code if len(code) > 10 or number < 2 else f"{lines[number - 2].strip()} {code}"


def _statements(path: str, source: str, skipped: set[int]) -> list[Mutant]:
    found = []
    begin = 0
    previous = "{"
    indent = " " * (8 if path.endswith(".h") else 4)  # in a class there are declarations alone
    lines = source.split("\n")
    for number, line in enumerate(lines, 1):
        code = line.strip()
        whole = previous.endswith((";", "{", "}", ":")) or previous.startswith("//")
        if (
            number not in skipped
            and whole
            and line.startswith(indent)
            and code.endswith(";")
            and (code in ("break;", "continue;") or (STATEMENT.match(code) and not KEPT.match(code)))
        ):
            start = begin + len(line) - len(line.lstrip())
            end = begin + len(line.rstrip())
            found.append(Mutant(path, number, start, end, code, ";", "statement",
                                _text(lines, number)))
        if code:
            previous = code
        begin += len(line) + 1
    return found


def mutants_of(path: str, source: str) -> list[Mutant]:
    """All changes of a file, by their place."""
    skipped = _skipped_lines(source)
    lines = source.split("\n")
    found = _statements(path, source, skipped)
    for match in TOKEN.finditer(source):
        kind, text = match.lastgroup or "op", match.group()
        kind = "string" if match.group("string") is not None else kind
        number = source.count("\n", 0, match.start()) + 1
        if kind == "comment" or text.isspace():
            continue
        if number not in skipped:
            before = source[match.start() - 1] if match.start() else "\n"
            after = source[match.end()] if match.end() < len(source) else "\n"
            for new, name in _token_changes(kind, text, before, after):
                found.append(Mutant(path, number, match.start(), match.end(), text, new, name,
                                    _text(lines, number)))
    return sorted(found, key=lambda m: (m.begin, m.end, m.new))
