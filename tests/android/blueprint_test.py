#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Compares Android.bp with the tree and with what CMake builds.

usage: blueprint_test.py TREE MODULE=SOURCE,... ...

Each MODULE of Android.bp must have exactly these sources, given from the top of the tree, besides
generated ones, in the configuration that has all of it.
"""
import ast
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

TREE = pathlib.Path(sys.argv[1]).resolve()
SOURCES = dict(argument.split("=") for argument in sys.argv[2:])

# What a platform tree has of its own.
PLATFORM_MODULES = {"libbinder_ndk", "liblog", "libprotobuf-cpp-full", "libprotobuf-cpp-lite"}

# What whoever builds the tools there has to fetch.
FETCHED = {"third_party/CLI11/include", "third_party/json/include"}

# Declared only for vendor and platform software, each in its own header.
PLATFORM_FUNCTIONS = {
    r"AServiceManager_\w*": "android/binder_manager.h",
    r"ABinderProcess_\w*": "android/binder_process.h",
    r"AIBinder_mark(Vendor|CompilationUnit)Stability": "android/binder_stability.h",
}


def read(text):
    """The modules in their order, each as its type and its properties, which are written as Python's
    dictionaries are, but for names without quotes, comments and `true`."""
    values = {"true": "True", "false": "False"}
    text = re.sub(r'("[^"\n]*")|//[^\n]*|([A-Za-z_]\w*)(?= *:)|\b(true|false)\b',
                  lambda found: found[1] or (found[2] and f'"{found[2]}"') or values.get(found[3], ""),
                  text)
    modules = re.findall(r"^(\w+) ({.*?^})", text, re.M | re.S)
    for _, properties in modules:
        for node in ast.walk(ast.parse(properties)):
            keys = [key.value for key in getattr(node, "keys", [])]
            if len(keys) != len(set(keys)):
                raise ValueError(f"a name is given twice: {keys}")
    return [(kind, ast.literal_eval(properties)) for kind, properties in modules]


class AndroidBp(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        modules = read((TREE / "Android.bp").read_text(encoding="utf-8"))
        cls.kinds = {properties["name"]: kind for kind, properties in modules if "name" in properties}
        cls.modules = {properties["name"]: properties for kind, properties in modules
                       if "name" in properties}
        cls.unnamed = [kind for kind, properties in modules if "name" not in properties]
        cls.named = [properties["name"] for kind, properties in modules if "name" in properties]

    def whole(self, name):
        """A module's properties, with those of its defaults that depend on no configuration."""
        whole = {}
        for part in [self.whole(default) for default in self.modules[name].get("defaults", [])] + [
                self.modules[name]]:
            for key, value in part.items():
                whole[key] = whole.get(key, []) + value if isinstance(value, list) else value
        return whole

    def all_sources(self, name):
        """Its own, and those that its defaults add with a lock; not what is generated."""
        sources = list(self.modules[name]["srcs"])
        for default in self.modules[name].get("defaults", []):
            variables = self.modules[default].get("soong_config_variables", {})
            sources += variables.get("guarded", {}).get("srcs", [])
        return [source for source in sources if source[0] != ":" and not source.endswith(".proto")]

    def test_modules(self):
        self.assertEqual(self.unnamed, ["package"])
        self.assertEqual(len(self.named), len(set(self.named)))
        self.assertEqual(self.kinds, {
            "lum_sdf_license": "license",
            "vendor.orn.data.lumservice": "aidl_interface",
            "lum_sdf_defaults": "cc_defaults",
            "lum_sdf_config_defaults": "soong_config_module_type",
            "lum_sdf_guarded_defaults": "lum_sdf_config_defaults",
            "lum_sdf_session_defaults": "lum_sdf_config_defaults",
            "liblum_sdf_proto": "cc_library_static",
            "liblum_sdf_sdk": "cc_library_shared",
            "liblum_sdf_session": "cc_library_shared",
            "lum_sdf_game": "cc_binary",
            "lum_sdf_monitor": "cc_binary",
            "lum_sdf_tools_enabled_defaults": "lum_sdf_config_defaults",
            "lum_sdf_tools_defaults": "cc_defaults",
            "lum_sdf_cli11_headers": "cc_library_headers",
            "lum_sdf_nlohmann_json_headers": "cc_library_headers",
            "lum_sdf_schema_descriptors": "genrule",
            "lum_sdf_emulator": "cc_binary",
            "lum_sdf_sdfctl_defaults": "lum_sdf_config_defaults",
            "sdfctl": "cc_binary",
            "lum_sdf_demo_defaults": "lum_sdf_config_defaults",
            "lum_sdf_demo": "cc_binary"})

    def test_sources_are_those_of_cmake(self):
        self.assertTrue(SOURCES)
        for name, sources in SOURCES.items():
            with self.subTest(name):
                self.assertEqual(sorted(self.all_sources(name)), sorted(sources.split(",")))

    def test_every_file_exists(self):
        for name, module in self.modules.items():
            for file in module.get("srcs", []) + module.get("license_text", []) + module.get(
                    "export_include_dirs", []):
                with self.subTest(f"{name}: {file}"):
                    self.assertTrue(file in FETCHED or list(TREE.glob(file)) or
                                    self.kinds.get(file[1:]) == "genrule")

    def test_every_module_asked_for_exists(self):
        known = PLATFORM_MODULES | set(self.modules)
        known |= {f"{name}-ndk" for name, kind in self.kinds.items() if kind == "aidl_interface"}
        for name, module in self.modules.items():
            for key in ("defaults", "header_libs", "static_libs", "shared_libs",
                        "export_shared_lib_headers"):
                self.assertEqual(set(module.get(key, [])) - known, set(), f"{name}: {key}")

    def test_everything_built_is_vendor_software_of_32_bits(self):
        for name, kind in self.kinds.items():
            if kind.startswith("cc_") and kind != "cc_defaults":
                with self.subTest(name):
                    self.assertIs(self.whole(name).get("vendor"), True)
                    self.assertEqual(self.whole(name)["compile_multilib"], "32")

    def check_library(self, name, module, headers):
        library = self.whole(name)
        self.assertIn("-fvisibility=hidden", library["cflags"])
        self.assertEqual(library["cppflags"], ["-fexceptions"])
        self.assertEqual(library["ldflags"], ["-Wl,-z,nodelete"])
        cmake = (TREE / module / "CMakeLists.txt").read_text(encoding="utf-8")
        script, = re.findall(r"set\(export_list \$\{CMAKE_CURRENT_SOURCE_DIR\}/(.*)\)", cmake)
        self.assertEqual(library["version_script"], f"{module}/{script}")
        self.assertTrue((TREE / library["version_script"]).is_file())
        # Nothing of the library's own is for others.
        exported = {file.name for directory in library["export_include_dirs"]
                    for file in (TREE / directory).iterdir()}
        self.assertEqual(exported, headers)
        return library

    def test_library(self):
        library = self.check_library("liblum_sdf_sdk", "api", {"lum_sdf_sdk.h"})
        self.assertEqual(library["defaults"], ["lum_sdf_defaults", "lum_sdf_guarded_defaults"])
        self.assertEqual(sorted(library["static_libs"]), [
            "liblum_sdf_proto", "libprotobuf-cpp-lite", "vendor.orn.data.lumservice-ndk"])
        self.assertEqual(sorted(library["shared_libs"]), ["libbinder_ndk", "liblog"])

    def test_session(self):
        library = self.check_library(
            "liblum_sdf_session", "session", {"lum_sdf_session.h", "lum_sdf_session.hpp"})
        self.assertEqual(library["defaults"], ["lum_sdf_defaults", "lum_sdf_session_defaults"])
        self.assertNotIn("static_libs", library)
        self.assertEqual(library["shared_libs"], ["liblum_sdf_sdk"])
        self.assertEqual(library["export_shared_lib_headers"], ["liblum_sdf_sdk"])

    def test_there_is_a_session_only_with_a_guarded_library(self):
        self.assertEqual(self.modules["lum_sdf_config_defaults"], {
            "name": "lum_sdf_config_defaults", "module_type": "cc_defaults",
            "config_namespace": "lum_sdf", "bool_variables": ["guarded", "tools"],
            "properties": ["cflags", "enabled", "shared_libs", "srcs"]})
        for name, with_it, without in (
                ("lum_sdf_guarded_defaults", {"cflags": ["-DLUM_SDF_GUARDED=1"]},
                 {"cflags": ["-DLUM_SDF_GUARDED=0"]}),
                ("lum_sdf_session_defaults", {"enabled": True}, {"enabled": False})):
            self.assertEqual(self.modules[name], {"name": name, "soong_config_variables": {
                "guarded": {**with_it, "conditions_default": without}}})

    def test_tools_are_asked_for_and_have_a_session_where_there_is_one(self):
        self.assertEqual(
            self.modules["lum_sdf_tools_enabled_defaults"]["soong_config_variables"],
            {"tools": {"enabled": True, "conditions_default": {"enabled": False}}})
        for name in ("lum_sdf_emulator", "sdfctl", "lum_sdf_demo"):
            self.assertEqual(self.modules[name]["defaults"][0], "lum_sdf_tools_defaults")
            self.assertEqual(self.whole(name)["cppflags"], ["-fexceptions"])
        for name, macro in (("sdfctl", "-DLUM_SESSION"), ("lum_sdf_demo", "-DLUM_DEMO_SESSION")):
            default, = self.modules[name]["defaults"][1:]
            variables = self.modules[default]["soong_config_variables"]
            self.assertEqual(list(variables), ["guarded"])
            self.assertEqual(variables["guarded"]["cflags"], [macro])
            self.assertEqual(variables["guarded"]["shared_libs"], ["liblum_sdf_session"])
            # The others do without the session's header, and without what includes it.
            for source in self.modules[name]["srcs"]:
                self.assertNotRegex((TREE / source).read_text(encoding="utf-8"),
                                    r"#include .*(lum_sdf_session|Keeper\.h)")

    def test_descriptors_are_made_as_cmake_makes_them(self):
        rule = self.modules["lum_sdf_schema_descriptors"]
        with tempfile.TemporaryDirectory() as directory:
            made = pathlib.Path(directory) / rule["out"][0]
            source, = rule["srcs"]
            command = rule["cmd"].replace("$(location aprotoc)", "protoc")
            for name, value in (("in", TREE / source), ("genDir", directory), ("out", made)):
                command = command.replace(f"$({name})", str(value))
            subprocess.run(command.replace("$$", "$"), shell=True, check=True)
            text = made.read_text(encoding="utf-8")
            expected = subprocess.run(
                ["protoc", "-I", TREE, "--descriptor_set_out=/dev/stdout", source], cwd=TREE,
                check=True, stdout=subprocess.PIPE).stdout
        self.assertTrue(text.startswith("#include <tools/emulator/SchemaDescriptors.h>\n"
                                        "const unsigned char kSchemaDescriptors[] = {\n"))
        self.assertTrue(text.endswith("}; const size_t kSchemaDescriptorsSize = "
                                      "sizeof kSchemaDescriptors;\n"))
        self.assertEqual(bytes(int(byte, 16) for byte in re.findall("0x(..),", text)), expected)

    def test_messages(self):
        self.assertEqual(self.modules["liblum_sdf_proto"]["srcs"], ["proto/SdfProto.proto"])
        self.assertEqual(self.modules["liblum_sdf_proto"]["proto"], {
            "type": "lite", "static": True, "canonical_path_from_root": False,
            "export_proto_headers": True})

    def test_interfaces(self):
        interfaces = self.modules["vendor.orn.data.lumservice"]
        # Each is named: what the platform does by itself depends on its release.
        self.assertEqual(interfaces["backend"], {
            "cpp": {"enabled": False}, "java": {"enabled": False}, "ndk": {"enabled": True},
            "rust": {"enabled": False}})
        self.assertIs(interfaces["unstable"], True)
        self.assertIs(interfaces["vendor_available"], True)
        self.assertFalse({"stability", "versions", "versions_with_info", "frozen"} & set(interfaces))
        pattern, = interfaces["srcs"]
        directory = interfaces["local_include_dir"]
        self.assertTrue(pattern.startswith(f"{directory}/{interfaces['name'].replace('.', '/')}/"))
        found = {path.stem for path in TREE.glob(pattern)}
        cmake = (TREE / "aidl/CMakeLists.txt").read_text(encoding="utf-8")
        types, = re.findall(r"TYPES([^)]*)\)", cmake)
        self.assertEqual(found, set(types.split()))
        self.assertEqual(found, {path.stem for path in TREE.glob("aidl/**/*.aidl")})
        for path in TREE.glob(pattern):
            self.assertNotIn("@VintfStability", path.read_text(encoding="utf-8"), path)


class PlatformFunctions(unittest.TestCase):
    def test_are_declared_where_the_platform_declares_them(self):
        headers = list((TREE / "platform/linux/include/android").glob("*.h"))
        self.assertTrue(headers)
        for name, header in PLATFORM_FUNCTIONS.items():
            declaration = re.compile(rf"^[A-Za-z].*\b{name}\(", re.MULTILINE)
            declaring = {f"android/{path.name}" for path in headers
                         if declaration.search(path.read_text(encoding="utf-8"))}
            self.assertEqual(declaring, {header}, name)

    def test_come_from_there_in_every_source_of_the_library(self):
        used = set()
        for module in ("api", "transport", "utils", "tools/aidl/lumaidl/templates",
                       "tools/emulator", "tools/place", "tools/sdfctl"):
            for path in (path for path in (TREE / module).iterdir() if path.is_file()):
                text = path.read_text(encoding="utf-8")
                for name, header in PLATFORM_FUNCTIONS.items():
                    if re.search(rf"\b{name}\(", text):
                        used.add(header)
                        self.assertIn(f"#include <{header}>", text, path)
        self.assertEqual(used, set(PLATFORM_FUNCTIONS.values()))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
