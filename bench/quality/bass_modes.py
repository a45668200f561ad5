#!/usr/bin/python3
"""Measures the bass of music in the sum of all outputs: `tarn upmix --bass fronts` beside `--bass steered`.

    bench/quality/bass_modes.py [--tarn PATH] [--write-docs]

Prints the table of docs/quality.md; --write-docs writes it into the page. Needs what quality.py needs. It takes about a
minute.
"""
# SPDX-License-Identifier: MIT

from concurrent.futures import ProcessPoolExecutor
from functools import partial
import os

import doc_table
from doc_table import Row, Table

import numpy as np

import bass
import recordings
import scenes
import systems

LIMITS_HZ = (80, 100, 120)
NEAR_DB = 1.0


class Tarn:
    """`tarn upmix --bass MODE`."""

    def __init__(self, command, mode, layout):
        self.label = f"Tarn, {mode}, {layout}"
        self.command = command
        self.options = ["--preset", "plain", "--layout", layout, "--bass", mode]
        if layout == "5.1":
            self.options += ["--surrounds", "-3"]

    def aligned(self, stereo, rate):
        return systems.upmix(self.command, stereo, rate, self.options)


def key(limit_hz, measure):
    return f"below_{limit_hz}_hz_{measure}"


def track_levels(track, compared):
    """The levels of a track, given as (half, index), over time: (label, limit) -> dB per window."""
    scene = scenes.music_alone(*track, recordings.EXCERPT_SECONDS)
    usable = slice(scene.settle, None)
    found = {}
    for system in compared:
        outputs = system.aligned(scene.stereo, scene.rate)
        for limit_hz in LIMITS_HZ:
            found[system.label, limit_hz] = bass.levels(scene.stereo[usable], outputs[usable], scene.rate, limit_hz)
    return found


def summary(tracks, label):
    """The figures of the table for one system."""
    results = {}
    for limit_hz in LIMITS_HZ:
        levels = [track[label, limit_hz] for track in tracks]
        means = [float(np.mean(level)) for level in levels]
        deviations = [float(np.std(level)) for level in levels]
        near = [float(np.mean(np.abs(level - np.mean(level)) <= NEAR_DB)) for level in levels]
        found = {
            "mean": float(np.mean(means)),
            "lowest": min(means),
            "highest": max(means),
            "deviation": float(np.mean(deviations)),
            "worst_deviation": max(deviations),
            "near": float(np.mean(near)),
        }
        results |= {key(limit_hz, measure): value for measure, value in found.items()}
    return results


def tables(tarn):
    """The table, with the figures of all systems."""
    compared = [Tarn(tarn, "steered", "3.0"), Tarn(tarn, "fronts", "3.0"), Tarn(tarn, "fronts", "5.1")]
    compared += [system for system in systems.peers()[0] if system.name == "surround"]
    tracks = [(half, index) for half in (0, 1) for index in range(len(recordings.tracks(half)))]
    with ProcessPoolExecutor(os.cpu_count()) as pool:
        found = list(pool.map(partial(track_levels, compared=compared), tracks))
    return [Table(ROWS, {system.label: summary(found, system.label) for system in compared})]


ROWS = [
    row
    for limit_hz in LIMITS_HZ
    for row in (
        Row(key(limit_hz, "mean"), f"below {limit_hz} Hz: mean level, mean of the tracks", "dB", 2),
        Row(key(limit_hz, "lowest"), f"below {limit_hz} Hz: mean level, lowest track", "dB", 2),
        Row(key(limit_hz, "highest"), f"below {limit_hz} Hz: mean level, highest track", "dB", 2),
        Row(
            key(limit_hz, "deviation"),
            f"below {limit_hz} Hz: standard deviation over time, mean of the tracks",
            "dB",
            2,
        ),
        Row(
            key(limit_hz, "worst_deviation"), f"below {limit_hz} Hz: standard deviation over time, worst track", "dB", 2
        ),
        Row(key(limit_hz, "near"), f"below {limit_hz} Hz: windows within {NEAR_DB:g} dB of the mean of the track", "%"),
    )
]


if __name__ == "__main__":
    doc_table.main("bass_modes", __doc__, tables)
