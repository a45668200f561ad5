"""Finds the places of C++ sources that a mutation run can change."""

# SPDX-License-Identifier: MIT

from dataclasses import dataclass
from functools import partial
import json
from multiprocessing import Pool
from pathlib import Path
import re
import shlex
import signal

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
MAX_SOURCES = 40
DECLARATIONS = (CursorKind.VAR_DECL, CursorKind.PARM_DECL, CursorKind.FIELD_DECL)


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
    joins_strings = text == "+" and "string" in cursor.type.spelling  # they have no minus
    is_overloaded = kind == CursorKind.DECL_REF_EXPR and cursor.spelling == f"operator{text}"
    if is_overloaded and text in OPERATORS and not joins_strings:
        yield offset, text, OPERATORS[text]
    if kind == CursorKind.UNARY_OPERATOR and text.startswith("!"):
        yield offset, "!", ""
    number = re.fullmatch(r"(\d+)(\.\d*f?)?", text)
    # Types must agree, so the compiler would refuse another array length.
    is_length = kind_of(parent) in DECLARATIONS and source[offset + len(text) :].startswith(b"]")
    if kind in (CursorKind.INTEGER_LITERAL, CursorKind.FLOATING_LITERAL) and number and not is_length:
        yield offset, text, f"{int(number[1]) + 1}{number[2] or ''}"
    if kind == CursorKind.CXX_BOOL_LITERAL_EXPR and text in BOOLEANS:
        yield offset, text, BOOLEANS[text]
    if kind == CursorKind.CALL_EXPR and kind_of(parent) == CursorKind.COMPOUND_STMT and text.endswith(")"):
        yield offset, text, ""


def mutants_below(parent, sources, tree):
    """The mutants of files below a cursor; sources are their bytes by path."""
    for cursor in parent.get_children():
        location = cursor.location
        source = sources.get(location.file.name) if location.file else None
        if source is not None:
            for offset, old, new in changes_at(cursor, parent, source):
                if source[offset:].startswith(old.encode()):
                    name = str(Path(location.file.name).relative_to(tree))
                    yield Mutant(name, offset, location.line, old, new)
            yield from mutants_below(cursor, sources, tree)


def arguments_of(entry):
    """The options of a command of compile_commands.json that concern the text of the source."""
    words = shlex.split(entry["command"])
    kept = [word for word in words if word.startswith(("-I", "-isystem", "-D", "-std", "-m"))]
    paths = [words[i + 1] for i, word in enumerate(words) if word == "-isystem"]
    return [word for word in kept if word != "-isystem"] + [f"-isystem{path}" for path in paths]


def mutants_of(entry, tree, folder):
    """The mutants of a source and of the headers it includes from a folder, as a command of compile_commands.json reads
    them."""
    unit = Index.create().parse(entry["file"], args=arguments_of(entry))
    errors = [error for error in unit.diagnostics if error.severity >= error.Error]
    if errors:
        raise SystemExit(f"mutate: clang cannot read {entry['file']}: {errors[0].spelling}")
    paths = [Path(entry["file"]), *(Path(include.include.name) for include in unit.get_includes())]
    sources = {str(path): path.read_bytes() for path in paths if path.is_relative_to(tree / folder)}
    return set(mutants_below(unit.cursor, sources, tree))


def end_with_parent():
    """Leaves interrupts to the parent, which ends its workers with SIGTERM."""
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    signal.signal(signal.SIGTERM, signal.SIG_DFL)


def find_mutants(tree, build, folder, chooser):
    """The mutants of the sources of a folder of a tree, as its build compiles them, sorted. Clang needs seconds for a
    source, so the chooser chooses if there are too many."""
    entries = json.loads((build / "compile_commands.json").read_text())
    inside = [entry for entry in entries if Path(entry["file"]).is_relative_to(tree / folder)]
    if len(inside) > MAX_SOURCES:
        inside = chooser.sample(inside, MAX_SOURCES)
    with Pool(initializer=end_with_parent) as pool:
        found = pool.map(partial(mutants_of, tree=tree, folder=folder), inside, chunksize=1)
    return sorted(set().union(*found))
