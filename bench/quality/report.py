"""Makes tables and JSON of the figures."""
# SPDX-License-Identifier: MIT

import json
from pathlib import Path

from rows import FOOTNOTES, SECTIONS

# Decimal places by unit; shares are stored as fractions.
DECIMALS = {"frames": 0, "Hz": 0, "%": 1, "dB": 1, "deg": 1, "1": 3}


def cell(value, unit):
    """Formats a figure for the tables, without its unit."""
    if value is None:
        return "-"
    shown = f"{value * 100 if unit == '%' else value:.{DECIMALS[unit]}f}"
    return shown.lstrip("-") if float(shown) == 0 else shown


def cells(results):
    """Header and sections of the table as text. results: label -> figures. Lines without figures are left out.

    The sections are (title, lines); those without lines are left out.
    """
    sections = []
    for section in SECTIONS:
        lines = []
        for row in section.rows:
            values = [figures[row.key] for figures in results.values()]
            if any(value is not None for value in values):
                lines.append([row.title, row.unit, *(cell(value, row.unit) for value in values)])
        if lines:
            sections.append((section.title, lines))
    return ["figure", "unit", *results], sections


def text_table(results):
    """The table as plain text, with right-aligned numbers."""
    header, sections = cells(results)
    every_line = [header, *(line for _, lines in sections for line in lines)]
    widths = [max(len(line[column]) for line in every_line) for column in range(len(header))]

    def rendered(line):
        words = [word.ljust(width) if i < 2 else word.rjust(width) for i, (word, width) in enumerate(zip(line, widths))]
        return "  ".join(words).rstrip()

    text = [rendered(header), rendered(["-" * width for width in widths])]
    for title, lines in sections:
        text += ["", title, *map(rendered, lines)]
    return "\n".join([*text, "", *FOOTNOTES])


def markdown_table(results):
    """The same table in Markdown, with the titles of the sections as lines in bold."""
    header, sections = cells(results)
    lines = [header, ["---", "---", *["---:" for _ in results]]]
    for title, section in sections:
        lines += [[f"**{title}**", *[""] * (len(header) - 1)], *section]
    rows = "\n".join("| " + " | ".join(line) + " |" for line in lines)
    return rows + "\n\n" + "  \n".join(FOOTNOTES)


def write_json(path, settings, results):
    """Settings and all figures in full precision as JSON; shares are fractions of one."""
    Path(path).write_text(json.dumps({"settings": settings, "systems": results}, indent=2) + "\n")
