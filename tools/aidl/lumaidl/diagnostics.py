# SPDX-License-Identifier: Apache-2.0
"""Where something stands in a source file, and what is wrong there."""

import dataclasses


@dataclasses.dataclass(frozen=True)
class Position:
    file: str
    line: int
    column: int

    def __str__(self):
        return f"{self.file}:{self.line}:{self.column}"


def shown(text):
    """A text of the input as a message can carry it."""
    text = text if len(text) <= 60 else text[:57] + "..."
    return text if text.isprintable() else text.encode("unicode_escape").decode()


@dataclasses.dataclass(frozen=True)
class AidlError:
    position: Position
    what: str

    def __str__(self):
        return f"{self.position}: {self.what}"


class AidlErrors(Exception):
    """One or more errors; the compilation made nothing."""

    def __init__(self, errors):
        super().__init__("\n".join(map(str, errors)))
        self.errors = errors
