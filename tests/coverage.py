#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Says how much of the library its tests reach, and names every line that they do not.

usage: coverage.py REPORT PERCENT DIRECTORY...

REPORT: what gcovr --json wrote, run at the top of the tree. DIRECTORY: those to judge. The status
is 1 if less than PERCENT of the lines of all of them together are reached.
"""
import json
import sys


def main(report, least, *directories):
    with open(report, encoding="utf-8") as file:
        files = json.load(file)["files"]

    figures = {directory: [0, 0] for directory in directories}  # reached, all
    for file in sorted(files, key=lambda file: file["file"]):
        name = file["file"]
        directory = name.split("/")[0]
        if directory not in figures:
            continue
        with open(name, encoding="utf-8") as source:
            text = source.read().splitlines()
        for line in file["lines"]:
            if line["gcovr/noncode"]:
                continue
            figures[directory][1] += 1
            if line["count"]:
                figures[directory][0] += 1
            else:
                number = line["line_number"]
                print(f"{name}:{number}: not reached: {text[number - 1].strip()}")

    print()
    for directory, (reached, lines) in figures.items():
        if not lines:
            sys.exit(f"coverage: the report knows no line of {directory}/")
        print(f"{100 * reached / lines:6.2f} %  {reached:5} of {lines:5} lines  {directory}/")
    reached, lines = (sum(column) for column in zip(*figures.values()))
    print(f"{100 * reached / lines:6.2f} %  {reached:5} of {lines:5} lines  together")
    if 100 * reached < float(least) * lines:
        sys.exit(f"coverage: below {least} %")


if __name__ == "__main__":
    main(*sys.argv[1:])
