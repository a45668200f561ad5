#!/usr/bin/python3
"""Measures surround channels: Tarn beside FFmpeg's surround=5.1 and the passive difference of left and right.

    bench/quality/surrounds.py [--tarn PATH] [--write-docs]

Prints the table of docs/quality.md; --write-docs writes it into the page. Needs what quality.py needs. It takes about two
minutes.
"""
# SPDX-License-Identifier: MIT

from concurrent.futures import ProcessPoolExecutor
import os
import sys

import doc_table
from doc_table import Row

sys.path.insert(0, str(doc_table.ROOT / "tools"))

import numpy as np
import scipy.signal

import design_chains
import measures
import recordings
import scenes
import systems
from signals import at_level, on_and_off, pink_noise

RATE_HZ = scenes.RATE_HZ
SETTLE = RATE_HZ  # frames at the start that are not evaluated
LOOK_AHEAD_FRAMES = 384  # of the surround channels at 48 kHz
BEHIND = [3, 4]
SECONDS = 15
PANS_DEGREES = (15.0, 22.5, 30.0, 40.0, 60.0)
ROOMS = 8


class Tarn51:
    """`tarn upmix --layout 5.1`, the surround channels at 0 dB."""

    label = "Tarn"

    def __init__(self, command):
        self.command = command

    def outputs(self, stereo):
        """FL FR C BL BR."""
        options = ["--preset", "plain", "--surrounds", "0", "--layout", "5.1"]
        return systems.upmix(self.command, stereo, RATE_HZ, options)[:, [0, 1, 2, 4, 5]]

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


def reverberant_figures(system):
    """Leak of speech in its reverberation and the share of this behind, means over several rooms."""
    found = []
    for room in range(ROOMS):
        speech = at_level(recordings.speech(recordings.DESIGN_HALF, room, RATE_HZ, SECONDS), -25)
        sides = np.column_stack(scenes.reverberation(speech, np.random.default_rng([3, room])))
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
    Row("panned", f"panned source behind (worst of {len(PANS_DEGREES)} pans)", "dB"),
    Row("diffuse_behind", "diffuse noise, share behind", "%"),
    Row("diffuse_level", "diffuse noise, level of all outputs", "dB"),
    Row("diffuse_correlation", "diffuse noise, correlation behind", "1", 2),
    Row("opposite_behind", "opposite phase, share behind", "%"),
    Row("speech_leak", "speech in diffuse noise: behind relative to C", "dB"),
    Row("speech_artefacts", "speech in diffuse noise: artefacts behind relative to all outputs", "dB"),
    Row("half_left_leak", "half-left source in noise at -6 dB: behind relative to the fronts", "dB"),
    Row(
        "reverberant_leak",
        f"speech in reverberation of {scenes.REVERBERATION_SECONDS:g} s at {scenes.REVERBERATION_LEVEL_DB:g} dB: behind relative to C, mean of {ROOMS} rooms",
        "dB",
    ),
    Row("reverberation_behind", "reverberation, share behind", "%"),
    Row("pumping", "steady noise behind beside a centred source that comes and goes: change of level", "dB"),
    Row("music_leak_mean", "speech over music: behind relative to C, mean of the tracks", "dB"),
    Row("music_leak_worst", "speech over music: behind relative to C, worst track", "dB"),
    Row("music_artefacts", "speech over music: artefacts behind relative to all outputs, mean", "dB"),
    Row("music_correlation", "music, correlation behind, worst track", "1", 2),
]


def results(tarn):
    """The figures of all systems."""
    return {system.label: measure(system) for system in (Tarn51(tarn), Ffmpeg51(), PassiveDifference())}


if __name__ == "__main__":
    doc_table.main("surrounds", __doc__, ROWS, results)
