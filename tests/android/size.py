#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Says where the bytes of a stripped 32-bit library are, and whether they are few enough.

usage: size.py LIBRARY MAP

MAP: what lld wrote with -Map when it linked the library. The status is 1 if there are more bytes than
the limits below allow.

A byte belongs to the object file that it was linked from. So what a template of the C++ library makes
in one of our objects is ours. What the linker makes itself or merges from many objects has lines of
its own.
"""
import re
import struct
import sys

# How many bytes the whole may have, and how many of them may be of this tree's own sources.
MOST = 400_000
OWN_MOST = 100_000

# Whose an object file is, by its path in the map. The first that fits counts. What the build itself
# makes has paths from its directory, everything else has whole ones, which may go through any.
OWNERS = [
    ("api", r"^api/"),
    ("session", r"^session/"),
    ("transport", r"^transport/"),
    ("utils", r"^utils/"),
    ("generated code", r"^aidl/"),
    ("message code", r"^proto/"),
    ("protobuf runtime", r"libprotobuf-lite\.a\("),
    ("compiler's helpers", r"/(libgcc|libc_nonshared|libclang_rt\.builtins[\w.-]*)\.a\("),
    ("start files", r"/(Scrt1|crti|crtn|crtbegin\w*|crtend\w*)\.o$"),
]
OWN = ("api", "session", "transport", "utils", "generated code")

# The same for what comes from no object file, by section.
MADE = [
    ("strings and constants of all, merged", r"\.rodata"),
    ("exception index of all", r"\.ARM\.exidx|\.eh_frame_hdr|\.eh_frame"),
    ("linker's thunks", r"\.text\.thunk"),
    ("dynamic linking", r"\.dyn(sym|str|amic)|\.gnu\.(hash|version\w*)|\.hash|\.rel\.\w+|\.plt|\.got(\.plt)?"),
    ("build id", r"\.note\.gnu\.build-id"),
]

COLUMNS = [
    ("code", r"\.(text|init|fini|plt)$"),
    ("exceptions", r"\.ARM\.(exidx|extab)|\.eh_frame"),
    ("constants", r"\.rodata|\.data\.rel\.ro$"),
    ("data", r"\.(data|init_array|fini_array|got|got\.plt)$"),
    ("other", r""),
]

LINE = re.compile(r"^ *[0-9a-f]+ +[0-9a-f]+ +([0-9a-f]+) +\d+ ( {8})?(\S.*)$")


class Trouble(Exception):
    pass


def first(table, text):
    """The name of the first pattern in the table that is found in the text, or None."""
    return next((name for name, pattern in table if re.search(pattern, text)), None)


def read_map(text):
    """A map's output sections: {name: [size, [(object file, its section, size)...]]}."""
    sections = {}
    inputs = []
    for line in text.splitlines()[1:]:
        match = LINE.match(line)
        if not match:
            continue  # a symbol's
        size, is_input, rest = int(match[1], 16), match[2], match[3]
        if not is_input:
            inputs = []
            sections[rest] = [size, inputs]
            continue
        parts = re.fullmatch(r"(.*):\((.*)\)", rest)
        if not parts:
            raise Trouble(f"the map has a line that is not understood: {line}")
        inputs.append((parts[1], parts[2], size))
    return sections


def read_sections(image):
    """The sections of a 32-bit little-endian library that take bytes in its file and in memory:
    {name: size}."""
    if image[:6] != b"\x7fELF\x01\x01":
        raise Trouble("the library is not a 32-bit little-endian ELF file")
    table, = struct.unpack_from("<I", image, 32)
    entry_size, count, names_index = struct.unpack_from("<HHH", image, 46)
    headers = [struct.unpack_from("<10I", image, table + index * entry_size)
               for index in range(count)]
    names = headers[names_index][4]
    sections = {}
    for name, kind, flags, _, _, size, *_ in headers:
        if flags & 2 and kind != 8:  # in memory (SHF_ALLOC), and not only there (SHT_NOBITS)
            start = names + name
            sections[image[start:image.index(b"\0", start)].decode()] = size
    return sections


def account(sections, map_sections, file_size):
    """{owner: {column: bytes}}, all of which add up to the file's size."""
    figures = {}

    def add(owner, section, size):
        row = figures.setdefault(owner, {})
        column = first(COLUMNS, section)
        row[column] = row.get(column, 0) + size

    for name, size in sections.items():
        if name not in map_sections or map_sections[name][0] != size:
            raise Trouble(f"{name} has {size} bytes in the library, but not in the map")
        for file, section, part in map_sections[name][1]:
            owner = (first(MADE, section) if file == "<internal>" else first(OWNERS, file))
            if not owner:
                raise Trouble(f"nobody owns {section} of {file}")
            add(owner, name, part)
            size -= part
        add("alignment", name, size)
    add("file headers, alignment of segments", "", file_size - sum(sections.values()))
    if any(size < 0 for row in figures.values() for size in row.values()):
        raise Trouble("the map's parts are larger than what they are parts of")
    return figures


def total(figures, owners=None):
    return sum(sum(row.values()) for owner, row in figures.items() if not owners or owner in owners)


def table(figures):
    names = [name for name, _ in COLUMNS]
    order = [name for name, _ in OWNERS + MADE]
    lines = [" ".join(f"{name:>10}" for name in ["bytes"] + names)]

    def add(row, text):
        cells = [sum(row.values())] + [row.get(name, 0) for name in names]
        lines.append(" ".join(f"{cell or '':>10}" for cell in cells) + "  " + text)

    for owner in sorted(figures, key=lambda name: order.index(name) if name in order else len(order)):
        if sum(figures[owner].values()):
            add(figures[owner], owner)
    add({name: sum(row.get(name, 0) for row in figures.values()) for name in names}, "the whole file")
    return "\n".join(lines)


def main(library, map_file, most=MOST, own_most=OWN_MOST):
    with open(library, "rb") as file:
        image = file.read()
    with open(map_file, encoding="utf-8") as file:
        map_sections = read_map(file.read())
    figures = account(read_sections(image), map_sections, len(image))
    print(table(figures))
    print()
    small = True
    for name, size, limit in [("the whole", total(figures), most),
                              ("our own code", total(figures, OWN), own_most)]:
        print(f"{name}: {size} bytes; {limit} are the most it may have")
        small = small and size <= limit
    return 0 if small else 1


if __name__ == "__main__":
    try:
        sys.exit(main(*sys.argv[1:]))
    except (OSError, Trouble) as trouble:
        sys.exit(f"size: {trouble}")
