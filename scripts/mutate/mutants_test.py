"""What is changed in a line, and what is not."""

import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))

from mutants import mutants_of  # noqa: E402


def changes(line: str, path: str = "src/a.cpp") -> list[str]:
    """The line as each change leaves it."""
    source = f"void F() {{\n    {line}\n}}\n"
    return [m.apply(source).split("\n", 1)[1][: -len("}\n\n")].strip()
            for m in mutants_of(path, source)]


class Changes(unittest.TestCase):
    def test_operators_between_blanks(self):
        self.assertEqual(changes("if (a == b && c << d) {"),
                         ["if (a != b && c << d) {", "if (a == b || c << d) {",
                          "if (a == b && c >> d) {"])
        self.assertEqual(changes("return !a;"), ["return a;"])
        self.assertEqual(changes("while (i-- > n) {"), ["while (i++ > n) {", "while (i-- >= n) {"])

    def test_brackets_of_templates_references_and_destructors_stay(self):
        self.assertEqual(changes("const std::map<A, B>& x = y;"), [])
        self.assertEqual(changes("for (auto&& x : y) {"), [])
        self.assertEqual(changes("A::~A() {"), [])

    def test_constants_up_and_down(self):
        self.assertEqual(changes("return 7U;"), ["return 6U;", "return 8U;"])
        self.assertEqual(changes("return 0x10;"), ["return 0x11;", "return 0xf;"])
        self.assertEqual(changes("return 0755;"), ["return 0754;", "return 0756;"])
        self.assertEqual(changes("return 0;"), ["return 1;"])
        self.assertEqual(changes("return 1'000;"), ["return 1001;", "return 999;"])
        self.assertEqual(changes("return true;"), ["return false;"])

    def test_texts(self):
        self.assertEqual(changes('const A x = "a %s \\"b";'), ['const A x = "~a %s \\"b";'])
        self.assertEqual(changes("return ',';"), ["return '~';"])

    def test_statements_of_one_line(self):
        self.assertEqual(changes("Do(a);"), [";"])
        self.assertEqual(changes("a.b->c = d;"), [";"])
        self.assertEqual(changes("break;"), [";"])
        self.assertEqual(changes("const int a = b;"), [])
        self.assertEqual(changes("return Do(a);"), [])

    def test_comments_and_the_preprocessor_stay(self):
        self.assertEqual(changes("// a == 1"), [])
        self.assertEqual(changes("#define A 1"), [])
        self.assertEqual(changes('static_assert(A == 1, "b");'), [])

    def test_declarations_in_a_class_stay(self):
        self.assertEqual(changes("Do(a);", "src/a.h"), [])
        self.assertEqual(changes("A(const A&) = delete;", "src/a.h"), [])

    def test_a_change_is_known_by_its_line_wherever_that_stands(self):
        one, = mutants_of("src/a.cpp", "void F() {\n    return !a;\n}\n")
        self.assertEqual(one.line, 2)
        self.assertEqual(one.key(), "src/a.cpp | void F() { return !a; | ! -> (nothing)")


if __name__ == "__main__":
    unittest.main()
