#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Draws what the processes of a soak held and used, over time.

usage: picture.py SAMPLES PICTURE

SAMPLES: what soak --samples wrote, with other lines between, as on the console of a machine.
PICTURE: the file to write, such as soak.png.
"""
import csv
import sys
from collections import defaultdict

HEADER = ["seconds", "phase", "process", "pid", "memory_kib", "blocks", "descriptors", "threads",
          "processor_ms", "wake_ups"]
WORDS = ("phase", "process")
SHADES = {"deaths": "#f4cccc", "misbehaviour": "#fce5cd", "survivor": "#fff2cc", "calm": "#d9ead3",
          "rest": "#d0e0f0"}


def read(path):
    """Returns the samples, in order, as dictionaries, without what only looks like one."""
    samples = []
    with open(path, newline="", encoding="utf-8", errors="replace") as file:
        for row in csv.reader(file):
            try:
                samples.append({name: value if name in WORDS else float(value)
                                for name, value in zip(HEADER, row, strict=True)})
            except ValueError:  # the header, or a line with another in its middle
                pass
    return samples


def rates(samples, name, factor):
    """Of a sum over a process's life: times, and growth a second. A new process begins anew."""
    times, values = [], []
    for before, after in zip(samples, samples[1:]):
        passed = after["seconds"] - before["seconds"]
        grown = after[name] - before[name]
        if passed > 0.5 and before["pid"] == after["pid"] and grown >= 0:
            times.append(after["seconds"])
            values.append(grown * factor / passed)
    return times, values


def phases(samples):
    """Yields each phase, its beginning and its end."""
    begin = samples[0]
    for before, sample in zip(samples, samples[1:]):
        if sample["phase"] != begin["phase"]:
            yield begin["phase"], begin["seconds"], sample["seconds"]
            begin = sample
    yield begin["phase"], begin["seconds"], samples[-1]["seconds"]


def main(source, picture):
    samples = read(source)
    if not samples:
        sys.exit(f"picture.py: {source} has no samples")
    draw(samples, picture)
    print(f"made {picture}")


def draw(samples, picture):
    """Makes the file."""
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    processes = defaultdict(list)
    for sample in samples:
        if not sample["process"].endswith("mortal"):
            processes[sample["process"]].append(sample)

    panels = [("memory, MiB", "memory_kib", 1 / 1024), ("heap blocks at rest", "blocks", 1),
              ("descriptors", "descriptors", 1), ("threads", "threads", 1),
              ("processor, %", "processor_ms", 0.1), ("wake-ups a second", "wake_ups", 1)]
    figure, axes = plt.subplots(len(panels), 1, figsize=(14, 16), sharex=True)
    for axis, (title, name, factor) in zip(axes, panels):
        for phase, begin, end in phases(samples):
            axis.axvspan(begin / 60, end / 60, color=SHADES.get(phase, "white"), lw=0)
        for process, own in processes.items():
            if name in ("processor_ms", "wake_ups"):
                times, values = rates(own, name, factor)
            else:
                own = [sample for sample in own if name != "blocks" or sample[name] > 0]
                times = [sample["seconds"] for sample in own]
                values = [sample[name] * factor for sample in own]
            style = ".-" if name == "blocks" else "-"
            axis.plot([time / 60 for time in times], values, style, lw=0.8, label=process)
        axis.set_ylabel(title)
        axis.set_ylim(bottom=0)
    axes[-1].set_xlabel("minutes")
    handles = [plt.Rectangle((0, 0), 1, 1, color=shade) for shade in SHADES.values()]
    figure.legend(handles, SHADES, loc="upper right", ncol=len(SHADES), frameon=False)
    axes[0].legend(loc="upper left", ncol=6, fontsize="small")
    figure.tight_layout(rect=(0, 0, 1, 0.98))
    figure.savefig(picture, dpi=80)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    main(*sys.argv[1:])
