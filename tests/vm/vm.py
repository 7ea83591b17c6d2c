#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Runs tests in a 32-bit ARM virtual machine.

usage: vm.py [--limit SECONDS] BUILD [TEST...]

BUILD is the folder of a build for 32-bit ARM Linux. A TEST is one of

    PROGRAM[:FILTER]        the tests of a program that match, the filter being GoogleTest's, all in
                            one process
    'each PROGRAM[:FILTER]' the same, each in a process of its own
    '$ PROGRAM ARGUMENT...' a program that is judged by its exit status

By default those of tests.txt are run. What the machine writes to its console is shown, and kept in
BUILD/vm/console.log. The status is 0 if every test passed, and none was skipped. A machine that has
not switched itself off after so many seconds is ended, which is a failure.
"""

import argparse
import re
import shutil
import signal
import subprocess
import sys
import threading
import time
from pathlib import Path

sys.dont_write_bytecode = True  # the sources may lie on a read-only tree

import initramfs
import verdict

# Debian's kernel for 32-bit ARM, as its installer starts it.
KERNEL = "/usr/lib/debian-installer/images/12/armhf/text/debian-installer/armhf/vmlinuz"

LIMIT = 300  # seconds


def read_tests(text):
    """The tests of a list: one a line, what follows a "#" after a blank is its reason."""
    lines = (re.split(r"(?:^|\s)#(?:\s|$)", line)[0].strip() for line in text.splitlines())
    return [whole(line) for line in lines if line]


def whole(test):
    """A test with its filter, if it is not a command."""
    return test if verdict.is_command(test) or ":" in test else test + ":*"


def programs_of(test):
    """The programs that a test names: a command may have others as arguments, as ./PROGRAM."""
    if verdict.is_command(test):
        program, *arguments = test.split()[1:]
        return [program, *(word[2:] for word in arguments if word.startswith("./"))]
    return [test.split(":")[0].split()[-1]]


def sysroot_of(build):
    cache = (build / "CMakeCache.txt").read_text(encoding="utf-8")
    return Path(re.search(r"^LUM_SYSROOT:\w+=(.*)$", cache, re.M)[1])


def machine(initial_files):
    """The command that starts it: no network, no disk, a console on standard output, no way to
    restart, so that a kernel that panics ends it."""
    return [
        "qemu-system-arm", "-M", "virt", "-cpu", "cortex-a7", "-smp", "2", "-m", "512",
        "-accel", "tcg,thread=multi", "-nic", "none", "-display", "none", "-monitor", "none",
        "-serial", "stdio", "-no-reboot", "-kernel", KERNEL, "-initrd", initial_files,
        "-append", "console=ttyAMA0 quiet panic=-1",
    ]


def watch(command, limit, show):
    """Runs a command, ends it after so many seconds. Hands each line of its output to show() as it
    comes. Returns the whole output, and what went wrong with the command itself or None."""
    late = threading.Event()
    lines = []
    with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, encoding="utf-8", errors="replace") as process:

        def end():
            late.set()
            process.kill()

        timer = threading.Timer(limit, end)
        timer.start()
        try:
            for line in process.stdout:
                lines.append(line)
                show(line)
            status = process.wait()
        except BaseException:
            process.kill()
            raise
        finally:
            timer.cancel()
    if late.is_set():
        return "".join(lines), f"had not ended after {limit} seconds"
    return "".join(lines), f"ended with status {status}" if status else None


def run(tests, command, limit, show):
    """Runs a machine that is to run these tests. Returns what it wrote and what speaks against it."""
    console, trouble = watch(command, limit, show)
    found = verdict.complaints(tests, console)
    if trouble:
        found.append(f"the machine {trouble}")
    return console, found


def show_line(line):
    print(line.rstrip(), flush=True)


def main():
    parser = argparse.ArgumentParser(description="Runs tests in a 32-bit ARM virtual machine.")
    parser.add_argument("--limit", type=int, default=LIMIT, help="seconds it may take")
    parser.add_argument("build", type=Path)
    parser.add_argument("test", nargs="*")
    arguments = parser.parse_args()
    build = arguments.build.resolve()
    tests = [whole(test) for test in arguments.test]
    if not tests:
        tests = read_tests((Path(__file__).parent / "tests.txt").read_text(encoding="utf-8"))

    if not shutil.which("qemu-system-arm"):
        sys.exit("vm.py: there is no qemu-system-arm; ./dev deps arm-vm installs it")
    programs = sorted({program for test in tests for program in programs_of(test)})
    for needed in [Path(KERNEL), *(build / "bin" / program for program in programs)]:
        if not needed.exists():
            sys.exit(f"vm.py: there is no {needed}")

    folder = build / "vm"
    folder.mkdir(exist_ok=True)
    log = folder / "console.log"
    log.unlink(missing_ok=True)
    initial_files = folder / "initramfs"
    initial_files.write_bytes(
        initramfs.make(build, sysroot_of(build), programs, tests))

    # Whoever ends this program ends the machine.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("vm.py: terminated"))
    began = time.monotonic()
    console, found = run(tests, machine(initial_files), arguments.limit, show_line)
    log.write_text(console, encoding="utf-8")
    for complaint in found:
        print("vm.py:", complaint, file=sys.stderr)
    print(f"{len(tests)} lines of tests in the machine, {time.monotonic() - began:.0f} s:",
          "FAILED" if found else "passed")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
