#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Tests of size.py, on a small library written by hand."""
import contextlib
import io
import pathlib
import struct
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
import size  # noqa: E402

MAP = """\
     VMA      LMA     Size Align Out     In      Symbol
      b4       b4       10     4 .dynsym
      b4       b4       10     4         <internal>:(.dynsym)
      c4       c4        8     4 .ARM.exidx
      c4       c4        8     4         <internal>:(.ARM.exidx)
      cc       cc       14     1 .rodata
      cc       cc        c     1         <internal>:(.rodata)
      d8       d8        8     4         /api/b/libprotobuf-lite.a(arena.cc.o):(.rodata._ZN6google(odd):name)
    10e0     10e0       4e     4 .text
    10e0     10e0       10     4         /utils/sysroot/usr/lib/arm/crti.o:(.text)
    10e0     10e0        0     1                 $a
    10f0     10f0       20     4         api/CMakeFiles/lum_api.dir/Sdf.cpp.o:(.text._ZN3SdfC2Ev)
    10f0     10f0       20     1                 Sdf::Sdf() (.cold)
    1110     1110        6     4         utils/CMakeFiles/lum_utils.dir/LumTimer.cpp.o:(.text._ZN8LumTimerC2Ev)
    1118     1118       10     4         proto/liblum_proto.a(SdfProto.pb.cc.o):(.text._ZN8SdfProto3AddD0Ev)
    1128     1128        6     4         aidl/liblum_aidl.a(ILumService.cpp.o):(.text._ZN4aidl6vendorE)
    2130     2130        4     4 .data
    2130     2130        4     4         transport/CMakeFiles/lum_transport.dir/SdkClient.cpp.o:(.data.x)
    2134     2134       40     4 .bss
    2134     2134       40     4         api/CMakeFiles/lum_api.dir/Sdf.cpp.o:(.bss.y)
       0        0       5e     1 .comment
       0        0       5e     1         <internal>:(.comment)
"""
SECTIONS = {".dynsym": 0x10, ".ARM.exidx": 8, ".rodata": 0x14, ".text": 0x4e, ".data": 4}


def library():
    """An ELF file with the headers of these sections, 512 bytes in all."""
    names = b"\0"
    headers = [bytes(40)]
    for name, kind, flags, length in [(name, 1, 2, length) for name, length in SECTIONS.items()] + [
            (".bss", 8, 3, 0x40), (".comment", 1, 0, 0x5e), (".shstrtab", 3, 0, 0)]:
        headers.append(struct.pack("<10I", len(names), kind, flags, 0, 52, length, 0, 0, 1, 0))
        names += name.encode() + b"\0"
    image = b"\x7fELF\x01\x01" + bytes(10) + struct.pack(
        "<HHIIIIIHHHHHH", 3, 40, 1, 0, 0, 52 + len(names), 0, 52, 32, 0, 40, len(headers),
        len(headers) - 1) + names + b"".join(headers)
    assert len(image) <= 512
    return image + bytes(512 - len(image))


class Size(unittest.TestCase):
    def test_reads_a_map(self):
        sections = size.read_map(MAP)
        self.assertEqual(list(sections), [
            ".dynsym", ".ARM.exidx", ".rodata", ".text", ".data", ".bss", ".comment"])
        self.assertEqual(sections[".rodata"], [0x14, [
            ("<internal>", ".rodata", 12),
            ("/api/b/libprotobuf-lite.a(arena.cc.o)", ".rodata._ZN6google(odd):name", 8)]])
        self.assertEqual([part[2] for part in sections[".text"][1]], [16, 32, 6, 16, 6])

    def test_reads_what_a_library_has_in_its_file(self):
        # .bss takes no room in it, .comment is not loaded.
        self.assertEqual(size.read_sections(library()), SECTIONS)

    def test_every_byte_has_one_owner(self):
        figures = size.account(SECTIONS, size.read_map(MAP), 512)
        self.assertEqual(figures, {
            "dynamic linking": {"other": 16},
            "exception index of all": {"exceptions": 8},
            "strings and constants of all, merged": {"constants": 12},
            "protobuf runtime": {"constants": 8},
            "start files": {"code": 16},
            "api": {"code": 32},
            "utils": {"code": 6},
            "message code": {"code": 16},
            "interface glue": {"code": 6},
            "transport": {"data": 4},
            "alignment": {"other": 0, "exceptions": 0, "constants": 0, "code": 2, "data": 0},
            "file headers, alignment of segments": {"other": 386}})
        self.assertEqual(size.total(figures), 512)
        self.assertEqual(size.total(figures, size.OWN), 48)

    def test_refuses_a_map_of_another_library(self):
        for sections, message in [({**SECTIONS, ".text": 0x50}, ".text has 80 bytes"),
                                  ({**SECTIONS, ".plt": 8}, ".plt has 8 bytes")]:
            with self.assertRaisesRegex(size.Trouble, message):
                size.account(sections, size.read_map(MAP), 512)

    def test_refuses_a_file_that_nobody_owns(self):
        with self.assertRaisesRegex(size.Trouble, "nobody owns .text of /opt/other.o"):
            size.account(SECTIONS, size.read_map(MAP.replace("/utils/sysroot/usr/lib/arm/crti.o",
                                                             "/opt/other.o")), 512)

    def test_knows_the_compilers_helpers(self):
        for file in ["gcc/12/libgcc.a(_udivsi3.o)", "libc_nonshared.a(atexit.oS)",
                     "libclang_rt.builtins-arm-android.a(divmodsi4.S.o)"]:
            sections = size.read_map(MAP.replace("/utils/sysroot/usr/lib/arm/crti.o", "/usr/lib/" + file))
            self.assertEqual(size.account(SECTIONS, sections, 512)["compiler's helpers"], {"code": 16})

    def test_refuses_parts_larger_than_the_whole(self):
        with self.assertRaisesRegex(size.Trouble, "larger"):
            size.account(SECTIONS, size.read_map(MAP), 100)

    def test_refuses_what_is_no_such_library(self):
        with self.assertRaisesRegex(size.Trouble, "32-bit"):
            size.read_sections(b"\x7fELF\x02\x01" + bytes(100))

    def run_main(self, most, own_most):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder)
            (path / "l.so").write_bytes(library())
            (path / "l.map").write_text(MAP, encoding="utf-8")
            output = io.StringIO()
            with contextlib.redirect_stdout(output):
                status = size.main(path / "l.so", path / "l.map", most, own_most)
        return status, output.getvalue().splitlines()

    def test_tells_and_judges(self):
        status, lines = self.run_main(512, 48)
        self.assertEqual(status, 0)
        columns = [("bytes", "code", "exceptions", "constants", "data", "other", ""),
                   (32, 32, "", "", "", "", "  api"),
                   (4, "", "", "", 4, "", "  transport"),
                   (6, 6, "", "", "", "", "  utils"),
                   (6, 6, "", "", "", "", "  interface glue"),
                   (16, 16, "", "", "", "", "  message code"),
                   (8, "", "", 8, "", "", "  protobuf runtime"),
                   (16, 16, "", "", "", "", "  start files"),
                   (12, "", "", 12, "", "", "  strings and constants of all, merged"),
                   (8, "", 8, "", "", "", "  exception index of all"),
                   (16, "", "", "", "", 16, "  dynamic linking"),
                   (2, 2, "", "", "", "", "  alignment"),
                   (386, "", "", "", "", 386, "  file headers, alignment of segments"),
                   (512, 78, 8, 20, 4, 402, "  the whole file")]
        self.assertEqual(lines[:-3], ["%10s %10s %10s %10s %10s %10s%s" % row for row in columns])
        self.assertEqual(lines[-3:], [
            "",
            "the whole: 512 bytes; 512 are the most it may have",
            "our own code: 48 bytes; 48 are the most it may have"])

    def test_fails_above_either_limit(self):
        self.assertEqual(self.run_main(511, 48)[0], 1)
        self.assertEqual(self.run_main(512, 47)[0], 1)


if __name__ == "__main__":
    unittest.main(verbosity=2)
