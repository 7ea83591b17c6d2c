# SPDX-License-Identifier: Apache-2.0
"""Turns the text of a source file into syntax.Document."""

import pathlib

import lark

from . import syntax
from .diagnostics import AidlError, AidlErrors, Position, shown

_GRAMMAR = lark.Lark(
    (pathlib.Path(__file__).parent / "grammar.lark").read_text(encoding="utf-8"),
    start="document", parser="lalr", lexer="basic", maybe_placeholders=True)

# How error messages call what the grammar calls otherwise.
_TERMINALS = {"NAME": "a name", "NUMBER": "a number", "STRING": "a string", "ARRAY": "'[]'",
              "$END": "the end of the file"}


class _Builder(lark.Transformer):
    """Makes syntax nodes from the grammar's tree, leaves first."""

    def __init__(self, file):
        super().__init__()
        self._file = file
        self._errors = []

    def _name(self, token):
        return syntax.Name(str(token), Position(self._file, token.line, token.column))

    def _refuse(self, name, what):
        self._errors.append(AidlError(name.position, what))

    def document(self, children):
        package, *imports, declaration = children
        if self._errors:
            raise AidlErrors(self._errors)
        return syntax.Document(self._file, package, imports, declaration)

    def package(self, children):
        return children[0]

    import_ = package

    def qualified_name(self, tokens):
        return syntax.Name(".".join(tokens), self._name(tokens[0]).position)

    def declaration(self, children):
        annotations, declaration = children
        declaration.annotations = annotations
        return declaration

    nested = declaration

    def annotations(self, children):
        return children

    def annotation(self, children):
        name, *arguments = self._name(children[0]), *filter(None, children[1:])
        if len(dict(arguments)) != len(arguments):
            self._refuse(name, f"@{name} has an argument twice")
        return syntax.Annotation(name, dict(arguments))

    def annotation_argument(self, tokens):
        return str(tokens[0]), tokens[1][1:-1]

    def interface(self, children):
        oneway, name, *methods = children
        return syntax.Interface([], self._name(name), oneway=oneway is not None, methods=methods)

    def method(self, children):
        annotations, oneway, result, name, *parameters, number = children
        if number is not None:
            self._refuse(self._name(number), "method numbers cannot be chosen: they count from 1")
        return syntax.Method(annotations, oneway is not None, result, self._name(name),
                             [parameter for parameter in parameters if parameter is not None])

    def parameter(self, children):
        annotations, direction, type_, name = children
        for annotation in annotations:
            self._refuse(annotation.name, f"@{annotation.name} is not understood on an argument")
        return syntax.Parameter(direction, type_, self._name(name))

    def direction(self, tokens):
        return self._name(tokens[0])

    def enum(self, children):
        name, *enumerators = children
        return syntax.Enum([], self._name(name),
                           enumerators=[one for one in enumerators if one is not None])

    def enumerator(self, children):
        name, literal = children
        return syntax.Enumerator(self._name(name), literal and self._name(literal))

    def parcelable(self, children):
        name, *members = children
        fields = [member for member in members if isinstance(member, syntax.Field)]
        nested = [member for member in members if not isinstance(member, syntax.Field)]
        return syntax.Parcelable([], self._name(name), fields=fields, nested=nested)

    def union(self, children):
        name, *fields = children
        return syntax.Union([], self._name(name), fields=fields)

    def field(self, children):
        annotations, type_, name, default = children
        if default is not None:
            self._refuse(default, "default values are not understood")
        return syntax.Field(annotations, type_, self._name(name))

    def default_value(self, tokens):
        return self._name(tokens[0])

    def type(self, children):
        name, array = children
        return syntax.Type(name, array is not None)


def _terminal(name):
    if name in _TERMINALS:
        return _TERMINALS[name]
    return "'" + next(one.pattern.value for one in _GRAMMAR.terminals if one.name == name) + "'"


def parse(file, text):
    """Parses `text`, which was read from `file`; raises AidlErrors."""
    try:
        return _Builder(file).transform(_GRAMMAR.parse(text))
    except lark.exceptions.VisitError as error:
        raise error.orig_exc
    except lark.exceptions.UnexpectedToken as error:
        expected = " or ".join(sorted(map(_terminal, error.accepts or error.expected)))
        what = f"'{shown(error.token)}'" if error.token.type != "$END" else "end of the file"
        place = Position(file, error.line, error.column)
        raise AidlErrors([AidlError(place, f"unexpected {what}, {expected} should stand here")])
    except lark.exceptions.UnexpectedCharacters as error:
        place = Position(file, error.line, error.column)
        if text.startswith("/*", error.pos_in_stream):
            raise AidlErrors([AidlError(place, "this comment has no end")])
        raise AidlErrors([AidlError(place, f"unexpected character '{shown(error.char)}'")])
