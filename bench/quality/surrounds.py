#!/usr/bin/python3
"""Measures surround channels: Tarn beside FFmpeg's surround=5.1 and the passive difference of left and right.

    bench/quality/surrounds.py [--tarn PATH] [--write-docs]

Prints the table of docs/quality.md; --write-docs writes it into the page. Needs what quality.py needs. It takes about two
minutes.
"""
# SPDX-License-Identifier: MIT

import argparse
from concurrent.futures import ProcessPoolExecutor
import os
from pathlib import Path
import sys
import tempfile

# The number of threads of a linear algebra library must not affect the figures.
for variable in ("OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS"):
    os.environ[variable] = "1"

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools"))

import numpy as np
import scipy.signal
import soundfile

import design_chains
import measures
import page
import recordings
import scenes
import systems
from signals import at_level, on_and_off, pink_noise

RATE_HZ = scenes.RATE_HZ
SETTLE = RATE_HZ  # frames at the start that are not evaluated
LOOK_AHEAD_FRAMES = 384  # of the surround channels at 48 kHz
BEHIND = [3, 4]
SECONDS = 15
SILENCE_DB = -140.0  # rounding errors of a signal that cancels are below
PANS_DEGREES = (15.0, 22.5, 30.0, 40.0, 60.0)
ROOMS = 8
REVERBERATION_SECONDS = 0.4  # until the level has fallen by 60 dB
REVERBERATION_LEVEL_DB = -6.0  # of both sides together, relative to the dry speech
REVERBERATION_DELAY_SECONDS = 0.1  # more than the window of the measurement, so that it counts as another stem
BEGIN, END = (f"<!-- written by bench/quality/surrounds.py --write-docs: {word} -->\n" for word in ("begin", "end"))


class Tarn51:
    """`tarn upmix --layout 5.1`, the surround channels at 0 dB."""

    label = "Tarn"

    def __init__(self, command):
        self.command = command

    def outputs(self, stereo):
        """FL FR C BL BR."""
        with tempfile.TemporaryDirectory() as directory:
            source, result = Path(directory) / "in.wav", Path(directory) / "out.wav"
            soundfile.write(source, stereo, RATE_HZ, "PCM_24")
            options = ["--quiet", "--preset", "plain", "--surrounds", "0", "--layout", "5.1"]
            systems.run_command([self.command, "upmix", *options, source, result])
            return soundfile.read(result)[0][:, [0, 1, 2, 4, 5]]

    def without_chains(self, outputs):
        """The outputs with the surround channels as they are before their all-pass chains and without their delay."""
        early = outputs.copy()
        sections = list(zip(design_chains.committed()[RATE_HZ], design_chains.GAINS))
        for channel, chain in zip(BEHIND, (sections[:2], sections[2:])):
            signal = outputs[::-1, channel]
            for delay, gain in chain:
                numerator = np.zeros(delay + 1)
                numerator[0], numerator[delay] = -gain, 1.0
                signal = scipy.signal.lfilter(numerator, numerator[::-1], signal)
            early[:, channel] = np.roll(signal[::-1], -LOOK_AHEAD_FRAMES)
        return early


class Ffmpeg51:
    """FFmpeg's surround filter. Its delay is measured once and removed."""

    label = "FFmpeg surround=5.1"

    def __init__(self):
        self.filter = systems.FfmpegFilter(
            "surround", "surround=chl_in=stereo:chl_out=5.1,pan=5.0|c0=FL|c1=FR|c2=FC|c3=BL|c4=BR", 5
        )

    def outputs(self, stereo):
        return self.filter.aligned(stereo, RATE_HZ)

    def without_chains(self, outputs):
        return outputs


class PassiveDifference:
    """FL = L, FR = R, C = (L + R) / 2, BL = -BR = (L - R) / 2."""

    label = "passive difference"

    def outputs(self, stereo):
        left, right = stereo.T
        return np.column_stack([left, right, (left + right) / 2, (left - right) / 2, (right - left) / 2])

    def without_chains(self, outputs):
        return outputs


def share_behind(outputs):
    """Share of the surround channels in the power of all outputs."""
    powers = measures.power(outputs[SETTLE:])
    return powers[BEHIND].sum() / powers.sum()


def leak(system, stems, stereo, fronts=(2,)):
    """Power of the first stem behind relative to that in some fronts, artefacts in all outputs behind, shares."""
    outputs = system.without_chains(system.outputs(stereo))
    usable = slice(SETTLE, len(stereo) - SETTLE)
    contributions, residual, total = measures.explain(stems[usable], outputs[usable], measures.COARSE_STFT_HOP)
    source = contributions[0]
    others = contributions[1:].sum(axis=0)
    return {
        "leak": measures.ratio_db(source[BEHIND].sum(), source[list(fronts)].sum()),
        "artefacts": measures.ratio_db(residual[BEHIND].sum(), total.sum()),
        "others_behind": others[BEHIND].sum() / others.sum(),
    }


def correlation(outputs):
    """Correlation of the surround channels."""
    return abs(float(np.corrcoef(outputs[SETTLE:, BEHIND].T)[0, 1]))


def reverberation(dry, generator):
    """Independent reverberation left and right."""
    time = np.arange(round(REVERBERATION_SECONDS * RATE_HZ)) / RATE_HZ
    envelope = 10 ** (-3 * time / REVERBERATION_SECONDS)
    delay = np.zeros(round(REVERBERATION_DELAY_SECONDS * RATE_HZ))
    responses = [np.concatenate([delay, envelope * generator.standard_normal(len(time))]) for _ in range(2)]
    sides = [scipy.signal.fftconvolve(dry, response)[: len(dry)] for response in responses]
    level = 10 * np.log10(np.mean(dry**2)) + REVERBERATION_LEVEL_DB - 3
    return [at_level(side, level) for side in sides]


def reverberant_figures(system):
    """Leak of speech in its reverberation and the share of this behind, means over several rooms."""
    found = []
    for room in range(ROOMS):
        speech = at_level(recordings.speech(recordings.DESIGN_HALF, room, RATE_HZ, SECONDS), -25)
        sides = np.column_stack(reverberation(speech, np.random.default_rng([3, room])))
        stereo = sides + scenes.HALF_POWER * speech[:, None]
        found.append(leak(system, np.column_stack([speech, sides]), stereo))
    return {
        "reverberant_leak": float(np.mean([room["leak"] for room in found])),
        "reverberation_behind": float(np.mean([room["others_behind"] for room in found])),
    }


def generated_figures(system):
    """The figures of noise and of speech over noise."""
    generator = np.random.default_rng(2)
    frames = SECONDS * RATE_HZ
    left, right, source = (at_level(pink_noise(generator, frames, RATE_HZ), -28) for _ in range(3))
    louder = at_level(source, -25)
    speech = at_level(recordings.speech(recordings.DESIGN_HALF, 0, RATE_HZ, SECONDS), -25)
    diffuse = np.column_stack([left, right])
    half = scenes.HALF_POWER

    behind = []
    for degrees in PANS_DEGREES:
        outputs = system.outputs(np.outer(louder, scenes.pan_gains(degrees)))
        behind.append(measures.ratio_db(measures.power(outputs[SETTLE:])[BEHIND].sum(), np.mean(louder[SETTLE:] ** 2)))
    field = system.outputs(diffuse)
    spoken = leak(system, np.column_stack([speech, left, right]), diffuse + half * speech[:, None])
    gains = np.array(scenes.pan_gains(scenes.HALFWAY_PAN_DEGREES))
    quiet = 10 ** (-6 / 20) * diffuse
    sided = leak(system, np.column_stack([louder, quiet]), np.outer(louder, gains) + quiet, (0, 1, 2))

    switched = louder * on_and_off(frames, 2 * RATE_HZ, round(scenes.FLUTTER_RAMP_SECONDS * RATE_HZ))
    outputs = system.outputs(diffuse + half * switched[:, None])[SETTLE:, BEHIND]
    powers = [outputs[first : first + RATE_HZ // 2].var() for first in range(RATE_HZ // 4, len(outputs), RATE_HZ)]
    return {
        "panned": max(value for value in behind if value is not None) if any(behind) else None,
        "diffuse_behind": share_behind(field),
        "diffuse_level": measures.level_db(diffuse[SETTLE:], field[SETTLE:]),
        "diffuse_correlation": correlation(field),
        "opposite_behind": share_behind(system.outputs(np.column_stack([left, -left]))),
        "speech_leak": spoken["leak"],
        "speech_artefacts": spoken["artefacts"],
        "half_left_leak": sided["leak"],
        "pumping": abs(measures.ratio_db(np.mean(powers[0::2]), np.mean(powers[1::2]))),
    }


def track_figures(arguments):
    """The figures of one track with speech at its power."""
    system, half, index = arguments
    scene = scenes.speech_over_music(half, index, 0.0, SECONDS)
    found = leak(system, np.column_stack([scene.stems[name] for name in ("speech", "left", "right")]), scene.stereo)
    music = scenes.music_alone(half, index, SECONDS)
    return found | {"correlation": correlation(system.outputs(music.stereo))}


def measure(system):
    """All figures of a system."""
    tracks = [(system, half, index) for half in (0, 1) for index in range(len(recordings.tracks(half)))]
    with ProcessPoolExecutor(os.cpu_count()) as pool:
        found = list(pool.map(track_figures, tracks))
    leaks = [track["leak"] for track in found]
    return (
        generated_figures(system)
        | reverberant_figures(system)
        | {
            "music_leak_mean": float(np.mean(leaks)),
            "music_leak_worst": max(leaks),
            "music_artefacts": float(np.mean([track["artefacts"] for track in found])),
            "music_correlation": max(track["correlation"] for track in found),
        }
    )


ROWS = [
    ("panned", f"panned source behind (worst of {len(PANS_DEGREES)} pans)", "dB"),
    ("diffuse_behind", "diffuse noise, share behind", "%"),
    ("diffuse_level", "diffuse noise, level of all outputs", "dB"),
    ("diffuse_correlation", "diffuse noise, correlation behind", "1"),
    ("opposite_behind", "opposite phase, share behind", "%"),
    ("speech_leak", "speech in diffuse noise: behind relative to C", "dB"),
    ("speech_artefacts", "speech in diffuse noise: artefacts behind relative to all outputs", "dB"),
    ("half_left_leak", "half-left source in noise at -6 dB: behind relative to the fronts", "dB"),
    (
        "reverberant_leak",
        f"speech in reverberation of {REVERBERATION_SECONDS:g} s at {REVERBERATION_LEVEL_DB:g} dB: behind relative to C, mean of {ROOMS} rooms",
        "dB",
    ),
    ("reverberation_behind", "reverberation, share behind", "%"),
    ("pumping", "steady noise behind beside a centred source that comes and goes: change of level", "dB"),
    ("music_leak_mean", "speech over music: behind relative to C, mean of the tracks", "dB"),
    ("music_leak_worst", "speech over music: behind relative to C, worst track", "dB"),
    ("music_artefacts", "speech over music: artefacts behind relative to all outputs, mean", "dB"),
    ("music_correlation", "music, correlation behind, worst track", "1"),
]


def cell(value, unit):
    """A figure as text."""
    if value is None or (unit == "dB" and value < SILENCE_DB):
        return "-"
    return f"{100 * value:.0f} %" if unit == "%" else f"{value:.2f}" if unit == "1" else f"{value:.1f}"


def table(results):
    """The results as a Markdown table."""
    lines = ["| | unit | " + " | ".join(results) + " |", "|---|---|" + "---|" * len(results)]
    for key, title, unit in ROWS:
        cells = " | ".join(cell(found[key], unit) for found in results.values())
        lines.append(f"| {title} | {unit} | {cells} |")
    return "\n".join(lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tarn", type=Path, default=ROOT / "build/tarn/cli/tarn", metavar="PATH", help="the command")
    parser.add_argument("--write-docs", action="store_true", help="write the table into docs/quality.md")
    options = parser.parse_args()
    if not options.tarn.is_file():
        sys.exit(f"surrounds: {options.tarn}: no such command; build it first or name it with --tarn")
    recordings.fetch()
    compared = [Tarn51(options.tarn), Ffmpeg51(), PassiveDifference()]
    text = table({system.label: measure(system) for system in compared})
    print(text)
    if options.write_docs:
        page.replace_between(BEGIN, END, f"\n{text}\n\n")


if __name__ == "__main__":
    main()
