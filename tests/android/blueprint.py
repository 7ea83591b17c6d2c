# SPDX-License-Identifier: Apache-2.0
"""Reads the part of the platform's build language that Android.bp uses."""
import ast
import re

TOKEN = re.compile(r'(?://[^\n]*|\s)*(?:("(?:[^"\\\n]|\\.)*")|([A-Za-z_]\w*)|([{}\[\]:,])|$)')


class Reader:
    def __init__(self, text):
        self.text = text
        self.place = 0
        self.token = None
        self.next()

    def fail(self, wanted):
        line = self.text.count("\n", 0, self.place) + 1
        raise ValueError(f"line {line}: {self.token!r} in the place of {wanted}")

    def next(self):
        """Returns the present token ("" at the end) and goes on to the one after it."""
        token = self.token
        match = TOKEN.match(self.text, self.place)
        if not match:
            self.fail("a word, a string or a sign")
        self.place = match.end()
        self.token = match[1] or match[2] or match[3] or ""
        return token

    def take(self, sign):
        if self.token != sign:
            self.fail(sign)
        self.next()

    def word(self):
        if not re.match(r"[A-Za-z_]", self.token):
            self.fail("a name")
        return self.next()

    def value(self):
        if self.token == "{":
            return self.properties()
        if self.token == "[":
            return self.list()
        if self.token in ("true", "false"):
            return self.next() == "true"
        if not self.token.startswith('"'):
            self.fail("a value")
        return ast.literal_eval(self.next())

    def list(self):
        self.take("[")
        values = []
        while self.token != "]":
            values.append(self.value())
            if self.token != "]":
                self.take(",")
        self.take("]")
        return values

    def properties(self):
        self.take("{")
        properties = {}
        while self.token != "}":
            name = self.word()
            if name in properties:
                self.fail(f"a second {name}")
            self.take(":")
            properties[name] = self.value()
            if self.token != "}":
                self.take(",")
        self.take("}")
        return properties


def read(text):
    """The modules in their order, each as its type and its properties."""
    reader = Reader(text)
    modules = []
    while reader.token:
        modules.append((reader.word(), reader.properties()))
    return modules
