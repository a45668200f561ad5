#!/usr/bin/python3
"""Designs the steering thresholds on real speech over real music, and prints engine/thresholds.cpp.

usage: tools/design_thresholds.py [--front | --check]

    --front   figures of equal thresholds in all groups, of the previous rows and of the committed ones
    --check   previous and committed rows on the tracks and sentences that the design does not use, at four rates

A search moves one threshold at a time and keeps what reduces `cost`. It needs five minutes on two cores. Needs
build/release/tools/measure_steering, and fetches the recordings of bench/quality/recordings.py.
"""
# SPDX-License-Identifier: MIT

import argparse
from dataclasses import astuple, dataclass
import itertools
from multiprocessing.pool import ThreadPool
import os
from pathlib import Path
import re
import subprocess
import sys

# The number of threads of a linear algebra library must not affect the figures.
for variable in ("OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS"):
    os.environ[variable] = "1"

ROOT = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "bench/quality"))

import numpy as np

import flutter
import music_figures
import recordings
import scenes
import transients

PROGRAM = ROOT / "build/release/tools/measure_steering"
COMMITTED = ROOT / "engine/thresholds.cpp"
TABLES = ("THRES_BANDS", "MIDTHRES_BANDS", "SLOWTHRES_BANDS")

GROUPS = 16
RATE_HZ = 48000
# Group g has the thresholds of group g * step at this rate, or of the last one, as ZRKTarn::Initialize derives them.
ROW_STEPS = {44100: 1, 48000: 1, 96000: 2, 192000: 4}
DELAY_FRAMES = 960
FLUTTER_SECONDS, FLUTTER_PERIOD_SECONDS = 12, 2.0
# Seeds of the generated scenes by half, and of the jumps.
SCENE_SEEDS = {recordings.DESIGN_HALF: 1, recordings.CHECK_HALF: 2}
JUMP_SEEDS = {recordings.DESIGN_HALF: 100, recordings.CHECK_HALF: 200}

# The previous design: a diffuse field exceeds these magnitudes in 1, 10 and 50 % of blocks.
PREVIOUS = (0.5, 0.33, 0.18)
# Groups that share their thresholds: those below 750 Hz at 48 kHz, which hold most of the energy of speech and music,
# and all others. Two more zones, below 1.5 and 4.5 kHz, reduce the cost by 0.1 only.
ZONES = (range(0, 2), range(2, GROUPS))
# The search finds a local optimum. A start without a fast speed in the low zone, (0.94, 0.65, 0.60), ends at a higher cost.
START = ((0.70, 0.65, 0.60), (0.70, 0.65, 0.60))
STEPS = (0.04, 0.02, 0.01)
LOWEST, HIGHEST = 0.05, 0.98
# Fast, mid and slow thresholds of the front.
FRONT = ((0.5, 0.6, 0.7, 0.8, 0.9), (0.33, 0.45, 0.55, 0.65, 0.75), (0.18, 0.35, 0.5, 0.6, 0.7))
# Smaller differences of the cost do not count, so that rounding cannot change the result.
MARGIN = 0.002


@dataclass(frozen=True)
class Figures:
    """What a choice of thresholds does. Artefacts in dB, shares in %, flutter in dB, jumps in blocks at 12 dB."""

    artefacts_c: float
    artefacts_all: float
    speech_in_c: float
    flutter: float
    burst_centre_in_c: float
    burst_side_in_c: float
    jump_to_side: float
    jump_to_centre: float


COLUMNS = (
    ("artefacts in C, dB", ".2f"),
    ("in all outputs, dB", ".2f"),
    ("speech in C, %", ".1f"),
    ("flutter, dB", ".2f"),
    ("centred burst in C, %", ".1f"),
    ("side burst in C, %", ".1f"),
    ("jump left to right, blocks", ".0f"),
    ("left to centre, blocks", ".0f"),
)


def shown(figures):
    """The figures as text, in the order of COLUMNS."""
    return [format(value, spec) for value, (_, spec) in zip(astuple(figures), COLUMNS)]


def cost(now, before):
    """How far figures miss the goals, relative to those of the previous rows, weighted; less is better.

    Goals: artefacts in C 2 dB and in all outputs 1.2 dB lower, flutter of 3 dB, 1 % of the speech and 3 % of the
    bursts lost, jumps 10 % slower. Beyond the goals, artefacts and speech count with a tenth of their weight.
    """
    missed = [
        now.artefacts_c - before.artefacts_c + 2.0,
        now.artefacts_all - before.artefacts_all + 1.2,
        2.0 * (now.flutter - 3.0),
        before.speech_in_c - now.speech_in_c - 1.0,
        0.5 * (before.burst_centre_in_c - now.burst_centre_in_c - 3.0),
        0.5 * (now.burst_side_in_c - before.burst_side_in_c - 3.0),
        2.5 * (now.jump_to_side / before.jump_to_side - 1.1),
        2.5 * (now.jump_to_centre / before.jump_to_centre - 1.1),
    ]
    beyond = now.artefacts_c + now.artefacts_all - now.speech_in_c
    return sum(max(0.0, miss) for miss in missed) + 0.1 * beyond


def rows_of(zones):
    """Thresholds by zone, (fast, mid, slow) each, as rows [3, 16]."""
    rows = np.empty((3, GROUPS))
    for groups, thresholds in zip(ZONES, zones):
        rows[:, groups] = np.array(thresholds)[:, None]
    return rows


def run_program(command, rate, rows, *numbers, data=None):
    """Output of measure_steering with rows for 48 kHz."""
    derived = rows[:, np.minimum(np.arange(GROUPS) * ROW_STEPS[rate], GROUPS - 1)]
    arguments = [str(rate), *map(str, numbers), *(f"{value:.3f}" for value in np.ravel(derived))]
    return subprocess.run([PROGRAM, command, *arguments], input=data, stdout=subprocess.PIPE, check=True).stdout


def upmix(scene, rows):
    """Aligned outputs [frames, 3] of a scene."""
    stereo = np.vstack([np.round(scene.stereo * 2.0**31), np.zeros((DELAY_FRAMES, 2))]).astype("<i4")
    outputs = np.frombuffer(run_program("upmix", scene.rate, rows, data=stereo.tobytes()), "<i4")
    return outputs.reshape(-1, 3)[DELAY_FRAMES:] / 2.0**31


def speech_figures(scene, rows):
    """Artefacts in C and in all outputs in dB, share of the speech in C in %."""
    found = music_figures.speech_figures(scene, upmix(scene, rows)[scene.settle :])
    return found["artefacts_c"], found["artefacts_all"], 100 * found["in_c"]


def flutter_figure(scene, rows):
    """Movement of C's gain in dB."""
    signals = (scene.stems["centre"], scene.stems["side"], scene.stereo, upmix(scene, rows))
    return flutter.figures(*(signal[scene.settle :] for signal in signals), scene.rate)[0]


def burst_figures(scene, rows):
    """Shares of C in centred bursts and in those at the sides, in %."""
    events = [event for event in scene.events if event[0] >= scene.settle]
    found = transients.figures(upmix(scene, rows), events, scene.rate)
    return 100 * found["centre_in_c"], 100 * found["side_in_c"]


def jump_figures(source, rows, level_db=12):
    """Blocks of the jumps: left to right, left to centre. source is the rate and the seed."""
    rate, seed = source
    return [float(blocks) for blocks in run_program("response", rate, rows, seed, level_db).split()]


class Bench:
    """Measures rows on the scenes of one half, on all processors."""

    def __init__(self, half, rate=RATE_HZ, level_db=0.0):
        seed = SCENE_SEEDS[half]
        tracks = range(len(recordings.tracks(half)))
        self.jobs = [
            (flutter_figure, scenes.flutter(seed, FLUTTER_SECONDS, FLUTTER_PERIOD_SECONDS, 0.0, rate)),
            (burst_figures, scenes.bursts(seed, scenes.BURSTS, rate)),
            (jump_figures, (rate, JUMP_SEEDS[half])),
            *(
                (speech_figures, scenes.speech_over_music(half, i, level_db, recordings.EXCERPT_SECONDS, rate))
                for i in tracks
            ),
        ]
        self.pool = ThreadPool()

    def measure(self, rows):
        """The figures of rows; artefacts and speech are means over the tracks."""
        results = self.pool.map(lambda job: job[0](job[1], rows), self.jobs, chunksize=1)
        steady, bursts, jumps, *speech = results
        return Figures(*(float(value) for value in (*np.mean(speech, axis=0), steady, *bursts, *jumps)))


def neighbours(zones, step):
    """All choices that differ in one threshold by a step, with falling thresholds in every zone."""
    for zone, row, sign in itertools.product(range(len(ZONES)), range(3), (1, -1)):
        changed = [list(thresholds) for thresholds in zones]
        changed[zone][row] = round(changed[zone][row] + sign * step, 3)
        fast, mid, slow = changed[zone]
        if HIGHEST >= fast > mid > slow >= LOWEST:
            yield tuple(tuple(thresholds) for thresholds in changed)


def search(bench):
    """Descends from START, one threshold at a time. Returns zones and their figures."""
    before = bench.measure(rows_of([PREVIOUS] * len(ZONES)))
    known = {}

    def cost_of(zones):
        if zones not in known:
            known[zones] = bench.measure(rows_of(zones))
        return cost(known[zones], before)

    def better(zones, step):
        return next((other for other in neighbours(zones, step) if cost_of(other) < cost_of(zones) - MARGIN), None)

    zones = START
    for step in STEPS:
        while (other := better(zones, step)) is not None:
            zones = other
            print(f"{cost_of(zones):.3f} {zones} {shown(known[zones])}", file=sys.stderr, flush=True)
    return zones, known[zones]


def committed_rows():
    """The rows of engine/thresholds.cpp."""
    text = COMMITTED.read_text()
    tables = [re.search(rf"::{name}\[16\] = {{([^}}]*)}}", text).group(1) for name in TABLES]
    return np.array([[float(value) for value in re.findall(r"[\d.]+(?=f)", table)] for table in tables])


def print_source(zones, figures):
    """Prints engine/thresholds.cpp."""
    print(
        "// The steering thresholds.\n"
        "// SPDX-License-Identifier: MIT\n"
        '#include "engine/zrk_tarn.h"\n\n'
        "// Made by tools/design_thresholds.py, at 48 kHz. Figures of the design:"
    )
    for (heading, _), value in zip(COLUMNS, shown(figures)):
        print(f"//   {heading}: {value}")
    print("\n// clang-format off\n")
    for name, row in zip(TABLES, rows_of(zones)):
        print(f"const float ZRKTarn::{name}[16] = {{")
        for half in (row[:8], row[8:]):
            print("    " + " ".join(f"{value:.3f}f," for value in half))
        print("};\n")
    print("// clang-format on")


def print_table(title, rows):
    """Prints figures as Markdown; rows are pairs of label and figures."""
    print(f"| {title} | " + " | ".join(heading for heading, _ in COLUMNS) + " |")
    print("|---" * (1 + len(COLUMNS)) + "|")
    for label, figures in rows:
        print(f"| {label} | " + " | ".join(shown(figures)) + " |", flush=True)


def print_front():
    """Figures of equal thresholds in all groups, and of the previous and the committed rows."""
    bench = Bench(recordings.DESIGN_HALF)
    choices = [
        (f"{fast:g}, {mid:g}, {slow:g}", rows_of([(fast, mid, slow)] * len(ZONES)))
        for fast, mid, slow in itertools.product(*FRONT)
        if fast > mid > slow
    ]
    choices = [("previous", rows_of([PREVIOUS] * len(ZONES))), ("committed", committed_rows()), *choices]
    print_table("fast, mid, slow", ((label, bench.measure(rows)) for label, rows in choices))


def print_check():
    """Previous and committed rows on the other half, at 0 and 6 dB and at four rates."""
    choices = [("previous", rows_of([PREVIOUS] * len(ZONES))), ("committed", committed_rows())]
    rows = []
    for rate, level_db in [(RATE_HZ, 0.0), (RATE_HZ, 6.0), (44100, 0.0), (96000, 0.0), (192000, 0.0)]:
        bench = Bench(recordings.CHECK_HALF, rate, level_db)
        rows += [(f"{label}, {rate} Hz, speech at {level_db:g} dB", bench.measure(choice)) for label, choice in choices]
    print_table("thresholds", rows)
    print_steering(choices)
    print_tracks(choices)


def print_tracks(choices):
    """Artefacts in all outputs by track, at 48 kHz and 0 dB."""
    print("\n| artefacts in all outputs, dB | " + " | ".join(label for label, _ in choices) + " |")
    print("|---" * (1 + len(choices)) + "|")
    for index, track in enumerate(recordings.tracks(recordings.CHECK_HALF)):
        scene = scenes.speech_over_music(recordings.CHECK_HALF, index, 0.0, recordings.EXCERPT_SECONDS, RATE_HZ)
        levels = [f"{speech_figures(scene, rows)[1]:.2f}" for _, rows in choices]
        print(f"| {track.name} | " + " | ".join(levels) + " |")


def print_steering(choices):
    """Jitter, jumps at three levels, and flutter with three periods, at 48 kHz."""
    periods = scenes.FLUTTER_PERIODS_SECONDS
    headings = (
        "thresholds",
        "jitter: field, source at 0, 6, 12 dB",
        "jump left to right: 0, 6, 12 dB",
        "left to centre",
        f"flutter, dB: period {', '.join(f'{period:g}' for period in periods)} s",
    )
    print("\n| " + " | ".join(headings) + " |")
    print("|---" * len(headings) + "|")
    seed = JUMP_SEEDS[recordings.CHECK_HALF]
    gated = [
        scenes.flutter(SCENE_SEEDS[recordings.CHECK_HALF], FLUTTER_SECONDS, period, 0.0, RATE_HZ) for period in periods
    ]
    for label, rows in choices:
        jitter = run_program("jitter", RATE_HZ, rows, seed).decode().split()
        jumps = zip(*(jump_figures((RATE_HZ, seed), rows, level_db) for level_db in (0, 6, 12)))
        cells = [", ".join(jitter), *(", ".join(f"{blocks:.0f}" for blocks in direction) for direction in jumps)]
        cells.append(", ".join(f"{flutter_figure(scene, rows):.2f}" for scene in gated))
        print(f"| {label} | " + " | ".join(cells) + " |")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--front", action="store_true", help="figures of equal thresholds in all groups")
    parser.add_argument("--check", action="store_true", help="figures of the other half of the recordings")
    options = parser.parse_args()
    if not PROGRAM.is_file():
        sys.exit(f"design_thresholds: no {PROGRAM.relative_to(ROOT)}; `./run regenerate` builds it")
    try:
        recordings.fetch()
    except recordings.FetchError as error:
        sys.exit(f"design_thresholds: {error}")
    if options.front:
        print_front()
    elif options.check:
        print_check()
    else:
        print_source(*search(Bench(recordings.DESIGN_HALF)))


if __name__ == "__main__":
    main()
