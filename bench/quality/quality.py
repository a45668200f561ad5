#!/usr/bin/python3
"""Measures the quality of the upmix and compares it with two filters of FFmpeg.

    bench/quality/quality.py --json figures.json --plots pictures

Needs Debian's python3-numpy, python3-scipy, python3-soundfile and python3-matplotlib, and a built tarn. Optional:
ffmpeg for the comparison, espeak-ng for speech, and fretsonfire-songs-muldjord as recording. The report names what is
missing.
"""
# SPDX-License-Identifier: MIT

import argparse
import os
from pathlib import Path
import sys

# The number of threads of a linear algebra library must not affect the figures.
for variable in ("OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS"):
    os.environ[variable] = "1"

import figures
import report
import scenes
import systems

DEFAULT_TARN = Path(__file__).resolve().parents[2] / "build/tarn/cli/tarn"


def parse_arguments(arguments):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tarn", type=Path, default=DEFAULT_TARN, metavar="PATH", help="the command (%(default)s)")
    parser.add_argument(
        "--mode", choices=["fast", "calm"], action="append", help="steering mode of tarn, can be repeated (fast)"
    )
    parser.add_argument("--seed", type=int, default=1, help="seed of the scenes (%(default)s)")
    parser.add_argument("--quick", action="store_true", help="short scenes, for a test")
    parser.add_argument(
        "--speech",
        choices=["auto", "espeak-ng", "synthetic"],
        default="auto",
        help="voice of the dialogue; auto is espeak-ng if installed, else synthetic",
    )
    parser.add_argument("--json", type=Path, metavar="FILE", help="write all figures to FILE")
    parser.add_argument("--plots", type=Path, metavar="DIR", help="write pictures into DIR")
    return parser.parse_args(arguments)


def settings_of(options, suite):
    """Settings and versions that the figures depend on."""
    song = suite.recording
    return {
        "seed": options.seed,
        "quick": options.quick,
        "speech": suite.speech,
        "rate_hz": scenes.RATE_HZ,
        "recording": song and f"{scenes.SONG_CREDIT}, {song.rate} Hz",
        "versions": systems.versions(options.tarn),
    }


def main(arguments=None):
    options = parse_arguments(arguments)
    if not options.tarn.is_file():
        sys.exit(f"quality: {options.tarn}: no such command; build it first or name it with --tarn")
    suite = scenes.build_suite(options.seed, options.quick, options.speech)
    peers, notes = systems.peers()
    if suite.recording is None:
        notes.append(f"{scenes.SONG_PACKAGE} is not installed: the recording is left out")
    if suite.speech == "synthetic":
        notes.append("the dialogue is spoken by a synthetic voice; espeak-ng was not asked or is not installed")

    results = {}
    for system in [*(systems.Tarn(options.tarn, mode) for mode in options.mode or ["fast"]), *peers, systems.FixedMatrix()]:
        print(f"quality: {system.label}", file=sys.stderr)
        results[system.label] = figures.measure(system, suite)
        late = results[system.label]["aligned_delay"]
        if late:
            notes.append(f"{system.label}: its aligned output is {late} frames late")
    print(report.text_table(results), end="\n\n")
    print(report.markdown_table(results))
    if notes:
        print("\nNotes\n" + "\n".join(f"- {note}" for note in notes))
    if options.json:
        report.write_json(options.json, settings_of(options, suite), results)
    if options.plots:
        report.write_plots(options.plots, results)


if __name__ == "__main__":
    try:
        main()
    except systems.MeasurementError as error:
        sys.exit(f"quality: {error}")
