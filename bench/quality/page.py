"""Writes the figures into docs/quality.md."""
# SPDX-License-Identifier: MIT

from pathlib import Path

import report
import systems

DOCS = Path(__file__).resolve().parents[2] / "docs"
PATH = DOCS / "quality.md"
PICTURES = DOCS / "pictures"
BEGIN = "<!-- written by ./run quality --write-docs: begin -->\n"
END = "<!-- written by ./run quality --write-docs: end -->\n"


def split(text, first=BEGIN, last=END):
    """The page before, between and after the markers."""
    before, begin, rest = text.partition(first)
    between, end, after = rest.partition(last)
    if not begin or not end or first in after or last in before + after:
        raise systems.MeasurementError(f"{PATH}: the lines {first.strip()} and {last.strip()} must be there once each")
    return before, between, after


def replace_between(first, last, text):
    """Replaces the part of the page between two markers."""
    before, _, after = split(PATH.read_text(), first, last)
    PATH.write_text(before + first + text + last + after)


def conditions(settings):
    """The settings and versions that the figures depend on, as Markdown."""
    versions = ", ".join(f"{name} {version}" for name, version in settings["versions"].items())
    packages = ", ".join(f"{name} {version}" for name, version in settings["packages"].items())
    return (
        f"Seed {settings['seed']}, {versions}; the tracks of both halves of [design.md](design.md), from the Debian "
        f"packages {packages}."
    )


def write(settings, results):
    """Replaces the part of the page between the markers."""
    between = f"\n{conditions(settings)}\n\n{report.markdown_table(results)}\n\n"
    replace_between(BEGIN, END, between)
