#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the benchmarks in turns, and compares: with the floor, the peers, and another build.

    bench.py BUILD NAME [--against BUILD NAME] [--rounds N] [FILTER]

BUILD is a build directory of preset bench, NAME what its figures are called. Of the other build only
the library itself is measured. FILTER is a regular expression for the benchmarks' names, which are
CONTENDER:ROW. Prints a table of minima; leaves every figure as JSON, and pictures of what grows with a
number, in BUILD.
"""

import argparse
import json
import os
import re
import statistics
import subprocess
import sys

import matplotlib

matplotlib.use("Agg")
from matplotlib import pyplot  # noqa: E402: after the back end has been chosen

PROGRAMS = ["bench_process", "bench_request", "bench_grpc"]
REPETITIONS = 6
MIN_SECONDS = 0.01
OWN = ["ours", "session"]
# What the framework appends to a name.
SUFFIX = re.compile(r"/(real_time|manual_time|iterations:\d+|repeats:\d+)")


def run(program, *arguments):
    done = subprocess.run([program, *arguments], capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"bench: {program} failed with status {done.returncode}\n{done.stderr}")
    return done.stdout


class Build:
    """One build's programs, and what they have measured: values by "CONTENDER:ROW"."""

    def __init__(self, directory, name, contenders, wanted):
        self.directory = directory
        self.name = name
        self.values = {}
        self.context = {}
        self.selected = {}
        for program in PROGRAMS:
            names = run(self.path(program), "--benchmark_list_tests").splitlines()
            self.selected[program] = [
                name for name in names
                if re.search(wanted, name) and (not contenders or name.split(":")[0] in contenders)
            ]

    def path(self, program):
        return os.path.join(self.directory, "bin", program)

    def measure(self, program, first):
        # What waits for long is done once.
        often = [name for name in self.selected[program] if "at rest" not in name]
        once = [name for name in self.selected[program] if name not in often]
        for names, repetitions in ((often, REPETITIONS), (once if first else [], 1)):
            if names:
                self.measure_these(program, names, repetitions)

    def measure_these(self, program, names, repetitions):
        result = os.path.join(self.directory, "last.json")
        run(self.path(program), "--benchmark_filter=^(" + "|".join(names) + ")$",
            f"--benchmark_repetitions={repetitions}", f"--benchmark_min_time={MIN_SECONDS}",
            "--benchmark_enable_random_interleaving=true", f"--benchmark_out={result}")
        with open(result, encoding="utf-8") as file:
            measured = json.load(file)
        self.context = measured["context"]
        for one in measured["benchmarks"]:
            if one["run_type"] == "iteration" and not one.get("error_occurred"):
                self.values.setdefault(SUFFIX.sub("", one["run_name"]), []).append(value_of(one))

    def save(self, directory):
        path = os.path.join(directory, f"{self.name}.json")
        with open(path, "w", encoding="utf-8") as file:
            json.dump({"name": self.name, "context": self.context, "unit": "ns", "values": self.values},
                      file, indent=1)
        print(f"wrote {path}")


def value_of(one):
    """Nanoseconds of one item, or what was counted instead."""
    if "count" in one:
        return one["count"]
    if "items_per_second" in one:
        return 1e9 / one["items_per_second"]
    return one["real_time"]


def text_of(row, value):
    if "wake-ups" in row:
        return f"{value:.0f}"
    for unit, factor in (("ms", 1e6), ("µs", 1e3)):
        if value >= factor:
            return f"{value / factor:.3g} {unit}"
    return f"{value:.3g} ns"


def table(own, other):
    """Of each row the floor; ours, as minimum, and minimum and median as multiples of the floor's; the
    other build's; and the peers' minima as multiples."""
    # In the programs' order; they were run in none.
    rows = {SUFFIX.sub("", name).split(":", 1)[1]: {} for names in own.selected.values() for name in names}
    for build, label in [(own, None)] + ([(other, other.name)] if other else []):
        for name, values in build.values.items():
            contender, row = name.split(":", 1)
            if label and contender in OWN:
                contender = f"{contender} {label}"
            rows[row][contender] = values
    lines = [["work", "floor", own.name] + ([other.name] if other else []) + ["others"]]
    for row, contenders in filter(lambda item: item[1], rows.items()):
        floor = contenders.pop("floor", None)

        def describe(values):
            low = min(values)
            if not floor:
                return text_of(row, low)
            middle = statistics.median(values) / statistics.median(floor)
            return f"{text_of(row, low)} ({low / min(floor):.2f} ×, {middle:.2f} ×)"

        line = [row, text_of(row, min(floor)) if floor else "—"]
        for contender in ["ours"] + ([f"ours {other.name}"] if other else []):
            values = contenders.pop(contender, None)
            line.append(describe(values) if values else "—")
        line.append("; ".join(f"{name} {describe(values)}" for name, values in contenders.items()))
        lines.append(line)
    widths = [max(len(line[column]) for line in lines) for column in range(len(lines[0]))]
    lines.insert(1, ["-" * width for width in widths])
    for line in lines:
        print("| " + " | ".join(cell.ljust(width) for cell, width in zip(line, widths)) + " |")
    print("Minima; in brackets minimum and median as multiples of the floor's.")


def pictures(own, other):
    curves = {}
    for build in [own] + ([other] if other else []):
        for name, values in build.values.items():
            match = re.fullmatch(r"(.+):(.+)/(\d+)", name)
            if not match:
                continue
            contender, row, number = match.groups()
            label = contender if contender not in OWN else f"{contender} {build.name}"
            points = curves.setdefault(row, {}).setdefault(label, {})
            points[int(number)] = min(values)
    for row, contenders in curves.items():
        if max(map(len, contenders.values())) < 3:
            continue
        figure, axes = pyplot.subplots(figsize=(8, 5))
        for label, points in sorted(contenders.items()):
            axes.plot(*zip(*sorted(points.items())), marker="o", label=label)
        axes.set_xscale("symlog")
        axes.set_yscale("log")
        axes.set_xlabel("number")
        axes.set_ylabel("ns, minimum")
        axes.set_title(row)
        axes.grid(True, alpha=0.3)
        axes.legend()
        path = os.path.join(own.directory, row.replace(" ", "-") + ".png")
        figure.savefig(path)
        pyplot.close(figure)
        print(f"wrote {path}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("name")
    parser.add_argument("--against", nargs=2, metavar=("BUILD", "NAME"))
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("filter", nargs="?", default="")
    arguments = parser.parse_intermixed_args()

    own = Build(arguments.build, arguments.name, [], arguments.filter)
    other = Build(*arguments.against, OWN, arguments.filter) if arguments.against else None
    if not any(own.selected.values()):
        sys.exit(f"bench: no benchmark has a name like {arguments.filter}")
    for turn in range(arguments.rounds):
        for program in filter(own.selected.get, PROGRAMS):
            print(f"round {turn + 1} of {arguments.rounds}: {program}", flush=True)
            for build in filter(None, (own, other) if turn % 2 == 0 else (other, own)):
                build.measure(program, turn == 0)
    table(own, other)
    for build in filter(None, (own, other)):
        build.save(own.directory)
    pictures(own, other)


if __name__ == "__main__":
    main()
