#!/usr/bin/python3
"""Measures the quality of the upmix, and compares it with two filters of FFmpeg, a fixed matrix and the stereo.

    bench/quality/quality.py --json figures.json --plots pictures
    bench/quality/quality.py --write-docs

Needs Debian's python3-numpy, python3-scipy, python3-soundfile and python3-matplotlib, and a built tarn. Optional:
ffmpeg for the comparison, and espeak-ng for speech. Music and speech of Debian packages are downloaded once (1 GB) into
build/recordings. The report names what is missing.
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
import music_figures
import page
import plots
import recordings
import report
import scenes
import systems

DEFAULT_TARN = Path(__file__).resolve().parents[2] / "build/tarn/cli/tarn"
QUICK_EXCERPT_SECONDS = 5


def parse_arguments(arguments):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tarn", type=Path, default=DEFAULT_TARN, metavar="PATH", help="the command (%(default)s)")
    parser.add_argument(
        "--mode", choices=systems.MODES, action="append", help=f"mode of tarn, can be repeated ({systems.MODES[0]})"
    )
    parser.add_argument("--seed", type=int, default=1, help="seed of the scenes (%(default)s)")
    parser.add_argument("--quick", action="store_true", help="short scenes, few tracks and no downloads, for a test")
    parser.add_argument("--no-fetch", action="store_true", help="download nothing; missing music is left out")
    parser.add_argument(
        "--speech",
        choices=["auto", "espeak-ng", "synthetic"],
        default="auto",
        help="voice of the dialogue; auto is espeak-ng if installed, else synthetic",
    )
    parser.add_argument("--json", type=Path, metavar="FILE", help="write all figures to FILE")
    parser.add_argument("--plots", type=Path, metavar="DIR", help="write pictures into DIR")
    parser.add_argument(
        "--write-docs", action="store_true", help="measure both modes, write the table and pictures of docs/quality.md"
    )
    options = parser.parse_args(arguments)
    if options.write_docs:
        if options.quick or options.no_fetch or options.mode or options.plots:
            parser.error("--write-docs measures everything; leave out --quick, --no-fetch, --mode and --plots")
        options.mode, options.plots = systems.MODES, page.PICTURES
    return options


def settings_of(options, suite, music):
    """Settings and versions that the figures depend on."""
    song = suite.recording
    return {
        "seed": options.seed,
        "quick": options.quick,
        "speech": suite.speech,
        "rate_hz": scenes.RATE_HZ,
        "recording": song and f"{scenes.SONG_CREDIT}, {song.rate} Hz",
        "music": music,
        "versions": systems.versions(options.tarn),
        "packages": {package: version for package, (version, _) in recordings.PACKAGES.items()},
    }


def music_settings(quick):
    """Seconds of each track and tracks of each half; None if recordings are missing."""
    if recordings.missing():
        return None
    return {"seconds": QUICK_EXCERPT_SECONDS if quick else recordings.EXCERPT_SECONDS, "limit": 1 if quick else None}


def progress(done, total):
    print(f"quality: music, {done} of {total} tracks", file=sys.stderr)


def measure(compared, suite, music):
    """All figures of the compared systems: label -> key -> value. music is None or from music_settings."""
    results = {}
    for system in compared:
        print(f"quality: {system.label}", file=sys.stderr)
        results[system.label] = figures.measure(system, suite)
    if music:
        for label, found in music_figures.measure(compared, **music, progress=progress).items():
            results[label] |= found
    return results


def notes_of(suite, results):
    """What is missing, and systems whose alignment failed."""
    notes = []
    if suite.recording is None:
        notes.append(f"the recording is left out, because {recordings.FOLDER} lacks {scenes.SONG_PACKAGE}")
    if suite.speech == "synthetic":
        notes.append("the dialogue is spoken by a synthetic voice; espeak-ng was not asked or is not installed")
    if recordings.missing():
        notes.append(f"the music is left out, because {recordings.FOLDER} lacks {', '.join(recordings.missing())}")
    for label, found in results.items():
        if found["aligned_delay"]:
            notes.append(f"{label}: its aligned output is {found['aligned_delay']} frames late")
    return notes


def main(arguments=None):
    options = parse_arguments(arguments)
    if not options.tarn.is_file():
        sys.exit(f"quality: {options.tarn}: no such command; build it first or name it with --tarn")
    if not (options.quick or options.no_fetch):
        recordings.fetch()
    suite = scenes.build_suite(options.seed, options.quick, options.speech)
    peers, notes = systems.peers()
    tarns = [systems.Tarn(options.tarn, mode) for mode in options.mode or systems.MODES[:1]]
    music = music_settings(options.quick)
    results = measure([*tarns, *peers, systems.FixedMatrix(), systems.PlainStereo()], suite, music)

    notes += notes_of(suite, results)
    print(report.text_table(results), end="\n\n")
    print(report.markdown_table(results))
    if notes:
        print("\nNotes\n" + "\n".join(f"- {note}" for note in notes))
    settings = settings_of(options, suite, music)
    if options.json:
        report.write_json(options.json, settings, results)
    if options.write_docs:
        if notes:
            raise systems.MeasurementError(f"{page.PATH} is not written, because figures are missing; see the notes")
        page.write(settings, results)
    if options.plots:
        plots.write(options.plots, results)


if __name__ == "__main__":
    try:
        main()
    except systems.MeasurementError as error:
        sys.exit(f"quality: {error}")
    except recordings.FetchError as error:
        sys.exit(f"quality: {error}\nUpdate the package lists (apt-get update), or leave the music out (--no-fetch).")
