#!/usr/bin/env python3
"""Compares the speed of two builds, which run in turns.

    bench/speed/against.py BUILD

BUILD is the build folder of preset bench of another checkout, of an earlier commit for instance:

    git worktree add ../before COMMIT
    (cd ../before && cmake --preset bench && cmake --build --preset bench)
    ./run speed --against ../before/build/bench

Both builds run `tarn_speed --summary` in turns. The result is, for every kind of block and every instruction set, the
time of this build divided by that of the other one: the median over all turns. The unit of time is a block of the
reference engine, which each run measures in rounds between the others, so that a change of the processor's clock between
two runs does not count.
"""
# SPDX-License-Identifier: MIT

import argparse
from pathlib import Path
import statistics
import subprocess
import sys

THIS_BUILD = Path(__file__).resolve().parents[2] / "build/bench"
NAME_WIDTH = 34


def program_of(build):
    """The benchmark program of a build folder."""
    return build / "bench/speed/tarn_speed"


def measure(build):
    """The time of every kind of block in blocks of the reference engine: {kind: {instruction set: time}}."""
    command = [str(program_of(build)), "--summary"]
    summary = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    head, *lines = summary.split("\n\n")[1].splitlines()
    reference, *sets = head[NAME_WIDTH:].split()
    assert reference == "reference"
    times = {}
    for line in lines:
        ticks_of_reference, *ticks = map(float, line[NAME_WIDTH:].split())
        times[line[:NAME_WIDTH].strip()] = dict(zip(sets, (t / ticks_of_reference for t in ticks)))
    return times


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=Path, metavar="BUILD", help="build folder of preset bench of another checkout")
    parser.add_argument("--turns", type=int, default=5, metavar="N", help="runs of each build (%(default)s)")
    options = parser.parse_args()
    if options.turns < 1:
        sys.exit("against: --turns: give a number, 1 or more")
    for build in (options.build, THIS_BUILD):
        if not program_of(build).is_file():
            sys.exit(
                f"against: no {program_of(build)}; in that checkout: cmake --preset bench && cmake --build --preset bench"
            )

    turns = [(measure(options.build), measure(THIS_BUILD)) for _ in range(options.turns)]
    others, these = turns[0]
    kinds = [kind for kind in these if kind in others]
    sets = [name for name in these[kinds[0]] if name in others[kinds[0]]]
    print(f"{'time per block, this / other':<{NAME_WIDTH}}" + "".join(f"{name:>12}" for name in sets))
    for kind in kinds:
        ratios = [statistics.median(this[kind][name] / other[kind][name] for other, this in turns) for name in sets]
        print(f"{kind:<{NAME_WIDTH}}" + "".join(f"{ratio:12.2f}" for ratio in ratios))


if __name__ == "__main__":
    main()
