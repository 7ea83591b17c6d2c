# SPDX-License-Identifier: Apache-2.0
"""Reverses what the library does, one behaviour at a time, and says which test notices.

Usage: mutate.py [--list] [PATTERN...]

A mutation is a block of lines in one of the .txt files beside this script:

    name of the behaviour that it reverses
    test PROGRAM.SUITE.CASE     the test that is expected to fail
    file PATH                   the source that the edits below change
    - old text                  must be found exactly once; all white space counts as equal
    + new text                  what to put there; without it the old text is deleted

A "-" after a "+" begins another edit, and a block may have several files. A line "programs NAME..."
in front of the first block names the test programs that are run when the expected test passes.
Lines that begin with "#" are comments.

Works on a copy of the tree, in build/mutate, with a build of its own. Runs all mutations, or those
whose name, file or test contains one of the PATTERNs. The exit status is 1 when a mutation
survives, does not compile or does not apply.
"""

import argparse
import concurrent.futures
import filecmp
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile

SOURCE = pathlib.Path(__file__).resolve().parents[2]
TREE = SOURCE / "build/mutate/tree"
BUILD = SOURCE / "build/mutate/build"
TEST_SECONDS = 60
# A mutation may take memory, or write, without end. What it uses of freed memory is to show.
TEST_COMMAND = ["env", "MALLOC_PERTURB_=165",
                "prlimit", f"--as={8 << 30}", f"--fsize={1 << 28}", "--core=0"]
JOBS = os.cpu_count() or 1
OPTIONS = [
    "-G", "Ninja", "-DCMAKE_BUILD_TYPE=",
    # A warning, as of an argument that is no longer used, is no verdict on the tests.
    "-DCMAKE_C_FLAGS=-O0 -w", "-DCMAKE_CXX_FLAGS=-O0 -w", "-DLUM_TOOL_OPTIONS=-O0",
    "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold", "-DCMAKE_SHARED_LINKER_FLAGS=-fuse-ld=gold",
    "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST",
]


class Mutation:
    def __init__(self, name, programs):
        self.name = name
        self.programs = list(programs)
        self.test = ""
        self.edits = []  # [path, old text, new text]

    def read(self, line, where):
        word, _, text = line.partition(" ")
        if word == "test" and not self.test:
            self.test = text
            program = text.split(".")[0]
            self.programs = [program] + [other for other in self.programs if other != program]
        elif word == "file":
            self.edits.append([text, "", ""])
        elif word in ("-", "+") and self.edits:
            if word == "-" and self.edits[-1][2]:
                self.edits.append([self.edits[-1][0], "", ""])
            self.edits[-1]["-+".index(word) + 1] += text + "\n"
        else:
            sys.exit(f"mutate: {where}: not understood: {line}")

    def matches(self, patterns):
        text = " ".join([self.name, self.test] + [path for path, _, _ in self.edits]).lower()
        return not patterns or any(pattern.lower() in text for pattern in patterns)

    def changed(self, tree):
        """The changed files' new contents by path; None when the mutation does not apply."""
        contents = {}
        for path, old, new in self.edits:
            if path not in contents:
                source = tree / path
                contents[path] = source.read_text() if source.is_file() else ""
            pattern = r"\s+".join(re.escape(word) for word in old.split())
            contents[path], count = re.subn(pattern, lambda _, new=new: new.strip(), contents[path])
            if not old.strip() or count != 1:
                return None
        return contents


def read_mutations(path):
    mutations, programs, block = [], [], None
    for number, line in enumerate(path.read_text().splitlines(), 1):
        if line.startswith("#"):
            continue
        if not line.strip():
            block = None
        elif block is not None:
            block.read(line, f"{path.name}:{number}")
        elif line.startswith("programs "):
            programs = line.split()[1:]
        else:
            block = Mutation(line, programs)
            mutations.append(block)
    return mutations


def copy_tree():
    """Brings the copy up to date; what has not changed keeps its time."""
    command = ["git", "-c", f"safe.directory={SOURCE}", "ls-files", "-zco", "--exclude-standard"]
    listed = subprocess.run(command, cwd=SOURCE, check=True, capture_output=True, text=True).stdout
    names = {name for name in listed.split("\0") if name and (SOURCE / name).is_file()}
    for name in names:
        copy = TREE / name
        if not copy.is_file() or not filecmp.cmp(SOURCE / name, copy, shallow=False):
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(SOURCE / name, copy)
    for copy in [path for path in TREE.rglob("*") if path.is_file()]:
        if str(copy.relative_to(TREE)) not in names:
            copy.unlink()


def build(programs):
    """None, or what the compiler says."""
    command = ["cmake", "--build", BUILD, "-j", str(JOBS), "--target", *programs]
    run = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    return None if run.returncode == 0 else "\n".join(run.stdout.splitlines()[-20:])


def list_tests():
    """The tests of all programs that are built, by name."""
    command = ["ctest", "--test-dir", BUILD, "--show-only=json-v1"]
    shown = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout
    return {test["name"]: test for test in json.loads(shown)["tests"] if "command" in test}


def run_test(test):
    """None, or which case of the test failed and how."""
    with tempfile.TemporaryFile() as output:
        process = subprocess.Popen(
            TEST_COMMAND + test["command"], cwd=BUILD, stdin=subprocess.DEVNULL, stdout=output,
            stderr=subprocess.STDOUT, start_new_session=True)
        try:
            result = "caught" if process.wait(TEST_SECONDS) else None
        except subprocess.TimeoutExpired:
            result = "hangs"
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)  # and what the test has started
            except ProcessLookupError:
                pass
            process.wait()
        output.seek(0)
        return result and (case_name(test["name"], output.read().decode(errors="replace")), result)


def case_name(name, output):
    """The first case that failed, or the one that never ended, of a test that runs several."""
    failed = re.findall(r"^\[  FAILED  \] ([\w./]+)", output, re.MULTILINE)
    begun = re.findall(r"^\[ RUN      \] ([\w./]+)", output, re.MULTILINE)
    case = (failed[:1] or begun[-1:] or [""])[0]
    return name if not case or name.endswith("." + case) else f"{name}.{case}"


def first_failure(tests):
    """The case that fails, and how; None when all pass."""
    with concurrent.futures.ThreadPoolExecutor(2 * JOBS) as pool:
        runs = [pool.submit(run_test, test) for test in tests]
        for run in concurrent.futures.as_completed(runs):
            if run.result():
                pool.shutdown(wait=True, cancel_futures=True)
                return run.result()
    return None


def tests_of(program, tests):
    return [test for name, test in tests.items() if name.split(".")[0] == program]


def try_mutation(mutation, tests):
    """What becomes of it, and of which test or why."""
    contents = mutation.changed(TREE)
    if contents is None:
        return "DOES NOT APPLY", ", ".join(path for path, _, _ in mutation.edits)
    originals = {path: (TREE / path).read_text() for path in contents}
    try:
        for path, text in contents.items():
            (TREE / path).write_text(text)
        for program in mutation.programs:
            errors = build([program])
            if errors is not None:
                return "DOES NOT COMPILE", program + "\n" + errors
            expected = [tests[mutation.test]] if mutation.test in tests else []
            failure = first_failure(expected) or first_failure(tests_of(program, tests))
            if failure is not None:
                return failure[1], failure[0]
        return "SURVIVED", " ".join(mutation.programs)
    finally:
        for path, text in originals.items():
            (TREE / path).write_text(text)


def prepare(programs):
    """Configures and builds; returns the tests, of which each passes without a mutation."""
    subprocess.run(
        ["cmake", "-S", TREE, "-B", BUILD, *OPTIONS], check=True, stdout=subprocess.DEVNULL)
    # Programs of earlier runs, which may no longer start, would be asked for their tests.
    shutil.rmtree(BUILD / "bin", ignore_errors=True)
    errors = build(programs)
    if errors is not None:
        sys.exit("mutate: the tree does not build\n" + errors)
    tests = list_tests()
    used = [test for program in programs for test in tests_of(program, tests)]
    print(f"running {len(used)} tests on the sources as they are", flush=True)
    failure = first_failure(used)
    if failure is not None:
        sys.exit(f"mutate: {failure[0]} fails without any mutation")
    return tests


def main():
    parser = argparse.ArgumentParser(prog="mutate", description=__doc__.split("\n")[0])
    parser.add_argument("--list", action="store_true", help="only name the mutations; the status is 1 if one does not apply")
    parser.add_argument("patterns", nargs="*", metavar="PATTERN")
    arguments = parser.parse_args()
    files = sorted(pathlib.Path(__file__).parent.glob("*.txt"))
    known = sum(map(read_mutations, files), [])
    mutations = [mutation for mutation in known if mutation.matches(arguments.patterns)]
    if arguments.list:
        stale = [mutation for mutation in mutations if mutation.changed(SOURCE) is None]
        for mutation in mutations:
            print(f"{'does not apply: ' if mutation in stale else ''}{mutation.name} ({mutation.test})")
        return 1 if stale else 0
    if not mutations:
        sys.exit("mutate: no mutation matches")
    # One file's mutations after each other: then each is one compilation.
    mutations.sort(key=lambda mutation: mutation.edits[0][0])
    copy_tree()
    tests = prepare(sorted({program for mutation in mutations for program in mutation.programs}))
    counts = {}
    for number, mutation in enumerate(mutations, 1):
        result, detail = try_mutation(mutation, tests)
        counts[result] = counts.get(result, 0) + 1
        print(f"[{number}/{len(mutations)}] {result}: {mutation.name} ({detail})", flush=True)
    print(", ".join(f"{count} {result}" for result, count in sorted(counts.items())))
    return 0 if set(counts) <= {"caught", "hangs"} else 1


if __name__ == "__main__":
    sys.exit(main())
