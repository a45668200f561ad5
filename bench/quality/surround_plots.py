"""Draws the figures of the surround channels."""
# SPDX-License-Identifier: MIT

import matplotlib.pyplot as plt

from plot_style import COLOURS, LINE_STYLES, save

FLOOR_DB = -120.0  # of the levels that are drawn
MARKERS = ["o", "s", "^"]


def draw_sweep(axes, degrees, levels, floor):
    """Draws levels over the pan."""
    for (label, values), colour, line, marker in zip(levels.items(), COLOURS, LINE_STYLES, MARKERS):
        drawn = [floor if value is None else max(value, floor) for value in values]
        axes.plot(degrees, drawn, line, color=colour, label=label, marker=marker, markersize=5)
    axes.set_xlim(-1, 46)
    axes.set_xticks(range(0, 46, 5))
    axes.set_ylim(floor - (0 - floor) / 40, 0)
    axes.grid(alpha=0.3)


def draw_pans(path, sweep):
    """Draws the level behind of one source over its place, alone and in diffuse noise."""
    figure, grid = plt.subplots(1, 2, figsize=(10, 4.6), layout="constrained")
    draw_sweep(grid[0], sweep["degrees"], sweep["alone"], FLOOR_DB)
    grid[0].set_title("alone")
    grid[0].set_ylabel("level behind relative to the source, dB")
    draw_sweep(grid[1], sweep["degrees"], sweep["in_noise"], FLOOR_DB / 2)
    grid[1].set_title(f"in diffuse noise at {sweep['noise_db']:g} dB")
    grid[1].set_ylabel("level behind relative to the fronts, dB")
    figure.supxlabel("pan, degrees (0 = hard left, 45 = centre); at the lower edge: this level or less")
    figure.suptitle("One panned source (pink noise) behind the listener (less is better)\n\n")
    handles, labels = grid[0].get_legend_handles_labels()
    figure.legend(handles, labels, loc="upper center", bbox_to_anchor=(0.5, 0.94), ncol=len(labels), frameon=False)
    save(figure, path)


def draw_tracks(path, results):
    """Draws the leak of speech of every track. Systems that cancel the centre exactly are left out."""
    figure, axes = plt.subplots(figsize=(8, 4.5), layout="constrained")
    leaks = {label: found["music_leaks"] for label, found in results.items()}
    shown = {label: found for label, found in leaks.items() if min(found) > FLOOR_DB}
    first = next(iter(shown.values()))
    order = sorted(range(len(first)), key=lambda track: first[track])
    for (label, found), colour, marker in zip(shown.items(), COLOURS, MARKERS):
        mean = sum(found) / len(found)
        values = [found[track] for track in order]
        axes.plot(range(1, len(order) + 1), values, marker, color=colour, label=f"{label}, mean {mean:.1f} dB")
        axes.axhline(mean, color=colour, linewidth=1.2, linestyle=":")
    axes.set_xlabel(f"track, in the order of {next(iter(shown))}; dotted: means")
    axes.set_ylabel("speech behind relative to C, dB")
    axes.set_title("Speech in the centre of music: what leaks behind (less is better)")
    axes.grid(alpha=0.3)
    axes.legend(loc="lower right")
    save(figure, path)


def draw(directory, results, sweep):
    """Writes the pictures. sweep is that of surrounds.py."""
    draw_tracks(directory / "surround-leak.png", results)
    draw_pans(directory / "surround-pan.png", sweep)
