#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Tests of the interface compiler for hosts: what it refuses, with which words, and what it makes."""

import contextlib
import hashlib
import io
import os
import pathlib
import random
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True

ROOT = pathlib.Path(__file__).resolve().parents[2]
COMPILER = ROOT / "tools" / "aidl" / "aidlc.py"
sys.path.insert(0, str(COMPILER.parent))

import aidlc  # noqa: E402

HEAD = "package p.q;\n"
ENUM = '@Backing(type="int") enum E { A }\n'
PARCELABLE = "parcelable P { int x; }\n"
INTERFACE = "interface I { void f(); }\n"


class Workspace(unittest.TestCase):
    """Compiles files of a package p.q in a directory of their own."""

    # A text, what is said about it, and perhaps the other arguments of refused().
    REFUSED = []

    def test_refused(self):
        for text, *rest in self.REFUSED:
            others = rest.pop() if isinstance(rest[-1], dict) else {}
            with self.subTest(text):
                self.setUp()
                self.refused(text, *rest, **others)

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.root = pathlib.Path(directory.name)
        self.package = self.root / "in" / "p" / "q"
        self.package.mkdir(parents=True)

    def write(self, **files):
        """Writes files of the package, which those name that are to be of another one."""
        for name, text in files.items():
            head = "" if text.startswith("package") else HEAD
            (self.package / f"{name}.aidl").write_text(head + text, encoding="utf-8")

    def compile(self, *names, out="out", include=("in",)):
        """Returns the exit status and the lines of standard error, paths cut to file names."""
        argv = ["--lang=ndk", "--structured",
                "-o", str(self.root / out / "src"), "-h", str(self.root / out / "include")]
        for directory in include:
            argv += ["-I", str(self.root / directory)]
        errors = io.StringIO()
        with contextlib.redirect_stderr(errors):
            status = aidlc.main(argv + [str(self.package / f"{name}.aidl") for name in names])
        return status, errors.getvalue().replace(str(self.package) + "/", "").splitlines()

    def output(self, out="out"):
        directory = self.root / out
        return {str(path.relative_to(directory)): path.read_text(encoding="utf-8")
                for path in sorted(directory.rglob("*")) if path.is_file()}

    def fails(self, error, *names, **where):
        """Compiles these files and compares the only fault that is reported."""
        self.assertEqual((1, [error]), self.compile(*names, **where))
        self.assertEqual({}, self.output())

    def refused(self, text, *expected, name=None, **others):
        """Compiles one file and compares the whole of what is said about it."""
        if name is None:
            name = "I" if "interface I" in text else "E" if "enum E" in text else "P"
        self.write(**{name: text}, **others)
        self.assertEqual((1, [f"{name}.aidl:{line}" for line in expected]), self.compile(name))
        self.assertEqual({}, self.output())

    def accepted(self, text, name, **others):
        self.write(**{name: text}, **others)
        self.assertEqual((0, []), self.compile(name))
        return self.output()


class SyntaxErrors(Workspace):
    REFUSED = [
        ("interface I {\n    void f(int);\n}",
         "3:15: unexpected ')', '.' or '[]' or a name should stand here"),
        ("interface I { void f(); # }", "2:25: unexpected character '#'"),
        ("/* no end\ninterface I { void f(); }", "2:1: this comment has no end"),
        ('@Backing(type="int") enum E { A = 010 }',
         "2:36: unexpected '10', ',' or '}' should stand here"),
        ("interface I { void f(); \0 }", "2:25: unexpected character '\\x00'"),
        (f"interface I {{ void f(); }} {'x' * 5000}",
         f"2:27: unexpected '{'x' * 57}...', the end of the file should stand here"),
        ("// one\r\n/* two\r\n*/ interface I {\r\n  void f()\r\n}\r",
         "6:1: unexpected '}', ';' or '=' should stand here"),
    ]

    def test_no_package(self):
        for text, said in (("interface I {}", "'interface', 'package' should stand here"),
                           ("", "end of the file, 'package' should stand here"),
                           ("\ufeff" + HEAD, "character '\\ufeff'")):
            (self.package / "I.aidl").write_text(text, encoding="utf-8")
            self.fails(f"I.aidl:1:1: unexpected {said}", "I")

    def test_end_of_file(self):
        self.write(I="interface I {")
        status, errors = self.compile("I")
        self.assertEqual(1, status)
        self.assertRegex(errors[0], r"^I.aidl:2:13: unexpected end of the file, .* should stand here$")

    def test_deep_nesting(self):
        for text in ("parcelable P {" * 5000, "parcelable P {" * 5000 + "}" * 5000):
            self.refused(text, "2:15: unexpected 'parcelable', '@' or 'union' or '}' or a name "
                         "should stand here")
        self.refused("parcelable P { union U {" + "union U {" * 5000 + "}" * 5000,
                     "2:25: unexpected 'union', '@' or '}' or a name should stand here")
        self.refused("parcelable P { int" + "[" * 5000 + "]" * 5000 + " x; }\n",
                     "2:19: unexpected character '['")
        self.accepted("/* " * 5000 + "*/ interface I { void f(); }\n", "I")


class Files(Workspace):
    REFUSED = [
        ("interface I { void f(); }", "2:11: I should be defined in p/q/I.aidl", {"name": "J"}),
        ("package p.r;\ninterface I { void f(); }", "2:11: I should be defined in p/r/I.aidl"),
        ("import p.q.X;\ninterface I { void f(); }",
         "2:8: cannot find p.q.X in the directories given with -I"),
    ]

    def test_missing(self):
        self.fails("I.aidl:1:1: cannot be read: No such file or directory", "I")

    def test_not_utf8(self):
        (self.package / "I.aidl").write_bytes(b"package p.q; // \xff\n")
        self.fails("I.aidl:1:1: is not UTF-8 text", "I")

    def test_links_in_a_circle(self):
        (self.package / "I.aidl").symlink_to("J.aidl")
        (self.package / "J.aidl").symlink_to("I.aidl")
        self.fails("I.aidl:1:1: cannot be read: Too many levels of symbolic links", "I")
        self.write(K="import p.q.J;\ninterface K { void f(); }\n")
        self.fails("K.aidl:2:8: cannot find p.q.J in the directories given with -I", "K")

    def test_long_name(self):
        name = "I" * 300
        self.fails(f"{name}.aidl:1:1: cannot be read: File name too long", name)
        self.refused(f"import p.q.{name};\ninterface I {{ void f(); }}\n",
                     f"2:8: cannot find p.q.{name} in the directories given with -I")

    def test_link(self):
        self.write(elsewhere=INTERFACE)
        for name in "I", "J":
            (self.package / f"{name}.aidl").symlink_to("elsewhere.aidl")
        self.fails("J.aidl:2:11: I should be defined in p/q/I.aidl", "I", "J")
        self.assertEqual((0, []), self.compile("I"))

    def test_import_of_a_file_that_defines_another_name(self):
        self.write(P=PARCELABLE, I="import q.P;\ninterface I { void f(); }\n")
        self.fails("I.aidl:2:8: P.aidl defines p.q.P, not q.P", "I", include=["in/p"])

    def test_import_that_two_directories_have(self):
        other = self.root / "other" / "p" / "q"
        other.mkdir(parents=True)
        (other / "P.aidl").write_text(PARCELABLE)
        self.write(P=PARCELABLE, I="import p.q.P;\ninterface I { void f(in P x); }\n")
        self.fails(f"I.aidl:2:8: p.q.P is defined in P.aidl and {other}/P.aidl", "I",
                   include=["in", "other"])
        self.assertEqual((0, []), self.compile("I", include=["in", "in", "nowhere"]))

    def test_many_imports_of_one_another(self):
        """Every file imports all before it: there are 2^40 ways through them."""
        for number in range(40):
            imports = "".join(f"import p.q.P{one};\n" for one in range(number))
            self.write(**{f"P{number}": f"{imports}parcelable P{number} {{ int x; }}\n"})
        self.assertEqual((0, []), self.compile("P39"))

    def test_long_chain_of_imports(self):
        for number in range(1500):
            self.write(**{f"P{number}": f"import p.q.P{number + 1};\n"
                                        f"parcelable P{number} {{ int x; }}\n"})
        self.write(P1500="parcelable P1500 { int x; }\n")
        self.assertEqual((0, []), self.compile("P0"))

    def test_every_file_is_checked_and_a_shared_fault_is_reported_once(self):
        self.write(E=ENUM, I="import p.q.P;\ninterface I { void f(); }\n",
                   J="interface J { int f(); }\n", P="parcelable P { int }\n")
        self.assertEqual(
            (1, ["P.aidl:2:20: unexpected '}', '.' or '[]' or a name should stand here",
                 "J.aidl:2:15: results other than void are not understood"]),
            self.compile("E", "I", "J", "P"))
        self.assertEqual({}, self.output())


class Names(Workspace):
    REFUSED = [
        ("interface I { void f(in P x); }",
         "2:25: there is no type P here: is an import missing?", {"P": PARCELABLE}),
        ("import p.q.P;\ninterface I { void f(in p.q.P x); }",
         "3:25: there is no type p.q.P here: is an import missing?", {"P": PARCELABLE}),
        ("import p.q.P;\nimport p.q.P;\ninterface I { void f(); }",
         "3:8: line 2 imports p.q.P already", {"P": PARCELABLE}),
        ("interface I {\n  void f();\n  void f(int x);\n}", "4:8: line 3 has a method f already"),
        ("interface I { void f(int x, long x); }", "2:34: line 2 has an argument x already"),
        ("parcelable P {\n  int x;\n  long x;\n}", "4:8: line 3 has a member x already"),
        ('@Backing(type="int") enum E { A, A }', "2:34: line 2 has an enumerator A already"),
        ("parcelable P { union P { int a; } int x; }",
         "2:22: there is a type P in this file already"),
        ("interface I { void delete(int class); }",
         "2:20: delete is a reserved word of C++", "2:31: class is a reserved word of C++"),
        ("parcelable P { int requires; }", "2:20: requires is a reserved word of C++"),
        ("package p.new;\ninterface I { void f(); }", "2:11: I should be defined in p/new/I.aidl"),
        ("parcelable P { int _x; }", "2:20: _x begins with an underscore, as only made names do"),
        ("parcelable long { int x; }", "2:12: long is a word of the language", {"name": "long"}),
        ("parcelable String { int x; }",
         "2:12: the generated code uses the name String itself", {"name": "String"}),
    ]

    def test_types_of_the_language_that_are_not_understood(self):
        for word in ("String", "IBinder", "float", "double", "char", "List"):
            with self.subTest(word):
                self.refused(f"interface I {{ void f({word} x); }}\n",
                             f"2:22: the type {word} is not understood")

    def test_imported_from_two_packages(self):
        (self.root / "in" / "p" / "P.aidl").write_text("package p;\nparcelable P { int x; }\n")
        self.refused("import p.q.P;\nimport p.P;\ninterface I { void f(); }\n",
                     "3:8: there is a type P in this file already", P=PARCELABLE)

    def test_words_of_the_language(self):
        for word in ("in", "out", "inout", "oneway", "interface", "parcelable", "enum", "union",
                     "import", "package"):
            with self.subTest(word):
                message = f"unexpected '{word}', '.' or '[]' or a name should stand here"
                self.refused(f"parcelable P {{ int {word}; }}\n", f"2:20: {message}")
                self.refused(f"interface I {{ void {word}(); }}\n", f"2:20: {message}")
                self.refused(f"interface I {{ void f(int {word}); }}\n", f"2:26: {message}")
        for word in ("boolean", "byte", "int", "long"):
            with self.subTest(word):
                self.refused(f"parcelable P {{ int {word}; }}\n",
                             f"2:20: {word} is a word of the language")
                self.refused(f"interface I {{ void f(int {word}); }}\n",
                             f"2:26: {word} is a word of the language")

    def test_package_that_is_no_namespace(self):
        for word in ("new", "long", "std"):
            with self.subTest(word):
                directory = self.root / "in" / "p" / word
                directory.mkdir()
                (directory / "P.aidl").write_text(f"package p.{word};\nparcelable P {{ int x; }}\n")
                self.fails(f"../{word}/P.aidl:1:9: {word} cannot be the name of a namespace in C++",
                           f"../{word}/P")

    def test_names_of_the_made_class(self):
        self.refused("interface I { void asBinder(); }\n",
                     "2:20: the generated code uses the name asBinder itself")
        self.refused("parcelable P { int toString; union U { int getTag; } }\n",
                     "2:44: the generated code uses the name getTag itself",
                     "2:20: the generated code uses the name toString itself")
        for name in ("I", "BnI", "BpI", "IDefault", "IDelegator"):
            with self.subTest(name):
                self.refused(f"interface I {{ void {name}(); }}\n",
                             f"2:20: the generated code uses the name {name} itself")
        self.refused("parcelable P { int P; union U { int U; } }\n",
                     "2:37: the generated code uses the name U itself",
                     "2:20: the generated code uses the name P itself")

    def test_names_that_would_hide_what_the_made_code_uses(self):
        for name in ("AParcel", "AIBinder_new", "STATUS_OK", "TRANSACTION_f", "int32_t", "std"):
            with self.subTest(name):
                message = f"the generated code uses the name {name} itself"
                self.refused(f"interface I {{ void {name}(); }}\n", f"2:20: {message}")
                self.refused(f"parcelable P {{ int {name}; }}\n", f"2:20: {message}")
                self.refused(f"parcelable {name} {{ int x; }}\n", f"2:12: {message}",
                             name=name)
        # What has a name of its own in the generated code hides nothing.
        self.accepted('@Backing(type="int") enum E { STATUS_OK, AParcel }\n', "E")
        self.accepted("interface I { void f(int AParcel); }\n", "I")


class Interfaces(Workspace):
    REFUSED = [
        ("import p.q.P;\ninterface I { void f(byte[] a, P b); }",
         "3:22: byte[] can be in or out: say in before it",
         "3:32: P can be in or out: say in before it", {"P": PARCELABLE}),
        ("interface I { void f(out byte[] a, inout byte[] b); }",
         "2:22: the direction out is not understood",
         "2:36: the direction inout is not understood"),
        ("oneway interface I { void f(out byte[] a); }",
         "2:29: a one-way method gives nothing back: its arguments can only be in"),
        ("interface I { void f(out int a); }", "2:22: int can only be in"),
        ("interface I { int f(); }", "2:15: results other than void are not understood"),
        ("oneway interface I {\n  void f();\n  int g();\n}",
         "4:3: a one-way method returns nothing: its result must be void"),
        ("interface I { void[] f(); }", "2:15: results other than void are not understood"),
        ("interface I { void f(void x); }", "2:22: only a method's result can be void"),
        ("interface I { oneway void f(); }",
         "2:27: one-way methods are understood only in a one-way interface"),
        ("interface I { void f() = 7; }",
         "2:26: method numbers cannot be chosen: they count from 1"),
        ("interface I {}", "2:11: I needs at least one method"),
        ("@VintfStability interface I { @nullable void f(); }",
         "2:2: @VintfStability is not understood here", "2:32: @nullable is not understood here"),
        ("interface I { void f(@nullable I x); }",
         "2:23: @nullable is not understood on an argument"),
        ("interface I { void f(in I[] x, in int[] y, byte z); }",
         "2:25: arrays of I are not understood", "2:35: arrays of int are not understood",
         "2:44: a byte is understood only in an array"),
        ("import p.q.J;\ninterface I { void f(J x); }",
         "3:11: types import one another: I -> J -> I",
         {"J": "import p.q.I;\ninterface J { void f(I x); }\n"}),
    ]


class Enumerations(Workspace):
    REFUSED = [
        ("enum E { A }", '2:6: E needs a @Backing(type="int")'),
        ('@Backing(type="int") @Backing(type="int") enum E { A }',
         "2:23: there is a @Backing already"),
        ('@Deprecated @Backing(type="int") enum E { A }',
         "2:2: @Deprecated is not understood here"),
        ('@Backing(type="int") enum E {}', "2:27: E needs at least one enumerator"),
        ('@Backing(type="int") enum E { A = 2147483647, B, C = -2147483649 }',
         "2:47: 2147483648 does not fit the backing type int",
         "2:50: -2147483649 does not fit the backing type int"),
        ('@Backing(type="int") enum E { A = 0x100000000 }',
         "2:31: 0x100000000 does not fit the backing type int"),
        ('@Backing(type="int", type="long") enum E { A }', "2:2: @Backing has an argument twice"),
        ('@Backing(type="int") enum E { A = 1, B = 0, C }', "2:45: 1 is the value of A already"),
    ] + [(f"@Backing{argument} enum E {{ A }}\n", '2:2: @Backing should have type="int"')
         for argument in ('(type="byte")', '(kind="int")', "")]

    def test_number_of_many_digits(self):
        for digits in ("9" * 5000, "-" + "9" * 5000, "0x" + "f" * 5000):
            self.refused(f'@Backing(type="int") enum E {{ A = {digits}, B }}\n',
                         f"2:31: {digits[:57]}... does not fit the backing type int")
        made = self.accepted(f'@Backing(type="int") enum E {{ A = 0x{"0" * 5000}7 }}\n', "E")
        self.assertIn("    A = 7,\n", made["include/aidl/p/q/E.h"])

    def test_values(self):
        made = self.accepted('@Backing(type="int") enum E { A, B = 0x10, C, D = 0x7fffffff, '
                             "F = 0x80000000, G = -2147483647, H = 0xFFFFFFFF, }\n", "E")
        self.assertIn("enum class E : int32_t {\n    A = 0,\n    B = 16,\n    C = 17,\n"
                      "    D = 2147483647,\n    F = -2147483648,\n    G = -2147483647,\n"
                      "    H = -1,\n};\n", made["include/aidl/p/q/E.h"])


class Parcelables(Workspace):
    REFUSED = [
        ("parcelable P { int x = 1; }", "2:24: default values are not understood"),
        ("parcelable P { @nullable byte[] x; }", "2:17: @nullable is not understood here"),
        ("parcelable P { void x; }", "2:16: only a method's result can be void"),
        ("import p.q.I;\nparcelable P { I x; }",
         "3:16: a field cannot be an interface here", {"I": INTERFACE, "name": "P"}),
        ("parcelable P { P x; }", "2:16: P would contain itself"),
        ("parcelable P { P[] x; }", "2:16: P would contain itself"),
        ("parcelable P { union U { U a; P b; } U x; }", "2:26: U would contain itself",
         "2:31: P would contain itself"),
        ("import p.q.Q;\nparcelable P { Q x; }", "3:12: types import one another: P -> Q -> R -> P",
         {"Q": "import p.q.R;\nparcelable Q { R x; }", "R": "import p.q.P;\nparcelable R { P x; }\n"}),
        ("parcelable P { parcelable Q { int x; } int y; }",
         "2:16: unexpected 'parcelable', '@' or 'union' or '}' or a name should stand here"),
        ("parcelable P { union U {} int x; }", "2:22: U needs at least one member"),
        ("union P { int a; }", "2:7: a union is understood only inside a parcelable"),
    ]

    def test_fields_may_have_names_that_the_functions_use_inside(self):
        made = self.accepted("parcelable P { int size; int status; int parcel; int start; }\n",
                             "P")
        self.assertIn("AParcel_readData(parcel, &this->status)", made["src/p/q/P.cpp"])


class Mutations(Workspace):
    def test_whatever_a_file_holds_is_compiled_or_refused_with_a_place(self):
        """The tree's own files with pieces of them moved, cut out and replaced, always the same."""
        files = {path.stem: path.read_bytes() for path in sorted((ROOT / "aidl").rglob("*.aidl"))}
        self.package = self.root / "in" / "vendor" / "orn" / "data" / "lumservice"
        self.package.mkdir(parents=True)
        random_ = random.Random(1)
        pieces = [*b"".join(files.values()).split(), b"\0", b"\xff", b"\xef\xbb\xbf", b"\r", b"/*",
                  b'"', b"}", b"9" * 5000, b"union U { int a; }"]
        statuses = {0: 0, 1: 0}
        for name, text in list(files.items()) * 30:
            for _ in range(random_.randint(1, 3)):
                begin = random_.randrange(len(text))
                end = begin + random_.choice((0, 1, 10))
                text = text[:begin] + random_.choice((b"", random_.choice(pieces))) + text[end:]
            for one, original in files.items():
                (self.package / f"{one}.aidl").write_bytes(text if one == name else original)
            status, errors = self.compile(name)
            statuses[status] += 1
            self.assertEqual(status, 1 if errors else 0)
            for error in errors:
                self.assertRegex(error, r"^\w+\.aidl:\d+:\d+: .")
                self.assertTrue(error.isprintable(), error)
        self.assertGreater(min(statuses.values()), 50)


class Output(Workspace):
    def test_files(self):
        self.write(E=ENUM, P=PARCELABLE, IThing="interface IThing { void f(); }\n",
                   Ice="interface Ice { void f(); }\n")
        self.assertEqual((0, []), self.compile("E", "P", "IThing", "Ice"))
        names = ("E.h", "BpE.h", "BnE.h", "P.h", "BpP.h", "BnP.h", "IThing.h", "BpThing.h",
                 "BnThing.h", "Ice.h", "BpIce.h", "BnIce.h")
        self.assertEqual({f"include/aidl/p/q/{name}" for name in names}
                         | {f"src/p/q/{name}.cpp" for name in ("E", "P", "IThing", "Ice")},
                         set(self.output()))

    def test_same_input_twice(self):
        self.write(I=INTERFACE)
        self.assertEqual((0, []), self.compile("I", "I"))

    def test_same_output_twice(self):
        self.write(IThing="interface IThing { void f(); }\n",
                   Thing="parcelable Thing { int x; }\n")
        self.fails(f"Thing.aidl:2:12: {self.root}/out/include/aidl/p/q/BpThing.h is made from "
                   "IThing.aidl already", "IThing", "Thing")

    def test_output_that_cannot_be_written(self):
        self.write(E=ENUM, I=INTERFACE)
        (self.root / "file").touch()
        self.fails(f"{self.root}/file/include/aidl/p/q/E.h:1:1: cannot be written: "
                   "Not a directory", "E", "I", out="file")
        header = self.root / "full" / "include" / "aidl" / "p" / "q" / "BnI.h"
        header.parent.mkdir(parents=True)
        header.symlink_to("/dev/full")
        self.fails(f"{header}:1:1: cannot be written: No space left on device", "E", "I", out="full")
        self.assertEqual({}, self.output("full"))

    def test_one_way_word_may_be_repeated(self):
        made = self.accepted("oneway interface I { oneway void f(); }\n", "I")
        self.assertIn("FLAG_ONEWAY", made["src/p/q/I.cpp"])

    def test_same_input_same_output(self):
        """Two runs of the program over the real files, hashed differently, write the same bytes."""
        files = sorted((ROOT / "aidl").rglob("*.aidl"))
        digests = set()
        for seed in ("1", "2"):
            subprocess.run(
                ["/usr/bin/python3", COMPILER, "--lang=ndk", "--structured", "-I", ROOT / "aidl",
                 "-o", self.root / seed / "src", "-h", self.root / seed / "include", *files],
                check=True, env={**os.environ, "PYTHONHASHSEED": seed})
            made = self.output(seed)
            self.assertEqual(4 * len(files), len(made))
            digests.add(hashlib.sha256(repr(sorted(made.items())).encode()).hexdigest())
        self.assertEqual(1, len(digests))

    def test_program_reports_faults(self):
        self.write(I="interface I { int f(); }\n")
        ran = subprocess.run(
            ["/usr/bin/python3", COMPILER, "--lang=ndk", "--structured", "-I", self.root / "in",
             "-o", self.root / "out", "-h", self.root / "out", self.package / "I.aidl"],
            capture_output=True, text=True, check=False)
        self.assertEqual((1, "", f"{self.package}/I.aidl:2:15: results other than void are not "
                          "understood\n"), (ran.returncode, ran.stdout, ran.stderr))


if __name__ == "__main__":
    unittest.main()
