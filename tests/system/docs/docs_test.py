#!/usr/bin/env python3
"""The checks of the pages find what they look for."""

import sys
import tempfile
import textwrap
import unittest
from pathlib import Path

import commands
import configs
import formats
import languages
import messages
import pages
import references
import samples


def tree(files):
    """A directory with these files; the caller cleans it up."""
    place = tempfile.TemporaryDirectory()
    for name, text in files.items():
        path = Path(place.name, name)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(textwrap.dedent(text))
        if text.startswith("#!"):
            path.chmod(0o755)
    return place


class Pages(unittest.TestCase):
    def test_an_anchor_is_the_headings_as_github_makes_it(self):
        self.assertEqual(pages.anchor("`config:L5_DSTMAC` as the sixth item"), "configl5_dstmac-as-the-sixth-item")
        self.assertEqual(pages.anchor("1. Start, then wait"), "1-start-then-wait")
        self.assertEqual(pages.anchor("配置文件 config"), "配置文件-config")
        self.assertEqual(pages.anchors("# A\n## B\n## B\n```\n# no\n```\n"), {"a", "b", "b-1"})

    def test_links_lead_to_files_and_headings(self):
        with tree({"README.md": "[a](docs/a.md) [b](docs/none.md) [c](docs/a.md#two)\n[d\ne](docs/a.md#three) "
                                "`[f](x)` [g](https://h) [h](#i)\n```\n[j](k)\n```\n",
                   "docs/a.md": "# One\n## Two\n"}) as root:
            self.assertEqual(pages.link_faults(root), [
                "README.md:1: there is no docs/none.md", "README.md:3: docs/a.md has no heading #three",
                "README.md:3: README.md has no heading #i"])

    def test_house_words(self):
        with tree({"README.md": "The road of a message.\nA broad floorplan.\n", "include/a.h": "// what is going on\n"}) as root:
            self.assertEqual([f.split(": ", 1)[0] for f in pages.word_faults(root)], ["README.md:1", "include/a.h:1"])

    def test_a_span_over_a_line_end(self):
        with tree({"README.md": "a `b\nc` d\n`` e ` f ``\n"}) as root:
            self.assertEqual(len(pages.span_faults(root)), 2)

    def test_the_index_leads_to_every_page(self):
        with tree({"docs/README.md": "[a](a.md)\n", "docs/a.md": "", "docs/b.md": ""}) as root:
            self.assertEqual(pages.index_faults(root), ["docs/README.md does not lead to b.md"])

    def test_tests_that_are_named(self):
        with tree({"docs/architecture.md": "`Suite.One` `Suite.Two` `Suite.*` `Other.*` `Class.*`\n",
                   "src/Class.h": "", "tests/a.cpp": "TEST_F(Suite, One) {}\n"}) as root:
            self.assertEqual(pages.test_name_faults(root), [
                "docs/architecture.md names the test Other.*, which is not there",
                "docs/architecture.md names the test Suite.Two, which is not there"])


class Messages(unittest.TestCase):
    SOURCE = '''
        // LOG_INFO("in a comment %u");
        LOG_ERROR("Could not "
                  "open %s, errmsg:%s.", a, b);
        LOG_INFO("Over");
        LOG_INFO("%s", text);
        const char* text = "a text of a table";
        LOG_WARN_IN_SIGNAL("Received signal ", sig, " !!");
        puts("single");
        Run("lspci | grep Enyx");
    '''

    def test_the_texts_of_a_source(self):
        self.assertEqual(messages.texts_of(self.SOURCE), {
            "Could not open <>, errmsg:<>.": "ERROR", "Over": "INFO", "a text of a table": None,
            "Received signal <> !!": "WARN"})

    def test_page_and_sources_are_compared_both_ways(self):
        page = ("| line | level | harmless | what |\n|---|---|---|---|\n"
                "| `Could not open <file>, errmsg:<reason>.` | WARN | no | x |\n"
                "| `Gone` | INFO | yes | x |\n| `a text of a table` | INFO | yes | x |\n"
                "| `Received signal <n> !!` | WARN | yes | x |\n")
        with tree({"src/a.cpp": self.SOURCE, messages.PAGE: page}) as root:
            self.assertEqual(messages.differences(root), [
                f"{messages.PAGE} has no entry for: Over",
                f"{messages.PAGE} has an entry that nothing in src/ prints: Gone",
                f"{messages.PAGE} says WARN, src/ ERROR: Could not open <>, errmsg:<>."])


class Samples(unittest.TestCase):
    def test_a_piece_compiles_or_is_a_fault(self):
        page = "```cpp\nint A() { return 1; }\n```\n```cpp\nint B() { return x; }\n```\n```cpp\nauto c = [](auto d) { return d; };\n```\n"
        with tree({"README.md": page}) as root:
            found = samples.faults(root)
        self.assertEqual([f.split(": ", 1)[0] for f in found], ["README.md:5", "README.md:8"])

    def test_a_copy_of_an_example_is_the_example(self):
        with tree({"README.md": "```cpp\n// One\nint a = 2;\n```\n", "examples/one.cpp": "// One\nint a = 1;\n"}) as root:
            self.assertEqual(samples.faults(root), ["README.md:2: this is not examples/one.cpp any more"])


class Commands(unittest.TestCase):
    FILES = {
        "CMakePresets.json": '{"version": 6, "configurePresets": [{"name": "release"}]}',
        "scripts/go.sh": "#!/bin/sh\n# --quick\n", "scripts/plain.sh": "", "examples/a.ini": "",
        "bin/zce-board": "#!/bin/sh\n[ \"$1\" = ctl ] && echo --json || echo '--bus --products'\n",
    }

    def faults_of(self, line):
        with tree(self.FILES) as root:
            return commands.Checker(root, Path(root, "bin")).line_faults(line)

    def test_programs_and_options(self):
        self.assertEqual(self.faults_of("TZ=UTC bin/zce-board --bus 0 --products all | head -1 # --what"), [])
        self.assertEqual(self.faults_of("zce-board --seed 1"), ["zce-board has no option --seed"])
        self.assertEqual(self.faults_of("zce-board ctl status --json && zce-board --json"),
                         ["zce-board has no option --json"])
        self.assertEqual(self.faults_of("zce-bored --bus 0"), ["there is no program zce-bored"])
        self.assertEqual(self.faults_of("zce-board --bus 0 -- zce-board --feed"), ["zce-board has no option --feed"])
        self.assertEqual(self.faults_of("no-such-command"), ["there is no command no-such-command"])
        self.assertEqual(self.faults_of("x=$(( ($(date +%s) - 1) / 2 )):$((x % 2)) date -u"), [])
        self.assertEqual(self.faults_of("date -d $(zce-board --when)"), ["zce-board has no option --when"])

    def test_scripts_files_and_presets(self):
        self.assertEqual(self.faults_of("./scripts/go.sh --quick"), [])
        self.assertEqual(self.faults_of("./scripts/go.sh --slow"), ["scripts/go.sh has no option --slow"])
        self.assertEqual(self.faults_of("scripts/plain.sh"), ["scripts/plain.sh is not executable"])
        self.assertEqual(self.faults_of("./scripts/none.sh"), ["there is no scripts/none.sh"])
        self.assertEqual(self.faults_of("cat ../../examples/a.ini examples/b.ini > c"), ["there is no examples/b.ini"])
        self.assertEqual(self.faults_of("cat /usr/share/doc/VelaZceMdApi/examples/c.ini"), ["there is no examples/c.ini"])
        self.assertEqual(self.faults_of("cmake --preset fast"), ["there is no preset fast"])
        self.assertEqual(self.faults_of("echo 'open"), ["no line of shell: No closing quotation"])

    def test_what_a_page_shows(self):
        page = "```sh\nzce-board \\\n  --x # c\n```\n    ./scripts/a.sh --y\n`zce-board --z` `zce-board: gone`\n```text\n$ zce-board --w\n-- no\n```\n"
        with tree({**self.FILES, "README.md": page}) as root:
            self.assertEqual(commands.faults(root, Path(root, "bin")), [
                "README.md:2: zce-board has no option --x", "README.md:8: zce-board has no option --w",
                "README.md:5: there is no scripts/a.sh", "README.md:6: zce-board has no option --z"])

    def test_marked_blocks_are_run(self):
        page = ("<!-- runnable -->\n```sh\ntest \"$HOME\" = \"$PWD\"\nzce-board\n```\n"
                "<!-- runnable -->\n```sh\nfalse\ntrue\n```\n```sh\nexit 3\n```\n")
        with tree({**self.FILES, "README.md": page}) as root:
            self.assertEqual(commands.run_faults(root, Path(root, "bin")), ["README.md:8: a runnable block fails: failed"])


class Configs(unittest.TestCase):
    def test_what_zce_check_says_of_a_file(self):
        page = ("```ini\n[config]\nbad = 1\n```\n```ini\n[channel0]\ninsts = SR\n```\n"
                "```ini\n[config]\n...\n```\n```ini\n[config]\ncpucore = 9\n```\n")
        program = ("#!/bin/sh\ngrep -q bad $1 && echo \"$1:2: error: bad (unknown)\" && exit 2\n"
                   "grep -q cpucore $1 && echo \"$1:2: error: (cpu-absent)\" && exit 2\n"
                   "grep -q xilinx0:0 $1 || exit 99\n")
        with tree({"README.md": page, "bin/zce-check": program}) as root:
            self.assertEqual(configs.faults(root, Path(root, "bin")),
                             ["README.md:2: zce-check: sample.ini:2: error: bad (unknown)"])


class Formats(unittest.TestCase):
    def test_registers(self):
        page = "## Registers\n| `0x10` | x |\n| `0x12`, `0x13` | x |\nHow an address becomes a value\n"
        header = "constexpr unsigned long ZCE_REG_A = 0x10; // 0x99\nconstexpr T ZCE_REG_B = {0x12,\n 0x14};\n"
        self.assertEqual(formats.register_faults(page, header), [
            f"{formats.PAGE} lacks the register 0x14",
            f"{formats.PAGE} has a register 0x13, which {formats.REGISTERS} has not"])

    def test_records(self):
        header = "typedef struct ZceA_t {\n  uint32_t uiB; /**<  0  b */\n  char szC[SIZE]; /*  4  c */\n} ZceA_t;\n"
        page = "The record `ZceA_t`:\n\n| 0 | 4 | `uiB` | b |\n| 4 | 4 | `szC` | c |\n"
        self.assertEqual(formats.struct_faults(page, header), [])
        self.assertEqual(len(formats.struct_faults(page.replace("| 4 | 4 ", "| 5 | 4 "), header)), 1)
        self.assertEqual(len(formats.struct_faults(page.replace("`uiB`", "`uiD`"), header)), 1)


class Languages(unittest.TestCase):
    ONE = textwrap.dedent('''\
        # Title
        Take `a` and `b`, see [c](c.md#part).
        ## Table
        | key | meaning |
        |---|---|
        | `k` | uses `v` |
        | `l` | nothing |
        ```sh
        zce-board --bus 0
        ```
        ''')
    OTHER = ONE.replace("Title", "标题").replace("Take `a` and `b`, see", "先 `b` 后 `a`，见").replace(
        "(c.md#part)", "(../c.md#部分)").replace("## Table", "## 表").replace("uses", "用").replace(
        "nothing", "无").replace("meaning", "含义")

    def faults_of(self, old, new):
        self.assertIn(old, self.OTHER)
        return languages.compare("docs/x.md", self.ONE, "docs/zh/x.md", self.OTHER.replace(old, new))

    def test_a_translation_is_accepted(self):
        self.assertEqual(self.faults_of("先", "先"), [])

    def test_what_is_not_the_same(self):
        for old, new, fault in (
                ("zce-board --bus 0", "zce-board --bus 1", "docs/zh/x.md:9: the blocks of this section"),
                ("```sh\nzce-board --bus 0\n```\n", "", "docs/zh/x.md:3: the blocks of this section"),
                ("| `l` | 无 |\n", "", "docs/zh/x.md:3: 3 lines of tables, the original has 4"),
                ("`v`", "`w`", "docs/zh/x.md:6: the row has ['k', 'w'], the original ['k', 'v']"),
                ("| `k` | 用 `v` |", "| `k` | 用 | `v` |", "docs/zh/x.md:6: 3 columns, the original has 2"),
                ("`a`", "a", "docs/zh/x.md:1: lacks the words ['a']"),
                ("`a`", "`a` `z`", "docs/zh/x.md:1: has the words ['z'], which the original has not"),
                ("../c.md", "../d.md", "docs/zh/x.md:1: lacks the links ['docs/c.md']"),
                ("## 表", "### 表", "docs/zh/x.md:3: the headings are not the original's"),
                ("## 表\n", "", "docs/zh/x.md:1: the headings are not the original's")):
            with self.subTest(old=old, new=new):
                found = self.faults_of(old, new)
                self.assertTrue(any(f.startswith(fault) for f in found), found)

    def test_which_page_belongs_to_which(self):
        self.assertEqual(languages.translation_of("docs/zh/operations.md"), "docs/operations.md")
        self.assertEqual(languages.translation_of("README.zh.md"), "README.md")
        self.assertIsNone(languages.translation_of("docs/operations.md"))
        self.assertEqual(languages.target_name("README.zh.md", "docs/zh/a.md#b"), "docs/a.md")
        self.assertEqual(languages.target_name("docs/zh/b.md", "a.md"), "docs/a.md")
        self.assertEqual(languages.target_name("docs/zh/b.md", "../../examples/c.ini"), "examples/c.ini")
        self.assertEqual(languages.target_name("docs/b.md", "../README.md"), "README.md")
        with tree({"docs/zh/y.md": ""}) as root:
            self.assertEqual(languages.faults(root), ["docs/zh/y.md translates docs/y.md, which is not there"])


class References(unittest.TestCase):
    def test_an_undocumented_function(self):
        with tree({"a.h": "/// @file\n/// A header.\n\n/// Told.\nint A();\nint B();\n"}) as root:
            settings = Path(root, "Doxyfile")
            settings.write_text(f"INPUT = {root}/a.h\nQUIET = YES\nGENERATE_LATEX = NO\nHAVE_DOT = NO\n")
            found = references.doxygen_faults(settings)
            self.assertEqual(len(found), 1, found)
            self.assertIn("Member B()", found[0])


if __name__ == "__main__":
    sys.dont_write_bytecode = True
    unittest.main()
