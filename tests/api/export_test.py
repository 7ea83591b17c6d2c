#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Compares what a shared library exports with its export list, name by name, both ways.

usage: export_test.py NM LIBRARY EXPORT_LIST

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
    return sorted(cxx | set(c))


def exported(nm, path):
    symbols = subprocess.run([nm, "-DC", "--defined-only", "--format=posix", path], check=True,
                             capture_output=True, text=True).stdout
    # NAME TYPE VALUE SIZE; a demangled name may hold blanks.
    return sorted({line.rsplit(" ", 3)[0] for line in symbols.splitlines()})


def main():
    nm, library, export_list = sys.argv[1:]
    wanted, found = listed(export_list), exported(nm, library)
    for name in sorted(set(wanted) - set(found)):
        print("listed, but not exported:", name)
    for name in sorted(set(found) - set(wanted)):
        print("exported, but not listed:", name)
    print(len(found), "names exported")
    return 0 if wanted and wanted == found else 1


if __name__ == "__main__":
    sys.exit(main())
