#!/usr/bin/python3
"""Designs the all-pass delays of the surround channels, and prints the table of room/surrounds.cpp.

usage: tools/design_chains.py [--correlations | --check]

    --correlations  the correlation of the channels of each pair in the committed table, instead of a design
    --check         whether the committed table is that of the design; the exit code is 1 if not

Two channels with the phase difference d(f) correlate by the mean of cos d(f) over the power spectrum of the signal. The
design keeps it small in every third of an octave, so that it is small for music that has most of its power in a few
notes. The delays of 48 kHz are given: among those of a random search with small means, they correlate least on the
music of the design half of bench/quality. For each other rate, a search near the scaled delays finds odd delays without
a common divisor. It needs two seconds.
"""
# SPDX-License-Identifier: MIT

import argparse
import math
from pathlib import Path
import random
import re
import sys

import numpy as np

COMMITTED = Path(__file__).resolve().parents[1] / "room/surrounds.cpp"
RATES_HZ = (32000, 44100, 48000, 64000, 88200, 96000, 192000)
BASE_RATE_HZ = 48000
BASE_DELAYS = ((139, 607, 125, 621), (187, 379, 191, 371))  # of each pair: both sections left, both sections right
GAINS = (0.6, -0.6, 0.6, 0.6)  # of the same sections
MIN_DELAY_FRAMES = 65
FREQUENCIES_HZ = np.geomspace(60, 12000, 3000)
LOWEST_BAND_HZ = 100
FAR_TRIALS, NEAR_TRIALS = 700, 400


def phase(delay, gain, rate_hz):
    """Phase of an all-pass section at FREQUENCIES_HZ."""
    shift = np.exp(-2j * np.pi * FREQUENCIES_HZ / rate_hz * delay)
    return np.angle((shift - gain) / (1 - gain * shift))


def correlations(delays, rate_hz):
    """Correlation of a pair: (largest magnitude in a third of an octave, of pink noise)."""
    phases = [phase(delay, gain, rate_hz) for delay, gain in zip(delays, GAINS)]
    cosine = np.cos(phases[0] + phases[1] - phases[2] - phases[3])
    sums = np.concatenate([[0.0], np.cumsum(cosine)])
    octave = len(cosine) / np.log2(FREQUENCIES_HZ[-1] / FREQUENCIES_HZ[0])
    width = int(octave / 3)
    bands = np.abs(sums[width:] - sums[:-width]) / width
    return bands[FREQUENCIES_HZ[: len(bands)] > LOWEST_BAND_HZ].max(), abs(cosine.mean())


def coprime(delays):
    """Whether no two delays have a common divisor."""
    return all(math.gcd(a, b) == 1 for i, a in enumerate(delays) for b in delays[:i])


def odd(value):
    """The odd number next to a value."""
    return 2 * round((value - 1) / 2) + 1


def search(start, taken, spread, trials, rate_hz, generator):
    """The best of random delays near start that have no divisor in common with each other and with those taken."""
    best = (math.inf, start)
    for _ in range(trials):
        delays = [max(MIN_DELAY_FRAMES, delay + 2 * generator.randint(-spread, spread)) for delay in start]
        if coprime([*taken, *delays]):
            best = min(best, (sum(correlations(delays, rate_hz)), delays))
    return best[1]


def design(rate_hz):
    """The delays of both pairs at a rate."""
    if rate_hz == BASE_RATE_HZ:
        return [delay for pair in BASE_DELAYS for delay in pair]
    generator = random.Random(rate_hz)
    found = []
    for pair in BASE_DELAYS:
        start = [odd(delay * rate_hz / BASE_RATE_HZ) for delay in pair]
        far = search(start, found, max(3, round(4 * rate_hz / BASE_RATE_HZ)), FAR_TRIALS, rate_hz, generator)
        found += search(far, found, 1, NEAR_TRIALS, rate_hz, generator)
    return found


def committed():
    """Rate -> the delays in room/surrounds.cpp."""
    rows = re.findall(r"\{(\d+), [\d.]+f, \d+, (\{\{.*\}\})\}", COMMITTED.read_text(encoding="utf-8"))
    return {int(rate): [int(delay) for delay in re.findall(r"\d+", delays)] for rate, delays in rows}


def look_ahead_blocks():
    """Rate -> the blocks of look-ahead in room/surrounds.cpp."""
    rows = re.findall(r"\{(\d+), [\d.]+f, (\d+), \{\{", COMMITTED.read_text(encoding="utf-8"))
    return {int(rate): int(blocks) for rate, blocks in rows}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--correlations", action="store_true")
    parser.add_argument("--check", action="store_true")
    arguments = parser.parse_args()
    if arguments.check:
        if committed() != {rate_hz: design(rate_hz) for rate_hz in RATES_HZ}:
            sys.exit(f"{COMMITTED.name}: the delays are not those of the design")
        return
    if arguments.correlations:
        for rate_hz, delays in committed().items():
            for pair in (0, 1):
                band, pink = correlations(delays[4 * pair : 4 * pair + 4], rate_hz)
                print(f"{rate_hz} Hz, pair {pair}: third octaves at most {band:.2f}, pink noise {pink:.2f}")
        return
    for rate_hz in RATES_HZ:
        pairs = ", ".join(f"{{{a}, {b}}}" for a, b in zip(*[iter(design(rate_hz))] * 2))
        print(f"{rate_hz}: {{{pairs}}}", flush=True)


if __name__ == "__main__":
    main()
