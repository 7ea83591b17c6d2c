# SPDX-License-Identifier: Apache-2.0
"""What runs tests in a virtual machine, tested without one: the verdict on what a machine wrote, the
time limit, the list of tests, and the archive. Each way in which a run can go wrong has to be seen.
"""

import os
import stat
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.dont_write_bytecode = True  # the sources may lie on a read-only tree

import initramfs
import verdict
import vm

TESTS = ["utils_test:Timer*", "each calls:*", "$ demo ./emulator"]

# As a machine writes it, with a carriage return at the end of each line.
CONSOLE = """\
[    0.136453] a warning of the kernel
\r
vm: 1 begins: utils_test:Timer*\r
[==========] Running 2 tests from 1 test suite.\r
[  PASSED  ] 2 tests.\r
\r
vm: 1 ended: status 0 tests 2 completed 2\r
\r
vm: 2 begins: each calls:*\r
no line end\r
vm: 2 ended: status 0 tests 12 completed 12\r
\r
vm: 3 begins: $ demo ./emulator\r
everything happened as it should\r
\r
vm: 3 ended: status 0\r
\r
vm: 3 run, at 14.52 s\r
[   15.012345] reboot: Power down
"""


class VerdictTest(unittest.TestCase):
    def expect(self, complaints, console, tests=None):
        self.assertEqual(verdict.complaints(TESTS if tests is None else tests, console), complaints)

    def test_all_passed(self):
        self.expect([], CONSOLE)

    def replaced(self, old, new):
        self.assertEqual(CONSOLE.count(old), 1)
        return CONSOLE.replace(old, new)

    def test_a_failure(self):
        console = self.replaced("status 0 tests 12", "status 1 tests 12")
        self.expect(["each calls:*: status 1 tests 12 completed 12"], console)

    def test_a_skipped_or_disabled_test(self):
        console = self.replaced("tests 2 completed 2", "tests 2 completed 1")
        self.expect(["utils_test:Timer*: only 1 of 2 tests were run, not skipped"], console)

    def test_a_filter_that_nothing_matches(self):
        console = self.replaced("tests 12 completed 12", "tests 0 completed 0")
        self.expect(["each calls:*: no test has such a name"], console)

    def test_a_program_that_crashes_before_its_result(self):
        console = self.replaced("status 0 tests 12 completed 12", "status 139 tests 0 completed 0")
        self.expect(["each calls:*: status 139 tests 0 completed 0"], console)

    def test_a_program_without_counts(self):
        console = self.replaced("status 0 tests 12 completed 12", "status 0")
        self.expect(["each calls:*: status 0"], console)

    def test_a_command_that_fails(self):
        self.expect(["$ demo ./emulator: status 1"],
                    self.replaced("vm: 3 ended: status 0", "vm: 3 ended: status 1"))

    def test_a_machine_that_hangs_in_a_test(self):
        console = CONSOLE[:CONSOLE.index("no line end")]
        self.expect(["each calls:*: did not end", "$ demo ./emulator: did not begin",
                     "the machine did not get to its end"], console)

    def test_a_machine_that_stops_before_its_last_line(self):
        console = CONSOLE[:CONSOLE.index("vm: 3 run")]
        self.expect(["the machine did not get to its end"], console)

    def test_a_last_line_that_is_cut_off(self):
        console = CONSOLE[:CONSOLE.index(", at 14.52 s")]
        self.expect(["the machine did not get to its end"], console)

    def test_a_kernel_that_panics(self):
        console = "[    4.1] Kernel panic - not syncing: VFS: Unable to mount root fs"
        self.expect([test + ": did not begin" for test in TESTS]
                    + ["the machine did not get to its end"], console)

    def test_a_silent_machine(self):
        self.expect(["each calls:*: did not begin", "the machine did not get to its end"], "",
                    ["each calls:*"])

    def test_a_test_that_the_machine_left_out(self):
        self.expect(["more:*: did not begin", "3 tests were run, not 4"], CONSOLE, TESTS + ["more:*"])

    def test_a_test_too_many(self):
        self.expect(["3 tests were run, not 2"], CONSOLE, TESTS[:2])

    def test_another_test_than_asked_for(self):
        self.expect(["utils_test:*: did not begin"], CONSOLE, ["utils_test:*", *TESTS[1:]])

    def test_a_test_that_ends_twice(self):
        ended = "vm: 2 ended: status 0 tests 12 completed 12\r\n"
        self.expect(["each calls:*: ended more than once"], self.replaced(ended, 2 * ended))


class WatchTest(unittest.TestCase):
    def watch(self, script, limit):
        shown = []
        console, trouble = vm.watch(["sh", "-c", script], limit, shown.append)
        self.assertEqual("".join(shown), console)
        return console, trouble

    def test_output_is_shown_and_returned(self):
        self.assertEqual(self.watch("echo one; echo two >&2", 60), ("one\ntwo\n", None))

    def test_what_is_no_text_is_taken_all_the_same(self):
        self.assertEqual(self.watch(r"printf 'a\377b\n'", 60), ("a\ufffdb\n", None))

    def test_a_machine_that_hangs_is_ended(self):
        self.assertEqual(self.watch("exec sleep 600", 1)[1], "had not ended after 1 seconds")

    def test_a_machine_that_does_not_start(self):
        self.assertEqual(self.watch("echo no such kernel; exit 3", 60),
                         ("no such kernel\n", "ended with status 3"))


class RunTest(unittest.TestCase):
    """The whole, with a command in the machine's place."""

    def complaints(self, command, limit=60):
        return vm.run(TESTS, command, limit, lambda line: None)[1]

    def test_success(self):
        self.assertEqual(self.complaints(["printf", "%s", CONSOLE]), [])

    def test_trouble_with_the_machine_is_a_failure_whatever_it_wrote(self):
        command = ["sh", "-c", 'printf %s "$0"; exit 1', CONSOLE]
        self.assertEqual(self.complaints(command), ["the machine ended with status 1"])

    def test_a_machine_that_goes_on_after_its_end_is_a_failure(self):
        command = ["sh", "-c", 'printf %s "$0"; exec sleep 600', CONSOLE]
        self.assertIn("the machine had not ended after 1 seconds", self.complaints(command, 1))


class CasesTest(unittest.TestCase):
    """What runs GoogleTest programs in the machine, with a script in a program's place."""

    # Writes as many results as there are, like GoogleTest, if it gets so far.
    PROGRAM = """\
case $* in
    *--gtest_list_tests*) printf 'Suite.\\n  One\\n  Two\\n'; exit ;;
esac
for argument; do
    case $argument in
        --gtest_filter=Suite.Two) [ "$BEHAVIOUR" != early ] || exit 0
            [ "$BEHAVIOUR" != failure ] || failed=1 ;;
        --gtest_output=xml:*) file=${argument#*:} ;;
    esac
done
completed=completed
[ "$BEHAVIOUR" != skip ] || completed=skipped
printf '<testsuites tests="1">\\n<testcase status="run" result="%s"/>\\n' "$completed" >"$file"
exit "${failed:-0}"
"""

    def result(self, behaviour):
        with tempfile.TemporaryDirectory() as folder:
            program = Path(folder, "program")
            program.write_text("#!/bin/sh\n" + self.PROGRAM, encoding="utf-8")
            program.chmod(0o755)
            script = '. "$1"; run "$2" $(cases "$2" "*"); echo "$result"'
            command = ["sh", "-c", script, "sh", Path(__file__).parent / "cases.sh", program]
            return subprocess.run(command, env={**os.environ, "BEHAVIOUR": behaviour}, check=True,
                                  stdout=subprocess.PIPE, encoding="utf-8").stdout.strip()

    def test_success(self):
        self.assertEqual(self.result("none"), "status 0 tests 2 completed 2")

    def test_a_skipped_case(self):
        self.assertEqual(self.result("skip"), "status 0 tests 2 completed 0")

    def test_a_case_that_fails(self):
        self.assertEqual(self.result("failure"), "status 1 tests 2 completed 2")

    def test_a_case_that_ends_early_and_well(self):
        self.assertEqual(self.result("early"), "status early tests 1 completed 1")


class ListTest(unittest.TestCase):
    def test_lines(self):
        text = "# about\n\nutils_test:Timer*  # why\n  each calls\n\n$ demo ./emulator # why\n"
        self.assertEqual(vm.read_tests(text), TESTS)

    def test_programs(self):
        self.assertEqual([vm.programs_of(test) for test in TESTS],
                         [["utils_test"], ["calls"], ["demo", "emulator"]])

    def test_the_list_of_the_tree(self):
        text = (Path(__file__).parent / "tests.txt").read_text(encoding="utf-8")
        tests = vm.read_tests(text)
        self.assertTrue(tests)
        self.assertEqual(len(tests), len(set(tests)))


class ArchiveTest(unittest.TestCase):
    def test_a_file_in_its_folder(self):
        archive = initramfs.Archive()
        archive.file("/a/b", b"12345", 0o644)
        content = archive.finish()
        words = ["1", "41ED", "0", "0", "2", "0", "0", "0", "0", "0", "0", "2", "0"]
        folder = "070701" + "".join(word.rjust(8, "0") for word in words) + "a\0"
        words = ["2", "81A4", "0", "0", "1", "0", "5", "0", "0", "0", "0", "4", "0"]
        file = "070701" + "".join(word.rjust(8, "0") for word in words) + "a/b\0\0\0" + "12345\0\0\0"
        words = ["0", "0", "0", "0", "1", "0", "0", "0", "0", "0", "0", "B", "0"]
        end = "070701" + "".join(word.rjust(8, "0") for word in words) + "TRAILER!!!\0\0\0\0"
        self.assertEqual(content.decode(), folder + file + end)

    def test_programs_that_a_program_starts(self):
        content = b"\x7fELF\0/build/run/peer\0/build/run/emu_lator\0/build/run/peer\0/build/runs/x\0"
        self.assertEqual(initramfs.started_by(content, Path("/build")), ["emu_lator", "peer"])

    def test_a_folder_keeps_the_mode_it_was_given(self):
        archive = initramfs.Archive()
        archive.folder("/tmp", 0o1777)
        archive.file("/tmp/x", b"")
        mode = f"{stat.S_IFDIR | 0o1777:08X}"
        self.assertIn(mode.encode(), archive.finish()[:110])


if __name__ == "__main__":
    unittest.main()
