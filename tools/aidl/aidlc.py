#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""The interface compiler for hosts: makes C++ from .aidl files.

It takes the options of the platform's compiler that the build uses, and its output has the same
files, names and namespaces, so that either can stand for the other. README.md says what it understands.
"""

import argparse
import contextlib
import pathlib
import sys

sys.dont_write_bytecode = True  # the sources may lie on a read-only tree

from lumaidl.checker import Loader, check  # noqa: E402
from lumaidl.diagnostics import AidlError, AidlErrors, Position  # noqa: E402
from lumaidl.generator import generate  # noqa: E402


def arguments(argv):
    parser = argparse.ArgumentParser(
        description="Makes C++ binder code from .aidl files.", add_help=False)
    parser.add_argument("--help", action="help", help="show this text")
    parser.add_argument("--lang", choices=["ndk"], required=True, help="the kind of code")
    parser.add_argument("--structured", action="store_true", required=True,
                        help="every type is defined in .aidl (nothing else is understood)")
    parser.add_argument("-I", "--include", action="append", default=[], type=pathlib.Path,
                        metavar="DIR", help="a directory in which packages are looked for")
    parser.add_argument("-o", "--out", required=True, type=pathlib.Path, metavar="DIR",
                        help="where sources go")
    parser.add_argument("-h", "--header_out", required=True, type=pathlib.Path, metavar="DIR",
                        help="where headers go")
    parser.add_argument("files", nargs="+", type=pathlib.Path, metavar="FILE")
    return parser.parse_args(argv)


def compile_files(options):
    """Returns the output as a map from path to text; raises AidlErrors with all that is wrong."""
    loader = Loader(options.include)
    errors = []
    output = {}
    makers = {}  # of each file of the output, the input
    for path in options.files:
        try:
            document = loader.load(path)
            check(document, loader)
            for made, text in generate(document, options.out, options.header_out).items():
                if output.setdefault(made, text) != text:
                    what = f"{made} is made from {makers[made]} already"
                    raise AidlErrors([AidlError(document.declaration.name.position, what)])
                makers.setdefault(made, document.file)
        except AidlErrors as found:
            errors += [error for error in found.errors if error not in errors]
    if errors:
        raise AidlErrors(errors)
    return output


def write(output):
    """Writes what compile_files() returned, all or nothing; raises AidlErrors."""
    written = []
    try:
        for path, text in output.items():
            path.parent.mkdir(parents=True, exist_ok=True)
            with path.open("w", encoding="utf-8") as file:
                written.append(path)
                file.write(text)
    except OSError as error:
        for done in written:
            with contextlib.suppress(OSError):
                done.unlink()
        what = f"cannot be written: {error.strerror}"
        raise AidlErrors([AidlError(Position(str(path), 1, 1), what)]) from error


def main(argv):
    try:
        write(compile_files(arguments(argv)))
    except AidlErrors as found:
        for error in found.errors:
            print(error, file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
