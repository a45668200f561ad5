"""Draws the figures of voices on two loudspeakers."""
# SPDX-License-Identifier: MIT

import matplotlib.pyplot as plt

from plot_style import COLOURS, save

MARKERS = ["o", "s", "^", "v"]
ARTEFACT_FLOOR_DB = -45.0  # smaller artefacts are drawn at this level


def draw_scenes(axes, scenes, labels, gain_db):
    """Draws a dot per scene and a large mark for the mean. scenes: list of (label, gain) -> figures."""
    for label, colour, marker in zip(labels, COLOURS, MARKERS):
        dots = [scene[label, gain_db] for scene in scenes]
        x = [dot["relative"] for dot in dots]
        y = [max(dot["artefacts"], ARTEFACT_FLOOR_DB) for dot in dots]
        axes.scatter(x, y, 16, color=colour, alpha=0.5, marker=marker, edgecolors="none")
        mean = (sum(x) / len(x), sum(y) / len(y))
        axes.scatter(*mean, 130, color=colour, marker=marker, edgecolors="black", label=label, zorder=3)


def draw(directory, results, found):
    """Draws artefacts against what speech gains over the rest; found: scene -> (label, gain) -> figures."""
    gain_db = max(gain for scene in found.values() for _, gain in scene)
    labels = [label for label in results if label != "stereo"]
    groups = {
        "speech over ambience": [figures for scene, figures in found.items() if isinstance(scene, str)],
        "speech over music": [figures for scene, figures in found.items() if not isinstance(scene, str)],
    }
    figure, grid = plt.subplots(1, 2, figsize=(10, 4.8), layout="constrained", sharex=True, sharey=True)
    for axes, (title, scenes) in zip(grid, groups.items()):
        draw_scenes(axes, scenes, labels, gain_db)
        axes.set_title(title)
        axes.grid(alpha=0.3)
        axes.set_axisbelow(True)
    grid[0].set_ylim(ARTEFACT_FLOOR_DB - 1.5, -10)
    grid[0].set_ylabel(f"artefacts re all outputs, dB ({ARTEFACT_FLOOR_DB:g} or less at the edge)")
    handles, names = grid[0].get_legend_handles_labels()
    figure.legend(handles, names, loc="upper center", bbox_to_anchor=(0.5, 0.94), ncol=len(names), frameon=False)
    figure.supxlabel("gain of the speech relative to the rest, dB")
    figure.suptitle(
        f"Voices raised by {gain_db:g} dB: a dot per scene, large marks are means (better is lower right)\n\n"
    )
    save(figure, directory / "dialogue.png")
