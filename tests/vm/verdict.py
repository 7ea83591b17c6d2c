# SPDX-License-Identifier: Apache-2.0
"""Judges what the machine wrote to its console."""

import re

COUNTS = re.compile(r"status 0 tests ([0-9]+) completed ([0-9]+)")
LAST = re.compile(r"vm: ([0-9]+) run, at [0-9.]+ s")


def is_command(test):
    """Whether a test is a command, not GoogleTest cases."""
    return test.startswith("$ ")


def complaints(tests, console):
    """What speaks against a run of these tests with this on the console; nothing if all is well."""
    lines = [line.strip() for line in console.splitlines()]
    lines = [line for line in lines if line.startswith("vm: ")]
    found = []
    for number, test in enumerate(tests, start=1):
        if f"vm: {number} begins: {test}" not in lines:
            found.append(f"{test}: did not begin")
            continue
        prefix = f"vm: {number} ended: "
        results = [line[len(prefix):] for line in lines if line.startswith(prefix)]
        if len(results) != 1:
            found.append(f"{test}: did not end" if not results else f"{test}: ended more than once")
        else:
            found.extend(f"{test}: {fault}" for fault in _faults(test, results[0]))
    last = LAST.fullmatch(lines[-1]) if lines else None
    if not last:
        found.append("the machine did not get to its end")
    elif int(last[1]) != len(tests):
        found.append(f"{last[1]} tests were run, not {len(tests)}")
    return found


def _faults(test, result):
    if is_command(test):
        return [] if result == "status 0" else [result]
    counts = COUNTS.fullmatch(result)
    if not counts:
        return [result]
    tests, completed = int(counts[1]), int(counts[2])
    if tests == 0:
        return ["no test has such a name"]
    return [] if completed == tests else [f"only {completed} of {tests} tests were run, not skipped"]
