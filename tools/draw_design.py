#!/usr/bin/python3
"""Draws the pictures of docs/design.md into docs/pictures.

usage: tools/draw_design.py

Reads filterbank/lpf.cpp, docs/data/trade-off.txt (tools/design_lpf.py --trade-off) and docs/data/threshold-front.txt
(tools/design_thresholds.py --front). Needs python3-numpy and python3-matplotlib (Debian).
"""
# SPDX-License-Identifier: MIT

from pathlib import Path
import re

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

from measure_lpf import BANDS, POLYPHASE_SIGN, read_table

ROOT = Path(__file__).resolve().parents[1]
DATA = ROOT / "docs/data"
PICTURES = ROOT / "docs/pictures"


def save(figure, name):
    """Saves a figure without date and version, so that the same drawing gives the same file."""
    figure.savefig(PICTURES / name, dpi=120, bbox_inches="tight", metadata={"Software": None})
    plt.close(figure)


def draw_response():
    """Draws the magnitude of the prototype, for all bands and for the first bands."""
    p = read_table(ROOT / "filterbank/lpf.cpp").astype(float) * POLYPHASE_SIGN
    points = 1 << 17
    response = 20 * np.log10(np.abs(np.fft.rfft(p, points)) + 1e-12)
    bands = np.arange(len(response)) * 2 * BANDS / points

    figure, (near, whole) = plt.subplots(1, 2, figsize=(11, 4))
    near.plot(bands, response)
    near.axvline(0.5, linestyle=":", color="grey", label="half a band: pi / 128")
    near.axvline(1, linestyle="--", color="grey", label="stopband edge: pi / 64")
    near.set(xlim=(0, 3), ylim=(-130, 5), xlabel="frequency, bands of pi / 64", ylabel="magnitude, dB")
    near.legend()
    whole.plot(bands, response, linewidth=0.5)
    whole.axhline(-101, linestyle="--", color="grey", label="-101 dB")
    whole.set(xlim=(0, BANDS), ylim=(-160, 5), xlabel="frequency, bands of pi / 64")
    whole.legend()
    figure.suptitle("Prototype filter lpf without its polyphase signs")
    save(figure, "prototype-response.png")


def draw_trade_off():
    """Draws reconstruction against stopband, one point per design."""
    rows = [
        [float(value) for value in re.findall(r"([-\d.]+) dB", line)]
        for line in (DATA / "trade-off.txt").read_text().splitlines()[1:]
    ]
    rows = np.array([row[1:5] for row in rows if len(row) >= 5])
    rows = rows[np.argsort(rows[:, 2])]
    figure, axes = plt.subplots(figsize=(7, 4.5))
    axes.plot(rows[:, 2], rows[:, 0], "o-", label="white noise")
    axes.plot(rows[:, 2], rows[:, 1], "s-", label="worst impulse")
    axes.axhline(85, linestyle="--", color="grey", label="required")
    axes.axvline(100, linestyle="--", color="grey")
    axes.set(
        xlabel="stopband, dB down from pi / 64",
        ylabel="signal to reconstruction error, dB",
        title="Prototype designs: reconstruction against stopband",
    )
    axes.legend()
    axes.grid(alpha=0.3)
    save(figure, "prototype-trade-off.png")


def read_front():
    """Labels and figures of docs/data/threshold-front.txt."""
    lines = (DATA / "threshold-front.txt").read_text().splitlines()[2:]
    cells = [line.strip("| ").split(" | ") for line in lines]
    return [row[0] for row in cells], np.array([[float(cell) for cell in row[1:]] for row in cells])


def front_of(costs, artefacts):
    """The choices to which no other one is at least equal in both and better in one, by rising cost."""
    front = []
    for choice in np.lexsort((artefacts, costs)):
        if not front or artefacts[choice] < artefacts[front[-1]]:
            front.append(choice)
    return front


def draw_front():
    """Draws artefacts against response, flutter and the share of the speech, coloured by the fast threshold."""
    artefacts = 1
    panels = [
        (6, 1, "blocks to 90 % of a jump from left to right, source at 12 dB"),
        (3, 1, "flutter, dB"),
        (2, -1, "share of the speech in C, %"),
    ]
    labels, figures = read_front()
    named = {"previous": "ks", "committed": "k*"}
    fast = np.array([np.nan if label in named else float(label.split(",")[0]) for label in labels])
    figure, grid = plt.subplots(1, len(panels), figsize=(14, 4.5), sharey=True, layout="constrained")
    for axes, (column, direction, title) in zip(grid, panels):
        front = front_of(direction * figures[:, column], figures[:, artefacts])
        axes.plot(figures[front, column], figures[front, artefacts], color="grey", linewidth=1, label="front")
        for value in sorted(set(fast[~np.isnan(fast)])):
            of = figures[fast == value]
            axes.plot(of[:, column], of[:, artefacts], "o", markersize=4, label=f"fast {value:g}")
        for label, marker in named.items():
            row = figures[labels.index(label)]
            axes.plot(row[column], row[artefacts], marker, markersize=13, markerfacecolor="none", label=label)
        axes.set_xlabel(title)
        axes.grid(alpha=0.3)
    grid[0].set_ylabel("artefacts in all outputs, dB")
    grid[0].legend()
    figure.suptitle("Thresholds on speech over music")
    save(figure, "threshold-front.png")


def main():
    PICTURES.mkdir(exist_ok=True)
    draw_response()
    draw_trade_off()
    draw_front()


if __name__ == "__main__":
    main()
