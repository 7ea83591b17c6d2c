#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Compares what a shared library exports with its export list, name by name, both ways, and the C
functions of the list with those that its header declares.

usage: export_test.py NM LIBRARY EXPORT_LIST HEADER

NM is the nm of the tools that made the library.
"""

import re
import subprocess
import sys


def listed(path):
    text = re.sub(r"/\*.*?\*/", "", open(path, encoding="utf-8").read(), flags=re.S)
    exported = text[text.index("global:") + len("global:"):text.index("local:")]
    cxx = set(re.findall(r'"([^"]+)"', exported)) - {"C++"}
    c = re.findall(r"(\w+);", re.sub(r'extern "C\+\+" \{.*?\};', "", exported, flags=re.S))
    return sorted(cxx | set(c)), sorted(c)


def declared(path):
    text = open(path, encoding="utf-8").read()
    return sorted(re.findall(r"^SDF_API [^(;]*?(\w+)\(", text, flags=re.M))


def same(wanted, found, lacking, surplus):
    for name in sorted(set(wanted) - set(found)):
        print(lacking, name)
    for name in sorted(set(found) - set(wanted)):
        print(surplus, name)
    return wanted and wanted == found


def exported(nm, path):
    symbols = subprocess.run([nm, "-DC", "--defined-only", "--format=posix", path], check=True,
                             capture_output=True, text=True).stdout
    # NAME TYPE VALUE SIZE; a demangled name may hold blanks.
    return sorted({line.rsplit(" ", 3)[0] for line in symbols.splitlines()})


def main():
    nm, library, export_list, header = sys.argv[1:]
    (names, functions), found = listed(export_list), exported(nm, library)
    right = [same(names, found, "listed, but not exported:", "exported, but not listed:"),
             same(declared(header), functions, "declared, but not listed:", "listed, but not declared:")]
    print(len(found), "names exported")
    return 0 if all(right) else 1


if __name__ == "__main__":
    sys.exit(main())
