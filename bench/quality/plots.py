"""Draws the pictures of the figures."""
# SPDX-License-Identifier: MIT

from pathlib import Path

import matplotlib.pyplot as plt

import music_plots
from plot_style import LINE_STYLES, OUTPUT_COLOURS, save, styles
from rows import flutter_key, signed
import scenes


PAN_LABEL = "pan, degrees (0 = hard left, 45 = centre, 90 = hard right)"


def pan_axis(axes):
    """Draws the pan axis of a sweep, without a label."""
    axes.set_xlim(0, 90)
    axes.set_xticks(range(0, 91, 15))
    axes.grid(alpha=0.3)


def plot_level(path, results):
    """Draws the level of all outputs together over the pan."""
    figure, axes = plt.subplots(figsize=(8, 4.5), layout="constrained")
    for label, figures, colour, line in styles(results):
        sweep = figures["sweep"]
        axes.plot(
            sweep["pan_degrees"], sweep["level_db"], linestyle=line, color=colour, label=label, marker="o", markersize=3
        )
    pan_axis(axes)
    axes.set_xlabel(PAN_LABEL)
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
        axes.set_title(label)
    for axes in grid.flat[len(results) :]:
        axes.set_axis_off()
    for axes in grid.flat[max(len(results) - columns, 0) : len(results)]:
        axes.tick_params(labelbottom=True)
    grid[0, 0].set_ylim(-2, 102)
    grid.flat[len(results) - 1].legend(loc="upper center", ncol=3)
    figure.supxlabel(PAN_LABEL)
    figure.supylabel("share of the output power, %")
    figure.suptitle("Where one panned source (pink noise) goes")
    save(figure, path)


def plot_artefacts(path, results):
    """Draws artefacts in C in per cent of its energy, with labels in dB. Longer bars are worse."""
    mixtures = [("dialogue_artefacts", "speech against\npink noise at the sides"), ("recording_artefacts", "recording")]
    mixtures = [mixture for mixture in mixtures if any(figures[mixture[0]] is not None for figures in results.values())]
    shown = [style for style in styles(results) if any(style[1][key] is not None for key, _ in mixtures)]
    figure, axes = plt.subplots(figsize=(8, 4.5), layout="constrained")
    width = 0.8 / len(shown)
    for index, (label, figures, colour, _) in enumerate(shown):
        offset = (index - (len(shown) - 1) / 2) * width
        levels = [figures[key] for key, _ in mixtures]
        heights = [0 if level is None else 100 * 10 ** (level / 10) for level in levels]
        bars = axes.bar([i + offset for i in range(len(mixtures))], heights, 0.92 * width, color=colour, label=label)
        axes.bar_label(bars, ["-" if level is None else f"{level:.1f} dB" for level in levels], padding=2, fontsize=9)
    axes.set_xticks(range(len(mixtures)), [title for _, title in mixtures])
    axes.margins(y=0.12)
    axes.set_ylabel("energy of C that no fixed filter explains, %")
    axes.set_title("Artefacts in C (less is better)")
    axes.grid(axis="y", alpha=0.3)
    axes.set_axisbelow(True)
    axes.legend(loc="upper center")
    save(figure, path)


def plot_flutter(path, results):
    """Draws the movement of C's gain and of the level: a row of panels each, one panel per period. Less is steadier."""
    periods, sides = scenes.FLUTTER_PERIODS_SECONDS, scenes.FLUTTER_SIDE_LEVELS_DB
    measures = {"gain": "gain of the centred source in C", "level": "level of all outputs"}
    figure, grid = plt.subplots(2, len(periods), figsize=(10, 6), layout="constrained", sharex=True, sharey="row")
    width = 0.8 / len(results)
    for axes_row, (measure, title) in zip(grid, measures.items()):
        for axes, period in zip(axes_row, periods):
            for index, (label, figures, colour, _) in enumerate(styles(results)):
                offset = (index - (len(results) - 1) / 2) * width
                heights = [figures[flutter_key(period, level, measure)] or 0.0 for level in sides]
                axes.bar([i + offset for i in range(len(sides))], heights, 0.92 * width, color=colour, label=label)
            axes.set_title(f"period {period:g} s")
            axes.set_xticks(range(len(sides)), [signed(level) for level in sides])
            axes.grid(axis="y", alpha=0.3)
            axes.set_axisbelow(True)
        axes_row[0].set_ylabel(f"{title}:\nmovement, dB")
    # The title leaves a line for the legend, which has no room in the panels.
    handles, labels = grid[0, 0].get_legend_handles_labels()
    figure.legend(handles, labels, loc="upper center", bbox_to_anchor=(0.5, 0.965), ncol=len(results), frameon=False)
    figure.supxlabel("level of the left source re the centred one, dB")
    figure.suptitle("A steady centred source beside one that comes and goes on the left (less is steadier)\n\n")
    save(figure, path)


def write(directory, results):
    """Writes all pictures as PNG; those of the music only if it was measured. Returns their paths."""
    plots = {
        "pan-level": plot_level,
        "pan-shares": plot_shares,
        "artefacts": plot_artefacts,
        "flutter": plot_flutter,
    }
    if all("tracks" in figures for figures in results.values()):
        plots |= {"speech-over-music": music_plots.plot_speech, "third-octaves": music_plots.plot_third_octaves}
    directory = Path(directory)
    directory.mkdir(parents=True, exist_ok=True)
    paths = []
    for name, plot in plots.items():
        paths.append(directory / f"{name}.png")
        plot(paths[-1], results)
    return paths
