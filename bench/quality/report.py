"""Makes tables, JSON and pictures of the figures."""
# SPDX-License-Identifier: MIT

import json
from pathlib import Path

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt

from figures import FOOTNOTES, ROWS

# Palette of Okabe and Ito, for all forms of colour vision. Each system has one colour and line style, in this order.
# The reference, which is last, is grey and dotted.
COLOURS = ["#0072B2", "#D55E00", "#009E73", "#CC79A7", "#E69F00", "#56B4E9"]
LINE_STYLES = ["-", "--", "-."]
REFERENCE_COLOUR, REFERENCE_LINE = "#7F7F7F", ":"
OUTPUT_COLOURS = {"FL": "#0072B2", "C": "#E69F00", "FR": "#009E73"}


def cell(value, unit):
    """Formats a figure for the tables, without its unit."""
    if value is None:
        return "-"
    if unit == "frames":
        return str(value)
    shown = f"{value * 100:.1f}" if unit == "%" else f"{value:.1f}"
    return shown.lstrip("-") if float(shown) == 0 else shown


def cells(results):
    """Header and lines of the table as text. results: label -> figures. Lines without figures are left out."""
    header = ["figure", "unit", *results]
    lines = []
    for row in ROWS:
        values = [figures[row.key] for figures in results.values()]
        if any(value is not None for value in values):
            lines.append([row.title, row.unit, *(cell(value, row.unit) for value in values)])
    return header, lines


def text_table(results):
    """The table as plain text, with right-aligned numbers."""
    header, lines = cells(results)
    widths = [max(len(line[column]) for line in [header, *lines]) for column in range(len(header))]
    rendered = []
    for line in [header, ["-" * width for width in widths], *lines]:
        words = [line[i].ljust(width) if i < 2 else line[i].rjust(width) for i, width in enumerate(widths)]
        rendered.append("  ".join(words).rstrip())
    return "\n".join([*rendered, "", *FOOTNOTES])


def markdown_table(results):
    """The same table in Markdown."""
    header, lines = cells(results)
    rule = ["---", "---", *["---:" for _ in results]]
    rows = "\n".join("| " + " | ".join(line) + " |" for line in [header, rule, *lines])
    return rows + "\n\n" + "  \n".join(FOOTNOTES)


def write_json(path, settings, results):
    """Settings and all figures in full precision as JSON; shares are fractions of one."""
    Path(path).write_text(json.dumps({"settings": settings, "systems": results}, indent=2) + "\n")


def styles(results):
    """Label, figures, colour and line style of every system."""
    found = [
        (label, figures, COLOURS[i % len(COLOURS)], LINE_STYLES[i % len(LINE_STYLES)])
        for i, (label, figures) in enumerate(results.items())
    ]
    found[-1] = (*found[-1][:2], REFERENCE_COLOUR, REFERENCE_LINE)
    return found


def pan_axis(axes):
    """Draws the pan axis of a sweep."""
    axes.set_xlim(0, 90)
    axes.set_xticks(range(0, 91, 15))
    axes.set_xlabel("pan, degrees (0 = hard left, 45 = centre, 90 = hard right)")
    axes.grid(alpha=0.3)


def save(figure, path):
    figure.savefig(path, dpi=120, metadata={"Software": None})
    plt.close(figure)


def plot_level(path, results):
    """Draws the level of all outputs together over the pan."""
    figure, axes = plt.subplots(figsize=(8, 4.5), layout="constrained")
    for label, figures, colour, line in styles(results):
        sweep = figures["sweep"]
        axes.plot(sweep["pan_degrees"], sweep["level_db"], line, color=colour, label=label, marker="o", markersize=3)
    pan_axis(axes)
    axes.set_ylabel("output power re input, dB")
    axes.set_title("Level of one panned source (pink noise), FL, FR and C together")
    axes.legend()
    save(figure, path)


def plot_shares(path, results):
    """Draws the shares of the outputs over the pan, one panel per system."""
    columns = 2 if len(results) > 1 else 1
    rows = -(-len(results) // columns)
    figure, grid = plt.subplots(
        rows, columns, figsize=(5 * columns, 3.2 * rows), layout="constrained", sharex=True, sharey=True, squeeze=False
    )
    for axes, (label, figures, _, _) in zip(grid.flat, styles(results)):
        sweep = figures["sweep"]
        for (name, colour), line in zip(OUTPUT_COLOURS.items(), LINE_STYLES):
            values = [100 * share for share in sweep[f"share_{name.lower()}"]]
            axes.plot(sweep["pan_degrees"], values, line, color=colour, label=name)
        pan_axis(axes)
        axes.set_xlabel("")
        axes.set_title(label)
    for axes in grid.flat[len(results) :]:
        axes.set_axis_off()
    grid[0, 0].set_ylim(-2, 102)
    grid.flat[len(results) - 1].legend(loc="upper center", ncol=3)
    figure.supxlabel("pan, degrees (0 = hard left, 45 = centre, 90 = hard right)")
    figure.supylabel("share of the output power, %")
    figure.suptitle("Where one panned source (pink noise) goes")
    save(figure, path)


def plot_artefacts(path, results):
    """Draws artefacts in C in per cent of its energy, with labels in dB. Longer bars are worse."""
    scenes = [("dialogue_artefacts", "speech against\npink noise at the sides"), ("recording_artefacts", "recording")]
    scenes = [scene for scene in scenes if any(figures[scene[0]] is not None for figures in results.values())]
    figure, axes = plt.subplots(figsize=(8, 4.5), layout="constrained")
    width = 0.8 / len(results)
    for index, (label, figures, colour, _) in enumerate(styles(results)):
        offset = (index - (len(results) - 1) / 2) * width
        levels = [figures[key] for key, _ in scenes]
        heights = [0 if level is None else 100 * 10 ** (level / 10) for level in levels]
        bars = axes.bar([i + offset for i in range(len(scenes))], heights, 0.92 * width, color=colour, label=label)
        axes.bar_label(bars, ["-" if level is None else f"{level:.1f} dB" for level in levels], padding=2, fontsize=9)
    axes.set_xticks(range(len(scenes)), [title for _, title in scenes])
    axes.margins(y=0.12)
    axes.set_ylabel("energy of C that no fixed filter explains, %")
    axes.set_title("Artefacts in C (less is better)")
    axes.grid(axis="y", alpha=0.3)
    axes.set_axisbelow(True)
    axes.legend(loc="upper center")
    save(figure, path)


def write_plots(directory, results):
    """Writes all pictures as PNG. Returns their paths."""
    directory = Path(directory)
    directory.mkdir(parents=True, exist_ok=True)
    paths = []
    for name, plot in (("pan-level", plot_level), ("pan-shares", plot_shares), ("artefacts", plot_artefacts)):
        paths.append(directory / f"{name}.png")
        plot(paths[-1], results)
    return paths
