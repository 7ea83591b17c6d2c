# SPDX-License-Identifier: Apache-2.0
"""Makes the machine's initial file system: a cpio archive in the kernel's "newc" format, of the
cross-built programs at the paths that they have here, which are what is compiled into them, and of
the shared libraries that they need. No root and no device nodes are wanted for it.
"""

import os
import re
import stat
import subprocess
import tempfile
from pathlib import Path

TOOLS = "arm-linux-gnueabihf-"
LIBRARY_FOLDERS = ("lib/arm-linux-gnueabihf", "usr/lib/arm-linux-gnueabihf")


class Archive:
    """What is added is written out by finish(); the folders of each path are added by themselves."""

    def __init__(self):
        self._entries = {}  # path without the leading slash: (mode, content)

    def _add(self, path, mode, content):
        path = Path(path)
        for folder in reversed(path.parents[:-1]):
            self._entries.setdefault(str(folder).lstrip("/"), (stat.S_IFDIR | 0o755, b""))
        self._entries[str(path).lstrip("/")] = (mode, content)

    def folder(self, path, mode=0o755):
        self._add(path, stat.S_IFDIR | mode, b"")

    def file(self, path, content, mode=0o755):
        self._add(path, stat.S_IFREG | mode, content)

    def link(self, path, target):
        self._add(path, stat.S_IFLNK | 0o777, os.fsencode(target))

    def finish(self):
        records = [self._record(number, path, mode, content) for number, (path, (mode, content))
                   in enumerate(self._entries.items(), start=1)]
        return b"".join(records) + self._record(0, "TRAILER!!!", 0, b"")

    @staticmethod
    def _record(number, path, mode, content):
        name = os.fsencode(path) + b"\0"
        links = 2 if stat.S_ISDIR(mode) else 1
        # Inode, mode, owner, group, links, time, size, device and real device (two words each), size
        # of the name, checksum.
        words = (number, mode, 0, 0, links, 0, len(content), 0, 0, 0, 0, len(name), 0)
        header = b"070701" + b"".join(b"%08X" % word for word in words)
        return _padded(header + name) + _padded(content)


def _padded(data):
    return data + bytes(-len(data) % 4)


def _dynamic_section(path):
    """The libraries that an ELF file needs, and the folders it wants them looked for in."""
    text = subprocess.run([TOOLS + "readelf", "-d", path], check=True, capture_output=True,
                          text=True).stdout
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", text)
    folders = re.findall(r"\((?:RPATH|RUNPATH)\).*\[(.*)\]", text)
    return needed, [folder for path in folders for folder in path.split(":") if folder]


def _stripped(path):
    with tempfile.NamedTemporaryFile() as copy:
        subprocess.run([TOOLS + "strip", "-o", copy.name, path], check=True)
        return Path(copy.name).read_bytes()


def started_by(content, build):
    """The names of the programs that a program with this content starts: of the scripts that start
    them here in an emulator, whose paths are compiled into it."""
    paths = re.escape(os.fsencode(build / "run")) + rb"/([\w-]+)\0"
    return sorted({os.fsdecode(name) for name in re.findall(paths, content)})


class Programs:
    """Adds programs to an archive, with the shared libraries that they and those need, and with the
    programs that they start."""

    def __init__(self, archive, build, sysroot):
        self._archive = archive
        self._build = build
        self._sysroot = sysroot
        self._added = set()
        # The loader's name is compiled into every program.
        self._add_elf("/lib/ld-linux-armhf.so.3", sysroot / "lib/ld-linux-armhf.so.3")

    def add(self, path):
        self._add_elf(path, path)

    def _add_elf(self, inside, outside):
        if str(inside) in self._added:
            return
        self._added.add(str(inside))
        needed, folders = _dynamic_section(outside)
        content = _stripped(outside)
        self._archive.file(inside, content)
        for name in needed:
            self._add_library(name, folders, outside)
        for name in started_by(content, self._build):
            # No emulator is wanted there.
            self._archive.link(self._build / "run" / name, self._build / "bin" / name)
            self.add(self._build / "bin" / name)

    def _add_library(self, name, folders, wanted_by):
        for folder in folders:
            if (Path(folder) / name).exists():
                self._add_elf(Path(folder) / name, Path(folder) / name)
                return
        for folder in LIBRARY_FOLDERS:
            if (self._sysroot / folder / name).exists():
                self._add_elf(Path("/", folder, name), self._sysroot / folder / name)
                return
        raise FileNotFoundError(f"{name}, which {wanted_by} needs, is not below {self._sysroot}")


def make(build, sysroot, programs, tests):
    """The archive for a machine that runs these tests with these programs of the build."""
    archive = Archive()
    archive.folder("/tmp", 0o1777)
    for folder in ("/dev", "/proc", "/sys"):
        archive.folder(folder)
    archive.file("/bin/busybox", (sysroot / "bin/busybox").read_bytes())
    archive.link("/bin/sh", "busybox")
    archive.link("/usr/bin", "/bin")
    archive.file("/init", (Path(__file__).parent / "init.sh").read_bytes())
    archive.file("/cases.sh", (Path(__file__).parent / "cases.sh").read_bytes(), 0o644)
    archive.file("/tests", "".join(test + "\n" for test in tests).encode(), 0o644)
    archive.link("/programs", build / "bin")

    elves = Programs(archive, build, sysroot)
    for name in sorted(programs):
        elves.add(build / "bin" / name)
    # Also what is loaded by hand.
    for library in sorted((build / "lib").glob("*.so*")):
        if library.is_symlink():
            archive.link(library, os.readlink(library))
        else:
            elves.add(library)
    return archive.finish()
