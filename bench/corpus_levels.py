"""Level of the upmix on many tracks: loudness against the stereo, true peak, work of the limiter, clipped samples.

bench/corpus --levels uses this module. Of every track, the 15 s from its middle are decoded to floats, which keep samples
above full scale, and upmixed with the default preset and with --loudness-match, or with the gains of --gains. The filter
ebur128 of ffmpeg, which is independent of the command, measures loudness (ITU-R BS.1770) and true peak of the stereo and of
all upmixes, with one decimal.
"""
# SPDX-License-Identifier: MIT

from concurrent.futures import ThreadPoolExecutor
import json
from pathlib import Path
import re
import subprocess
import tempfile

import numpy

EXCERPT_SECONDS = 15
SHORTEST_SECONDS = 5
QUIETEST_LUFS = -60.0  # the gate of the meter removes softer tracks
TOLERANCE_LU = 0.7
WANTED_SHARE = 0.95
HIGHEST_PEAK_DB = -0.2  # printed with one decimal, so at most -0.15
MATCH = "--loudness-match"


def modes_of(options):
    """The names of the compared upmixes, and their options. Gains are in descending order."""
    if options.gains:
        return {f"--gain {gain:g}": ["--gain", f"{gain:g}"] for gain in sorted(options.gains, reverse=True)}
    return {"default preset": [], MATCH: [MATCH]}


def duration(path):
    found = subprocess.run(
        ["ffprobe", "-v", "fatal", "-show_entries", "format=duration", "-of", "csv=p=0", f"file:{path}"],
        stdout=subprocess.PIPE,
        text=True,
    ).stdout
    try:
        return float(found)
    except ValueError:
        return 0.0


def write_excerpt(path, seconds, target):
    """Decodes the middle of a track to floats. Returns whether this succeeded."""
    start = max(0.0, (seconds - EXCERPT_SECONDS) / 2)
    decoded = ["-map", "0:a:0", "-t", str(EXCERPT_SECONDS), "-c:a", "pcm_f32le", target]
    command = ["ffmpeg", "-v", "fatal", "-nostdin", "-y", "-ss", f"{start:.3f}", "-i", f"file:{path}", *decoded]
    return subprocess.run(command).returncode == 0


def measure(path):
    """Integrated loudness in LUFS and true peak in dB, by ffmpeg."""
    command = ["ffmpeg", "-v", "info", "-nostats", "-nostdin", "-i", path]
    meter = ["-af", "ebur128=peak=true:framelog=verbose", "-f", "null", "-"]
    said = subprocess.run([*command, *meter], stderr=subprocess.PIPE, text=True, errors="replace").stderr
    loudness = re.findall(r"I:\s+(-?[0-9.]+|-inf) LUFS", said)
    peak = re.findall(r"Peak:\s+(-?[0-9.]+|-inf) dBFS", said)
    return float(loudness[-1]), float(peak[-1])


def upmix(options, more, source, output):
    """The report of the command, or None if it failed."""
    command = [options.tarn, "upmix", "--quiet", "--json", "--force", "--layout", options.layout, *more, source, output]
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, errors="replace")
    return json.loads(done.stdout) if done.returncode == 0 else None


def at_smaller_gain(unlimited, gain):
    """The figures at a smaller gain than one at which the limiter does nothing. They follow without an upmix."""
    change = gain - unlimited["gain"]
    return {
        **unlimited,
        "gain": gain,
        "difference": unlimited["difference"] + change,
        "peak": unlimited["peak"] + change,
    }


def measured_modes(options, source, output, before):
    """The figures of every mode; None for a mode that failed."""
    figures = {}
    unlimited = None
    for mode, more in modes_of(options).items():
        if unlimited:
            figures[mode] = at_smaller_gain(unlimited, float(more[1]))
            continue
        report = upmix(options, more, source, output)
        if report is None:
            figures[mode] = None
            continue
        after, peak = measure(output)
        figures[mode] = {
            "difference": after - before,
            "peak": peak,
            "gain": report["gain_db"],
            "limited": report["limiter"]["seconds"] / report["seconds"],
            "reduction": report["limiter"]["largest_reduction_db"],
            "clipped": report["clipped_samples"] + report["clipped_input_samples"],
        }
        if options.gains and figures[mode]["reduction"] == 0:
            unlimited = figures[mode]
    return figures


def check(options, path):
    """The figures of a track, or the reason why it is left out."""
    seconds = duration(path)
    if seconds < SHORTEST_SECONDS:
        return {"path": path, "left_out": "shorter than 5 s"}
    with tempfile.TemporaryDirectory(prefix="corpus-") as directory:
        source, output = Path(directory) / "stereo.wav", Path(directory) / "upmix.wav"
        if not write_excerpt(path, seconds, source):
            return {"path": path, "left_out": "ffmpeg cannot decode it"}
        before, peak = measure(source)
        if not before > QUIETEST_LUFS:
            return {"path": path, "left_out": "too quiet"}
        return {"path": path, "before": before, "peak": peak, "modes": measured_modes(options, source, output, before)}


def print_row(row):
    if "left_out" in row:
        print(f"left out  {row['path']}: {row['left_out']}", flush=True)
        return
    print(f"{row['path']}  {row['before']:.1f} LUFS, peak {row['peak']:+.1f} dB", end="")
    for mode, figures in row["modes"].items():
        if figures is None:
            print(f"; {mode}: FAILED", end="")
            continue
        print(
            f"; {mode}: {figures['difference']:+.1f} LU, peak {figures['peak']:+.1f} dB, gain {figures['gain']:+.2f} dB, "
            f"limited {figures['limited']:.0%}, {figures['reduction']:.1f} dB, {figures['clipped']} clipped",
            end="",
        )
    print(flush=True)


def summary(figures):
    """A line of the table of a mode, without its name."""
    differences = numpy.array([each["difference"] for each in figures])
    reductions = numpy.array([each["reduction"] for each in figures])
    limited = numpy.array([each["limited"] for each in figures])
    inside = float(numpy.mean(numpy.abs(differences) <= TOLERANCE_LU + 1e-6))
    return inside, (
        f"{inside:.1%} | {numpy.median(differences):+.1f} | {numpy.percentile(differences, 5):+.1f} | "
        f"{differences.min():+.1f} | {differences.max():+.1f} | {max(each['peak'] for each in figures):+.1f} | "
        f"{numpy.median(limited):.0%} | {numpy.percentile(limited, 95):.0%} | {numpy.median(reductions):.1f} | "
        f"{numpy.percentile(reductions, 95):.1f} | {sum(each['clipped'] for each in figures)}"
    )


def print_summary(rows, modes):
    """Prints a table with a line per mode. Returns what is wrong."""
    measured = [row for row in rows if "modes" in row]
    print(f"\n{len(measured)} tracks, {sum(row['peak'] > 0 for row in measured)} with a true peak above full scale\n")
    print(
        "| mode | within 0.7 LU | difference: median | 5 % below | least | most | highest true peak | time limited: median | 95 % "
        "below | largest reduction: median | 95 % below | clipped samples |\n|---|---|---|---|---|---|---|---|---|---|---|---|"
    )
    wrong = []
    for mode in modes:
        figures = [row["modes"][mode] for row in measured if row["modes"][mode] is not None]
        if len(figures) < len(measured):
            wrong.append(f"{mode}: {len(measured) - len(figures)} tracks failed")
        inside, line = summary(figures)
        print(f"| {mode} | {line} |")
        if max(each["peak"] for each in figures) > HIGHEST_PEAK_DB:
            wrong.append(f"{mode}: true peak above {HIGHEST_PEAK_DB} dB")
        if any(each["clipped"] for each in figures):
            wrong.append(f"{mode}: clipped samples")
        if mode == MATCH and inside < WANTED_SHARE:
            wrong.append(f"{mode}: less than {WANTED_SHARE:.0%} of the tracks within {TOLERANCE_LU} LU")
    return wrong


def run(options, files):
    """Measures all files. Returns the exit code."""
    rows = []
    with ThreadPoolExecutor(options.jobs) as pool:
        for row in pool.map(lambda file: check(options, file), files):
            print_row(row)
            rows.append(row)
    wrong = print_summary(rows, modes_of(options))
    for text in wrong:
        print(f"WRONG {text}")
    return 1 if wrong else 0
