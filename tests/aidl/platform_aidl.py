#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Stands in for the platform's interface compiler: this tree's own, which takes the same options, with
its output changed to what the platform's, as of Android 13, is known to generate in another way."""

import pathlib
import re
import sys

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "aidl"))

import aidlc  # noqa: E402

# Regular expressions, and what takes the place of what they match.
CHANGES = [
    # Texts are made in streams, whose header is expected to come with binder's.
    (r'std::string text = (".*");', r"std::ostringstream text;\n    text << \1;"),
    (r"text \+= ", "text << "),
    (r'return text \+ "}";', 'text << "}";\n    return text.str();'),
    # What must not be asked of a union ends the process on bionic only.
    (r"#include <variant>\n",
     "#include <variant>\n"
     "#ifndef __BIONIC__\n#define __assert2(file, line, function, message) ((void)0)\n#endif\n"),
    (r"\*std::get_if<(.*)>\(&_value\)", r"std::get<\1>(_value)"),
    # A delegator has one name.
    (r"using DefaultDelegator = .*;", ""),
    # Methods have no names for tracing.
    (r"const char\* _functionNames(?s:.*?)\};\n", ""),
    (r"template <typename _base>(?s:.*?)_base::defineClass\((\w+::descriptor)(?s:.*?)"
     r"(?=AIBinder_Class\* _binderClass)((?s:.*?))_defineClass<::ndk::ICInterface>\(_functionNames\)",
     r"\2::ndk::ICInterface::defineClass(\1, _onTransact)"),
    # An object of another copy of a class is refused.
    (r"const AIBinder_Class\* const other = (?s:.*?)return ::ndk::SharedRefBase::make<.*>\(binder\);",
     "return nullptr;"),
]


def main(argv):
    output = aidlc.compile_files(aidlc.arguments(argv))
    for pattern, replacement in CHANGES:
        changed = {path: re.sub(pattern, replacement, text) for path, text in output.items()}
        if changed == output:
            sys.exit(f"platform_aidl.py: nothing is generated any more that matches {pattern}")
        output = changed
    aidlc.write(output)


if __name__ == "__main__":
    main(sys.argv[1:])
