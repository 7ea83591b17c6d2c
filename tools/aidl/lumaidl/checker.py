# SPDX-License-Identifier: Apache-2.0
"""Finds source files, gives every type name its meaning, and refuses what makes no sense."""

import os
import pathlib

from . import syntax, types
from .diagnostics import AidlError, AidlErrors, Position, shown
from .parser import parse


class Loader:
    """Reads each file once and finds the files that imports name."""

    def __init__(self, include_directories):
        self._directories = include_directories
        self._loaded = {}

    def load(self, path):
        """The document of that file, parsed and with its place checked; raises AidlErrors."""
        key = os.path.abspath(path)
        if key not in self._loaded:
            self._loaded[key] = self._read(path, pathlib.Path(key))
        return self._loaded[key]

    def find(self, name):
        """The document that an import names, or none; raises AidlErrors."""
        relative = pathlib.Path(*name.text.split(".")).with_suffix(".aidl")
        paths = (directory / relative for directory in self._directories)
        found = {os.path.realpath(path): path for path in paths if os.path.isfile(path)}
        if len(found) > 1:
            files = " and ".join(map(str, found.values()))
            raise AidlErrors([AidlError(name.position, f"{name} is defined in {files}")])
        return self.load(*found.values()) if found else None

    @staticmethod
    def _read(path, whole_path):
        start = Position(str(path), 1, 1)
        try:
            text = path.read_text(encoding="utf-8")
        except OSError as error:
            raise AidlErrors([AidlError(start, f"cannot be read: {error.strerror}")])
        except UnicodeDecodeError:
            raise AidlErrors([AidlError(start, "is not UTF-8 text")])
        document = parse(str(path), text)
        declaration = document.declaration
        package = tuple(document.package.text.split("."))
        declaration.full_name = package + (declaration.name.text,)
        for nested in getattr(declaration, "nested", []):
            nested.full_name = declaration.full_name + (nested.name.text,)
        if whole_path.parts[-len(package) - 1:] != package + (declaration.name.text + ".aidl",):
            wanted = "/".join(declaration.full_name) + ".aidl"
            raise AidlErrors([AidlError(declaration.name.position,
                                        f"{declaration.name} should be defined in {wanted}")])
        return document


def check(document, loader):
    """Raises AidlErrors with all that is wrong in the document."""
    checker = _Checker(document, loader)
    checker.run()
    if checker.errors:
        raise AidlErrors(checker.errors)


def types_used(declaration):
    """Each type that the declaration and those inside it mention, in order."""
    if isinstance(declaration, syntax.Interface):
        return [parameter.type for method in declaration.methods for parameter in method.parameters]
    used = [field.type for field in getattr(declaration, "fields", [])]
    for nested in getattr(declaration, "nested", []):
        used += types_used(nested)
    return used


def class_stem(name):
    """What follows Bp and Bn: an interface's name without the I that marks it as one."""
    return name[1:] if name[:1] == "I" and name[1:2].isupper() else name


def _classes_of(interface):
    name = interface.name.text
    stem = class_stem(name)
    return {name, f"{name}Default", f"{name}Delegator", f"Bn{stem}", f"Bp{stem}"}


def _taken_in(declaration):
    return {syntax.Interface: types.TAKEN_IN_INTERFACE,
            syntax.Enum: {"toString"},
            syntax.Parcelable: types.TAKEN_IN_PARCELABLE,
            syntax.Union: types.TAKEN_IN_UNION}[type(declaration)]


class _Checker:
    def __init__(self, document, loader):
        self.errors = []
        self._refused = set()  # the positions of these
        self._document = document
        self._loader = loader
        # The names that types may have in this file.
        self._known = {document.declaration.name.text: document.declaration}

    def run(self):
        self._package()
        self._imports()
        self._declaration(self._document.declaration, self._known)
        if not self.errors:
            self._no_circle()

    def _refuse(self, name, what):
        # One fault at a place is enough: others come of it.
        if name.position not in self._refused:
            self.errors.append(AidlError(name.position, what))
            self._refused.add(name.position)

    # Names

    def _package(self):
        package = self._document.package
        for part in package.text.split("."):
            if part in types.RESERVED or part in types.BUILT_IN or types.LIBRARY.fullmatch(part):
                self._refuse(package, f"{part} cannot be the name of a namespace in C++")

    def _imports(self):
        imports = {}  # full names to lines
        for imported in self._document.imports:
            found = self._import(imported)
            simple = imported.text.rpartition(".")[2]
            if found is None:
                continue
            if imported.text in imports:
                self._refuse(imported, f"line {imports[imported.text]} imports {imported} already")
            elif simple in self._known:
                self._refuse(imported, f"there is a type {simple} in this file already")
            else:
                self._known[simple] = found.declaration
                imports[imported.text] = imported.position.line

    def _import(self, imported):
        """The document that an import names; none, which is refused, if there is none."""
        found = self._loader.find(imported)
        if found is None:
            self._refuse(imported, f"cannot find {imported} in the directories given with -I")
        elif found.full_name != imported.text:
            self._refuse(imported, f"{found.file} defines {found.full_name}, not {imported}")
            return None
        return found

    def _distinct(self, named, what, taken=None):
        """Refuses names that occur twice or that the generated code cannot give. taken: what stands
        beside them there; none for names that stand alone."""
        first = {}
        for name in named:
            if name.text in first:
                line = first[name.text].position.line
                self._refuse(name, f"line {line} has {what} {name} already")
            first.setdefault(name.text, name)
            if name.text in types.BUILT_IN:
                self._refuse(name, f"{name} is a word of the language")
            elif name.text in types.RESERVED:
                self._refuse(name, f"{name} is a reserved word of C++")
            elif name.text.startswith("_"):
                self._refuse(name, f"{name} begins with an underscore, as only made names do")
            elif taken is not None and (name.text in taken or types.LIBRARY.fullmatch(name.text)):
                self._refuse(name, f"the generated code uses the name {name} itself")

    def _type(self, type_, known):
        name = type_.name
        if name.text in types.BUILT_IN:
            type_.meaning = name.text
        elif name.text in known:
            type_.meaning = known[name.text]
        elif name.text == "void":
            self._refuse(name, "only a method's result can be void")
        elif name.text in types.UNSUPPORTED:
            self._refuse(name, f"the type {name} is not understood")
        else:
            self._refuse(name, f"there is no type {name} here: is an import missing?")
        if type_.meaning == "byte" and not type_.array:
            self._refuse(name, "a byte is understood only in an array")
        elif (type_.array and type_.meaning != "byte"
              and isinstance(type_.meaning, (str, syntax.Enum, syntax.Interface))):
            self._refuse(name, f"arrays of {name} are not understood")
            type_.meaning = None

    # Declarations

    def _declaration(self, declaration, known):
        self._distinct([declaration.name], "a type",
                       types.UNSUPPORTED | types.TAKEN_BY_VARIABLES | _taken_in(declaration))
        if isinstance(declaration, syntax.Enum):
            self._enum(declaration)
            return
        self._no_annotations(declaration)
        if isinstance(declaration, syntax.Interface):
            self._interface(declaration, known)
        elif isinstance(declaration, syntax.Parcelable):
            self._parcelable(declaration, known)
        elif declaration is self._document.declaration:
            self._refuse(declaration.name, "a union is understood only inside a parcelable")
        else:
            self._union(declaration, known)

    def _no_annotations(self, node):
        for annotation in node.annotations:
            self._refuse(annotation.name, f"@{annotation.name} is not understood here")

    def _interface(self, interface, known):
        self._distinct([method.name for method in interface.methods], "a method",
                       _taken_in(interface) | _classes_of(interface))
        if not interface.methods:
            self._refuse(interface.name, f"{interface.name} needs at least one method")
        for method in interface.methods:
            self._method(interface, method, known)

    def _method(self, interface, method, known):
        self._no_annotations(method)
        if method.oneway and not interface.oneway:
            self._refuse(method.name, "one-way methods are understood only in a one-way interface")
        if method.result.array or method.result.name.text != "void":
            self._refuse(method.result.name,
                         "a one-way method returns nothing: its result must be void"
                         if interface.oneway else "results other than void are not understood")
        self._distinct([parameter.name for parameter in method.parameters], "an argument")
        for parameter in method.parameters:
            self._parameter(interface, parameter, known)

    def _parameter(self, interface, parameter, known):
        self._type(parameter.type, known)
        meaning = parameter.type.meaning
        if meaning is None:
            return
        needs_direction = parameter.type.array or isinstance(meaning, (syntax.Parcelable,
                                                                       syntax.Union))
        if parameter.direction is None:
            if needs_direction:
                self._refuse(parameter.type.name,
                             f"{parameter.type} can be in or out: say in before it")
        elif parameter.direction.text != "in":
            if not needs_direction:
                what = f"{parameter.type} can only be in"
            elif interface.oneway:
                what = "a one-way method gives nothing back: its arguments can only be in"
            else:
                what = f"the direction {parameter.direction} is not understood"
            self._refuse(parameter.direction, what)

    def _enum(self, enum):
        self._backing(enum)
        self._distinct([one.name for one in enum.enumerators], "an enumerator")
        if not enum.enumerators:
            self._refuse(enum.name, f"{enum.name} needs at least one enumerator")
        next_value = 0
        owners = {}
        for one in enum.enumerators:
            if one.literal is not None:
                next_value = _number(one.literal.text)
            elif next_value is None:
                continue  # the one before has no value to count from
            one.value = next_value
            if one.value is None or not -2 ** 31 <= one.value < 2 ** 31:
                written = one.value if one.literal is None else shown(one.literal.text)
                self._refuse(one.name, f"{written} does not fit the backing type int")
                next_value = None
                continue
            if one.value in owners:
                self._refuse(one.name, f"{one.value} is the value of {owners[one.value]} already")
            owners.setdefault(one.value, one.name)
            next_value = one.value + 1

    def _backing(self, enum):
        backed = False
        for annotation in enum.annotations:
            if annotation.name.text != "Backing":
                self._refuse(annotation.name, f"@{annotation.name} is not understood here")
            elif backed:
                self._refuse(annotation.name, "there is a @Backing already")
            else:
                backed = True
                if annotation.arguments != {"type": "int"}:
                    self._refuse(annotation.name, '@Backing should have type="int"')
        if not backed:
            self._refuse(enum.name, f'{enum.name} needs a @Backing(type="int")')

    def _parcelable(self, parcelable, known):
        inner = dict(known)
        for nested in parcelable.nested:
            if nested.name.text in inner:
                self._refuse(nested.name, f"there is a type {nested.name} in this file already")
            else:
                inner[nested.name.text] = nested
                self._declaration(nested, inner)
        named = [nested.name for nested in parcelable.nested]
        named += [field.name for field in parcelable.fields]
        self._distinct(named, "a member", _taken_in(parcelable) | {parcelable.name.text})
        for field in parcelable.fields:
            self._field(parcelable, field, inner)

    def _union(self, union, known):
        self._distinct([field.name for field in union.fields], "a member",
                       _taken_in(union) | {union.name.text})
        if not union.fields:
            self._refuse(union.name, f"{union.name} needs at least one member")
        for field in union.fields:
            self._field(union, field, known)

    def _field(self, owner, field, known):
        self._no_annotations(field)
        self._type(field.type, known)
        if isinstance(field.type.meaning, syntax.Interface):
            self._refuse(field.type.name, "a field cannot be an interface here")
        elif field.type.meaning is self._document.declaration or field.type.meaning is owner:
            self._refuse(field.type.name, f"{field.type.name} would contain itself")

    # Each header includes those of the types that it mentions, so that a circle could not be compiled.
    def _no_circle(self):
        declaration = self._document.declaration
        seen = set()
        ways = [(self._document, declaration.name.text)]
        while ways:
            document, way = ways.pop()
            for imported in document.imports:
                found = self._import(imported)
                if found is None or found.full_name in seen:
                    continue
                seen.add(found.full_name)
                ways.append((found, f"{way} -> {found.declaration.name}"))
                if found.full_name == self._document.full_name:
                    self._refuse(declaration.name, f"types import one another: {ways[-1][1]}")
                    return


def _number(literal):
    """The value of a literal; none if it fits no type."""
    sign = -1 if literal.startswith("-") else 1
    digits = literal.lstrip("+-")
    if digits[:2].lower() != "0x":
        return sign * int(digits) if len(digits) < 20 else None
    # What is written in hexadecimal is the bits of an int.
    bits = int(digits, 16)
    return sign * (bits if bits < 2 ** 31 else bits - 2 ** 32) if bits < 2 ** 32 else None
