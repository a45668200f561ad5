#!/usr/bin/python3
"""Lip-sync of every combination of containers, codecs and irregularities.

    lip_sync_matrix.py TARN_FILM TARN [WORD...]

Upmixes generated films, and compares the distance of clicks and flashes before and after. It may differ by 1 ms, or by no
frame where the clocks of input and output count frames: from MP4 to MP4, and from FLAC of 48 kHz in MKV, whose packets have
whole milliseconds, to MKV; both into lossless codecs. WORDs choose the films with all of them in their name. Prints what is left out and why, and a
table. The exit code is 1 if a combination fails.
"""
# SPDX-License-Identifier: MIT

from collections import Counter
from concurrent.futures import ThreadPoolExecutor
import os
from pathlib import Path
import subprocess
import sys
import tempfile
import time

from films import ENCODERS, SECONDS, clicks, ffmpeg, make_film, offsets, run_film

CONTAINERS = ("mkv", "mp4", "ts")
CASES = ("regular", "late", "gap", "edit", "44100", "96000", "variable")
OUTPUTS = [(codec, end) for end in ("mkv", "mp4") for codec in ("flac", "ac3", "eac3", "aac", "opus", "pcm")]
LOSSLESS = ("flac", "pcm")
MAX_SECONDS = 0.001 + 1e-9  # the times are rounded numbers


def reason_to_leave_out(container, codec, case):
    """Why there is no such film; none if there is one."""
    if (container, codec) in {("mp4", "pcm"), ("ts", "pcm"), ("ts", "flac")}:
        return f"FFmpeg 5.1 writes no {codec} into {container}"
    if case in ("44100", "96000") and codec == "opus":
        return "opus always has 48 kHz"
    if case == "96000" and codec == "ac3":
        return "ac3 has at most 48 kHz"
    if case == "edit" and container != "mp4":
        return f"{container} has no edit lists"
    return None


def make_case(folder, container, codec, case):
    """Writes a film and returns its path."""
    film = folder / f"{case}-{codec}.{container}"
    if case == "late":
        return make_film(film, codec, before=("-itsoffset", "2"))
    if case in ("44100", "96000"):
        return make_film(film, codec, int(case))
    if case == "variable":
        return make_film(film, codec, video=("-vf", "select='not(between(mod(n,25),10,17))'", "-vsync", "vfr"))
    if case == "gap":
        whole = make_film(folder / f"whole-{codec}.{container}", codec)
        ffmpeg("-i", whole, "-c", "copy", "-strict", -2, "-bsf:a", "noise=drop=between(pts*tb\\,1.2\\,2.4)", film)
        return film
    if case == "edit":
        whole = make_film(folder / f"uncut-{codec}.{container}", codec, video=("-g", 10))
        ffmpeg("-ss", "0.9", "-i", whole, "-c", "copy", "-strict", -2, film)
        return film
    return make_film(film, codec)


def is_counted_in_frames(film, case, codec, end):
    """Whether no frame may be lost or added."""
    if codec not in LOSSLESS:
        return False
    if film.suffix == ".mp4":
        return end == "mp4"
    is_whole_milliseconds = film.stem.endswith("-flac") and case not in ("gap", "44100", "96000")
    return film.suffix == ".mkv" and end == "mkv" and is_whole_milliseconds


def problem_of(film, case, before, codec, end):
    """What is wrong with one output; none if nothing is, and "refused" if the container cannot hold the codec."""
    target = film.parent / f"{film.name}-{codec}.{end}"
    # A gap of a second is a loss.
    expected = 1 if case == "gap" else 0
    result = run_film("--quiet", "--preset", "plain", "--codec", codec, film, target)
    if result.returncode == 64 and "cannot hold" in result.stderr:
        return "refused"
    if result.returncode != expected:
        return f"exit code {result.returncode}: {result.stderr}"
    after = offsets(target, 0)
    if len(after) != len(before) or len(after) < SECONDS - 2:
        return f"{len(before)} clicks before, {len(after)} after"
    worst = max((own - old for own, old in zip(after, before)), key=abs)
    if abs(worst) > MAX_SECONDS:
        return f"{1000 * worst:.3f} ms"
    if is_counted_in_frames(film, case, codec, end):
        upmixed, original = clicks(target, 0), clicks(target, 1)
        if upmixed != original:
            return f"clicks at {upmixed}, those of the original at {original}"
    target.unlink()
    return None


def run_case(folder, container, codec, case):
    """Runs all outputs of a film. Returns the problems by output."""
    film = make_case(folder, container, codec, case)
    before = offsets(film, 0)
    problems = {}
    for out_codec, end in OUTPUTS:
        try:
            problem = problem_of(film, case, before, out_codec, end)
        except subprocess.CalledProcessError as error:
            problem = f"{error}: {error.stderr!r}"
        problems[f"{film.name} to {out_codec}.{end}"] = (problem, is_counted_in_frames(film, case, out_codec, end))
    return problems


def main():
    start = time.monotonic()
    left_out = Counter()
    chosen = []
    for case in CASES:
        for container in CONTAINERS:
            for codec in ENCODERS:
                reason = reason_to_leave_out(container, codec, case)
                if reason:
                    left_out[reason] += 1
                elif all(word in f"{case}-{codec}.{container}" for word in sys.argv[3:]):
                    chosen.append((container, codec, case))
    results = {}
    with tempfile.TemporaryDirectory(prefix="tarn-lip-sync-") as name, ThreadPoolExecutor(os.cpu_count()) as pool:
        for problems in pool.map(lambda case: run_case(Path(name), *case), chosen):
            results.update(problems)
    refused = [pair for pair, (problem, _) in results.items() if problem == "refused"]
    failed = {pair: problem for pair, (problem, _) in results.items() if problem not in (None, "refused")}
    exact = sum(counted and problem is None for problem, counted in results.values())
    for pair, problem in failed.items():
        print(f"{pair}: {problem}")
    for reason, count in left_out.items():
        print(f"left out: {count} kinds of films, because {reason}")
    print(f"left out: {len(refused)} outputs, because tarn film refuses PCM in MP4")
    print(
        f"{len(chosen)} films, {len(results) - len(refused)} combinations: "
        f"{len(results) - len(refused) - len(failed)} passed, {exact} of them without a difference of a frame, "
        f"{len(failed)} failed; {time.monotonic() - start:.0f} s"
    )
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
