# SPDX-License-Identifier: Apache-2.0
"""What a source file consists of, as the parser makes it."""

import dataclasses
from typing import Optional

from .diagnostics import Position


@dataclasses.dataclass(frozen=True)
class Name:
    text: str
    position: Position

    def __str__(self):
        return self.text


@dataclasses.dataclass
class Annotation:
    name: Name
    arguments: dict  # text of the name to text of the value


@dataclasses.dataclass
class Type:
    name: Name
    array: bool
    # Set by the checker: a key of types.BUILT_IN, or the declaration that the name stands for.
    meaning: object = None

    def __str__(self):
        return self.name.text + ("[]" if self.array else "")


@dataclasses.dataclass
class Parameter:
    direction: Optional[Name]
    type: Type
    name: Name


@dataclasses.dataclass
class Method:
    annotations: list
    oneway: bool
    result: Type
    name: Name
    parameters: list


@dataclasses.dataclass
class Field:
    annotations: list
    type: Type
    name: Name


@dataclasses.dataclass
class Enumerator:
    name: Name
    literal: Optional[Name]  # as written; none when the value follows from the one before
    value: int = 0  # set by the checker


@dataclasses.dataclass
class Declaration:
    annotations: list
    name: Name
    # Set by the checker: the names from the outermost package to this one.
    full_name: tuple = ()


@dataclasses.dataclass
class Interface(Declaration):
    oneway: bool = False
    methods: list = dataclasses.field(default_factory=list)


@dataclasses.dataclass
class Enum(Declaration):
    enumerators: list = dataclasses.field(default_factory=list)


@dataclasses.dataclass
class Parcelable(Declaration):
    fields: list = dataclasses.field(default_factory=list)
    nested: list = dataclasses.field(default_factory=list)


@dataclasses.dataclass
class Union(Declaration):
    fields: list = dataclasses.field(default_factory=list)


@dataclasses.dataclass
class Document:
    file: str
    package: Name
    imports: list  # of Name
    declaration: Declaration

    @property
    def full_name(self):
        return ".".join(self.declaration.full_name)
