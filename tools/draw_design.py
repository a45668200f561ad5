#!/usr/bin/python3
"""Draws the pictures of docs/design.md into docs/pictures.

usage: tools/draw_design.py

Reads filterbank/lpf.cpp, docs/data/trade-off.txt (tools/design_lpf.py --trade-off) and docs/data/threshold-sweep.txt
(design_thresholds sweep). Needs python3-numpy and python3-matplotlib (Debian).
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
    rows = np.array(sorted(row[1:5] for row in rows if len(row) >= 5))
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


def draw_sweep():
    """Draws image jitter against response, coloured by the rate of fast false alarms."""
    rows = []
    for line in (DATA / "threshold-sweep.txt").read_text().splitlines():
        cells = line.strip("|").split("|")
        if len(cells) == 11 and re.match(r"\s*\d", cells[0]):
            rows.append([float(cell) for cell in cells])
    rows = np.array(rows)
    figure, (diffuse, source) = plt.subplots(1, 2, figsize=(11, 4.5), sharex=True)
    for fast in sorted(set(rows[:, 0])):
        of = rows[rows[:, 0] == fast]
        diffuse.plot(of[:, 7], of[:, 3], "o", label="fast %g %%" % fast)
        source.plot(of[:, 7], of[:, 4], "o", label="fast %g %%" % fast)
    chosen = rows[(rows[:, 0] == 1) & (rows[:, 1] == 10) & (rows[:, 2] == 50)]
    for axes, column in ((diffuse, 3), (source, 4)):
        axes.plot(
            chosen[:, 7], chosen[:, column], "k*", markersize=15, markerfacecolor="none", label="chosen: 1, 10, 50 %"
        )
        axes.set(xlabel="blocks to 90 % of a jump from left to right, source at 0 dB")
        axes.grid(alpha=0.3)
    diffuse.set(title="diffuse field", ylabel="image jitter, standard deviation of the place")
    source.set(title="still source at 0 dB re the field in one channel")
    source.legend()
    save(figure, "threshold-sweep.png")


def main():
    PICTURES.mkdir(exist_ok=True)
    draw_response()
    draw_trade_off()
    draw_sweep()


if __name__ == "__main__":
    main()
