"""The command line of scripts that measure tables of docs/quality.md and draw pictures.

Import it before numpy: the number of threads of a linear algebra library must not affect the figures.
"""
# SPDX-License-Identifier: MIT

import argparse
from dataclasses import dataclass
import os
from pathlib import Path
import sys

for variable in ("OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS"):
    os.environ[variable] = "1"

import page
import recordings
import systems

ROOT = Path(__file__).resolve().parents[2]
SILENCE_DB = -140.0  # rounding errors of a signal that cancels are below


@dataclass(frozen=True)
class Row:
    """One line of a table. key is that of the figure; the unit is "dB", "%" or "1"."""

    key: str
    title: str
    unit: str
    decimals: int = 1


@dataclass(frozen=True)
class Table:
    """A table of a script.

    results   label of the column -> key -> value
    pictures  functions that draw a picture each: of the folder and the results
    part      tells the tables of a script apart
    """

    rows: list
    results: dict
    pictures: tuple = ()
    part: str = ""


def cell(value, row):
    """A figure as text; shares are fractions of one."""
    if value is None or (row.unit == "dB" and value < SILENCE_DB):
        return "-"
    if row.unit == "%":
        return f"{100 * value:.0f} %"
    shown = f"{value:.{row.decimals}f}"
    return shown.lstrip("-") if float(shown) == 0 else shown


def table(rows, results):
    """Figures as a Markdown table. results: label of the column -> key -> value."""
    lines = ["| | unit | " + " | ".join(results) + " |", "|---|---|" + "---|" * len(results)]
    for row in rows:
        cells = " | ".join(cell(found.get(row.key), row) for found in results.values())
        lines.append(f"| {row.title} | {row.unit} | {cells} |")
    return "\n".join(lines)


def markers(script, part=""):
    """The lines of docs/quality.md around a table of a script."""
    name = f"bench/quality/{script}.py --write-docs" + (f", {part}" if part else "")
    return tuple(f"<!-- written by {name}: {word} -->\n" for word in ("begin", "end"))


def main(script, about, measure):
    """Prints the tables of a script; --write-docs writes them and the pictures into the page.

    script   the name of its file, without the ending
    measure  maps the path of the command to a list of Table
    """
    parser = argparse.ArgumentParser(description=about.splitlines()[0])
    parser.add_argument("--tarn", type=Path, default=ROOT / "build/tarn/cli/tarn", metavar="PATH", help="the command")
    parser.add_argument("--write-docs", action="store_true", help="write tables and pictures into docs/quality.md")
    options = parser.parse_args()
    if not options.tarn.is_file():
        sys.exit(f"{script}: {options.tarn}: no such command; build it first or name it with --tarn")
    try:
        recordings.fetch()
        tables = measure(options.tarn)
    except (recordings.FetchError, systems.MeasurementError) as error:
        sys.exit(f"{script}: {error}")
    for one in tables:
        text = table(one.rows, one.results)
        print(text, end="\n\n")
        if options.write_docs:
            page.replace_between(*markers(script, one.part), f"\n{text}\n\n")
            for draw in one.pictures:
                draw(page.PICTURES, one.results)
