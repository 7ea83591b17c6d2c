# SPDX-License-Identifier: Apache-2.0
"""What `cmake --install` puts in place: exactly what it should, movable, and of use to programs
outside the tree, those of the first page for newcomers among them.

usage: install_test.py TREE BUILD LIBRARY_DIRECTORY VERSION C_COMPILER C++_COMPILER
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).parents[1] / "support"))
import pages  # noqa: E402

LIMIT = 60  # seconds after which something counts as not happening

TREE, BUILD = (Path(argument) for argument in sys.argv[1:3])
LIB, VERSION, CC, CXX = sys.argv[3:7]
MAJOR = VERSION.split(".")[0]
CONSUMER = Path(__file__).parent / "consumer"
DOC = "share/doc/lum_sdf"
PROGRAMS = ("lum_sdf_demo", "lum_sdf_emulator", "lum_sdf_monitor", "lum_servicemanager", "sdfctl")

COMPONENTS = {
    "runtime": {
        f"{LIB}/liblum_sdf_sdk.so.{VERSION}",
        f"{LIB}/liblum_sdf_sdk.so.{MAJOR}",
        f"{LIB}/lum-sdf-{MAJOR}/libbinder_ndk.so",
        f"{DOC}/LICENSE",
    },
    "session": {
        f"{LIB}/liblum_sdf_session.so.{VERSION}",
        f"{LIB}/liblum_sdf_session.so.{MAJOR}",
    },
    "development": {
        "include/lum_sdf_sdk.h",
        "include/lum_sdf_session.h",
        "include/lum_sdf_session.hpp",
        f"{LIB}/liblum_sdf_sdk.so",
        f"{LIB}/liblum_sdf_session.so",
        f"{LIB}/cmake/LumSdfSdk/LumSdfSdkConfig.cmake",
        f"{LIB}/cmake/LumSdfSdk/LumSdfSdkConfigVersion.cmake",
        f"{LIB}/cmake/LumSdfSdk/LumSdfSdkTargets.cmake",
        f"{LIB}/cmake/LumSdfSdk/LumSdfSdkTargets-relwithdebinfo.cmake",
        f"{LIB}/pkgconfig/lum-sdf-sdk.pc",
        f"{LIB}/pkgconfig/lum-sdf-session.pc",
        f"{DOC}/api/include/lum_sdf_sdk.h",
        f"{DOC}/session/include/lum_sdf_session.h",
        f"{DOC}/session/include/lum_sdf_session.hpp",
        *(f"{DOC}/docs/{page.name}" for page in TREE.glob("docs/*.md")),
        f"{DOC}/docs/valgrind.supp",
        *(f"{DOC}/examples/{name}" for name in (
            "README.md", "game.c", "libuv.c", "monitor.cpp", "demo/callbacks.c", "demo/callbacks.h",
            "demo/demo.c", "demo/service.c", "demo/service.h", "demo/session.c", "demo/session.h",
            "demo/tell.c", "demo/tell.h")),
    },
    "tools": {
        *(f"bin/{program}" for program in PROGRAMS),
        f"{LIB}/lum-sdf-{MAJOR}/liblum_debug_log.so",
        f"{DOC}/copyright",
        f"{DOC}/docs/emulator.md",
        f"{DOC}/docs/flows.md",
        *(f"share/man/man1/{program}.1" for program in PROGRAMS),
        "share/bash-completion/completions/sdfctl",
        "share/lum-sdf/flows.schema.json",
    },
}


def run(*command, **options):
    done = subprocess.run(command, text=True, timeout=LIMIT, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with status {done.returncode}:\n{done.stdout}")
    return done.stdout


def install(prefix, *definitions, **options):
    """As `cmake --install BUILD --prefix PREFIX --strip`, but for the list of what was installed: that
    in the build directory is of what its user has installed."""
    script = (BUILD / "cmake_install.cmake").read_text()
    user_list = f'"{BUILD}/${{CMAKE_INSTALL_MANIFEST}}"'
    if script.count(user_list) != 1:
        raise AssertionError(f"cmake_install.cmake does not write {user_list} once")
    with tempfile.TemporaryDirectory() as directory:
        copy = Path(directory) / "cmake_install.cmake"
        copy.write_text(script.replace(user_list, f'"{directory}/list"'))
        run("cmake", f"-DCMAKE_INSTALL_PREFIX={prefix}", "-DCMAKE_INSTALL_DO_STRIP=1", *definitions,
            "-P", copy, **options)


def files(directory):
    return {str(path.relative_to(directory)) for path in directory.rglob("*")
            if path.is_symlink() or not path.is_dir()}


class InstallTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        directory = tempfile.TemporaryDirectory()
        cls.addClassCleanup(directory.cleanup)
        cls.home = Path(directory.name)
        cls.prefix = cls.home / "lum-sdf"
        cls.first_prefix = cls.home / "elsewhere/first"
        install(cls.first_prefix)
        cls.first_prefix.rename(cls.prefix)
        # The programs have to find what they need without this process's environment.
        cls.environment = {
            "CC": CC, "CXX": CXX, "HOME": str(cls.home), "LUM_BINDER_DIR": f"{cls.home}/binder",
            "PATH": f"{cls.prefix}/bin:{os.environ['PATH']}"}

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = Path(directory.name)

    def run_here(self, *command):
        return run(*command, cwd=self.directory, env=self.environment)

    def start_service(self, *command):
        service = subprocess.Popen([*(command or ["lum_sdf_emulator"]), "--until-eof"],
                                   env=self.environment, text=True, stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE)
        self.addCleanup(service.communicate)  # ends its input, and so the service
        self.assertRegex(service.stdout.readline(), "^ready: ")

    def test_each_component_has_its_files(self):
        for component, wanted in COMPONENTS.items():
            with self.subTest(component=component):
                install(self.directory / component, f"-DCMAKE_INSTALL_COMPONENT={component}")
                self.assertEqual(files(self.directory / component), wanted)

    def test_there_is_nothing_else(self):
        self.assertEqual(files(self.prefix), set().union(*COMPONENTS.values()))

    def test_no_file_names_a_folder_that_only_building_needs(self):
        for name in files(self.prefix):
            with self.subTest(name=name):
                content = (self.prefix / name).read_bytes()
                # But the run path of programs, for where it cannot be found out.
                lib = f"{self.first_prefix}/{LIB}"
                content = content.replace(f":{lib}:{lib}/lum-sdf-{MAJOR}\0".encode(), b"", 1)
                for directory in (TREE, BUILD, self.first_prefix):
                    self.assertNotIn(str(directory).encode(), content)

    def test_links_lead_to_installed_files(self):
        for page in (self.prefix / DOC).rglob("*.md"):
            for link in pages.links(page):
                with self.subTest(page=page.name, link=link):
                    self.assertTrue((page.parent / link).exists())

    def test_first_page_for_newcomers(self):
        page = self.prefix / DOC / "docs/getting-started.md"
        (program,), (project,), (printed,) = (
            pages.blocks(page, language) for language in ("c", "cmake", "text"))
        (self.directory / "hello.c").write_text(program)
        (self.directory / "CMakeLists.txt").write_text(project)
        self.start_service()
        ways = pages.blocks(page, "sh")
        self.assertEqual(len(ways), 2)
        for commands in ways:
            with self.subTest(commands=commands):
                build, program = commands.rstrip().rsplit("\n", 1)
                self.run_here("sh", "-eu", "-c", build)
                self.assertEqual(self.run_here(program), printed)

    def test_programs_that_find_the_cmake_package(self):
        configure = ("cmake", "-S", CONSUMER, "-B", "build",
                     f"-DCMAKE_PREFIX_PATH={self.prefix}")
        with self.assertRaisesRegex(AssertionError, "compatible with requested version \"2.0\""):
            self.run_here(*configure, "-DWANTED_VERSION=2.0")
        with self.assertRaisesRegex(AssertionError, "LumSdfSdk was built without\\s+lum_sdf_other"):
            self.run_here(*configure, "-DWANTED_VERSION=1.0", "-DWANTED_COMPONENT=lum_sdf_other")
        self.run_here(*configure, f"-DWANTED_VERSION={VERSION}", "-DWANTED_COMPONENT=lum_sdf_session")
        self.run_here("cmake", "--build", "build")
        self.start_service()
        for program in ("consumer", "session_c", "session_cpp"):
            with self.subTest(program=program):
                self.assertEqual(self.run_here(f"build/{program}"), "3 4\n")

    def test_cmake_package_is_found_through_a_link(self):
        # As where /lib is a link to /usr/lib.
        (self.directory / "root").mkdir()
        (self.directory / "root/usr").symlink_to(self.prefix)
        (self.directory / "root/lib").symlink_to("usr/lib")
        self.run_here("cmake", "-S", CONSUMER, "-B", "build", "-DWANTED_VERSION=1.0",
                      f"-DCMAKE_PREFIX_PATH={self.directory}/root")

    def test_programs_that_ask_pkg_config(self):
        self.environment["PKG_CONFIG_PATH"] = f"{self.prefix}/{LIB}/pkgconfig"
        self.start_service()
        for package, compiler, source in (
                ("lum-sdf-sdk", (CXX, "-std=c++17"), "consumer.cpp"),
                ("lum-sdf-session", (CC, "-std=c11"), "session.c"),
                ("lum-sdf-session", (CXX, "-std=c++17"), "session.cpp")):
            with self.subTest(source=source):
                self.assertEqual(self.run_here("pkg-config", "--modversion", package).strip(), VERSION)
                flags = self.run_here("pkg-config", "--cflags", "--libs", package).split()
                libdir = self.run_here("pkg-config", "--variable=libdir", package).strip()
                self.run_here(*compiler, CONSUMER / source, *flags, f"-Wl,-rpath,{libdir}", "-o", "program")
                self.assertEqual(self.run_here("./program"), "3 4\n")

    def test_valgrind_has_nothing_to_say(self):
        (program,) = pages.blocks(self.prefix / DOC / "docs/getting-started.md", "c")
        (self.directory / "hello.c").write_text(program)
        self.environment["PKG_CONFIG_PATH"] = f"{self.prefix}/{LIB}/pkgconfig"
        flags = self.run_here("pkg-config", "--cflags", "--libs", "lum-sdf-session").split()
        self.run_here(CC, "hello.c", *flags, f"-Wl,-rpath,{self.prefix}/{LIB}", "-o", "hello")
        self.start_service()
        self.run_here("valgrind", "--leak-check=full", "--error-exitcode=9",
                      f"--suppressions={self.prefix}/{DOC}/docs/valgrind.supp", "./hello")

    def test_examples_build_as_their_page_says(self):
        examples = self.prefix / DOC / "examples"
        self.environment["PKG_CONFIG_PATH"] = f"{self.prefix}/{LIB}/pkgconfig"
        for compiler, name in ((CC, "game.c"), (CXX, "monitor.cpp")):
            with self.subTest(name=name):
                self.run_here("sh", "-euc", f"{compiler} {examples}/{name} "
                              "$(pkg-config --cflags --libs lum-sdf-session)")

    def test_libraries_go_where_a_package_builder_wants_them(self):
        # In the way of those who give no types to what they set.
        self.run_here("cmake", "-S", TREE, "-B", "build", "-DBUILD_TESTING=OFF",
                      "-DCMAKE_INSTALL_PREFIX=/usr", "-DCMAKE_INSTALL_LIBDIR=lib/wanted")
        described = (self.directory / "build/packaging/lum-sdf-sdk.pc").read_text()
        self.assertIn("\nlibdir=${prefix}/lib/wanted\n", described)

    def test_session_is_refused_where_the_library_is_not_guarded(self):
        refused = "liblum_sdf_session\\s+needs\\s+a\\s+library\\s+built\\s+with\\s+LUM_SDF_GUARDED"
        (self.directory / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.25)\nproject(outside C CXX)\n"
            f"add_subdirectory({TREE} lum)\n")
        for tree in (TREE, self.directory):
            configure = ("cmake", "-S", tree, "-B", f"build-{tree.name}", "-DBUILD_TESTING=OFF",
                         "-DLUM_SDF_GUARDED=OFF")
            with self.subTest(tree=tree):
                with self.assertRaisesRegex(AssertionError, refused):
                    self.run_here(*configure, "-DLUM_SESSION=ON")
                self.run_here(*configure, "-DLUM_SESSION=OFF")

    def test_versions_are_one(self):
        for program in PROGRAMS:
            with self.subTest(program=program):
                self.assertEqual(self.run_here(program, "--version"),
                                 f"{program} (lum SDF) {VERSION}\n")
        header = (self.prefix / "include/lum_sdf_sdk.h").read_text()
        self.assertIn(f'\n#define LUM_SDF_SDK_VERSION "{VERSION}"\n', header)
        for name, number in zip(("MAJOR", "MINOR", "PATCH"), VERSION.split(".")):
            self.assertIn(f"\n#define LUM_SDF_SDK_VERSION_{name} {number}\n", header)

    def test_bash_completes_what_the_program_takes(self):
        for typed, wanted in (("sdfctl set-latency s", ["second"]), ("sdfctl --ma", ["--manual"]),
                              ("sdfctl status then delete-a", ["delete-all-filters"]),
                              ("sdfctl foo ", []), ("sdfctl doc", ["doctor"])):
            with self.subTest(typed=typed):
                completed = self.run_here(
                    "bash", "-euc", """
                    . "$1"
                    complete -p sdfctl | grep -q -- '-F _sdfctl '
                    COMP_LINE=$2 COMP_POINT=${#2}
                    _sdfctl sdfctl
                    printf '%s\n' "${COMPREPLY[@]}"
                    """, "bash", self.prefix / "share/bash-completion/completions/sdfctl", typed)
                self.assertEqual(completed.split(), wanted)

    def test_tools_work_in_a_chroot_without_proc(self):
        become_root = [] if os.geteuid() == 0 else ["unshare", "--map-root-user"]
        change_root = [*become_root, "/usr/sbin/chroot", self.directory]
        self.environment["DESTDIR"] = str(self.directory)
        install("/opt/lum-sdf", env=self.environment)
        (self.directory / "tmp").mkdir()
        for program in PROGRAMS:
            self.copy_libraries(self.prefix / "bin" / program)
        shutil.copy("/bin/true", self.directory)
        self.copy_libraries("/bin/true")
        if subprocess.run([*change_root, "/true"], stderr=subprocess.DEVNULL).returncode != 0:
            self.skipTest("this user may not change the root directory")
        self.environment["LUM_BINDER_DIR"] = "/tmp/binder"
        for program in PROGRAMS:
            with self.subTest(program=program):
                self.run_here(*change_root, f"/opt/lum-sdf/bin/{program}", "--version")
        self.start_service(*change_root, "/opt/lum-sdf/bin/lum_sdf_emulator")
        printed = self.run_here(*change_root, "/opt/lum-sdf/bin/sdfctl", "set-latency", "first", "1", "3")
        self.assertIn("first=level-1 second=level-3\n", printed)

    def copy_libraries(self, program):
        """Copies what the program needs of the system to where it is found below the test's directory."""
        for library in re.findall(r"(/\S+) \(0x", run("ldd", program)):
            if not library.startswith(str(self.prefix)):
                copy = self.directory / library.lstrip("/")
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(library, copy)

    def test_programs_do_without_a_prefix_that_is_too_long(self):
        prefix = self.directory.joinpath(*["x" * 200] * 2)
        install(prefix)
        self.run_here(prefix / "bin/sdfctl", "--version")
        self.assertNotIn(b"xxx", (prefix / "bin/sdfctl").read_bytes())

    def test_tools_work_together(self):
        self.start_service()
        printed = self.run_here("sdfctl", "set-latency", "first", "1", "3")
        self.assertTrue(re.search("event levels: id=[0-9]+ first=level-1 second=level-3\n", printed))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
