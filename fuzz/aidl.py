#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Files of any content for the interface compiler: it makes code and ends with status 0, or makes nothing,
says what is wrong with file, line and column, and ends with status 1.

    aidl.py SECONDS     new files for so long
    aidl.py --brief     the same few hundred each time

What breaks it is written to build/fuzz/findings/aidl. fuzz/corpus/aidl has what did.
"""

import contextlib
import io
import pathlib
import re
import shutil
import sys
import tempfile
import time

import hypothesis
from hypothesis import strategies
from hypothesis.extra.lark import from_lark

sys.dont_write_bytecode = True

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tools" / "aidl"))

import aidlc  # noqa: E402
from lumaidl import parser  # noqa: E402

hypothesis.configuration.set_hypothesis_home_dir(ROOT / "build" / "fuzz" / "hypothesis")
FINDING = ROOT / "build" / "fuzz" / "findings" / "aidl" / "finding.aidl"
PACKAGE = pathlib.Path("vendor/orn/data/lumservice")
TREE = sorted((ROOT / "aidl" / PACKAGE).glob("*.aidl"))
WHERE = re.compile(r"[^:]+\.aidl:[1-9][0-9]*:[1-9][0-9]*: \S")


class Workspace:
    """A directory with the tree's files, one of which is another one while it is compiled."""

    def __init__(self, directory):
        self._root = pathlib.Path(directory)
        self._package = self._root / "in" / PACKAGE
        self._package.mkdir(parents=True)
        for file in TREE:
            (self._package / file.name).symlink_to(file)

    def check(self, name, content):
        """Compiles the file in the place of the tree's one of this name, and checks what comes of it."""
        path = self._package / name
        path.unlink(missing_ok=True)
        path.write_bytes(content)
        try:
            self._compile(path)
        finally:
            path.unlink()
            for file in TREE:
                if file.name == name:
                    path.symlink_to(file)
            shutil.rmtree(self._root / "out", ignore_errors=True)

    def _compile(self, path):
        out = self._root / "out"
        said = io.StringIO()
        with contextlib.redirect_stderr(said):
            status = aidlc.main(["--lang=ndk", "--structured", "-I", str(self._root / "in"),
                                 "-o", str(out), "-h", str(out), str(path)])
        made = [file for file in out.rglob("*") if file.suffix in (".h", ".cpp")]
        errors = said.getvalue().splitlines()
        if status == 0:
            assert made and not errors, "nothing made, or something said"
        else:
            assert status == 1 and not made, f"status {status}, {len(made)} files"
            assert errors, "no error"
            for error in errors:
                assert WHERE.match(error), f"no place in: {error}"


def check(workspace, name, content):
    global files
    files += 1
    try:
        workspace.check(name, content)
    except (Exception, SystemExit):
        # Hypothesis tries ever smaller ones; the smallest comes last.
        FINDING.parent.mkdir(parents=True, exist_ok=True)
        FINDING.write_bytes(content)
        raise


NAMES = strategies.sampled_from([path.name for path in TREE] + ["New.aidl"])
WORDS = ["package", "import", "interface", "oneway", "enum", "parcelable", "union", "in", "out", "int", "long",
         "byte[]", "boolean", "String", "IBinder", "[]", "[3]", "@Backing(type=\"int\")", "@nullable", "@utf8InCpp",
         "{", "}", "(", ")", ";", ",", "=", "0", "-1", "99999999999999999999", "0x80000000", "\"", "/*", "//",
         "PlmnId", "LumSdkType", "vendor.orn.data.lumservice.Status", "\u00fc", "\x00", "\r\n", "\ufeff", "List<int>"]
TOKEN = re.compile(r"\w+|\s+|.", re.DOTALL)


def encoded(text):
    return text.encode("utf-8", "surrogatepass")


@strategies.composite
def changed(draw):
    """One of the tree's files, of which some words are removed, doubled, moved or replaced."""
    path = draw(strategies.sampled_from(TREE))
    words = TOKEN.findall(path.read_text(encoding="utf-8"))
    for _ in range(draw(strategies.integers(1, 4))):
        at = draw(strategies.integers(0, len(words)))
        end = min(len(words), at + draw(strategies.integers(0, 6)))
        words[at:end] = draw(strategies.one_of(
            strategies.just([]), strategies.just(words[at:end] * 2), strategies.just(words[end:at:-1]),
            strategies.lists(strategies.sampled_from(WORDS), max_size=3),
            strategies.text(max_size=4).map(lambda text: [text])))
    return path.name, encoded("".join(words))


FILES = {
    "changed files": changed(),
    "by the grammar": strategies.tuples(
        NAMES, from_lark(parser._GRAMMAR, start="document").map(encoded)),
    "of words": strategies.tuples(
        NAMES, strategies.lists(strategies.sampled_from(WORDS)).map(
            lambda words: encoded(" ".join(words)))),
    "bytes": strategies.tuples(NAMES, strategies.binary()),
}


def try_files(workspace, examples, seed):
    """Some files of each kind; the same each time if there is no seed."""
    for made in FILES.values():
        @hypothesis.settings(max_examples=examples, derandomize=seed is None, deadline=None, database=None,
                             suppress_health_check=list(hypothesis.HealthCheck), print_blob=False)
        @hypothesis.given(made)
        def test(file):
            check(workspace, *file)

        (test if seed is None else hypothesis.seed(seed)(test))()


def main(mode, workspace):
    global files
    files = 0
    began = time.monotonic()
    for path in sorted((ROOT / "fuzz" / "corpus" / "aidl").glob("*.aidl")):
        check(workspace, path.name, path.read_bytes())
    if mode == "--brief":
        try_files(workspace, 100, None)
    else:
        seed = int(time.time())
        while time.monotonic() - began < int(mode):
            seed += 1
            try_files(workspace, 250, seed)
            print(f"{files} files, {files / (time.monotonic() - began):.0f} a second", flush=True)
    print(f"Done: {files} files in {time.monotonic() - began:.0f} seconds")


if __name__ == "__main__":
    try:
        with tempfile.TemporaryDirectory() as directory:
            main(sys.argv[1], Workspace(directory))
    except (Exception, SystemExit):
        print(f"\n==> fuzz target aidl has found something: {FINDING}\n"
              "    to keep it, and repeat it each time: put it in fuzz/corpus/aidl under the name of its type",
              file=sys.stderr)
        raise
