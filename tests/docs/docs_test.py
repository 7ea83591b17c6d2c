# SPDX-License-Identifier: Apache-2.0
"""The documentation, checked against the tree: the links in it lead somewhere, the code in it
compiles; and nothing of the interface is left out where all of it should stand.

usage: docs_test.py TREE C_COMPILER C++_COMPILER
"""

import re
import subprocess
import sys
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).parents[1] / "support"))
import pages  # noqa: E402

LIMIT = 60  # seconds after which something counts as not happening

TREE = Path(sys.argv[1])
COMPILERS = {
    "c": [sys.argv[2], "-std=c11"],
    "cpp": [sys.argv[3], "-std=c++17"],
}
FLAGS = ["-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Werror",
         f"-I{TREE}/api/include", f"-I{TREE}/session/include"]

PAGES = sorted([TREE / "README.md", *TREE.glob("docs/*.md"), *TREE.glob("examples/*.md")])


class LinksTest(unittest.TestCase):
    def test_links_lead_to_files_of_the_tree(self):
        for page in PAGES:
            for link in pages.links(page):
                with self.subTest(page=page.name, link=link):
                    self.assertTrue((page.parent / link).exists())

    def test_every_page_is_in_the_index(self):
        index = (TREE / "docs/README.md").read_text()
        for page in TREE.glob("docs/*.md"):
            if page.name != "README.md":
                with self.subTest(page=page.name):
                    self.assertIn(f"]({page.name})", index)


class FunctionsTest(unittest.TestCase):
    """Every function of the public header has its place where all are to be found."""

    def test_every_function_has_its_return_codes_and_is_demonstrated_tested_and_fuzzed(self):
        header = (TREE / "api/include/lum_sdf_sdk.h").read_text()
        functions = re.findall(r"^SDF_API long long (\w+)\(", header, re.M)
        self.assertEqual(len(functions), header.count("\nSDF_API "))
        codes = (TREE / "docs/return-codes.md").read_text()
        demo = (TREE / "examples/demo/demo.c").read_text()
        tested = (TREE / "tests/api/RequestTable.c").read_text()
        fuzzed = (TREE / "fuzz/ClientInStep.cpp").read_text()
        for function in functions:
            with self.subTest(function=function):
                self.assertTrue(re.search(rf"\n\|[^|]*`{function}`[^|]*\|", codes))
                self.assertTrue(re.search(rf"(RETURNS\([^;]*\b|ID_OF\(\s*){function}\(", demo))
                self.assertIn(f" {function}(", fuzzed)
                if function.startswith("sdf"):
                    self.assertIn(f" X({function}, ", tested)

    def test_every_function_of_the_session_is_fuzzed(self):
        functions = re.findall(r"^    (sdf\w+);", (TREE / "session/lum_sdf_session.map").read_text(), re.M)
        self.assertGreater(len(functions), 30)
        fuzzed = (TREE / "fuzz/Session.cpp").read_text()
        for function in functions:
            if function.endswith("Text"):  # only names a value
                continue
            with self.subTest(function=function):
                self.assertIn(f"{function}(", fuzzed)


class OptionsTest(unittest.TestCase):
    """Every option of the emulator stands in its pages."""

    def test_every_option_is_in_the_page_and_the_manual(self):
        source = (TREE / "tools/emulator/CommandLine.cpp").read_text()
        options = re.findall(r'add_(?:flag|option)\("--([\w-]+)"', source)
        self.assertEqual(len(options), len(re.findall(r"\badd_(?:flag|option)\(", source)))
        page = (TREE / "docs/emulator.md").read_text()
        manual = (TREE / "docs/lum_sdf_emulator.1").read_text()
        for option in options:
            with self.subTest(option=option):
                self.assertTrue(re.search(rf"^\| `--{option}\b", page, re.M))
                self.assertTrue(re.search(rf"^\.Op Fl \\-{option}( |$)", manual, re.M))
                self.assertTrue(re.search(rf"^\.It Fl \\-{option}( |$)", manual, re.M))


class CodeTest(unittest.TestCase):
    def test_code_compiles(self):
        compiled = 0
        for page in PAGES:
            for language, compiler in COMPILERS.items():
                for number, code in enumerate(pages.blocks(page, language), 1):
                    with self.subTest(page=page.name, language=language, number=number):
                        # What is copied from a page is not all used by that page.
                        command = [*compiler, *FLAGS, "-Wno-unused-function", "-fsyntax-only",
                                   "-x", language.replace("cpp", "c++"), "-"]
                        done = subprocess.run(command, input=code, text=True, timeout=LIMIT,
                                              stderr=subprocess.PIPE)
                        self.assertEqual(done.stderr, "")
                        self.assertEqual(done.returncode, 0)
                        compiled += 1
        self.assertGreater(compiled, 3)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
