# SPDX-License-Identifier: Apache-2.0
"""The documentation, checked against the tree: the links in it lead somewhere, the code in it
compiles, and what the first page for newcomers builds prints what that page says; and nothing of the
interface is left out where all of it should stand.

usage: docs_test.py TREE LIBRARY EMULATOR C_COMPILER C++_COMPILER
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

LIMIT = 60  # seconds after which something counts as not happening

TREE, LIBRARY, EMULATOR = (Path(argument) for argument in sys.argv[1:4])
COMPILERS = {
    "c": [sys.argv[4], "-std=c11"],
    "cpp": [sys.argv[5], "-std=c++17"],
}
FLAGS = ["-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Werror", f"-I{TREE}/api"]

PAGES = sorted([TREE / "README.md", *TREE.glob("docs/*.md"), *TREE.glob("examples/*.md")])


def blocks(page, language):
    """The fenced blocks of a language in a page."""
    return re.findall(rf"^```{language}\n(.*?)^```$", page.read_text(), re.M | re.S)


class LinksTest(unittest.TestCase):
    def test_links_lead_to_files_of_the_tree(self):
        for page in PAGES:
            for link in re.findall(r"\]\(([^)#]+)[^)]*\)", re.sub(r"\s+", " ", page.read_text())):
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

    def test_every_function_has_its_return_codes_and_is_demonstrated(self):
        header = (TREE / "api/lum_sdf_sdk.h").read_text()
        functions = re.findall(r"^SDF_API long long (\w+)\(", header, re.M)
        self.assertEqual(len(functions), header.count("\nSDF_API "))
        codes = (TREE / "docs/return-codes.md").read_text()
        demo = (TREE / "examples/demo/demo.c").read_text()
        for function in functions:
            with self.subTest(function=function):
                self.assertTrue(re.search(rf"\n\|[^|]*`{function}`[^|]*\|", codes))
                self.assertTrue(re.search(rf"(RETURNS\([^;]*\b|ID_OF\(\s*){function}\(", demo))


class CodeTest(unittest.TestCase):
    def test_code_compiles(self):
        compiled = 0
        for page in PAGES:
            for language, compiler in COMPILERS.items():
                for number, code in enumerate(blocks(page, language), 1):
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


class GettingStartedTest(unittest.TestCase):
    """Does what the page says, with the library of this build."""

    def setUp(self):
        page = TREE / "docs/getting-started.md"
        (self.program,) = blocks(page, "c")
        (self.project,) = blocks(page, "cmake")
        (self.printed,) = blocks(page, "text")
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.environment = {**os.environ, "LUM_BINDER_DIR": f"{self.folder}/binder"}

    def run_here(self, *command):
        done = subprocess.run(command, cwd=self.folder, env=self.environment, text=True,
                              timeout=LIMIT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual(done.returncode, 0, done.stdout)
        return done.stdout

    def start_service(self):
        service = subprocess.Popen([EMULATOR, "--until-eof"], env=self.environment, text=True,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.addCleanup(service.communicate)  # ends its input, and so the service
        self.assertRegex(service.stdout.readline(), "^ready: ")

    def test_hello(self):
        # As a tree that has been built lies.
        tree = self.folder / "tree"
        (tree / "build/gcc").mkdir(parents=True)
        (tree / "build/gcc/lib").symlink_to(LIBRARY.parent)
        (tree / "api").symlink_to(TREE / "api")
        (self.folder / "hello.c").write_text(self.program)
        (self.folder / "CMakeLists.txt").write_text(self.project)
        self.run_here("cmake", "-B", "build", f"-DLUM_SDF={tree}", f"-DCMAKE_C_COMPILER={sys.argv[4]}")
        self.run_here("cmake", "--build", "build")
        self.start_service()
        self.assertEqual(self.run_here("build/hello"), self.printed)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
