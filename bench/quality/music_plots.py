"""Draws the pictures of the music figures."""
# SPDX-License-Identifier: MIT

import matplotlib.pyplot as plt

from plot_style import save, styles
from rows import SPEECH_LEVELS_DB, signed, speech_key

# Smaller artefacts are drawn at this level.
ARTEFACT_FLOOR_DB = -40.0


def plot_speech(path, results):
    """Draws artefacts in C against the share of the speech in C: a dot per track, a large mark for the mean."""
    figure, grid = plt.subplots(
        1, len(SPEECH_LEVELS_DB), figsize=(10, 4.8), layout="constrained", sharex=True, sharey=True
    )
    for axes, level in zip(grid, SPEECH_LEVELS_DB):
        share, artefacts = speech_key(level, "in_c"), speech_key(level, "artefacts_c")
        for label, figures, colour, _ in styles(results):
            if figures[artefacts] is None:
                continue
            for points, size, alpha in ((figures["tracks"], 12, 0.5), ([figures], 130, 1.0)):
                x = [100 * point[share] for point in points]
                y = [max(point[artefacts], ARTEFACT_FLOOR_DB) for point in points]
                mean = len(points) == 1
                axes.scatter(
                    x,
                    y,
                    size,
                    color=colour,
                    alpha=alpha,
                    edgecolors="black" if mean else "none",
                    marker="D" if mean else "o",
                    label=label if mean else None,
                    zorder=3 if mean else 2,
                )
        axes.set_title(f"speech at {signed(level)} dB re the music")
        axes.set_xlim(0, 100)
        axes.set_ylim(ARTEFACT_FLOOR_DB - 1.5, 0)
        axes.grid(alpha=0.3)
        axes.set_axisbelow(True)
    grid[0].legend()
    figure.supxlabel("share of the speech in C, %")
    grid[0].set_ylabel(f"artefacts re the energy of C, dB ({ARTEFACT_FLOOR_DB:g} or less at the edge)")
    figure.suptitle("Speech in the centre of music: one dot per track, diamonds are means (better is lower right)")
    save(figure, path)


def plot_third_octaves(path, results):
    """Draws the long-term spectrum of the outputs relative to the stereo."""
    figure, axes = plt.subplots(figsize=(8, 4.5), layout="constrained")
    for label, figures, colour, line in styles(results):
        curve = figures["third_octaves"]
        levels = [float("nan") if level is None else level for level in curve["level_db"]]
        axes.semilogx(curve["centre_hz"], levels, linestyle=line, color=colour, label=label, marker="o", markersize=3)
    ticks = [50, 100, 200, 500, 1000, 2000, 5000, 10000]
    axes.set_xticks(ticks, [f"{hz // 1000} k" if hz >= 1000 else str(hz) for hz in ticks])
    axes.minorticks_off()
    axes.set_xlabel("third octave, Hz")
    axes.set_ylabel("level of all outputs re the stereo,\nre the mean of the bands, dB")
    axes.set_title("Long-term spectrum of music")
    axes.grid(alpha=0.3)
    axes.legend()
    save(figure, path)
