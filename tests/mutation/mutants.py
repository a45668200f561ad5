"""Finds the places of C++ sources that a mutation run can change."""

# SPDX-License-Identifier: MIT

from dataclasses import dataclass
import json
from pathlib import Path
import shlex

from clang.cindex import CursorKind, Index

OPERATORS = {
    "<": "<=",
    "<=": "<",
    ">": ">=",
    ">=": ">",
    "==": "!=",
    "!=": "==",
    "&&": "||",
    "||": "&&",
    "+": "-",
    "-": "+",
    "*": "/",
    "/": "*",
    "%": "*",
    "&": "|",
    "|": "&",
    "^": "|",
    "<<": ">>",
    ">>": "<<",
    "+=": "-=",
    "-=": "+=",
    "*=": "/=",
    "/=": "*=",
    "|=": "&=",
    "&=": "|=",
    "!": "",
}
BOOLEANS = {"true": "false", "false": "true"}


@dataclass(frozen=True, order=True)
class Mutant:
    """Other text for a piece of a source file, which begins at an offset in bytes."""

    file: str
    offset: int
    line: int
    old: str
    new: str

    def applied_to(self, source):
        """The changed source, bytes."""
        old = self.old.encode()
        assert source[self.offset :].startswith(old)
        return source[: self.offset] + self.new.encode() + source[self.offset + len(old) :]


def kind_of(cursor):
    """The kind of a cursor, or None if the bindings of clang do not know it."""
    try:
        return cursor.kind
    except ValueError:
        return None


def text_of(cursor, source):
    """Offset and text of a cursor."""
    begin = cursor.extent.start.offset
    return begin, source[begin : cursor.extent.end.offset].decode(errors="replace")


def operator_between(children, source):
    """Offset and text of the operator between two operands."""
    begin, end = children[0].extent.end.offset, children[-1].extent.start.offset
    between = source[begin:end].decode(errors="replace")
    return begin + len(between) - len(between.lstrip()), between.strip()


def changes_at(cursor, parent, source):
    """Offset, old and new text of the changes at a cursor."""
    kind = kind_of(cursor)
    if kind in (CursorKind.BINARY_OPERATOR, CursorKind.COMPOUND_ASSIGNMENT_OPERATOR):
        offset, old = operator_between(list(cursor.get_children()), source)
        if old in OPERATORS:
            yield offset, old, OPERATORS[old]
    offset, text = text_of(cursor, source)
    if kind == CursorKind.DECL_REF_EXPR and cursor.spelling == f"operator{text}" and text in OPERATORS:
        yield offset, text, OPERATORS[text]
    if kind == CursorKind.UNARY_OPERATOR and text.startswith("!"):
        yield offset, "!", ""
    if kind == CursorKind.INTEGER_LITERAL and text.isdecimal():
        yield offset, text, str(int(text) + 1)
    if kind == CursorKind.CXX_BOOL_LITERAL_EXPR and text in BOOLEANS:
        yield offset, text, BOOLEANS[text]
    if kind == CursorKind.CALL_EXPR and kind_of(parent) == CursorKind.COMPOUND_STMT and text.endswith(")"):
        yield offset, text, ""


def mutants_below(parent, path, source, name):
    """The mutants of a file below a cursor."""
    for cursor in parent.get_children():
        location = cursor.location
        if location.file and location.file.name == str(path):
            for offset, old, new in changes_at(cursor, parent, source):
                if source[offset:].startswith(old.encode()):
                    yield Mutant(name, offset, location.line, old, new)
            yield from mutants_below(cursor, path, source, name)


def arguments_of(entry):
    """The options of a command of compile_commands.json that concern the text of the source."""
    words = shlex.split(entry["command"])
    kept = [word for word in words if word.startswith(("-I", "-isystem", "-D", "-std", "-m"))]
    paths = [words[i + 1] for i, word in enumerate(words) if word == "-isystem"]
    return [word for word in kept if word != "-isystem"] + [f"-isystem{path}" for path in paths]


def find_mutants(tree, build, folder):
    """All mutants of the sources of a folder of a tree, as its build compiles them, sorted."""
    commands = json.loads((build / "compile_commands.json").read_text())
    index = Index.create()
    found = set()
    searched = set()  # files, each with the options that choose between pieces of its text
    for entry in commands:
        source = Path(entry["file"])
        if not source.is_relative_to(tree / folder):
            continue
        arguments = arguments_of(entry)
        variant = tuple(argument for argument in arguments if argument.startswith(("-D", "-m")))
        unit = index.parse(str(source), args=arguments)
        included = {Path(include.include.name) for include in unit.get_includes()}
        for path in (source, *included):
            if path.is_relative_to(tree / folder) and (path, variant) not in searched:
                searched.add((path, variant))
                found |= set(mutants_below(unit.cursor, path, path.read_bytes(), str(path.relative_to(tree))))
    return sorted(found)
